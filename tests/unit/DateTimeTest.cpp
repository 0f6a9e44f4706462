#include <Corvane/Base/DateTime.h>

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <ctime>
#include <limits>
#include <optional>
#include <thread>

namespace {

// The time that CLOCK_REALTIME shows while it is set.
std::optional<std::timespec> fakeTime;

}  // namespace

// Stands in for the C library's function in the whole process; hidden, it would do so in this file only.
extern "C" __attribute__((visibility("default"))) int clock_gettime(clockid_t clock, std::timespec* time) noexcept {
  if (clock == CLOCK_REALTIME && fakeTime) {
    *time = *fakeTime;
    return 0;
  }
  return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
}

namespace Corvane {
namespace {

constexpr long long kLowest = std::numeric_limits<long long>::min();
constexpr long long kHighest = std::numeric_limits<long long>::max();
constexpr long kLongest = std::numeric_limits<long>::max();

struct FakeTime {
  FakeTime(std::time_t seconds, long nanoseconds) { fakeTime = std::timespec{seconds, nanoseconds}; }
  ~FakeTime() { fakeTime.reset(); }
  FakeTime(const FakeTime&) = delete;
  FakeTime& operator=(const FakeTime&) = delete;
};

TEST(ZTimeSpan, IsZeroAtFirst) { EXPECT_EQ(ZTimeSpan().GetTotalMicroSeconds(), 0); }

TEST(ZTimeSpan, CopiesItsValue) {
  ZTimeSpan span(-5);
  const ZTimeSpan copy(span);
  ZTimeSpan assigned;
  assigned = span;
  span = ZTimeSpan(1);
  EXPECT_EQ(copy.GetTotalMicroSeconds(), -5);
  EXPECT_EQ(assigned.GetTotalMicroSeconds(), -5);
}

struct SpanCase {
  long days, hours, minutes, seconds, microseconds;
  long long total;
};
constexpr SpanCase kSpanCases[] = {
    {0, 0, 0, 0, 0, 0},
    {0, 0, 0, 0, 1, 1},
    {0, 0, 0, 1, 0, 1000000},
    {0, 0, 1, 0, 0, 60000000},
    {0, 1, 0, 0, 0, 3600000000},
    {1, 0, 0, 0, 0, 86400000000},
    {1, 2, 3, 4, 5, 93784000005},
    {-1, 0, 0, 0, 1, -86399999999},
    {0, 0, 0, 1, -1, 999999},
    {0, 0, 0, -2, 500000, -1500000},
    {106751991, 4, 0, 54, 775807, kHighest},
    {106751991, 4, 0, 54, 775808, kHighest},
    {-106751991, -4, 0, -54, -775808, kLowest},
    {-106751991, -4, 0, -54, -775809, kLowest},
    {kLongest, kLongest, kLongest, kLongest, kLongest, kHighest},
    {-kLongest, -kLongest, -kLongest, -kLongest, -kLongest, kLowest},
};

TEST(ZTimeSpan, SetAddsUpItsPartsAndStopsAtTheLimits) {
  ZTimeSpan span(77);
  for (const SpanCase& c : kSpanCases) {
    span.Set(c.days, c.hours, c.minutes, c.seconds, c.microseconds);
    EXPECT_EQ(span.GetTotalMicroSeconds(), c.total);
  }
}

TEST(ZDateTime, IsTheEpochAtFirst) { EXPECT_EQ(ZDateTime().GetMicroSecondsSinceEpoch(), 0); }

TEST(ZDateTime, CopiesItsValue) {
  ZDateTime time(1234567);
  const ZDateTime copy(time);
  ZDateTime assigned;
  assigned = time;
  time = ZDateTime(1);
  EXPECT_EQ(copy.GetMicroSecondsSinceEpoch(), 1234567);
  EXPECT_EQ(assigned.GetMicroSecondsSinceEpoch(), 1234567);
}

TEST(ZDateTime, NowIsTheSystemClockInMicroseconds) {
  struct Case {
    std::time_t seconds;
    long nanoseconds;
    long long microseconds;
  };
  constexpr Case kCases[] = {{0, 0, 0},
                             {0, 999, 0},
                             {0, 1000, 1},
                             {1700000000, 123456789, 1700000000123456},
                             {4102444800, 999999999, 4102444800999999},
                             {-1, 500000000, -500000}};
  for (const Case& c : kCases) {
    const FakeTime fake(c.seconds, c.nanoseconds);
    EXPECT_EQ(ZDateTime::Now().GetMicroSecondsSinceEpoch(), c.microseconds);
  }
}

TEST(ZDateTime, NowAgreesWithTheCalendar) {
  const std::time_t before = std::time(nullptr);
  const long long now = ZDateTime::Now().GetMicroSecondsSinceEpoch();
  // One second more than time() gives: it may be behind by a tick of the kernel's coarse clock.
  EXPECT_GE(now / 1000000, before);
  EXPECT_LE(now / 1000000, std::time(nullptr) + 1);
}

TEST(ZDateTime, ComparesEarlierEqualAndLater) {
  constexpr long long kOrdered[] = {kLowest, -1, 0, 1, 1700000000123456, kHighest};
  for (const long long& a : kOrdered) {
    for (const long long& b : kOrdered) {
      const int result = ZDateTime(a).Compare(ZDateTime(b));
      EXPECT_EQ(result < 0, a < b);
      EXPECT_EQ(result > 0, a > b);
      EXPECT_EQ(result == 0, a == b);
    }
  }
}

struct DifferenceCase {
  long long later, earlier, span;
};
constexpr DifferenceCase kDifferenceCases[] = {
    {0, 0, 0},
    {5, 3, 2},
    {3, 5, -2},
    {kHighest, kHighest, 0},
    {kHighest, -1, kHighest},
    {kLowest, 1, kLowest},
    {-1, kLowest, kHighest},
    {0, kLowest, kHighest},
    {kLowest, kHighest, kLowest},
};

TEST(ZDateTime, SubtractsAndStopsAtTheLimits) {
  for (const DifferenceCase& c : kDifferenceCases) {
    EXPECT_EQ((ZDateTime(c.later) - ZDateTime(c.earlier)).GetTotalMicroSeconds(), c.span)
        << c.later << ' ' << c.earlier;
  }
}

// A watcher reads them while a transfer assigns to them: no value that was never assigned, and nothing for a sanitizer.
TEST(ZDateTime, MayBeReadWhileAnotherThreadAssigns) {
  ZDateTime time(1);
  ZTimeSpan span(1);
  std::atomic<bool> isOver = false;
  long wrong = 0;
  std::thread reader([&] {
    while (!isOver) {
      const long long seenTime = ZDateTime(time).GetMicroSecondsSinceEpoch();
      const long long seenSpan = ZTimeSpan(span).GetTotalMicroSeconds();
      if (seenTime != 1 && seenTime != kHighest) ++wrong;
      if (seenSpan != 1 && seenSpan != 60000000) ++wrong;
    }
  });
  for (int i = 0; i < 20000; ++i) {
    time = ZDateTime(i % 2 == 0 ? kHighest : 1);
    if (i % 2 == 0) {
      span.Set(0, 0, 1, 0, 0);
    } else {
      span = ZTimeSpan(1);
    }
  }
  isOver = true;
  reader.join();
  EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace Corvane
