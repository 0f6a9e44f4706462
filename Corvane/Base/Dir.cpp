#include <Corvane/Base/Dir.h>

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <limits>
#include <string>

#include <Corvane/Base/LocalPathImpl.h>

namespace Corvane {

namespace {

__extension__ using WideUint = unsigned __int128;

constexpr mode_t kEverybody = 0777;  // mkdir(2) subtracts the umask

bool IsDirectory(const char* path) noexcept {
  struct stat status {};
  return stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

// Returns 0, or -1 with errno set.
int CreateOne(const char* path) noexcept {
  if (mkdir(path, kEverybody) == 0) return 0;
  // Whatever the complaint, a directory that is there is what was asked for: for one that exists, some file systems
  // report that they are read-only or that permission is lacking and not EEXIST.
  const int reason = errno;
  struct stat status {};
  const bool exists = stat(path, &status) == 0;
  if (exists && S_ISDIR(status.st_mode)) return 0;
  errno = exists && reason == EEXIST ? ENOTDIR : reason;
  return -1;
}

// Creates `path`, which is not empty, and its missing parents. Returns 0, or -1 with errno set.
int CreateAll(std::string path) {
  for (std::size_t end = path.find('/', 1); end != std::string::npos; end = path.find('/', end + 1)) {
    path[end] = '\0';
    if (CreateOne(path.c_str()) != 0) return -1;
    path[end] = '/';
  }
  return CreateOne(path.c_str());
}

unsigned long long FreeKilobytes(const struct statvfs& status) noexcept {
  constexpr WideUint most = std::numeric_limits<unsigned long long>::max();
  const WideUint blockBytes = status.f_frsize != 0 ? status.f_frsize : status.f_bsize;
  const WideUint kilobytes = blockBytes * status.f_bavail / 1024;
  return static_cast<unsigned long long>(kilobytes < most ? kilobytes : most);
}

}  // namespace

ZResult ZDir::CreateR(const ZString& path) {
  if (path.IsEmpty()) return BASE_S_OK;
  return CallOnLocalPath(path, [](const char* local) {
    // The usual case, since every download into a directory comes through here: one system call.
    return IsDirectory(local) ? 0 : CreateAll(local);
  });
}

ZResult ZDir::GetFreeSpace(const ZString& path, unsigned long long& kilobytes) {
  struct statvfs status {};
  const ZString& looked = path.IsEmpty() ? ZString(L".") : path;
  const ZResult code = CallOnLocalPath(looked, [&status](const char* local) { return statvfs(local, &status); });
  if (code == BASE_S_OK) kilobytes = FreeKilobytes(status);
  return code;
}

}  // namespace Corvane
