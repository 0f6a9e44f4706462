#include <Corvane/Base/Duration.h>

#include <gtest/gtest.h>

#include <chrono>
#include <limits>

#include <Corvane/Base/DateTime.h>

namespace Corvane {
namespace {

using namespace std::chrono_literals;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::system_clock;

TEST(WholeUnits, RoundsUpSoThatNoLimitBecomesShorter) {
  EXPECT_EQ(WholeUnits<seconds>(0s, 100), 0);
  EXPECT_EQ(WholeUnits<seconds>(1ns, 100), 1);
  EXPECT_EQ(WholeUnits<seconds>(1000ms, 100), 1);
  EXPECT_EQ(WholeUnits<seconds>(1001ms, 100), 2);
  EXPECT_EQ(WholeUnits<milliseconds>(1500us, 100), 2);
  EXPECT_EQ(WholeUnits<seconds>(std::chrono::duration<double>(0.5), 100), 1);
}

TEST(WholeUnits, SaturatesAndNeverWraps) {
  EXPECT_EQ(WholeUnits<seconds>(99s, 100), 99);
  EXPECT_EQ(WholeUnits<seconds>(100s, 100), 100);
  EXPECT_EQ(WholeUnits<seconds>(101s, 100), 100);
  EXPECT_EQ(WholeUnits<milliseconds>(std::chrono::hours::max(), 100), 100);
  EXPECT_EQ(WholeUnits<seconds>(std::chrono::duration<double>(std::numeric_limits<double>::infinity()), 100), 100);
}

TEST(SecondsOf, AreWhatALimitTakes) {
  EXPECT_EQ(SecondsOf(1500ms), 2);
  EXPECT_EQ(SecondsOf(std::chrono::hours::max()), 0x7FFFFFFF);
  EXPECT_EQ(SecondsOf(-1ns), -1);
}

// 0xFFFFFFFF would be a wait without limit.
TEST(MillisecondsOf, AreWhatAWaitTakes) {
  EXPECT_EQ(MillisecondsOf(1500us), 2u);
  EXPECT_EQ(MillisecondsOf(std::chrono::hours::max()), 0xFFFFFFFEu);
  EXPECT_EQ(MillisecondsOf(-1ns), 0u);
}

TEST(WholeUnits, IsNegativeForWhatIsNoLimit) {
  EXPECT_EQ(WholeUnits<seconds>(-1ns, 100), -1);
  EXPECT_EQ(WholeUnits<milliseconds>(std::chrono::hours::min(), 100), -1);
  EXPECT_EQ(WholeUnits<seconds>(std::chrono::duration<double>(std::numeric_limits<double>::quiet_NaN()), 100), -1);
}

TEST(ZTimeSpan, ComesFromAndGoesIntoADuration) {
  EXPECT_EQ(ZTimeSpan(1500ms).GetTotalMicroSeconds(), 1500000);
  EXPECT_EQ(ZTimeSpan(-7).ToDuration(), microseconds(-7));
}

TEST(ZTimeSpan, IsComparedByAllSixOperators) {
  const ZTimeSpan a(1);
  const ZTimeSpan b(2);
  EXPECT_TRUE(a < b && a <= b && a != b && b > a && b >= a && a == ZTimeSpan(1));
  EXPECT_FALSE(b < a || b <= a || a == b || a > b || a >= b || a != ZTimeSpan(1));
}

TEST(ZDateTime, IsComparedByAllSixOperators) {
  const ZDateTime a(1);
  const ZDateTime b(2);
  EXPECT_TRUE(a < b && a <= b && a != b && b > a && b >= a && a == ZDateTime(1));
  EXPECT_FALSE(b < a || b <= a || a == b || a > b || a >= b || a != ZDateTime(1));
}

TEST(ZDateTime, ComesFromAndGoesIntoATimePoint) {
  const system_clock::time_point point = system_clock::time_point() + std::chrono::hours(24 * 365) + 250us;
  EXPECT_EQ(ZDateTime(point).GetMicroSecondsSinceEpoch(), 365LL * 24 * 3600 * 1000000 + 250);
  EXPECT_EQ(ZDateTime(point).ToTimePoint(), point);
  EXPECT_EQ(ZDateTime(system_clock::time_point() - 1ns).GetMicroSecondsSinceEpoch(), -1) << "towards the past";
}

TEST(ZDateTime, BeyondTheStandardClockIsItsNearestEnd) {
  EXPECT_EQ(ZDateTime(std::numeric_limits<long long>::max()).ToTimePoint(), system_clock::time_point::max());
  EXPECT_EQ(ZDateTime(std::numeric_limits<long long>::min()).ToTimePoint(), system_clock::time_point::min());
}

}  // namespace
}  // namespace Corvane
