#include <Corvane/Base/Sys.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <limits>
#include <memory>

namespace Corvane::Wrappers::Sys {

namespace {

struct FileDeleter {
  // Nothing was written yet, so nothing can be lost.
  void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using OpenFile = std::unique_ptr<std::FILE, FileDeleter>;

// An open descriptor, closed at the end unless a stream has taken it over; -1 when the open failed.
class Descriptor {
 public:
  explicit Descriptor(int descriptor) noexcept : m_descriptor(descriptor) {}
  ~Descriptor() {
    if (m_descriptor >= 0) close(m_descriptor);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  [[nodiscard]] int Get() const noexcept { return m_descriptor; }
  void Release() noexcept { m_descriptor = -1; }

 private:
  int m_descriptor;
};

// The code of a failed call; some of stdio's fail without setting errno.
ZResult LastFailure() noexcept { return ResultFromErrno(errno != 0 ? errno : EIO); }

bool IsForWriting(const char* mode) noexcept { return std::strpbrk(mode, "wa+") != nullptr; }

bool IsKnownMode(const char* mode) noexcept {
  if (mode == nullptr || *mode == '\0' || std::strchr("rwa", *mode) == nullptr) return false;
  for (const char* option = mode + 1; *option != '\0'; ++option) {
    if (std::strchr("+bxe", *option) == nullptr || std::strchr(option + 1, *option) != nullptr) return false;
  }
  return true;
}

// What fopen(3) makes of a mode for open(2), but for O_TRUNC: see MakeEmpty.
int OpenFlags(const char* mode) noexcept {
  const bool isForUpdate = std::strchr(mode, '+') != nullptr;
  if (*mode == 'r') return isForUpdate ? O_RDWR : O_RDONLY;
  const int access = isForUpdate ? O_RDWR : O_WRONLY;
  const int exclusive = std::strchr(mode, 'x') != nullptr ? O_EXCL : 0;
  return access | O_CREAT | exclusive | (*mode == 'w' ? 0 : O_APPEND);
}

// Takes away what an opened file holds, as O_TRUNC does; of what is no file, that flag takes nothing. A file that is empty is
// left alone: ext4 takes each truncation for the beginning of a replacement and sends all that is written afterwards to the disk
// within close(2), which cost a download of 1 GiB into a new file up to half a second.
bool MakeEmpty(int descriptor, const struct stat& status) noexcept {
  return !S_ISREG(status.st_mode) || status.st_size == 0 || ftruncate(descriptor, 0) == 0;
}

bool IsRegularFile(const char* path) noexcept {
  struct stat status {};
  return stat(path, &status) == 0 && S_ISREG(status.st_mode);
}

// Opens without waiting for the other side of a FIFO, which may never come: no time limit reaches into open(2).
int OpenWithoutPeer(const char* path, int flags) noexcept {
  constexpr mode_t kEverybody = 0666;  // open(2) subtracts the umask
  const int descriptor = open(path, flags | O_NONBLOCK, kEverybody);
  if (descriptor >= 0 || errno != EWOULDBLOCK) return descriptor;
  // Somebody, a file server perhaps, holds a lease on the file (fcntl(2)) and has been told to give it back. The system
  // gives him some seconds, which are worth waiting for.
  const bool isFile = IsRegularFile(path);
  errno = EWOULDBLOCK;
  return isFile ? open(path, flags, kEverybody) : -1;
}

// Makes reads and writes wait again, which only the open was not to do.
bool ClearNonBlocking(int descriptor) noexcept {
  const int flags = fcntl(descriptor, F_GETFL);
  return flags >= 0 && fcntl(descriptor, F_SETFL, flags & ~O_NONBLOCK) == 0;
}

// Null on failure; otherwise the stream owns the descriptor.
std::FILE* MakeStream(int descriptor, const char* mode) noexcept {
  const bool isForUpdate = std::strchr(mode, '+') != nullptr;
  // Where fopen begins, and fdopen does not. A FIFO has no end to go to.
  if (*mode == 'a' && !isForUpdate) static_cast<void>(lseek(descriptor, 0, SEEK_END));
  // The other letters were for the open; C libraries look at the first few letters only.
  const char plainMode[] = {*mode, isForUpdate ? '+' : '\0', '\0'};
  return fdopen(descriptor, plainMode);
}

}  // namespace

ZResult Fopen(std::FILE** file, const char* path, const char* mode) noexcept {
  *file = nullptr;
  if (path == nullptr) return BASE_E_INVALID_NAME;
  if (!IsKnownMode(mode)) return ResultFromErrno(EINVAL);
  Descriptor descriptor(OpenWithoutPeer(path, OpenFlags(mode) | O_CLOEXEC));
  if (descriptor.Get() < 0) return LastFailure();
  struct stat status {};
  if (fstat(descriptor.Get(), &status) != 0) return LastFailure();
  // The system opens a directory for reading and lets only the reads fail; for writing it refuses by itself.
  if (S_ISDIR(status.st_mode)) return ResultFromErrno(EISDIR);
  if (*mode == 'w' && !MakeEmpty(descriptor.Get(), status)) return LastFailure();
  if (!ClearNonBlocking(descriptor.Get())) return LastFailure();

  errno = 0;
  OpenFile opened(MakeStream(descriptor.Get(), mode));
  if (opened == nullptr) return LastFailure();
  descriptor.Release();
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
