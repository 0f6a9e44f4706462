#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <vector>

namespace CorvaneTest {

// Stops the system clock (clock_gettime with CLOCK_REALTIME, and gettimeofday) and the raw steady clock while it exists; they move
// only when told to. Sleeps in select, which is how the throttle waits, are noted and take no time. The steady clock that threads
// wait by goes on.
// Thread safety: the clock may be read on any thread. One thread sleeps at a time.
class ScriptedTime {
 public:
  struct Sleep {
    long long seconds;
    long long microseconds;
    bool operator==(const Sleep&) const = default;
  };

  ScriptedTime();  // at a time well away from the epoch
  ~ScriptedTime();
  ScriptedTime(const ScriptedTime&) = delete;
  ScriptedTime& operator=(const ScriptedTime&) = delete;

  void Advance(std::chrono::microseconds by);                           // time passes
  void SetClock(std::chrono::microseconds by) { m_now += by.count(); }  // somebody sets the system clock, backwards too
  [[nodiscard]] long long Now() const { return m_now; }                 // microseconds since the epoch
  [[nodiscard]] long long SteadyNow() const { return m_steady; }        // microseconds

  std::function<void()> onSleep;  // called within each sleep
  std::vector<Sleep> sleeps;

  // Calls of gettimeofday so far. The throttle makes exactly one each time it is charged, and nobody else makes any.
  [[nodiscard]] int ThrottleCalls() const { return m_throttleCalls; }

  // --- For the functions that stand in for the system's. ---
  static ScriptedTime* Current();
  void CountThrottleCall() { ++m_throttleCalls; }

 private:
  std::atomic<long long> m_now;
  std::atomic<long long> m_steady;
  std::atomic<int> m_throttleCalls{0};
};

}  // namespace CorvaneTest
