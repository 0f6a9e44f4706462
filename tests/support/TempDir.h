#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace CorvaneTest {

// A fresh, empty folder of its own, removed with everything in it on destruction.
// It lies under std::filesystem::temp_directory_path(), so TMPDIR moves it (to a small file system, say).
// Thread safety: Path() and operator/ from any thread.
// Errors: the constructor throws std::system_error; the destructor removes what it can and is silent about the rest.
class TempDir {
 public:
  // Access of the folder for other accounts. mkdtemp makes it private; a daemon that drops root needs kPublic.
  enum class Access { kPrivate, kPublic };

  explicit TempDir(Access access = Access::kPrivate);
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  // The folder, absolute. Stays the same for the lifetime of the object.
  const std::filesystem::path& Path() const { return m_path; }

  // The path of `name` inside the folder; nothing is created.
  std::filesystem::path operator/(const std::filesystem::path& name) const { return m_path / name; }

 private:
  std::filesystem::path m_path;
};

// Creates or replaces the file with exactly these bytes; missing parent folders are created.
// Throws std::runtime_error naming the path when that fails.
void WriteFile(const std::filesystem::path& path, std::string_view bytes);

// The file's bytes. Throws std::runtime_error naming the path when it cannot be read.
std::string ReadFile(const std::filesystem::path& path);

// The file's size in bytes. Throws std::filesystem::filesystem_error when there is no such file.
std::uintmax_t FileSize(const std::filesystem::path& path);

// Pseudo-random bytes, the same on every machine for the same seed. The first n bytes do not depend on the length asked
// for: MakePattern(5, s) is the beginning of MakePattern(500, s), which suits tests of resumed transfers. The bytes are
// binary: every value occurs, NUL and invalid UTF-8 included.
std::string MakePattern(std::size_t bytes, std::uint64_t seed = 1);

}  // namespace CorvaneTest
