#pragma once

#include <functional>
#include <string>
#include <vector>

namespace CorvaneTest {

// Notes and scripts the C library's file functions while it exists.
// Thread safety: one thread at a time.
class ScriptedFiles {
 public:
  ScriptedFiles();
  ~ScriptedFiles();
  ScriptedFiles(const ScriptedFiles&) = delete;
  ScriptedFiles& operator=(const ScriptedFiles&) = delete;

  // --- The script. A failure is the errno value, 0: none. ---
  std::function<int(const std::string& path, const std::string& mode)> onOpen;
  std::function<void()> afterOpen;
  int closeFailure = 0;  // the file is closed all the same, as with a real failure
  int truncateFailure = 0;
  int seekFailure = 0;

  // "fopen w /path" with the mode in which fopen(3) would open it, "fclose", "fseek 33", "ftruncate 100", in order.
  std::vector<std::string> calls;

  // For the functions that stand in for the C library's.
  static ScriptedFiles* Current();
};

}  // namespace CorvaneTest
