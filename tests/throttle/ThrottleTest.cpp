// The arithmetic and the states of the throttle, on a scripted clock: every sleep and every log line is compared exactly.

#include <Corvane/Throttle.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/frame/LineRecorder.h"
#include "tests/throttle/ScriptedClock.h"
#include "tests/throttle/ThrottleScript.h"

namespace Corvane {
namespace {

using CorvaneTest::FinishLine;
using CorvaneTest::kLargestMeasured;
using CorvaneTest::kUnmeasured;
using CorvaneTest::LogLine;
using CorvaneTest::ScriptedClock;
using CorvaneTest::Sleep;
using CorvaneTest::ThrottleScript;
using CorvaneTest::UnmeasuredLine;

using Sleeps = std::vector<Sleep>;
using Lines = std::vector<std::wstring>;

// --- speed

// In the unmeasured mode a speed shows by whether it exceeds the limit: only then there is a sleep, be it one of no length. The rows
// stand on both sides of the edges of the bands, with numbers of bytes for which the neighbouring band would decide otherwise
// (at 100, 1000 and 10000 ms two bands agree but for the numbers whose product wraps).
struct SpeedCase {
  const char* name;
  long long elapsed;        // milliseconds since the period began
  unsigned int limit;       // kilobytes per second
  unsigned int notTooFast;  // bytes
  unsigned int tooFast;     // bytes
};

constexpr SpeedCase kSpeedCases[] = {
    // 1000 x bytes / elapsed
    {"1 ms", 1, 10, 10, 11},
    {"2 ms", 2, 10, 20, 21},
    {"50 ms", 50, 10, 512, 513},
    {"99 ms", 99, 10, 1013, 1014},
    {"99 ms, product wraps", 99, 10, 4'294'968, 4'295'982},
    // 100 x bytes / (elapsed / 10)
    {"100 ms", 100, 10, 1024, 1025},
    {"100 ms, 1000 x bytes would wrap", 100, 40'000, 4'096'000, 4'294'968},
    {"999 ms", 999, 10, 10'138, 10'139},
    {"999 ms, product wraps", 999, 10, 42'949'673, 42'959'812},
    // 10 x bytes / (elapsed / 100)
    {"1000 ms", 1000, 10, 10'240, 10'241},
    {"1000 ms, 100 x bytes would wrap", 1000, 40'000, 40'960'000, 42'949'673},
    {"1099 ms, counts as 1000", 1099, 10, 10'240, 10'241},
    {"9999 ms", 9999, 10, 101'385, 101'386},
    {"9999 ms, product wraps", 9999, 10, 429'496'730, 429'598'116},
    // bytes / (elapsed / 1000)
    {"10000 ms", 10'000, 10, 102'409, 102'410},
    {"10000 ms, 10 x bytes would wrap", 10'000, 40'000, 409'600'009, 429'496'730},
    {"10999 ms, counts as 10000", 10'999, 10, 102'409, 102'410},
    {"180000 ms", 180'000, 10, 1'843'379, 1'843'380},
};

bool ExceedsLimit(const SpeedCase& c, unsigned int bytes) {
  ThrottleScript script;
  script.throttle.SetThrottling(kUnmeasured, c.limit, false);
  EXPECT_EQ(script.MoveAfter(0, 1), Sleeps()) << "the call that begins the period";
  const Sleeps sleeps = script.MoveAfter(c.elapsed, bytes);
  EXPECT_LE(sleeps.size(), 1u);
  return !sleeps.empty();
}

TEST(ThrottleSpeed, IsScaledByTheSizeOfTheTime) {
  for (const SpeedCase& c : kSpeedCases) {
    EXPECT_FALSE(ExceedsLimit(c, c.notTooFast)) << c.name;
    EXPECT_TRUE(ExceedsLimit(c, c.tooFast)) << c.name;
  }
}

// In the measured modes the speed is at hand, in the log line.
TEST(ThrottleSpeed, IsLoggedAtTheEndOfTheMeasuringPhase) {
  struct Case {
    long long elapsed;
    unsigned int bytes, speed;
  };
  constexpr Case kCases[] = {
      {10'000, 0, 0},
      {10'000, 9, 0},
      {10'000, 10, 1},
      {10'000, 123'459, 12'345},
      {10'000, 429'496'730, 42'949'673},  // ten times as much would wrap
      {10'000, 4'294'967'295, 429'496'729},
      {10'999, 123'459, 12'345},
      {11'000, 123'459, 11'223},
      {99'999, 123'459, 1'247},
      {180'000, 123'459, 685},
  };
  for (const Case& c : kCases) {
    ThrottleScript script;
    script.throttle.SetThrottling(1, 1, false);
    script.MoveAfter(0, 77);
    script.MoveAfter(c.elapsed, c.bytes);
    EXPECT_EQ(script.TakeLines(), (Lines{FinishLine(c.speed, 1, c.speed < 1 ? 1024 : 0)}))
        << c.elapsed << ' ' << c.bytes;
  }
}

TEST(ThrottleSpeed, OfNoTimeIsThatOfOneMillisecond) {
  ThrottleScript script;
  script.throttle.SetThrottling(kUnmeasured, 1, false);
  script.MoveAfter(0, 0);
  EXPECT_EQ(script.MoveAfter(0, 1), Sleeps()) << "1000 b/s";
  EXPECT_EQ(script.MoveAfter(0, 4), (Sleeps{{0, 4}})) << "5 bytes should take 5 ms, and 1 ms is over";
}

TEST(ThrottleSpeed, CountsTheBytesModulo2To32) {
  ThrottleScript script;
  script.throttle.SetThrottling(1'000'000, 1, false);
  script.MoveAfter(0, 0);
  script.MoveAfter(0, 0xFFFFFFFF);
  script.MoveAfter(0, 123'460);
  script.MoveAfter(10'000, 1);
  EXPECT_EQ(script.TakeLines(), (Lines{FinishLine(12'346, 1'000'000, 1024)}));
}

TEST(ThrottleSpeed, CountsFractionsOfAMillisecondTowardsZero) {
  ThrottleScript script;
  script.clock.Set(1'000'000, 999'999);
  script.throttle.SetThrottling(200'000, 1, false);
  script.MoveAfter(0, 0);
  // 10.000 s minus 1 us: the seconds differ by 10, the microseconds by -1, which is no millisecond at all.
  script.clock.Set(1'000'010, 999'998);
  script.throttle.Throttle(10'000);
  EXPECT_EQ(script.TakeLines(), (Lines{FinishLine(1000, 200'000, 1024)}));
}

TEST(ThrottleSpeed, TakesABackwardsDifferenceOfMicrosecondsOffTheSeconds) {
  ThrottleScript script;
  script.clock.Set(1'000'000, 500'000);
  script.throttle.SetThrottling(200'000, 1, false);
  script.MoveAfter(0, 0);
  script.clock.Set(1'000'010, 499'000);  // 9999 ms
  script.throttle.Throttle(10'000);
  EXPECT_EQ(script.TakeLines(), Lines()) << "still measuring";
  script.clock.Set(1'000'010, 500'000);  // 10000 ms
  script.throttle.Throttle(10'000);
  EXPECT_EQ(script.TakeLines(), (Lines{FinishLine(2000, 200'000, 1024)}));
}

// --- the limit in force

struct PercentCase {
  unsigned int percent, bytes, speed, limit;
};

TEST(ThrottleLimit, IsAPercentageOfTheSpeedScaledByItsSize) {
  constexpr PercentCase kCases[] = {
      // percent x (speed / 100)
      {50, 123'450, 12'345, 6'150},
      {50, 100'000, 10'000, 5'000},
      {50, 100'990, 10'099, 5'000},
      {4'294'968, 100'000, 10'000, 429'496'800},  // times 10000 or 1000 would wrap
      {42'949'673, 100'000, 10'000, 4},           // times 100 wraps
      {150, 123'450, 12'345, 18'450},
      // (percent x (speed / 10)) / 10
      {50, 99'990, 9'999, 4'995},
      {33, 10'090, 1'009, 330},
      {4'294'968, 10'000, 1'000, 42'949'680},
      {50, 12'340, 1'234, 615},
      // (percent x speed) / 100
      {50, 9'990, 999, 499},
      {33, 120, 12, 3},
      {100, 10, 1, 1},
      {99, 10, 1, 0},
      {4'294'968, 9'990, 999, 42'906'730},
      {4'299'267, 9'990, 999, 4},
      // nothing of anything
      {0, 123'450, 12'345, 0},
      {50, 0, 0, 0},
  };
  for (const PercentCase& c : kCases) {
    ThrottleScript script;
    script.throttle.SetThrottling(1'000'000, c.percent, true);
    script.MoveAfter(0, 77);
    script.MoveAfter(10'000, c.bytes);
    EXPECT_EQ(script.TakeLines(), (Lines{FinishLine(c.speed, 1'000'000, c.limit)})) << c.percent << " of " << c.speed;
  }
}

TEST(ThrottleLimit, IsInKilobytesWhenFixed) {
  struct Case {
    unsigned int setting, limit;
  };
  constexpr Case kCases[] = {{1, 1024},      {10, 10'240},      {4'194'303, 4'294'966'272},
                             {4'194'304, 0}, {4'194'305, 1024}, {0xFFFFFFFF, 0xFFFFFC00}};
  for (const Case& c : kCases) {
    ThrottleScript script;
    script.throttle.SetThrottling(kUnmeasured, c.setting, false);
    script.MoveAfter(0, 1);
    EXPECT_EQ(script.TakeLines(), (Lines{UnmeasuredLine(c.limit)})) << c.setting;
  }
}

TEST(ThrottleLimit, IsPutInForceOnlyBelowTheLowWaterMark) {
  struct Case {
    unsigned int bytes, speed, limit;
  };
  for (const Case& c : {Case{1'999'999, 199'999, 10'240}, Case{2'000'000, 200'000, 0}, Case{2'000'010, 200'001, 0}}) {
    ThrottleScript script;
    script.throttle.SetThrottling(200'000, 10, false);
    script.MoveAfter(0, 0);
    script.MoveAfter(10'000, c.bytes);
    EXPECT_EQ(script.TakeLines(), (Lines{FinishLine(c.speed, 200'000, c.limit)}));
  }
}

TEST(ThrottleLimit, OfNothingSwitchesLimitingOff) {
  for (const unsigned int lowWaterMark : {0u, 1u, 200'000u, kLargestMeasured, kUnmeasured, 0xFFFFFFFFu}) {
    ThrottleScript script;
    script.throttle.SetThrottling(lowWaterMark, 0, false);
    script.MoveAfter(0, 0);
    for (int i = 0; i < 400; ++i) EXPECT_EQ(script.MoveAfter(1000, 100'000), Sleeps()) << lowWaterMark;
  }
}

TEST(ThrottleLimit, IsNotReachedByASpeedThatEqualsIt) {
  ThrottleScript script;
  script.throttle.SetThrottling(1'000'000, 10, false);
  script.MoveAfter(0, 0);
  EXPECT_EQ(script.MoveAfter(10'000, 102'400), Sleeps()) << "10240 b/s";
  EXPECT_EQ(script.MoveAfter(0, 10), (Sleeps{{0, 241}})) << "10241 b/s";
}

// --- the target time

// Puts `limit` in force by a measurement (of 100 per cent), then moves so many bytes more, 10 s after the period began. Each row is on
// one side of an edge of the bands.
struct TargetCase {
  const char* name;
  unsigned int percent, measured;  // percentage, and bytes in the first 10 s, that together give the limit
  unsigned int limit;
  unsigned int bytes;  // reported afterwards
  Sleep sleep;
};

constexpr TargetCase kTargetCases[] = {
    // 1000 x bytes / limit
    {"1 b/s", 100, 10, 1, 10, {10, 0}},
    {"99 b/s", 100, 990, 99, 10, {0, 101}},                      // 1000 bytes: 10101 ms
    {"99 b/s, product wraps", 100, 990, 99, 4'293'978, {0, 0}},  // 4294968000 is 704, which gives 7 ms
    {"99 b/s, product just fits", 100, 990, 99, 4'293'977, {10, 505}},
    // 100 x bytes / (limit / 10)
    {"100 b/s", 100, 1'000, 100, 10, {0, 100}},
    {"109 b/s counts as 100", 100, 1'090, 109, 10, {1, 0}},  // 1100 bytes: 11000 ms
    {"100 b/s, 1000 x bytes would wrap", 100, 1'000, 100, 4'294'968, {10, 680}},
    {"999 b/s", 100, 9'990, 999, 10, {0, 101}},  // 10000 bytes / 99: 10101 ms
    {"999 b/s, product wraps", 100, 9'990, 999, 42'939'683, {0, 0}},
    // 10 x bytes / (limit / 100)
    {"1000 b/s", 100, 10'000, 1'000, 10, {0, 10}},
    {"1000 b/s, 100 x bytes would wrap", 100, 10'000, 1'000, 42'949'673, {10, 673}},
    {"1099 b/s counts as 1000", 100, 10'999, 1'090, 100, {1, 99}},
    {"9999 b/s", 99, 101'000, 9'999, 10, {0, 203}},  // 101010 x 10 / 99: 10203 ms
    {"9999 b/s, product wraps", 99, 101'000, 9'999, 429'395'730, {0, 0}},
    // bytes / (limit / 1000)
    {"10000 b/s", 100, 100'000, 10'000, 10, {0, 1}},
    {"10000 b/s, 10 x bytes would wrap", 100, 100'000, 10'000, 429'496'730, {10, 673}},
    {"10999 b/s counts as 10000", 100, 109'999, 10'900, 10, {1, 0}},
};

TEST(ThrottleTarget, IsScaledByTheSizeOfTheLimit) {
  for (const TargetCase& c : kTargetCases) {
    ThrottleScript script;
    script.throttle.SetThrottling(1'000'000, c.percent, true);
    script.MoveAfter(0, 0);
    script.MoveAfter(10'000, c.measured);
    ASSERT_EQ(script.TakeLines(), (Lines{FinishLine(c.measured / 10, 1'000'000, c.limit)})) << c.name;
    script.clock.Set(1'000'010);  // also when the evaluation itself has slept
    EXPECT_EQ(script.MoveAfter(0, c.bytes), (Sleeps{c.sleep})) << c.name;
  }
}

// --- the wait

// In the unmeasured mode with 10,240 b/s one millisecond is due for every 10 bytes.
Sleeps WaitFor(long long elapsed, unsigned int target) {
  ThrottleScript script;
  script.throttle.SetThrottling(kUnmeasured, 10, false);
  script.MoveAfter(0, 0);
  return script.MoveAfter(elapsed, target * 10);
}

TEST(ThrottleWait, SleepsSecondsAndTheRestInMillisecondsAsMicroseconds) {
  EXPECT_EQ(WaitFor(1, 25'301), (Sleeps{{10, 300}})) << "25,300 ms";
  EXPECT_EQ(WaitFor(1, 2), (Sleeps{{0, 1}}));
  EXPECT_EQ(WaitFor(1, 1'000), (Sleeps{{0, 999}}));
  EXPECT_EQ(WaitFor(1, 1'001), (Sleeps{{1, 0}}));
  EXPECT_EQ(WaitFor(1, 10'000), (Sleeps{{9, 999}}));
  EXPECT_EQ(WaitFor(1, 10'001), (Sleeps{{10, 0}}));
  EXPECT_EQ(WaitFor(1, 10'002), (Sleeps{{10, 1}}));
  EXPECT_EQ(WaitFor(1, 11'001), (Sleeps{{10, 0}}));
  EXPECT_EQ(WaitFor(5'000, 11'000), (Sleeps{{6, 0}}));
}

TEST(ThrottleWait, OfNothingStillCallsSelect) {
  ThrottleScript script;
  script.throttle.SetThrottling(kUnmeasured, 10, false);
  script.MoveAfter(0, 0);
  EXPECT_EQ(script.MoveAfter(10'999, 102'410), (Sleeps{{0, 0}})) << "10241 b/s, due after 10241 ms, which are over";
  ThrottleScript equal;
  equal.throttle.SetThrottling(kUnmeasured, 10, false);
  equal.MoveAfter(0, 0);
  EXPECT_EQ(equal.MoveAfter(10'241, 102'410), (Sleeps{{0, 0}})) << "due right now";
}

// The shortest limit there is, and as many bytes as a 32-bit product can hold.
TEST(ThrottleWait, IsCappedHoweverLongItWouldBe) {
  ThrottleScript script;
  script.throttle.SetThrottling(1'000'000, 100, true);
  script.MoveAfter(0, 0);
  EXPECT_EQ(script.MoveAfter(10'000, 10), Sleeps());  // 1 b/s
  EXPECT_EQ(script.MoveAfter(0, 4'294'957), (Sleeps{{10, 0}})) << "4,294,967,000 ms at 10,000 ms";
  EXPECT_EQ(script.MoveAfter(0, 0), (Sleeps{{10, 0}}));
}

TEST(ThrottleWait, IsOneSleepPerCall) {
  ThrottleScript script;
  script.throttle.SetThrottling(kUnmeasured, 10, false);
  script.MoveAfter(0, 0);
  EXPECT_EQ(script.MoveAfter(1, 253'010), (Sleeps{{10, 300}}));
  EXPECT_EQ(script.MoveAfter(0, 0), (Sleeps{{10, 300}})) << "15,300 ms are left, less what the microseconds gave";
  EXPECT_EQ(script.MoveAfter(0, 0), (Sleeps{{5, 300}}));
}

// --- log lines

TEST(ThrottleLog, WritesBothLinesAtTheInformationLevel) {
  ThrottleScript script;
  script.throttle.SetThrottling(200'000, 10, false);
  script.MoveAfter(0, 0);
  script.MoveAfter(10'000, 1'000'000);
  script.throttle.SetThrottling(kUnmeasured, 10, false);
  script.MoveAfter(0, 0);
  const std::vector<LogLine> lines = script.log.Lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].message,
            L"Finish measure period. Speed = 100000 b/s. LowWaterMark = 200000 b/s. Limit = 10240 b/s");
  EXPECT_EQ(lines[1].message, L"Measure period not needed. Limit = 10240 b/s");
  for (const LogLine& line : lines) {
    EXPECT_EQ(line.level, ZLogLevel::Information);
    EXPECT_EQ(line.file, "Corvane/Transfer");
    EXPECT_GT(line.line, 0);
  }
}

TEST(ThrottleLog, WritesNumbersAsUnsigned) {
  ThrottleScript script;
  script.throttle.SetThrottling(0xFFFFFFFF, 0xFFFFFFFF, true);
  script.MoveAfter(0, 0);
  script.MoveAfter(10'000, 0xFFFFFFFF);
  EXPECT_EQ(script.TakeLines(), (Lines{FinishLine(429'496'729, 4'294'967'295, 4'290'672'329)}));
  script.throttle.SetThrottling(0xFFFFFFFF, 0x3FFFFF, false);
  script.MoveAfter(0, 0);
  EXPECT_EQ(script.TakeLines(), (Lines{L"Measure period not needed. Limit = 4294966272 b/s"}));
}

TEST(ThrottleLog, WritesOneLineAPeriod) {
  ThrottleScript script;
  script.throttle.SetThrottling(200'000, 10, false);
  for (int second = 0; second < 900; ++second) script.MoveAfter(1000, 300'000);
  EXPECT_EQ(script.TakeLines().size(), 5u) << "periods begin at 1, 182, 363, 544 and 725 s";
}

TEST(ThrottleLog, IsNotAskedForAMessageWhenItsLevelIsDisabled) {
  ThrottleScript script;
  script.log.EnableUpTo(ZLogLevel::Warning);
  script.throttle.SetThrottling(200'000, 10, false);
  script.MoveAfter(0, 0);
  EXPECT_EQ(script.MoveAfter(10'000, 1'000'000), (Sleeps{{10, 0}})) << "the limit is in force all the same";
  EXPECT_TRUE(script.log.Lines().empty());
}

TEST(ThrottleLog, ExceptionPassesOutAndLeavesTheLockFree) {
  for (const unsigned int lowWaterMark : {200'000u, kUnmeasured}) {
    ThrottleScript script;
    script.throttle.SetThrottling(lowWaterMark, 10, false);
    script.log.onWrite = [](const LogLine&) { throw std::runtime_error("log is full"); };
    if (lowWaterMark != kUnmeasured) script.MoveAfter(0, 0);
    script.clock.Advance(10'000);
    EXPECT_THROW(script.throttle.Throttle(1'000'000), std::runtime_error);
    EXPECT_EQ(script.clock.TakeSleeps(), Sleeps());
    script.log.onWrite = nullptr;
    std::thread([&] { script.throttle.StartTransfer(); }).join();  // would wait for ever
    script.MoveAfter(0, 0);
    EXPECT_EQ(script.log.Lines().size(), lowWaterMark == kUnmeasured ? 2u : 1u) << "restarted by the first transfer";
  }
}

TEST(ThrottleLog, ExceptionLeavesThePeriodEvaluatedWithItsLimit) {
  ThrottleScript script;
  script.throttle.SetThrottling(200'000, 10, false);
  script.MoveAfter(0, 0);
  script.log.onWrite = [](const LogLine&) { throw std::runtime_error("log is full"); };
  script.clock.Advance(10'000);
  EXPECT_THROW(script.throttle.Throttle(1'000'000), std::runtime_error);
  EXPECT_EQ(script.MoveAfter(0, 0), (Sleeps{{10, 0}}));
  EXPECT_EQ(script.log.Lines().size(), 1u) << "not logged a second time";
}

// --- periods

TEST(ThrottlePeriod, EndsAfter180Seconds) {
  ThrottleScript script;
  script.throttle.SetThrottling(200'000, 10, false);
  script.MoveAfter(0, 0);
  script.MoveAfter(10'000, 3'000'000);
  script.MoveAfter(170'000, 0);
  EXPECT_EQ(script.TakeLines().size(), 1u);
  script.MoveAfter(1, 50'000);       // at 180,001 ms the second period begins
  script.MoveAfter(9'999, 100'000);  // still measuring
  EXPECT_EQ(script.TakeLines(), Lines());
  script.MoveAfter(1, 20);
  EXPECT_EQ(script.TakeLines(), (Lines{FinishLine(10'002, 200'000, 10'240)})) << "without the 50,000 bytes";
}

TEST(ThrottlePeriod, At180SecondsIsStillLimited) {
  ThrottleScript script;
  script.throttle.SetThrottling(200'000, 10, false);
  script.MoveAfter(0, 0);
  script.MoveAfter(179'999, 0);
  EXPECT_EQ(script.MoveAfter(1, 1'843'380), (Sleeps{{4, 338}})) << "10241 b/s at 180,000 ms";
  script.clock.Set(1'000'180, 1000);
  EXPECT_EQ(script.MoveAfter(0, 100'000'000), Sleeps()) << "measuring again";
}

TEST(ThrottlePeriod, DoesNotCountTheCallThatBeginsIt) {
  ThrottleScript script;
  script.throttle.SetThrottling(200'000, 10, false);
  script.MoveAfter(0, 4'000'000'000);
  script.MoveAfter(10'000, 50);
  EXPECT_EQ(script.TakeLines(), (Lines{FinishLine(5, 200'000, 10'240)}));
}

TEST(ThrottlePeriod, MeasuresForTenSecondsWithoutSleeping) {
  for (const bool percent : {false, true}) {
    ThrottleScript script;
    script.throttle.SetThrottling(kLargestMeasured, 1, percent);
    EXPECT_EQ(script.MoveAfter(0, 1'000'000), Sleeps());
    EXPECT_EQ(script.MoveAfter(1, 1'000'000), Sleeps());
    EXPECT_EQ(script.MoveAfter(9'998, 1'000'000), Sleeps()) << "at 9,999 ms";
    EXPECT_EQ(script.TakeLines(), Lines());
    EXPECT_EQ(script.MoveAfter(1, 0), (Sleeps{{10, 0}})) << "at 10,000 ms";
    EXPECT_EQ(script.TakeLines(), (Lines{FinishLine(200'000, kLargestMeasured, percent ? 2'000 : 1024)}));
  }
}

TEST(ThrottlePeriod, NeedsNoMeasurementFromALowWaterMarkOfABillionOn) {
  for (const unsigned int lowWaterMark : {kUnmeasured, kUnmeasured + 1, 0xFFFFFFFFu}) {
    ThrottleScript script;
    script.throttle.SetThrottling(lowWaterMark, 10, false);
    EXPECT_EQ(script.MoveAfter(0, 1'000'000), Sleeps()) << "not counted";
    EXPECT_EQ(script.TakeLines(), (Lines{UnmeasuredLine(10'240)}));
    EXPECT_EQ(script.MoveAfter(1000, 50'000), (Sleeps{{4, 0}}));
    EXPECT_EQ(script.TakeLines(), Lines());
  }
}

TEST(ThrottlePeriod, LogsTheUnmeasuredLimitAgainInEachPeriod) {
  ThrottleScript script;
  script.throttle.SetThrottling(kUnmeasured, 10, false);
  script.MoveAfter(0, 0);
  script.MoveAfter(180'000, 0);
  EXPECT_EQ(script.TakeLines(), (Lines{UnmeasuredLine(10'240)}));
  script.MoveAfter(1, 0);
  EXPECT_EQ(script.TakeLines(), (Lines{UnmeasuredLine(10'240)}));
}

TEST(ThrottlePeriod, OfAPercentageIsAlwaysMeasured) {
  ThrottleScript script;
  script.throttle.SetThrottling(0xFFFFFFFF, 50, true);
  script.MoveAfter(0, 0);
  EXPECT_EQ(script.MoveAfter(9'999, 100'000), Sleeps());
  EXPECT_EQ(script.TakeLines(), Lines());
  script.MoveAfter(1, 0);
  EXPECT_EQ(script.TakeLines(), (Lines{FinishLine(10'000, 0xFFFFFFFF, 5'000)}));
}

// The limit of one period stays in the object when the next begins, but is not applied while that one is measured.
TEST(ThrottlePeriod, DecidesAfreshInEachOne) {
  ThrottleScript script;
  script.throttle.SetThrottling(200'000, 10, false);
  script.MoveAfter(0, 0);
  script.MoveAfter(10'000, 1'000'000);
  EXPECT_EQ(script.TakeLines(), (Lines{FinishLine(100'000, 200'000, 10'240)}));
  script.clock.Set(1'000'000 + 181);
  EXPECT_EQ(script.MoveAfter(0, 0), Sleeps());
  EXPECT_EQ(script.MoveAfter(9'999, 2'000'000), Sleeps());
  EXPECT_EQ(script.MoveAfter(1, 0), Sleeps());
  EXPECT_EQ(script.TakeLines(), (Lines{FinishLine(200'000, 200'000, 0)}));
  EXPECT_EQ(script.MoveAfter(0, 100'000'000), Sleeps()) << "free for the rest of this period";
}

// --- the clock

TEST(ThrottleClock, GoingBackRestartsAndBeginsAPeriod) {
  ThrottleScript script;
  script.throttle.SetThrottling(200'000, 10, false);
  script.MoveAfter(0, 0);
  script.MoveAfter(10'000, 1'000'000);
  EXPECT_EQ(script.TakeLines().size(), 1u);
  script.clock.Set(999'999);
  EXPECT_EQ(script.MoveAfter(0, 5'000'000), Sleeps()) << "begins a period; not counted";
  EXPECT_EQ(script.MoveAfter(9'999, 30'000), Sleeps()) << "measuring again";
  EXPECT_EQ(script.TakeLines(), Lines());
  script.MoveAfter(1, 0);
  EXPECT_EQ(script.TakeLines(), (Lines{FinishLine(3'000, 200'000, 10'240)}));
}

TEST(ThrottleClock, GoingBackAfterTheLastCallRestartsAlsoBehindThePeriodsBeginning) {
  ThrottleScript script;
  script.throttle.SetThrottling(200'000, 10, false);
  script.MoveAfter(0, 0);
  script.MoveAfter(20'000, 0);
  script.TakeLines();
  script.clock.Advance(-2'000);  // 18 s into the period
  EXPECT_EQ(script.MoveAfter(0, 4'000'000), Sleeps());
  script.MoveAfter(10'000, 0);
  EXPECT_EQ(script.TakeLines(), (Lines{FinishLine(0, 200'000, 10'240)})) << "a period of its own";
}

// Only the seconds are compared; inside the same second the negative time counts as a very long one.
TEST(ThrottleClock, GoingBackWithinASecondBehindThePeriodsBeginningBeginsAPeriod) {
  ThrottleScript script;
  script.clock.Set(1'000'000, 500'000);
  script.throttle.SetThrottling(kUnmeasured, 10, false);
  script.MoveAfter(0, 0);
  script.TakeLines();
  script.clock.Set(1'000'000, 499'001);  // 999 us back are no millisecond
  EXPECT_EQ(script.MoveAfter(0, 11), (Sleeps{{0, 0}})) << "11,000 b/s in the first millisecond";
  EXPECT_EQ(script.TakeLines(), Lines());
  script.clock.Set(1'000'000, 499'000);
  EXPECT_EQ(script.MoveAfter(0, 1000), Sleeps());
  EXPECT_EQ(script.TakeLines(), (Lines{UnmeasuredLine(10'240)}));
}

TEST(ThrottleClock, GoingBackWithinASecondOfTheLastCallIsHarmless) {
  ThrottleScript script;
  script.throttle.SetThrottling(200'000, 10, false);
  script.MoveAfter(0, 0);
  script.MoveAfter(10'900, 1'000'000);
  EXPECT_EQ(script.TakeLines().size(), 1u);
  script.clock.Set(1'000'010, 100'000);
  EXPECT_EQ(script.MoveAfter(0, 0), (Sleeps{{10, 900}})) << "the same period, 100,000 ms due";
  EXPECT_EQ(script.TakeLines(), Lines());
}

// The throttle keeps its times in 32 bits, whose seconds end in the year 2038.
TEST(ThrottleClock, PassingTheEndOf32BitTimeIsLikeGoingBack) {
  ThrottleScript script(0x7FFFFFFFLL);
  script.throttle.SetThrottling(kUnmeasured, 10, false);
  script.MoveAfter(0, 0);
  EXPECT_EQ(script.TakeLines().size(), 1u);
  EXPECT_EQ(script.MoveAfter(999, 0), Sleeps());
  EXPECT_EQ(script.TakeLines().size(), 0u);
  EXPECT_EQ(script.MoveAfter(1, 100'000), Sleeps()) << "begins a period";
  EXPECT_EQ(script.TakeLines(), (Lines{UnmeasuredLine(10'240)}));
  EXPECT_EQ(script.MoveAfter(1'000, 50'000), (Sleeps{{4, 0}})) << "and goes on as ever";
}

TEST(ThrottleClock, DifferenceOfTheWhole32BitRangeWraps) {
  ThrottleScript script(0x80000000LL);  // the most negative time
  script.throttle.SetThrottling(kUnmeasured, 10, false);
  script.MoveAfter(0, 0);
  script.TakeLines();
  script.clock.Set(0x17FFFFFFFLL);  // the most positive: the difference is -1 s, taken as a very long time
  EXPECT_EQ(script.MoveAfter(0, 100'000), Sleeps());
  EXPECT_EQ(script.TakeLines(), (Lines{UnmeasuredLine(10'240)}));
}

TEST(ThrottleClock, ProductOfTheSecondsWraps) {
  ThrottleScript script(0);
  script.throttle.SetThrottling(kUnmeasured, 10, false);
  script.MoveAfter(0, 0);
  script.TakeLines();
  script.clock.Set(4'294'968 - 1);  // 4,294,967,000 ms
  EXPECT_EQ(script.MoveAfter(0, 100'000), Sleeps());
  EXPECT_EQ(script.TakeLines(), (Lines{UnmeasuredLine(10'240)})) << "a long time, a new period";

  script.clock.Set(2 * 4'294'967 + 1);  // 4,294,968,000 ms later, which count as 704
  EXPECT_EQ(script.MoveAfter(0, 10'000), (Sleeps{{0, 296}}));
  EXPECT_EQ(script.TakeLines(), Lines()) << "still the same period";
}

// --- settings and the count of transfers

TEST(Throttle, SlowsNothingByDefault) {
  ThrottleScript script;
  for (int second = 0; second < 400; ++second) EXPECT_EQ(script.MoveAfter(1000, 4'000'000), Sleeps());
  const Lines lines = script.TakeLines();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0], FinishLine(4'000'000, 0, 0));
}

TEST(Throttle, DefaultsFindEveryMeasuredSpeedHighEnough) {
  ThrottleScript script;
  script.MoveAfter(0, 0);
  EXPECT_EQ(script.MoveAfter(10'000, 0), Sleeps());
  EXPECT_EQ(script.TakeLines(), (Lines{FinishLine(0, 0, 0)}));
}

// Whether the throttle has begun a new measure period since the last call shows by its line: the unmeasured mode logs one a period.
class ThrottleRestart : public testing::Test {
 protected:
  ThrottleRestart() {
    script.throttle.SetThrottling(kUnmeasured, 10, false);
    EXPECT_TRUE(HasRestarted());
    EXPECT_FALSE(HasRestarted());
  }

  bool HasRestarted() {
    script.throttle.Throttle(0);
    return !script.TakeLines().empty();
  }

  ThrottleScript script;
};

TEST_F(ThrottleRestart, IsMadeByTheFirstTransferOnly) {
  script.throttle.StartTransfer();
  EXPECT_TRUE(HasRestarted());
  script.throttle.StartTransfer();
  script.throttle.StartTransfer();
  EXPECT_FALSE(HasRestarted());
}

TEST_F(ThrottleRestart, IsNeverMadeByAFinish) {
  script.throttle.StartTransfer();
  script.throttle.StartTransfer();
  EXPECT_TRUE(HasRestarted());
  for (int finish = 0; finish < 5; ++finish) {
    script.throttle.FinishTransfer();
    EXPECT_FALSE(HasRestarted());
  }
}

TEST_F(ThrottleRestart, IsMadeAgainWhenAllHaveFinished) {
  script.throttle.StartTransfer();
  script.throttle.StartTransfer();
  script.throttle.FinishTransfer();
  EXPECT_TRUE(HasRestarted());
  script.throttle.StartTransfer();
  EXPECT_FALSE(HasRestarted()) << "one was still active";
  script.throttle.FinishTransfer();
  script.throttle.FinishTransfer();
  script.throttle.StartTransfer();
  EXPECT_TRUE(HasRestarted());
}

TEST_F(ThrottleRestart, FinishWithoutAStartLeavesTheCountAtZero) {
  for (int finish = 0; finish < 3; ++finish) script.throttle.FinishTransfer();
  script.throttle.StartTransfer();
  EXPECT_TRUE(HasRestarted()) << "the count went from 0 to 1";
  script.throttle.StartTransfer();
  EXPECT_FALSE(HasRestarted());
}

TEST_F(ThrottleRestart, IsMadeByNewSettingsAlsoEqualOnes) {
  script.throttle.StartTransfer();
  EXPECT_TRUE(HasRestarted());
  script.throttle.SetThrottling(kUnmeasured, 10, false);
  EXPECT_TRUE(HasRestarted());
}

TEST_F(ThrottleRestart, OfNewSettingsLeavesTheCountAlone) {
  script.throttle.StartTransfer();
  script.throttle.SetThrottling(kUnmeasured, 10, false);
  EXPECT_TRUE(HasRestarted());
  script.throttle.StartTransfer();
  EXPECT_FALSE(HasRestarted()) << "the second one";
}

TEST_F(ThrottleRestart, ByHandLeavesSettingsAndCountAlone) {
  script.throttle.StartTransfer();
  EXPECT_TRUE(HasRestarted());
  script.throttle.RestartThrottling();
  script.throttle.Throttle(1000);
  EXPECT_EQ(script.TakeLines(), (Lines{UnmeasuredLine(10'240)}));
  EXPECT_EQ(script.MoveAfter(1000, 20'480), (Sleeps{{1, 48}})) << "without the 1000 bytes";
  script.throttle.StartTransfer();
  EXPECT_FALSE(HasRestarted());
}

TEST_F(ThrottleRestart, ClearsTheBytesAndTheTimeOfTheOldPeriod) {
  script.MoveAfter(1000, 1'000'000);
  script.throttle.StartTransfer();
  EXPECT_EQ(script.MoveAfter(0, 1'000'000), Sleeps()) << "begins the period, not counted";
  EXPECT_EQ(script.MoveAfter(1000, 20'480), (Sleeps{{1, 48}}));
}

// --- the documented examples, second by second

TEST(ThrottleExample, SlowLinkIsFreeForTenSecondsAndSlowedForTheRestOfThePeriod) {
  ThrottleScript script;
  script.throttle.SetThrottling(200'000, 10, false);
  EXPECT_EQ(script.MoveAfter(0, 100'000), Sleeps());
  for (int second = 1; second < 10; ++second) EXPECT_EQ(script.MoveAfter(1000, 100'000), Sleeps()) << second;
  EXPECT_EQ(script.TakeLines(), Lines());

  // At 10 s the limit comes into force: 1,000,000 bytes are due after 100 s.
  EXPECT_EQ(script.MoveAfter(1000, 100'000), (Sleeps{{10, 0}}));
  EXPECT_EQ(script.TakeLines(), (Lines{FinishLine(100'000, 200'000, 10'240)}));

  unsigned long long bytes = 1'000'000;
  while (script.clock.ElapsedMilliseconds() + 1000 <= 180'000) {
    const Sleeps sleeps = script.MoveAfter(1000, 100'000);
    bytes += 100'000;
    ASSERT_EQ(sleeps.size(), 1u) << "slowed until the period's end";
    EXPECT_LE(sleeps[0].seconds, 10);
    EXPECT_LT(sleeps[0].microseconds, 1000);
  }
  EXPECT_EQ(bytes, 1'000'000u + 15 * 100'000u) << "one block in 11 s, where there were eleven";
  EXPECT_EQ(script.TakeLines(), Lines()) << "logged once";

  script.clock.Set(1'000'000 + 181);
  EXPECT_EQ(script.MoveAfter(0, 100'000), Sleeps()) << "the next period measures again";
}

TEST(ThrottleExample, TheSameLinkIsFreeWithALowerLowWaterMark) {
  ThrottleScript script;
  script.throttle.SetThrottling(50'000, 10, false);
  for (int second = 0; second <= 180; ++second) EXPECT_EQ(script.MoveAfter(1000, 100'000), Sleeps()) << second;
  EXPECT_EQ(script.TakeLines(), (Lines{FinishLine(100'000, 50'000, 0)}));
}

TEST(ThrottleExample, UnmeasuredModeHoldsTheLimitFromTheFirstByte) {
  ThrottleScript script;
  script.throttle.SetThrottling(kUnmeasured, 10, false);
  script.MoveAfter(0, 1000);
  unsigned long long bytes = 0;
  while (script.clock.ElapsedMilliseconds() < 180'000) {
    script.MoveAfter(1, 1'460);
    bytes += 1'460;
  }
  EXPECT_NEAR(static_cast<double>(bytes), 10'240.0 * 180, 10'240.0 * 180 * 0.03);
}

TEST(ThrottleExample, PercentageHoldsALinkToItsShare) {
  ThrottleScript script;
  script.throttle.SetThrottling(1'000'000, 50, true);
  script.MoveAfter(0, 0);
  script.MoveAfter(10'000, 123'450);
  EXPECT_EQ(script.TakeLines(), (Lines{FinishLine(12'345, 1'000'000, 6'150)}));
}

}  // namespace
}  // namespace Corvane
