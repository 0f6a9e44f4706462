#include <gmock/gmock.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <thread>

#include "tests/mirror/FetchLoopTesting.h"

// The moments at which a run begins and ends, each held still while another thread does something.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::ElementsAre;

// Another thread, and whether it has come to where it must wait.
class Beside {
 public:
  explicit Beside(std::function<void()> steps)
      : m_thread([this, steps = std::move(steps)] {
          m_id = gettid();
          steps();
          m_isDone = true;
        }) {}
  ~Beside() { m_thread.join(); }
  Beside(const Beside&) = delete;
  Beside& operator=(const Beside&) = delete;

  // Returns once the thread sleeps, or is done with its steps and so has not waited.
  bool IsWaiting() const {
    int asleep = 0;
    EXPECT_TRUE(WaitUntil([&] {
      asleep = IsAsleep() ? asleep + 1 : 0;
      return m_isDone || asleep == 5;  // a thread may sleep for a moment for reasons of its own
    }));
    return !m_isDone;
  }

 private:
  // The state stands behind the name, which ends with the last parenthesis.
  bool IsAsleep() const {
    if (m_id == 0) return false;
    std::ifstream file("/proc/self/task/" + std::to_string(m_id) + "/stat");
    std::string line;
    std::getline(file, line);
    const std::size_t name = line.rfind(')');
    return name != std::string::npos && line.substr(name + 1, 2) == " S";
  }

  std::atomic<int> m_id{0};
  std::atomic<bool> m_isDone{false};
  std::thread m_thread;  // last: uses the others
};

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

  std::optional<Beside> m_other;
};

// The second has seen that nothing runs. Only within the lock does it see the first.
TEST_F(RunBracket, OfTwoRunsThatBeginAtOnceTheSecondIsRefused) {
  Serve(Files{{"a", "1"}});
  std::atomic<ZResult> second{BASE_S_OK};
  AtTheBeginning([&] {
    m_other.emplace([&] { second = m_mirror.Download(Wide(Url()), Wide(Folder()), false); });
    EXPECT_TRUE(m_other->IsWaiting());
  });
  EXPECT_THAT(Run({{L"a", 1}}), IsCode(TRANSFER_S_FINISHED));
  m_other.reset();
  EXPECT_THAT(second.load(), IsCode(BASE_E_BUSY));
  EXPECT_THAT(m_mirror.GetStatus(), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(Targets(), ElementsAre("/dir/a"));
}

// Whoever has waited may destroy the object, so nobody may be inside it any more.
TEST_F(RunBracket, AWaitReturnsOnlyWhenNobodyHoldsTheObject) {
  Serve(Files{{"a", "1"}});
  AtTheBeginning([&] { EXPECT_TRUE(m_other.emplace([&] { EXPECT_TRUE(m_mirror.Wait(0xFFFFFFFF)); }).IsWaiting()); });
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
    EXPECT_TRUE(m_other.emplace([&] { static_cast<void>(m_mirror.GetDownloadTime()); }).IsWaiting());
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
