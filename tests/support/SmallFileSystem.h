#pragma once

#include <filesystem>
#include <string>

#include "tests/support/TempDir.h"

namespace CorvaneTest {

// A file system of its own, in memory, that is soon full; unmounted on destruction.
// An account that may not mount does so in a user and mount namespace that the process enters for the rest of its life. That
// takes a process with one thread: make the object before any server.
// Errors: the constructor throws std::runtime_error, which says what would be needed, when neither is allowed.
class SmallFileSystem {
 public:
  explicit SmallFileSystem(const std::string& size);  // as tmpfs takes it: "64k", "1m"
  ~SmallFileSystem();
  SmallFileSystem(const SmallFileSystem&) = delete;
  SmallFileSystem& operator=(const SmallFileSystem&) = delete;

  [[nodiscard]] const std::filesystem::path& Path() const { return m_folder.Path(); }
  std::filesystem::path operator/(const std::filesystem::path& name) const { return m_folder / name; }

 private:
  TempDir m_folder;
};

// What a test that is not allowed to do its work says.
inline constexpr const char* kNeedsPrivileges =
    "needs root or unprivileged user namespaces; leave such tests out with ctest --label-exclude privileged";

}  // namespace CorvaneTest
