#include "tests/recorder/ScriptedTime.h"

#include <sys/select.h>
#include <sys/time.h>

#include <ctime>
#include <stdexcept>

#include "tests/recorder/Allocations.h"
#include "tests/support/NextFunction.h"

namespace CorvaneTest {
namespace {

constexpr long long kMicrosecondsPerSecond = 1000000;
constexpr long long kStart = 1600000000 * kMicrosecondsPerSecond;

std::atomic<ScriptedTime*> s_currentTime{nullptr};

}  // namespace

ScriptedTime::ScriptedTime() : m_now(kStart), m_steady(77 * kMicrosecondsPerSecond) {
  if (s_currentTime.exchange(this) != nullptr) throw std::logic_error("the time is scripted already");
}

ScriptedTime::~ScriptedTime() { s_currentTime = nullptr; }

void ScriptedTime::Advance(std::chrono::microseconds by) {
  if (by.count() < 0) throw std::logic_error("time does not pass backwards");
  m_now += by.count();
  m_steady += by.count();
}

ScriptedTime* ScriptedTime::Current() { return s_currentTime; }

}  // namespace CorvaneTest

using CorvaneTest::kMicrosecondsPerSecond;
using CorvaneTest::NextFunction;
using CorvaneTest::ScriptedTime;

CORVANE_TEST_STANDS_IN int clock_gettime(clockid_t clock, timespec* result) noexcept {
  static const NextFunction<int(clockid_t, timespec*)> next("clock_gettime");
  const ScriptedTime* const script = ScriptedTime::Current();
  if (script == nullptr || (clock != CLOCK_REALTIME && clock != CLOCK_MONOTONIC_RAW)) return next(clock, result);
  const long long now = clock == CLOCK_REALTIME ? script->Now() : script->SteadyNow();
  result->tv_sec = now / kMicrosecondsPerSecond;
  result->tv_nsec = now % kMicrosecondsPerSecond * 1000;
  return 0;
}

CORVANE_TEST_STANDS_IN int gettimeofday(timeval* result, void* zone) noexcept {
  static const NextFunction<int(timeval*, void*)> next("gettimeofday");
  ScriptedTime* const script = ScriptedTime::Current();
  if (script == nullptr) return next(result, zone);
  script->CountThrottleCall();
  result->tv_sec = script->Now() / kMicrosecondsPerSecond;
  result->tv_usec = script->Now() % kMicrosecondsPerSecond;
  return 0;
}

CORVANE_TEST_STANDS_IN int select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional,
                                  timeval* timeout) {
  static const NextFunction<int(int, fd_set*, fd_set*, fd_set*, timeval*)> next("select");
  ScriptedTime* const script = ScriptedTime::Current();
  if (script == nullptr || count != 0) return next(count, readable, writable, exceptional, timeout);
  const CorvaneTest::AllocationsCount uncounted(false);
  script->sleeps.push_back({timeout->tv_sec, timeout->tv_usec});
  if (script->onSleep) script->onSleep();
  return 0;
}
