#include <Corvane/MultiDownload/LocalFilesImpl.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <Corvane/Base/StringCoding.h>

namespace Corvane {

long TimeKeptFor(const ZString& path, long time) {
  const ZStringEncoder local(path, ZStringEncoder::Local);
  if (local.CStr() == nullptr) return time;
  const timespec times[2] = {{time, 0}, {0, UTIME_OMIT}};
  struct stat status {};
  const bool isAsked = utimensat(AT_FDCWD, local.CStr(), times, AT_SYMLINK_NOFOLLOW) == 0;
  return isAsked && lstat(local.CStr(), &status) == 0 ? status.st_atim.tv_sec : time;
}

}  // namespace Corvane
