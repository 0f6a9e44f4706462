#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <optional>
#include <utility>

#include "tests/frame/BlockedCall.h"
#include "tests/mirror/FetchLoopTesting.h"

// The moments at which a run begins and ends, each held still while another thread does something.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::ElementsAre;

class RunBracket : public FetchLoop {
 protected:
  // Does this at the run's first look at the clock: with the object locked, and before the run shows.
  void AtTheBeginning(std::function<void()> steps) {
    m_system.onClock = [this, steps = std::move(steps)] {
      const std::function<void()> once = steps;  // which go with the hook
      m_system.onClock = nullptr;
      once();
    };
  }

  std::optional<BlockedCall> m_other;
};

// The second has seen that nothing runs. Only within the lock does it see the first.
TEST_F(RunBracket, OfTwoRunsThatBeginAtOnceTheSecondIsRefused) {
  Serve(Files{{"a", "1"}});
  std::atomic<ZResult> second{BASE_S_OK};
  AtTheBeginning([&] {
    m_other.emplace([&] { second = m_mirror.Download(Wide(Url()), Wide(Folder()), false); });
    EXPECT_TRUE(m_other->IsBlocked());
  });
  // The first does not end before the second has had its turn; after it, the second would be a run like any other.
  m_system.onStat = [&](const std::string& /*name*/) { m_other.reset(); };
  EXPECT_THAT(Run({{L"a", 1}}), IsCode(TRANSFER_S_FINISHED));
  EXPECT_FALSE(m_other) << "the first has asked for its file";
  EXPECT_THAT(second.load(), IsCode(BASE_E_BUSY));
  EXPECT_THAT(m_mirror.GetStatus(), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(Targets(), ElementsAre("/dir/a"));
}

// Whoever has waited may destroy the object, so nobody may be inside it any more.
TEST_F(RunBracket, AWaitReturnsOnlyWhenNobodyHoldsTheObject) {
  Serve(Files{{"a", "1"}});
  AtTheBeginning([&] { EXPECT_TRUE(m_other.emplace([&] { EXPECT_TRUE(m_mirror.Wait(0xFFFFFFFF)); }).IsBlocked()); });
  EXPECT_THAT(Run({{L"a", 1}}), IsCode(TRANSFER_S_FINISHED));
  m_other.reset();
}

// The event comes first: the object is still taken, by its flag and by its lock, when those who wait are woken.
TEST_F(RunBracket, EndsUnderTheLockAndWakesBeforeItIsFree) {
  Serve(Files{});
  int ends = 0;
  m_system.onBroadcast = [&] {
    if (m_mirror.GetStatus() != TRANSFER_E_INVALID_URL) return;  // other events, and the run's when it begins
    ++ends;
    EXPECT_THAT(m_mirror.SetSSL(false, false, L"", L""), IsCode(BASE_E_BUSY)) << "looks at the flag alone";
    EXPECT_TRUE(m_other.emplace([&] { static_cast<void>(m_mirror.GetDownloadTime()); }).IsBlocked());
  };
  EXPECT_THAT(m_mirror.Download(L"http://", Wide(Folder()), false), IsCode(TRANSFER_E_INVALID_URL));
  EXPECT_EQ(ends, 1);
  m_other.reset();
  EXPECT_THAT(m_mirror.SetSSL(false, false, L"", L""), IsCode(BASE_S_OK));
}

// The transfer has not begun, so that there is nothing yet that the abort could end.
TEST_F(RunBracket, AnAbortRightBeforeAFileEndsItsTransfer) {
  Serve(Files{{"a", "12345"}, {"b", "12345"}});
  int looks = 0;
  m_system.onStat = [&](const std::string& name) {
    if (name == "a" && ++looks == 2) m_mirror.Abort();  // first comes the check of the space
  };
  EXPECT_TRUE(IsFailure(Run({{L"a", 5}, {L"b", 5}})));
  EXPECT_EQ(m_mirror.GetStatistics().filesFetched, 0u);
  EXPECT_FALSE(FileHolds(Local("a"), "12345"));
  EXPECT_GE(looks, 2);
}

}  // namespace
}  // namespace CorvaneTest
