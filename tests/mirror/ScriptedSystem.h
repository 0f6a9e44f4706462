#pragma once

#include <cerrno>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace CorvaneTest {

// Stands between the library and the system while it exists: statvfs, stat, chmod, unlink, utimensat and the system
// clock answer as it says, and it is told when a condition variable is broadcast. Only calls of the thread that made it
// are concerned, so servers on other threads notice nothing. Files outside of its folder are left alone.
class ScriptedSystem {
 public:
  explicit ScriptedSystem(std::filesystem::path folder);
  ~ScriptedSystem();
  ScriptedSystem(const ScriptedSystem&) = delete;
  ScriptedSystem& operator=(const ScriptedSystem&) = delete;

  // --- what to answer

  std::optional<unsigned long long> freeKilobytes;      // the file system's own when not set
  int freeSpaceError = 0;                               // an errno
  std::optional<long long> now;                         // microseconds since the epoch; the system's own when not set
  std::map<std::string, int> unreadable;                // errno of stat by file name, for files with content
  std::map<std::string, long> additionalSize;           // what stat adds to the sizes of files with content
  std::map<std::string, int> timeError;                 // errno of utimensat by file name
  std::optional<long> latestTime;                       // what utimensat makes of later ones, as file systems do
  std::map<std::string, int> modeError;                 // errno of chmod by file name
  std::function<void(const std::string& call)> onCall;  // told about each noted call before it is made
  std::function<void()> onClock;                        // told before each look at the system clock, which is not noted
  std::function<void(const std::string& name)> onStat;  // told before each stat of a file or what is missing; not noted
  std::function<void()> onBroadcast;                    // told before an event wakes those who wait for it; not noted

  // --- what was asked for: "space", "unlink a", "chmod a 755", "times a 1500000000 1500000000"; stat is not noted

  std::vector<std::string> calls;

  // --- for the functions that stand in for the system's

  static ScriptedSystem* OfThisThread();
  // The name of the file when it is in the folder, empty for others.
  std::string NameOf(const char* path) const;
  void Note(const std::string& call);

 private:
  std::filesystem::path m_folder;
};

}  // namespace CorvaneTest
