#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/throttle/ScriptedClock.h"

namespace CorvaneTest {

// The throttle once more, written for the tests straight from its rules and by other means than the library's: wide numbers,
// each reduced to 32 bits where the rules say so, and no sleep or log but a list of what ought to happen.
class ThrottleOracle {
 public:
  struct Outcome {
    std::vector<std::wstring> lines;
    std::vector<Sleep> sleeps;
  };

  void SetThrottling(std::uint32_t lowWaterMark, std::uint32_t limit, bool percent);
  void StartTransfer();
  void FinishTransfer();
  void RestartThrottling();
  Outcome Throttle(std::uint32_t bytes, long long seconds, long long microseconds);

 private:
  std::int64_t LimitOf(std::int64_t speed) const;
  void Evaluate(std::int64_t speed, Outcome& outcome);

  std::int64_t m_active = 0;
  std::int64_t m_period = 0;
  std::int64_t m_evaluated = 0;
  std::int64_t m_lowWaterMark = 0;
  std::int64_t m_setting = 0;
  bool m_percent = false;
  std::int64_t m_limit = 0;
  std::int64_t m_lastSeconds = 0;
  std::int64_t m_startSeconds = 0;
  std::int64_t m_startMicroseconds = 0;
  std::int64_t m_bytes = 0;
};

}  // namespace CorvaneTest
