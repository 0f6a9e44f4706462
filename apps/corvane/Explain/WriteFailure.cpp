#include "apps/corvane/Explain/WriteFailure.h"

#include <fmt/core.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

std::string FreeSpaceOf(const std::string& path) {
  struct statvfs status {};
  const std::string directory = path.substr(0, path.rfind('/') + 1);
  if (statvfs(directory.empty() ? "." : directory.c_str(), &status) != 0) return "how much is unknown";
  return FormatBytes(static_cast<unsigned long long>(status.f_bavail) * status.f_frsize);
}

}  // namespace

// libcurl only knows that a block was not stored, and the library's code does not keep the errno, so the reason is looked for
// in what the system tells now.
std::string ExplainWriteFailure(const std::string& path) {
  struct stat status {};
  const bool isThere = stat(path.c_str(), &status) == 0;
  const bool isRegular = isThere && S_ISREG(status.st_mode);
  const std::string name = DisplayName(path);
  if (isThere && S_ISDIR(status.st_mode)) {
    return fmt::format("cannot write into {}: the file system has {} left; free some space", name,
                       FreeSpaceOf(path + "/"));
  }
  if (!isRegular)
    return fmt::format("cannot write {}: it takes no more data; check that it has room, or that somebody reads from it",
                       name);
  rlimit limit{};
  if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY &&
      static_cast<rlim_t>(status.st_size) >= limit.rlim_cur) {
    return fmt::format("cannot write {}: the limit for the size of files is {}; raise it (ulimit -f)", name,
                       FormatBytes(limit.rlim_cur));
  }
  return fmt::format("cannot write {} beyond {}: the file system has {} left; free some space", name,
                     FormatBytes(static_cast<unsigned long long>(status.st_size)), FreeSpaceOf(path));
}

}  // namespace CorvaneCli
