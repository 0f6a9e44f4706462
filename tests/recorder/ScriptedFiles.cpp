#include "tests/recorder/ScriptedFiles.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <stdexcept>

#include "tests/recorder/Allocations.h"
#include "tests/support/NextFunction.h"

namespace CorvaneTest {
namespace {

ScriptedFiles* s_current = nullptr;

// Sets errno to the failure and tells whether there is one.
bool Fails(int failure) {
  if (failure != 0) errno = failure;
  return failure != 0;
}

}  // namespace

ScriptedFiles::ScriptedFiles() {
  if (s_current != nullptr) throw std::logic_error("the files are scripted already");
  s_current = this;
}

ScriptedFiles::~ScriptedFiles() { s_current = nullptr; }

ScriptedFiles* ScriptedFiles::Current() { return s_current; }

}  // namespace CorvaneTest

using CorvaneTest::AllocationsCount;
using CorvaneTest::NextFunction;
using CorvaneTest::ScriptedFiles;

CORVANE_TEST_STANDS_IN std::FILE* fopen(const char* path, const char* mode) {
  static const NextFunction<std::FILE*(const char*, const char*)> next("fopen");
  const AllocationsCount uncounted(false);
  ScriptedFiles* const script = ScriptedFiles::Current();
  if (script == nullptr) return next(path, mode);
  std::string letters = mode;
  std::erase(letters, 'e');
  script->calls.push_back("fopen " + letters + " " + path);
  if (script->onOpen && CorvaneTest::Fails(script->onOpen(path, letters))) return nullptr;
  std::FILE* const file = next(path, mode);
  if (script->afterOpen) script->afterOpen();
  return file;
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
