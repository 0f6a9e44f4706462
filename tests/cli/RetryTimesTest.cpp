// How long to wait before the next try, and what the server has to say about it.

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <limits>
#include <optional>
#include <string_view>

#include "apps/corvane/HttpDate.h"
#include "apps/corvane/Retry.h"

namespace CorvaneCli {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::time_t kNow = 784111777;  // Sun, 06 Nov 1994 08:49:37 GMT

struct RetryAfterCase {
  const char* value;
  std::optional<long long> wait;
};

TEST(RetryAfter, TakesSecondsAndTheThreeFormsOfADate) {
  const RetryAfterCase cases[] = {
      {"0", 0},
      {"120", 120},
      {" 120\t", 120},
      {"007", 7},
      {"2147483647", 2147483647},
      {"2147483648", 2147483647},
      {"18446744073709551615", 2147483647},
      {"18446744073709551616", 2147483647},
      {"99999999999999999999999999999999", 2147483647},
      {"Sun, 06 Nov 1994 08:49:37 GMT", 0},
      {"Sun, 06 Nov 1994 08:49:36 GMT", 0},
      {"Sun, 06 Nov 1994 08:51:37 GMT", 120},
      {"Sunday, 06-Nov-94 08:51:37 GMT", 120},
      {"Sun Nov  6 08:51:37 1994", 120},
      {"Wed Nov 16 08:49:37 1994", 864000},
      {"Thu, 01 Jan 1970 00:00:00 GMT", 0},
      {"Sat, 01 Jan 0000 00:00:00 GMT", 0},
      {"Fri, 31 Dec 9999 23:59:59 GMT", 2147483647},
      {"Sun, 06 Nov 1994 08:49:60 GMT", 23},
  };
  for (const RetryAfterCase& c : cases) {
    const std::optional<seconds> wait = RetryAfter(c.value, kNow);
    ASSERT_TRUE(wait.has_value()) << c.value;
    EXPECT_EQ(wait->count(), c.wait) << c.value;
  }
}

TEST(RetryAfter, RefusesWhatIsNeither) {
  for (const char* const value : {"",
                                  " ",
                                  "-1",
                                  "+1",
                                  "1.5",
                                  "1 s",
                                  "1 2",
                                  "soon",
                                  "0x10",
                                  "Sun, 06 Nov 1994 08:49:37",
                                  "06 Nov 1994 08:49:37 GMT",
                                  "Sun, 6 Nov 1994 08:49:37 GMT",
                                  "Sun, 06 Nov 94 08:49:37 GMT",
                                  "Sun, 06 Nov 1994 08:49:37 CET",
                                  "Sun, 06 Nov 1994 08:49:37 GMT x",
                                  "Sun, 31 Nov 1994 08:49:37 GMT",
                                  "Sun, 00 Nov 1994 08:49:37 GMT",
                                  "Sun, 29 Feb 1995 08:49:37 GMT",
                                  "Sun, 06 Nov 1994 24:00:00 GMT",
                                  "Sun, 06 Nov 1994 08:60:00 GMT",
                                  "Sun, 06 Nov 1994 08:49:61 GMT",
                                  "sun, 06 nov 1994 08:49:37 gmt",
                                  "Xyz, 06 Nov 1994 08:49:37 GMT",
                                  "Sun,  06 Nov 1994 08:49:37 GMT",
                                  "Sun, 06-Nov-94 08:49:37 GMT",
                                  "Sunday, 06-Nov-1994 08:49:37 GMT",
                                  "Sun Nov 6 08:49:37 1994",
                                  "Sun Nov  6 08:49:37 1994 GMT",
                                  "Sun, 06 Nov 1994 08:49:3"}) {
    EXPECT_FALSE(RetryAfter(value, kNow).has_value()) << value;
  }
  EXPECT_FALSE(RetryAfter(std::string_view("1\0", 2), kNow).has_value());
}

TEST(RetryAfter, SurvivesAClockThatIsSetToNonsense) {
  EXPECT_EQ(RetryAfter("Sun, 06 Nov 1994 08:49:37 GMT", std::numeric_limits<std::time_t>::min()), seconds(2147483647));
  EXPECT_EQ(RetryAfter("Sun, 06 Nov 1994 08:49:37 GMT", std::numeric_limits<std::time_t>::max()), seconds(0));
  EXPECT_TRUE(RetryAfter("Sunday, 06-Nov-94 08:49:37 GMT", std::numeric_limits<std::time_t>::max()).has_value());
  EXPECT_TRUE(RetryAfter("Sunday, 06-Nov-94 08:49:37 GMT", std::numeric_limits<std::time_t>::min()).has_value());
}

TEST(ParseHttpDate, KnowsLeapYearsAndTheCentury) {
  EXPECT_EQ(ParseHttpDate("Sun, 06 Nov 1994 08:49:37 GMT", kNow), kNow);
  EXPECT_EQ(ParseHttpDate("Tue, 29 Feb 2000 00:00:00 GMT", kNow), 951782400);
  EXPECT_EQ(ParseHttpDate("Thu, 29 Feb 2024 12:00:00 GMT", kNow), 1709208000);
  EXPECT_EQ(ParseHttpDate("Thu, 29 Feb 1900 00:00:00 GMT", kNow), std::nullopt);
  constexpr std::time_t k2025 = 1750000000;  // 75 is 50 years ahead, 76 is not
  EXPECT_EQ(ParseHttpDate("Wednesday, 01-Jan-75 00:00:00 GMT", k2025), 3313526400);
  EXPECT_EQ(ParseHttpDate("Thursday, 01-Jan-76 00:00:00 GMT", k2025), 189302400);
}

// --- waits

TEST(WaitBefore, DoublesUpToAMinute) {
  EXPECT_EQ(WaitBefore(0, milliseconds(1000)), milliseconds(0));
  EXPECT_EQ(WaitBefore(1, milliseconds(1000)), milliseconds(1000));
  EXPECT_EQ(WaitBefore(2, milliseconds(1000)), milliseconds(2000));
  EXPECT_EQ(WaitBefore(6, milliseconds(1000)), milliseconds(32000));
  EXPECT_EQ(WaitBefore(7, milliseconds(1000)), milliseconds(60000));
  EXPECT_EQ(WaitBefore(std::numeric_limits<unsigned int>::max(), milliseconds(1)), milliseconds(60000));
}

TEST(WaitBefore, StaysInItsBoundsWhateverComesFirst) {
  EXPECT_EQ(WaitBefore(1, milliseconds(90000)), milliseconds(90000));
  EXPECT_EQ(WaitBefore(3, milliseconds(90000)), milliseconds(90000));
  EXPECT_EQ(WaitBefore(3, milliseconds::max()), milliseconds::max());
  EXPECT_EQ(WaitBefore(3, milliseconds::min()), milliseconds(0));
  EXPECT_EQ(WaitBefore(std::numeric_limits<unsigned int>::max(), milliseconds(0)), milliseconds(0));
}

}  // namespace
}  // namespace CorvaneCli
