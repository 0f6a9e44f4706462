#pragma once

#include <string>
#include <vector>

#include <Corvane/Throttle.h>

#include "tests/frame/LineRecorder.h"
#include "tests/throttle/ScriptedClock.h"

// What the tests of ZThrottle share: a throttle on a scripted clock, and its log lines.
namespace CorvaneTest {

// A low-water mark that switches measuring off in fixed mode, and the largest that does not.
inline constexpr unsigned int kUnmeasured = 1'000'000'000;
inline constexpr unsigned int kLargestMeasured = 999'999'999;

inline std::wstring FinishLine(unsigned int speed, unsigned int lowWaterMark, unsigned int limit) {
  return L"Finish measure period. Speed = " + std::to_wstring(speed) + L" b/s. LowWaterMark = " +
         std::to_wstring(lowWaterMark) + L" b/s. Limit = " + std::to_wstring(limit) + L" b/s";
}

inline std::wstring UnmeasuredLine(unsigned int limit) {
  return L"Measure period not needed. Limit = " + std::to_wstring(limit) + L" b/s";
}

struct ThrottleScript {
  ScriptedClock clock;
  LineRecorder log;
  Corvane::ZThrottle throttle;

  ThrottleScript() = default;
  explicit ThrottleScript(long long seconds) : clock(seconds) {}

  // Lets the time pass and reports the bytes. Returns the sleeps that this cost.
  std::vector<Sleep> MoveAfter(long long milliseconds, unsigned int bytes) {
    clock.Advance(milliseconds);
    throttle.Throttle(bytes);
    return clock.TakeSleeps();
  }

  std::vector<std::wstring> TakeLines() {
    std::vector<std::wstring> lines = log.Messages();
    log.Forget();
    return lines;
  }
};

}  // namespace CorvaneTest
