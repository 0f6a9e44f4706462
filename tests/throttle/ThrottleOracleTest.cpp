// Drives the throttle and its oracle with the same random calls, on the same clock, and compares every sleep and log line.

#include <Corvane/Throttle.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "tests/throttle/ThrottleOracle.h"
#include "tests/throttle/ThrottleScript.h"

namespace Corvane {
namespace {

using CorvaneTest::kLargestMeasured;
using CorvaneTest::kUnmeasured;
using CorvaneTest::Sleep;
using CorvaneTest::ThrottleOracle;
using CorvaneTest::ThrottleScript;

// What a run has seen, so that it cannot pass without having tested anything.
struct Tally {
  int calls = 0, finishLines = 0, unmeasuredLines = 0, limits = 0;
  int sleeps = 0, emptySleeps = 0, cappedSleeps = 0;
};

class Driver {
 public:
  explicit Driver(unsigned int seed) : m_random(seed) {
    if (seed % 4 == 1) m_script.clock.Set(0x7FFFFFFFLL - 200);  // the end of 32-bit time is near
    if (seed % 4 == 2) m_script.clock.Set(0);
  }

  // One random operation on both. False when they differ.
  bool Step() {
    const int kind = Below(1000);
    if (kind < 4) return SetThrottling();
    if (kind < 7) return Both(&ZThrottle::StartTransfer, &ThrottleOracle::StartTransfer);
    if (kind < 10) return Both(&ZThrottle::FinishTransfer, &ThrottleOracle::FinishTransfer);
    if (kind < 11) return Both(&ZThrottle::RestartThrottling, &ThrottleOracle::RestartThrottling);
    MoveClock();
    return Throttle();
  }

  const Tally& GetTally() const { return m_tally; }
  const std::string& Difference() const { return m_difference; }

 private:
  int Below(int limit) { return std::uniform_int_distribution<int>(0, limit - 1)(m_random); }

  template <class Value, std::size_t N>
  Value OneOf(const Value (&values)[N]) {
    return values[static_cast<std::size_t>(Below(static_cast<int>(N)))];
  }

  // Of all sizes alike, not of all values alike: small numbers are as likely as large ones.
  std::uint32_t AnySize() {
    const std::uint32_t bits = static_cast<std::uint32_t>(m_random());
    return bits >> Below(32);
  }

  template <class Result>
  bool Both(void (ZThrottle::*real)(), Result (ThrottleOracle::*oracle)()) {
    (m_script.throttle.*real)();
    (m_oracle.*oracle)();
    return true;
  }
  bool Both(void (ZThrottle::*real)() noexcept, void (ThrottleOracle::*oracle)()) {
    (m_script.throttle.*real)();
    (m_oracle.*oracle)();
    return true;
  }

  bool SetThrottling() {
    const std::uint32_t marks[] = {0,           1,          1000,        100'000,   1'000'000, kLargestMeasured,
                                   kUnmeasured, 0xFFFFFFFF, kUnmeasured, AnySize(), AnySize()};
    const std::uint32_t fixedLimits[] = {0, 1, 9, 10, 97, 98, 1000, 4'194'303, 4'194'304, AnySize(), AnySize()};
    const std::uint32_t percentages[] = {0, 1, 10, 50, 99, 100, 101, 4'294'968, 42'949'673, AnySize(), AnySize()};
    const std::uint32_t mark = OneOf(marks);
    const bool percent = Below(2) == 0;
    const std::uint32_t limit = percent ? OneOf(percentages) : OneOf(fixedLimits);
    m_script.throttle.SetThrottling(mark, limit, percent);
    m_oracle.SetThrottling(mark, limit, percent);
    return true;
  }

  void MoveClock() {
    constexpr long long kSteps[] = {0, 0, 1, 1, 10, 50, 98, 99, 100, 900, 999, 1000, 2000, 9000, 9999, 10'000, 10'001};
    constexpr long long kJumps[] = {-1,      -10,     -999,    -1000,   -20'000,      160'000,
                                    170'000, 179'999, 180'000, 180'001, 4'294'968'000};
    const int kind = Below(200);
    if (kind < 120) m_script.clock.Advance(OneOf(kSteps));
    if (kind >= 120 && kind < 180) m_script.clock.AdvanceMicroseconds(Below(3'000'000));
    if (kind >= 180 && kind < 185) m_script.clock.AdvanceMicroseconds(-Below(3'000'000));
    if (kind >= 185 && kind < 188) m_script.clock.Advance(OneOf(kJumps));
    if (m_script.clock.Now().tv_sec < 0) m_script.clock.Set(0);
  }

  bool Throttle() {
    const std::uint32_t sizes[] = {0,          1,           1460,       16'384,    65'536,    4'294'967, 4'294'968,
                                   42'949'673, 429'496'730, 0xFFFFFFFF, AnySize(), AnySize(), AnySize()};
    const std::uint32_t bytes = OneOf(sizes);
    const timeval now = m_script.clock.Now();
    const ThrottleOracle::Outcome expected = m_oracle.Throttle(bytes, now.tv_sec, now.tv_usec);
    m_script.throttle.Throttle(bytes);
    const std::vector<Sleep> sleeps = m_script.clock.TakeSleeps();
    const std::vector<std::wstring> lines = m_script.TakeLines();
    Count(expected);
    if (sleeps == expected.sleeps && lines == expected.lines) return true;
    m_difference = "Throttle(" + std::to_string(bytes) + ") at " + std::to_string(now.tv_sec) + " s " +
                   std::to_string(now.tv_usec) + " us: expected " + testing::PrintToString(expected.sleeps) + ' ' +
                   testing::PrintToString(expected.lines) + ", got " + testing::PrintToString(sleeps) + ' ' +
                   testing::PrintToString(lines);
    return false;
  }

  void Count(const ThrottleOracle::Outcome& outcome) {
    ++m_tally.calls;
    for (const std::wstring& line : outcome.lines) {
      const bool finish = line.find(L"Finish") == 0;
      m_tally.finishLines += finish;
      m_tally.unmeasuredLines += !finish;
      m_tally.limits += line.find(L"Limit = 0 b/s") == std::wstring::npos;
    }
    for (const Sleep& sleep : outcome.sleeps) {
      ++m_tally.sleeps;
      m_tally.emptySleeps += sleep == Sleep{0, 0};
      m_tally.cappedSleeps += sleep.seconds == 10;
    }
  }

  std::mt19937 m_random;
  ThrottleScript m_script;
  ThrottleOracle m_oracle;
  Tally m_tally;
  std::string m_difference;
};

class ThrottleAgainstOracle : public testing::TestWithParam<unsigned int> {};

TEST_P(ThrottleAgainstOracle, AgreesOnEverySleepAndLine) {
  constexpr int kSteps = 100'000;
  Driver driver(GetParam());
  for (int step = 0; step < kSteps; ++step)
    ASSERT_TRUE(driver.Step()) << "step " << step << ": " << driver.Difference();

  const Tally& tally = driver.GetTally();
  EXPECT_GT(tally.calls, kSteps / 2);
  EXPECT_GT(tally.finishLines, 200);
  EXPECT_GT(tally.unmeasuredLines, 100);
  EXPECT_GT(tally.limits, 100);
  EXPECT_GT(tally.sleeps, 1000);
  EXPECT_GT(tally.emptySleeps, 50);
  EXPECT_GT(tally.cappedSleeps, 200);
}

INSTANTIATE_TEST_SUITE_P(Seeds, ThrottleAgainstOracle, testing::Range(1u, 17u));

}  // namespace
}  // namespace Corvane
