#include "tests/recorder/ScriptedFiles.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <stdexcept>

#include "tests/recorder/Allocations.h"
#include "tests/support/NextFunction.h"

namespace CorvaneTest {
namespace {

ScriptedFiles* s_currentFiles = nullptr;

// Sets errno to the failure and tells whether there is one.
bool Fails(int failure) {
  if (failure != 0) errno = failure;
  return failure != 0;
}

// The mode for which the library opens a file with these flags. What is there it takes away in a step of its own.
std::string LettersOf(int flags) {
  const std::string update = (flags & O_ACCMODE) == O_RDWR ? "+" : "";
  if ((flags & O_APPEND) != 0) return "a" + update;
  return ((flags & O_CREAT) != 0 ? "w" : "r") + update;
}

}  // namespace

ScriptedFiles::ScriptedFiles() {
  if (s_currentFiles != nullptr) throw std::logic_error("the files are scripted already");
  s_currentFiles = this;
}

ScriptedFiles::~ScriptedFiles() { s_currentFiles = nullptr; }

ScriptedFiles* ScriptedFiles::Current() { return s_currentFiles; }

}  // namespace CorvaneTest

using CorvaneTest::AllocationsCount;
using CorvaneTest::NextFunction;
using CorvaneTest::ScriptedFiles;

// The library opens its files without waiting for anybody, which tells them from all others.
CORVANE_TEST_STANDS_IN int open(const char* path, int flags, ...) {
  static const NextFunction<int(const char*, int, mode_t)> next("open");
  const AllocationsCount uncounted(false);
  mode_t permissions = 0;
  if ((flags & O_CREAT) != 0) {
    va_list arguments;
    va_start(arguments, flags);
    permissions = va_arg(arguments, mode_t);
    va_end(arguments);
  }
  ScriptedFiles* const script = ScriptedFiles::Current();
  if (script == nullptr || (flags & O_NONBLOCK) == 0) return next(path, flags, permissions);
  const std::string letters = CorvaneTest::LettersOf(flags);
  script->calls.push_back("fopen " + letters + " " + path);
  if (script->onOpen && CorvaneTest::Fails(script->onOpen(path, letters))) return -1;
  const int descriptor = next(path, flags, permissions);
  const int failure = errno;
  if (script->afterOpen) script->afterOpen();
  errno = failure;
  return descriptor;
}

CORVANE_TEST_STANDS_IN int fclose(std::FILE* file) {
  static const NextFunction<int(std::FILE*)> next("fclose");
  const AllocationsCount uncounted(false);
  ScriptedFiles* const script = ScriptedFiles::Current();
  if (script == nullptr) return next(file);
  script->calls.emplace_back("fclose");
  const int result = next(file);
  return CorvaneTest::Fails(script->closeFailure) ? EOF : result;
}

CORVANE_TEST_STANDS_IN int fseek(std::FILE* file, long offset, int whence) {
  static const NextFunction<int(std::FILE*, long, int)> next("fseek");
  const AllocationsCount uncounted(false);
  ScriptedFiles* const script = ScriptedFiles::Current();
  if (script == nullptr) return next(file, offset, whence);
  script->calls.push_back("fseek " + std::to_string(offset) + (whence == SEEK_SET ? "" : " not from the start"));
  return CorvaneTest::Fails(script->seekFailure) ? -1 : next(file, offset, whence);
}

CORVANE_TEST_STANDS_IN int ftruncate(int descriptor, off_t length) noexcept {
  static const NextFunction<int(int, off_t)> next("ftruncate");
  const AllocationsCount uncounted(false);
  ScriptedFiles* const script = ScriptedFiles::Current();
  if (script == nullptr) return next(descriptor, length);
  script->calls.push_back("ftruncate " + std::to_string(length));
  return CorvaneTest::Fails(script->truncateFailure) ? -1 : next(descriptor, length);
}
