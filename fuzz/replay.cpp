// A main for the fuzzers without libFuzzer: replays the files in the folders of its arguments, so that no fuzzer rots
// and no input that once broke something is forgotten. Arguments that begin with a dash are libFuzzer's; they are
// passed over.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

void Replay(const fs::path& file) {
  std::fprintf(stderr, "%s\n", file.c_str());  // first, for the one that does not return
  std::ifstream stream(file, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(stream), {}};
  if (!stream.good() && !stream.eof()) throw std::runtime_error("cannot read " + file.native());
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

std::size_t ReplayFolder(const fs::path& folder) {
  std::size_t count = 0;
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (!entry.is_regular_file()) continue;
    Replay(entry.path());
    ++count;
  }
  return count;
}

}  // namespace

int main(int count, char** arguments) {
  try {
    std::size_t replayed = 0;
    for (int i = 1; i < count; ++i) {
      if (arguments[i][0] != '-') replayed += ReplayFolder(arguments[i]);
    }
    std::fprintf(stderr, "replayed %zu files\n", replayed);
    return replayed == 0 ? 1 : 0;  // nothing replayed is nothing tested
  } catch (const std::exception& problem) {
    std::fprintf(stderr, "%s\n", problem.what());
    return 1;
  }
}
