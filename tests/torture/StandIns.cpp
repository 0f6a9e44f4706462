#include <fcntl.h>

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>

#include "tests/support/NextFunction.h"
#include "tests/torture/Injection.h"

// The program's own definitions of the functions of the C library that the library calls and that can fail. They have names of their own
// here, and those of the C library for the linker: the headers declare some of these as inline functions.

struct stat;
struct statvfs;

namespace {

using CorvaneTest::Fault;
using CorvaneTest::Injection;
using CorvaneTest::NextFunction;
using CorvaneTest::Target;

const Fault* FailureOf(Target target, const char* function, const void* caller) noexcept {
  return CorvaneTest::IsLibraryCode(caller) ? Injection::FailureOf(target, function) : nullptr;
}

// Whether a call fails that does nothing then.
bool Fails(Target target, const char* function, const void* caller) noexcept {
  const Fault* const fault = FailureOf(target, function, caller);
  if (fault != nullptr) errno = fault->error;
  return fault != nullptr;
}

// How many of the bytes are moved all the same.
std::size_t Spared(const Fault& fault, std::size_t bytes) noexcept {
  const bool isHalved = fault.isShort && bytes > 1;
  return isHalved ? bytes / 2 : 0;
}

// For read, write and the like: what is moved is told, and the errno comes where nothing is.
template <class Move>
long MoveSome(const Fault& fault, std::size_t bytes, Move move) {
  const std::size_t some = Spared(fault, bytes);
  if (some != 0) return move(some);
  if (fault.error == 0) return move(bytes);  // of one byte there is no half
  errno = fault.error;
  return -1;
}

// Whether open(2) is told a mode.
bool HasMode(int flags) noexcept { return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE; }

}  // namespace

#define CORVANE_STANDS_IN(Result, name, parameters)                                    \
  extern "C" CORVANE_TEST_REPLACES Result StandInFor_##name parameters __asm__(#name); \
  Result StandInFor_##name parameters

