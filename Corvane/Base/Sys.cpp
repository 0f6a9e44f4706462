#include <Corvane/Base/Sys.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <limits>
#include <memory>
#include <string>

namespace Corvane::Wrappers::Sys {

namespace {

struct FileDeleter {
  void operator()(std::FILE* file) const noexcept {
    std::fclose(file);
  }  // nothing was written yet, so nothing can be lost
};
using OpenFile = std::unique_ptr<std::FILE, FileDeleter>;

// The code of a failed stdio call; some of them fail without setting errno.
ZResult LastFailure() noexcept { return ResultFromErrno(errno != 0 ? errno : EIO); }

constexpr std::size_t kLongestMode = 30;

bool IsForWriting(const char* mode) noexcept { return std::strpbrk(mode, "wa+") != nullptr; }

bool IsDirectory(std::FILE* file) noexcept {
  struct stat status {};
  return fstat(fileno(file), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

ZResult Fopen(std::FILE** file, const char* path, const char* mode) noexcept {
  *file = nullptr;
  if (path == nullptr) return BASE_E_INVALID_NAME;
  const std::size_t modeLength = mode == nullptr ? 0 : std::strlen(mode);
  if (modeLength == 0 || modeLength > kLongestMode) return ResultFromErrno(EINVAL);

  // "e" closes the descriptor on exec. It goes behind the first letter, because a "," may end the letters.
  char fullMode[kLongestMode + 2] = {mode[0], 'e'};
  std::memcpy(fullMode + 2, mode + 1, modeLength - 1);

  errno = 0;
  OpenFile opened(std::fopen(path, fullMode));
  if (opened == nullptr) return LastFailure();
  // The system opens a directory for reading and lets only the reads fail; for writing it refuses by itself.
  if (mode[0] == 'r' && IsDirectory(opened.get())) return ResultFromErrno(EISDIR);
  errno = 0;
  if (IsForWriting(mode) && std::setvbuf(opened.get(), nullptr, _IONBF, 0) != 0) return LastFailure();
  *file = opened.release();
  return BASE_S_OK;
}

ZResult Fclose(std::FILE* file) noexcept {
  if (file == nullptr) return ResultFromErrno(EBADF);
  errno = 0;
  return std::fclose(file) == 0 ? BASE_S_OK : LastFailure();
}

ZResult Fseek(std::FILE* file, long offset, int whence) noexcept {
  errno = 0;
  return std::fseek(file, offset, whence) == 0 ? BASE_S_OK : LastFailure();
}

ZResult Fwrite(const void* data, std::size_t bytes, std::FILE* file, std::size_t& written) noexcept {
  const char* const begin = static_cast<const char*>(data);
  written = 0;
  while (written < bytes) {
    errno = 0;
    written += std::fwrite(begin + written, 1, bytes - written, file);
    if (written == bytes) break;
    // A signal of the host's is no reason to lose a download.
    if (errno != EINTR) return LastFailure();
    std::clearerr(file);
  }
  return BASE_S_OK;
}

ZResult Ftruncate(std::FILE* file, unsigned long long length) noexcept {
  if (length > static_cast<unsigned long long>(std::numeric_limits<off_t>::max())) return ResultFromErrno(EFBIG);
  errno = 0;
  // What a stream that somebody else opened still holds in its buffer must not be written behind the new end later.
  if (std::fflush(file) != 0) return LastFailure();
  return ftruncate(fileno(file), static_cast<off_t>(length)) == 0 ? BASE_S_OK : LastFailure();
}

}  // namespace Corvane::Wrappers::Sys
