#pragma once

#include <sys/time.h>

#include <functional>
#include <mutex>
#include <ostream>
#include <vector>

namespace CorvaneTest {

// A timeout given to select, as it stands in the two fields.
struct Sleep {
  long long seconds;
  long long microseconds;
};

inline bool operator==(const Sleep& a, const Sleep& b) {
  return a.seconds == b.seconds && a.microseconds == b.microseconds;
}
inline bool operator!=(const Sleep& a, const Sleep& b) { return !(a == b); }
inline std::ostream& operator<<(std::ostream& out, const Sleep& sleep) {
  return out << '{' << sleep.seconds << ", " << sleep.microseconds << '}';
}

// The time of day of this process while it lives. The program that links ScriptedClock.cpp has its own gettimeofday and select,
// which take the place of the C library's: the first tells this clock's time, the second, when it is called without
// descriptors, moves the clock on instead of sleeping. Without such an object both do what they always do. Nothing else is
// touched; GoogleTest and the tests' own waits use other clocks.
// Thread safety: every member from any thread, except that `whileAsleep` is set before there are others.
class ScriptedClock {
 public:
  // The beginning is arbitrary, but not 0: a throttle must not take its own zero for a time.
  explicit ScriptedClock(long long seconds = 1'000'000, long long microseconds = 0);
  ~ScriptedClock();
  ScriptedClock(const ScriptedClock&) = delete;
  ScriptedClock& operator=(const ScriptedClock&) = delete;

  void Set(long long seconds, long long microseconds = 0);
  void Advance(long long milliseconds);
  void AdvanceMicroseconds(long long microseconds);

  timeval Now() const;
  // Since the construction; negative after the clock was set back behind it.
  long long ElapsedMilliseconds() const;

  // The sleeps since the construction or the last call of this.
  std::vector<Sleep> TakeSleeps();

  // Called inside each sleep, on the thread that sleeps, before the clock moves on.
  std::function<void(const Sleep&)> whileAsleep;

  // For select: notes the sleep and moves the clock on.
  void PassSleep(const Sleep& sleep);

 private:
  mutable std::mutex m_mutex;
  long long m_start;            // microseconds
  long long m_now;              // microseconds; guarded by m_mutex
  std::vector<Sleep> m_sleeps;  // guarded by m_mutex
};

}  // namespace CorvaneTest