// A function that does nothing when it fails.
#define CORVANE_FAILS(Result, name, target, failure, parameters, arguments)                \
  CORVANE_STANDS_IN(Result, name, parameters) {                                            \
    static const NextFunction<Result parameters> next(#name);                              \
    return Fails(target, #name, __builtin_return_address(0)) ? (failure) : next arguments; \
  }

CORVANE_STANDS_IN(int, open, (const char* path, int flags, ...)) {
  static const NextFunction<int(const char*, int, ...)> next("open");
  std::va_list rest;
  va_start(rest, flags);
  const unsigned int mode = HasMode(flags) ? va_arg(rest, unsigned int) : 0;
  va_end(rest);
  return Fails(Target::kOpen, "open", __builtin_return_address(0)) ? -1 : next(path, flags, mode);
}

CORVANE_STANDS_IN(int, openat, (int folder, const char* path, int flags, ...)) {
  static const NextFunction<int(int, const char*, int, ...)> next("openat");
  std::va_list rest;
  va_start(rest, flags);
  const unsigned int mode = HasMode(flags) ? va_arg(rest, unsigned int) : 0;
  va_end(rest);
  return Fails(Target::kOpen, "openat", __builtin_return_address(0)) ? -1 : next(folder, path, flags, mode);
}

CORVANE_STANDS_IN(int, fcntl, (int descriptor, int command, ...)) {
  static const NextFunction<int(int, int, ...)> next("fcntl");
  std::va_list rest;
  va_start(rest, command);
  void* const argument = va_arg(rest, void*);  // as the C library reads it, whatever it is
  va_end(rest);
  return Fails(Target::kControl, "fcntl", __builtin_return_address(0)) ? -1 : next(descriptor, command, argument);
}

CORVANE_STANDS_IN(long, read, (int descriptor, void* data, std::size_t bytes)) {
  static const NextFunction<long(int, void*, std::size_t)> next("read");
  const Fault* const fault = FailureOf(Target::kRead, "read", __builtin_return_address(0));
  if (fault == nullptr) return next(descriptor, data, bytes);
  return MoveSome(*fault, bytes, [&](std::size_t some) { return next(descriptor, data, some); });
}

CORVANE_STANDS_IN(long, pread, (int descriptor, void* data, std::size_t bytes, long position)) {
  static const NextFunction<long(int, void*, std::size_t, long)> next("pread");
  const Fault* const fault = FailureOf(Target::kRead, "pread", __builtin_return_address(0));
  if (fault == nullptr) return next(descriptor, data, bytes, position);
  return MoveSome(*fault, bytes, [&](std::size_t some) { return next(descriptor, data, some, position); });
}

CORVANE_STANDS_IN(long, write, (int descriptor, const void* data, std::size_t bytes)) {
  static const NextFunction<long(int, const void*, std::size_t)> next("write");
  const Fault* const fault = FailureOf(Target::kWrite, "write", __builtin_return_address(0));
  if (fault == nullptr) return next(descriptor, data, bytes);
  return MoveSome(*fault, bytes, [&](std::size_t some) { return next(descriptor, data, some); });
}

// Tells what it has written before it failed, and leaves the reason.
CORVANE_STANDS_IN(std::size_t, fwrite, (const void* data, std::size_t size, std::size_t count, std::FILE* file)) {
  static const NextFunction<std::size_t(const void*, std::size_t, std::size_t, std::FILE*)> next("fwrite");
  const Fault* const fault = FailureOf(Target::kWrite, "fwrite", __builtin_return_address(0));
  if (fault == nullptr) return next(data, size, count, file);
  const std::size_t some = Spared(*fault, count);
  const std::size_t written = some != 0 ? next(data, size, some, file) : 0;
  errno = fault->error;
  return written;
}

// libcurl reads what is posted. So that the stream itself knows of the failure it reads a folder for once, which no system does.
CORVANE_STANDS_IN(std::size_t, fread, (void* data, std::size_t size, std::size_t count, std::FILE* file)) {
  static const NextFunction<std::size_t(void*, std::size_t, std::size_t, std::FILE*)> next("fread");
  static const NextFunction<int(const char*, int, ...)> nextOpen("open");
  static const NextFunction<int(int)> nextClose("close");
  static const NextFunction<int(int, int)> replace("dup2");
  static const NextFunction<int(std::FILE*)> number("fileno");
  const bool isLibcurls = CorvaneTest::IsLibcurlCode(__builtin_return_address(0));
  const Fault* const fault = isLibcurls ? Injection::FailureOf(Target::kRead, "fread") : nullptr;
  if (fault == nullptr) return next(data, size, count, file);
  const std::size_t some = Spared(*fault, count);
  if (fault->error == 0) return next(data, size, some, file);
  const int folder = nextOpen("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  replace(folder, number(file));
  nextClose(folder);
  return next(data, size, count, file);
}

// A close that fails has closed all the same.
CORVANE_STANDS_IN(int, close, (int descriptor)) {
  static const NextFunction<int(int)> next("close");
  const Fault* const fault = FailureOf(Target::kClose, "close", __builtin_return_address(0));
  const int result = next(descriptor);
  if (fault == nullptr) return result;
  errno = fault->error;
  return -1;
}

CORVANE_STANDS_IN(int, fclose, (std::FILE * file)) {
  static const NextFunction<int(std::FILE*)> next("fclose");
  const Fault* const fault = FailureOf(Target::kClose, "fclose", __builtin_return_address(0));
  const int result = next(file);
  if (fault == nullptr) return result;
  errno = fault->error;
  return EOF;
}

CORVANE_FAILS(long, lseek, Target::kSeek, -1, (int descriptor, long offset, int whence), (descriptor, offset, whence))
CORVANE_FAILS(int, fseek, Target::kSeek, -1, (std::FILE * file, long offset, int whence), (file, offset, whence))
CORVANE_FAILS(int, stat, Target::kStatus, -1, (const char* path, struct stat* result), (path, result))
CORVANE_FAILS(int, lstat, Target::kStatus, -1, (const char* path, struct stat* result), (path, result))
CORVANE_FAILS(int, fstat, Target::kStatus, -1, (int descriptor, struct stat* result), (descriptor, result))
CORVANE_FAILS(int, fstatat, Target::kStatus, -1, (int folder, const char* path, struct stat* result, int flags),
              (folder, path, result, flags))
CORVANE_FAILS(int, unlink, Target::kRemove, -1, (const char* path), (path))
CORVANE_FAILS(int, unlinkat, Target::kRemove, -1, (int folder, const char* path, int flags), (folder, path, flags))
CORVANE_FAILS(int, renameat, Target::kRename, -1, (int from, const char* name, int to, const char* newName),
              (from, name, to, newName))
CORVANE_FAILS(int, utimensat, Target::kTimes, -1, (int folder, const char* path, const timespec* times, int flags),
              (folder, path, times, flags))
CORVANE_FAILS(int, futimens, Target::kTimes, -1, (int descriptor, const timespec* times), (descriptor, times))
CORVANE_FAILS(int, chmod, Target::kMode, -1, (const char* path, unsigned int mode), (path, mode))
CORVANE_FAILS(int, mkdir, Target::kMakeFolder, -1, (const char* path, unsigned int mode), (path, mode))
CORVANE_FAILS(int, mkdirat, Target::kMakeFolder, -1, (int folder, const char* path, unsigned int mode),
              (folder, path, mode))
CORVANE_FAILS(int, statvfs, Target::kSpace, -1, (const char* path, struct statvfs* result), (path, result))
CORVANE_FAILS(int, fstatvfs, Target::kSpace, -1, (int descriptor, struct statvfs* result), (descriptor, result))
CORVANE_FAILS(int, ftruncate, Target::kTruncate, -1, (int descriptor, long length), (descriptor, length))
CORVANE_FAILS(int, fflush, Target::kTruncate, EOF, (std::FILE * file), (file))
CORVANE_FAILS(int, flock, Target::kLock, -1, (int descriptor, int operation), (descriptor, operation))
CORVANE_FAILS(std::FILE*, fdopen, Target::kStream, nullptr, (int descriptor, const char* mode), (descriptor, mode))
CORVANE_FAILS(int, setvbuf, Target::kStream, -1, (std::FILE * file, char* buffer, int mode, std::size_t bytes),
              (file, buffer, mode, bytes))
CORVANE_FAILS(void*, fdopendir, Target::kReadFolder, nullptr, (int descriptor), (descriptor))
CORVANE_FAILS(void*, readdir, Target::kReadFolder, nullptr, (void* folder), (folder))
CORVANE_FAILS(int, socket, Target::kSocket, -1, (int family, int kind, int protocol), (family, kind, protocol))
