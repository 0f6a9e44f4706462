#include "apps/corvane/Explain/WriteFailure.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>

#include "apps/corvane/Files.h"
#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

std::string DirectoryOf(const std::string& path) {
  const std::string directory = path.substr(0, path.rfind('/') + 1);
  return directory.empty() ? "." : directory;
}

std::string FreeSpaceOf(const std::string& path) {
  struct statvfs status {};
  if (statvfs(DirectoryOf(path).c_str(), &status) != 0) return "how much is unknown";
  return FormatBytes(static_cast<unsigned long long>(status.f_bavail) * status.f_frsize);
}

// The errno with which the file system of `path` refuses another block; 0 when it takes one, or when it does not tell
// because it has no files without a name.
int RefusalOf(const std::string& path) {
  const Descriptor probe = Open(DirectoryOf(path), O_TMPFILE | O_WRONLY);
  if (!probe.IsOpen()) return errno == ENOSPC || errno == EDQUOT || errno == EROFS ? errno : 0;
  const int error = WriteAll(probe.Get(), std::string(1 << 16, '\0'));
  return error != 0 || fsync(probe.Get()) == 0 ? error : errno;
}

bool HasRoom(const std::string& path) {
  constexpr unsigned long long kRoom = 1 << 20;  // more than any block, so that a disk which has it was not full
  struct statvfs status {};
  return statvfs(DirectoryOf(path).c_str(), &status) == 0 &&
         static_cast<unsigned long long>(status.f_bavail) * status.f_frsize >= kRoom;
}

}  // namespace

std::string ExplainWriteFailure(const std::string& path) {
  struct stat status {};
  const std::string name = DisplayName(path);
  if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return fmt::format("cannot write {}: it takes no more data; check that it has room, or that somebody reads from it",
                       name);
  }
  rlimit limit{};
  if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY &&
      static_cast<rlim_t>(status.st_size) >= limit.rlim_cur) {
    return fmt::format("cannot write {}: the limit for the size of files is {}; raise it (ulimit -f)", name,
                       FormatBytes(limit.rlim_cur));
  }
  const int refusal = RefusalOf(path);
  if (refusal == 0 && HasRoom(path)) {
    return fmt::format("cannot write {}: the disk has {} left, but {}", name, FreeSpaceOf(path), kMemoryRanOut);
  }
  const std::string reason = refusal == 0 || refusal == ENOSPC ? "" : SystemText(refusal) + ", ";
  return fmt::format("cannot write {} beyond {}: {}the file system has {} left; free some space", name,
                     FormatBytes(static_cast<unsigned long long>(status.st_size)), reason, FreeSpaceOf(path));
}

}  // namespace CorvaneCli
