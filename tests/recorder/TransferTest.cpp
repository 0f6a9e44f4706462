#include "tests/recorder/TransferTest.h"

#include <array>
#include <cstdio>
#include <filesystem>
#include <system_error>

namespace CorvaneTest {

bool IsOpen(const std::filesystem::path& path) {
  const std::filesystem::path target = std::filesystem::canonical(path.parent_path()) / path.filename();
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;  // the iterator's own descriptor is listed too
    const std::string name = std::filesystem::read_symlink(entry.path(), gone).string();
    if (!gone && (name == target.string() || name == target.string() + " (deleted)")) return true;
  }
  return false;
}

std::string Outcome(const ZTransfer& transfer) {
  std::array<char, 16> code{};
  std::snprintf(code.data(), code.size(), "0x%08X ", transfer.GetStatus());
  return code.data() + Narrow(transfer.GetError());
}

}  // namespace CorvaneTest
