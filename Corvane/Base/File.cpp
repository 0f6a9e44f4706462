#include <Corvane/Base/File.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include <Corvane/Base/LocalPathImpl.h>

namespace Corvane {

namespace {

constexpr unsigned int kPermissionBits = 07777;

ZResult GetStatus(const ZString& path, struct stat& status) {
  return CallOnLocalPath(path, [&status](const char* local) { return stat(local, &status); });
}

void Report(ZResult* result, ZResult code) noexcept {
  if (result != nullptr) *result = code;
}

bool HasType(const ZString& path, mode_t type, ZResult* result) {
  struct stat status {};
  const ZResult code = GetStatus(path, status);
  Report(result, code);
  return code == BASE_S_OK && (status.st_mode & S_IFMT) == type;
}

}  // namespace

bool ZFile::Exists(const ZString& path, int /*flags*/, ZResult* result) {
  struct stat status {};
  const ZResult code = GetStatus(path, status);
  Report(result, code);
  return code == BASE_S_OK;
}

bool ZFile::IsDirectory(const ZString& path, int /*flags*/, ZResult* result) { return HasType(path, S_IFDIR, result); }

bool ZFile::IsRegularFile(const ZString& path, int /*flags*/, ZResult* result) {
  return HasType(path, S_IFREG, result);
}

ZResult ZFile::GetSize(const ZString& path, unsigned long long& size) {
  struct stat status {};
  const ZResult code = GetStatus(path, status);
  if (code == BASE_S_OK) size = static_cast<unsigned long long>(status.st_size);
  return code;
}

ZResult ZFile::Remove(const ZString& path, int /*flags*/) {
  struct stat status {};
  const ZResult code = CallOnLocalPath(path, [&status](const char* local) { return lstat(local, &status); });
  if (code != BASE_S_OK) return code;
  if (!S_ISREG(status.st_mode) && !S_ISLNK(status.st_mode)) return BASE_E_NOT_A_FILE;
  return CallOnLocalPath(path, [](const char* local) { return unlink(local); });
}

ZResult ZFile::SetTime(const ZString& path, long access, long modification) {
  const timespec times[2] = {{access, 0}, {modification, 0}};
  return CallOnLocalPath(path, [&times](const char* local) { return utimensat(AT_FDCWD, local, times, 0); });
}

ZResult ZFile::Chmod(const ZString& path, unsigned int mode, int /*flags*/) {
  return CallOnLocalPath(path, [mode](const char* local) { return chmod(local, mode & kPermissionBits); });
}

ZFileInfo::ZFileInfo(ZString path, int /*flags*/) : m_path(std::move(path)) { Update(); }

ZResult ZFileInfo::Update() {
  struct stat status {};
  const ZResult code = GetStatus(m_path, status);
  // On a failure `status` still holds zeros.
  m_valid = code == BASE_S_OK;
  m_regular = S_ISREG(status.st_mode);
  m_size = static_cast<unsigned long long>(status.st_size);
  m_modTime = status.st_mtim.tv_sec;
  return code;
}

}  // namespace Corvane
