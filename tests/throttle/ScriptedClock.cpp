#include "tests/throttle/ScriptedClock.h"

#include <sys/select.h>
#include <time.h>

#include <atomic>
#include <utility>

#include "tests/support/NextFunction.h"

namespace CorvaneTest {
namespace {

constexpr long long kSecond = 1'000'000;

std::atomic<ScriptedClock*> current{nullptr};

}  // namespace

ScriptedClock::ScriptedClock(long long seconds, long long microseconds)
    : m_start(seconds * kSecond + microseconds), m_now(m_start) {
  current = this;
}

ScriptedClock::~ScriptedClock() { current = nullptr; }

void ScriptedClock::Set(long long seconds, long long microseconds) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_now = seconds * kSecond + microseconds;
}

void ScriptedClock::Advance(long long milliseconds) { AdvanceMicroseconds(milliseconds * 1000); }

void ScriptedClock::AdvanceMicroseconds(long long microseconds) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_now += microseconds;
}

timeval ScriptedClock::Now() const {
  const std::lock_guard<std::mutex> lock(m_mutex);
  timeval now{};
  now.tv_sec = static_cast<decltype(now.tv_sec)>(m_now / kSecond);
  now.tv_usec = static_cast<decltype(now.tv_usec)>(m_now % kSecond);
  return now;
}

long long ScriptedClock::ElapsedMilliseconds() const {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return (m_now - m_start) / 1000;
}

std::vector<Sleep> ScriptedClock::TakeSleeps() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return std::exchange(m_sleeps, {});
}

void ScriptedClock::PassSleep(const Sleep& sleep) {
  if (whileAsleep) whileAsleep(sleep);
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_sleeps.push_back(sleep);
  m_now += sleep.seconds * kSecond + sleep.microseconds;
}

}  // namespace CorvaneTest

extern "C" {

CORVANE_TEST_REPLACES int gettimeofday(timeval* now, void* /*zone*/) noexcept {
  if (CorvaneTest::ScriptedClock* const clock = CorvaneTest::current) {
    *now = clock->Now();
    return 0;
  }
  timespec real{};
  clock_gettime(CLOCK_REALTIME, &real);
  now->tv_sec = real.tv_sec;
  now->tv_usec = real.tv_nsec / 1000;
  return 0;
}

CORVANE_TEST_REPLACES int select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* timeout) {
  CorvaneTest::ScriptedClock* const clock = CorvaneTest::current;
  const bool sleeps = count == 0 && readable == nullptr && writable == nullptr && exceptional == nullptr;
  if (clock != nullptr && sleeps && timeout != nullptr) {
    clock->PassSleep({timeout->tv_sec, timeout->tv_usec});
    return 0;
  }
  return CorvaneTest::NextFunction<int(int, fd_set*, fd_set*, fd_set*, timeval*)>("select")(count, readable, writable,
                                                                                            exceptional, timeout);
}

}  // extern "C"
