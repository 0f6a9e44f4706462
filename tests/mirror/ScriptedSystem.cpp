#include "tests/mirror/ScriptedSystem.h"

#include <pthread.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <stdexcept>
#include <utility>

#include "tests/support/NextFunction.h"

namespace CorvaneTest {
namespace {

thread_local ScriptedSystem* t_current = nullptr;

int FailWith(int error) {
  errno = error;
  return -1;
}

std::string Octal(mode_t mode) {
  char text[16];
  std::snprintf(text, sizeof text, "%o", static_cast<unsigned int>(mode));
  return text;
}

std::string Seconds(const timespec& time) {
  return time.tv_nsec == UTIME_OMIT ? "as it is" : std::to_string(time.tv_sec);
}

}  // namespace

ScriptedSystem::ScriptedSystem(std::filesystem::path folder) : m_folder(std::move(folder)) {
  if (t_current != nullptr) throw std::logic_error("the system is scripted already");
  t_current = this;
}

ScriptedSystem::~ScriptedSystem() { t_current = nullptr; }

ScriptedSystem* ScriptedSystem::OfThisThread() { return t_current; }

std::string ScriptedSystem::NameOf(const char* path) const {
  const std::string text = path;
  const std::string folder = m_folder.native() + '/';
  return text.rfind(folder, 0) == 0 ? text.substr(folder.size()) : "";
}

void ScriptedSystem::Note(const std::string& call) {
  calls.push_back(call);
  if (onCall) onCall(call);
}

}  // namespace CorvaneTest

using CorvaneTest::NextFunction;
using CorvaneTest::ScriptedSystem;

CORVANE_TEST_STANDS_IN int statvfs(const char* path, struct statvfs* result) noexcept {
  static const NextFunction<int(const char*, struct statvfs*)> next("statvfs");
  ScriptedSystem* const script = ScriptedSystem::OfThisThread();
  if (script == nullptr) return next(path, result);
  script->Note("space");
  if (script->freeSpaceError != 0) return CorvaneTest::FailWith(script->freeSpaceError);
  const int code = next(path, result);
  if (script->freeKilobytes) {
    result->f_frsize = 1024;
    result->f_bavail = *script->freeKilobytes;
  }
  return code;
}

CORVANE_TEST_STANDS_IN int stat(const char* path, struct stat* result) noexcept {
  static const NextFunction<int(const char*, struct stat*)> next("stat");
  const ScriptedSystem* const script = ScriptedSystem::OfThisThread();
  if (script != nullptr && script->onStat) script->onStat(script->NameOf(path));
  const int code = next(path, result);
  if (script == nullptr || code != 0 || !S_ISREG(result->st_mode) || result->st_size == 0) return code;
  const std::string name = script->NameOf(path);
  if (const auto found = script->unreadable.find(name); found != script->unreadable.end()) {
    return CorvaneTest::FailWith(found->second);
  }
  if (const auto found = script->additionalSize.find(name); found != script->additionalSize.end()) {
    result->st_size += found->second;
  }
  return code;
}

CORVANE_TEST_STANDS_IN int chmod(const char* path, mode_t mode) noexcept {
  static const NextFunction<int(const char*, mode_t)> next("chmod");
  ScriptedSystem* const script = ScriptedSystem::OfThisThread();
  if (script == nullptr) return next(path, mode);
  const std::string name = script->NameOf(path);
  script->Note("chmod " + name + ' ' + CorvaneTest::Octal(mode));
  const auto found = script->modeError.find(name);
  return found != script->modeError.end() ? CorvaneTest::FailWith(found->second) : next(path, mode);
}

CORVANE_TEST_STANDS_IN int unlink(const char* path) noexcept {
  static const NextFunction<int(const char*)> next("unlink");
  ScriptedSystem* const script = ScriptedSystem::OfThisThread();
  if (script != nullptr) script->Note("unlink " + script->NameOf(path));
  return next(path);
}

CORVANE_TEST_STANDS_IN int utimensat(int folder, const char* path, const timespec times[2], int flags) noexcept {
  static const NextFunction<int(int, const char*, const timespec[2], int)> next("utimensat");
  ScriptedSystem* const script = ScriptedSystem::OfThisThread();
  if (script == nullptr) return next(folder, path, times, flags);
  const std::string name = script->NameOf(path);
  script->Note("times " + name + ' ' + CorvaneTest::Seconds(times[0]) + ' ' + CorvaneTest::Seconds(times[1]));
  const auto found = script->timeError.find(name);
  if (found != script->timeError.end()) return CorvaneTest::FailWith(found->second);
  timespec kept[2] = {times[0], times[1]};
  for (timespec& time : kept) time.tv_sec = std::min(time.tv_sec, script->latestTime.value_or(time.tv_sec));
  return next(folder, path, kept, flags);
}

CORVANE_TEST_STANDS_IN int clock_gettime(clockid_t clock, timespec* result) noexcept {
  static const NextFunction<int(clockid_t, timespec*)> next("clock_gettime");
  const ScriptedSystem* const script = ScriptedSystem::OfThisThread();
  if (script == nullptr || clock != CLOCK_REALTIME) return next(clock, result);
  if (script->onClock) script->onClock();
  if (!script->now) return next(clock, result);
  result->tv_sec = *script->now / 1000000;
  result->tv_nsec = *script->now % 1000000 * 1000;
  return 0;
}

CORVANE_TEST_STANDS_IN int pthread_cond_broadcast(pthread_cond_t* condition) noexcept {
  static const NextFunction<int(pthread_cond_t*)> next("pthread_cond_broadcast");
  const ScriptedSystem* const script = ScriptedSystem::OfThisThread();
  if (script != nullptr && script->onBroadcast) script->onBroadcast();
  return next(condition);
}
