#include "tests/support/TempDir.h"

#include <endian.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace CorvaneTest {

namespace fs = std::filesystem;

namespace {

// SplitMix64: tiny, fast without optimisation, and defined bit by bit.
std::uint64_t NextWord(std::uint64_t& state) {
  std::uint64_t word = (state += 0x9E3779B97F4A7C15u);
  word = (word ^ (word >> 30)) * 0xBF58476D1CE4E5B9u;
  word = (word ^ (word >> 27)) * 0x94D049BB133111EBu;
  return word ^ (word >> 31);
}

}  // namespace

TempDir::TempDir(Access access) {
  std::string name = (fs::temp_directory_path() / "corvane-test-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::system_error(errno, std::generic_category(), "mkdtemp " + name);
  m_path = fs::canonical(name);
  if (access == Access::kPublic) chmod(m_path.c_str(), 0755);
}

TempDir::~TempDir() {
  std::error_code ignored;  // a test may have left something that its account cannot remove
  fs::remove_all(m_path, ignored);
}

void WriteFile(const fs::path& path, std::string_view bytes) {
  if (path.has_parent_path()) fs::create_directories(path.parent_path());
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  file.close();
  if (!file) throw std::runtime_error("cannot write \"" + path.string() + "\": " + std::strerror(errno));
}

std::string ReadFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot open \"" + path.string() + "\": " + std::strerror(errno));
  std::string bytes;
  std::array<char, 65536> block;
  while (file.read(block.data(), block.size()), file.gcount() > 0) {
    bytes.append(block.data(), static_cast<std::size_t>(file.gcount()));
  }
  if (file.bad()) throw std::runtime_error("cannot read \"" + path.string() + "\": " + std::strerror(errno));
  return bytes;
}

std::uintmax_t FileSize(const fs::path& path) { return fs::file_size(path); }

std::string MakePattern(std::size_t bytes, std::uint64_t seed) {
  std::string pattern(bytes, '\0');
  std::uint64_t state = seed;
  for (std::size_t at = 0; at < bytes; at += sizeof(std::uint64_t)) {
    const std::uint64_t word = htole64(NextWord(state));
    std::memcpy(&pattern[at], &word, std::min(sizeof word, bytes - at));
  }
  return pattern;
}

}  // namespace CorvaneTest
