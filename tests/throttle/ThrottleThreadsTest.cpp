// Many threads that feed one throttle. The clock is scripted: time passes by the sleeps only, and by what each block costs.

#include <Corvane/Throttle.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/frame/BlockedCall.h"
#include "tests/support/Gate.h"
#include "tests/throttle/ThrottleScript.h"

namespace Corvane {
namespace {

using CorvaneTest::BlockedCall;
using CorvaneTest::Gate;
using CorvaneTest::kUnmeasured;
using CorvaneTest::Sleep;
using CorvaneTest::ThrottleScript;

void OnThreads(int count, const std::function<void(int)>& work) {
  std::vector<std::thread> threads;
  for (int i = 0; i < count; ++i) threads.emplace_back(work, i);
  for (std::thread& thread : threads) thread.join();
}

// One thread asleep in the throttle, for as long as a test needs it.
class ThrottleAsleep : public testing::Test {
 protected:
  ThrottleAsleep() {
    m_script.throttle.SetThrottling(kUnmeasured, 10, false);
    m_script.MoveAfter(0, 0);
    m_script.clock.Advance(1);
    m_script.clock.whileAsleep = [this](const Sleep&) {
      m_asleep.Open();
      EXPECT_TRUE(m_wakeUp.Wait());
    };
    m_sleeper = std::thread([this] { m_script.throttle.Throttle(100'000); });
    EXPECT_TRUE(m_asleep.Wait());
  }
  ~ThrottleAsleep() override {
    if (m_sleeper.joinable()) WakeUp();
  }

  void WakeUp() {
    m_wakeUp.Open();
    m_sleeper.join();
  }

  ThrottleScript m_script;
  Gate m_asleep;
  Gate m_wakeUp;
  std::thread m_sleeper;
};

TEST_F(ThrottleAsleep, MakesEveryOtherOperationWait) {
  ZThrottle& throttle = m_script.throttle;
  std::vector<std::unique_ptr<BlockedCall>> calls;
  const std::function<void()> operations[] = {[&] { throttle.Throttle(0); }, [&] { throttle.StartTransfer(); },
                                              [&] { throttle.FinishTransfer(); },
                                              [&] { throttle.SetThrottling(0, 0, false); }};
  for (const std::function<void()>& operation : operations) calls.push_back(std::make_unique<BlockedCall>(operation));
  for (const auto& call : calls) EXPECT_TRUE(call->IsBlocked());
  WakeUp();
  for (const auto& call : calls) {
    call->Join();
    EXPECT_TRUE(call->IsDone());
  }
}

TEST_F(ThrottleAsleep, LeavesOtherThrottlesAlone) {
  ZThrottle other;
  std::thread([&] {
    other.SetThrottling(1, 1, true);
    other.StartTransfer();
    other.Throttle(1);
    other.FinishTransfer();
  }).join();
  WakeUp();
}

TEST(ThrottleThreads, SleepOneAtATime) {
  ThrottleScript script;
  std::atomic<int> asleep{0};
  std::atomic<int> mostAsleep{0};
  std::atomic<int> sleeps{0};
  script.clock.whileAsleep = [&](const Sleep&) {
    if (++asleep > 1) mostAsleep = 2;
    ++sleeps;
    std::this_thread::yield();
    --asleep;
  };
  script.throttle.SetThrottling(kUnmeasured, 10, false);
  script.MoveAfter(0, 0);
  OnThreads(8, [&](int) {
    for (int block = 0; block < 200; ++block) script.MoveAfter(1, 1'460);
  });
  EXPECT_GT(sleeps, 100);
  EXPECT_EQ(mostAsleep, 0);
}

// Each thread alone would come at some 100 kB/s; together they are held to 10,240 bytes/s, and not to that each.
TEST(ThrottleThreads, AreHeldToTheCombinedRate) {
  constexpr unsigned int kBlock = 1'460;
  ThrottleScript script;
  script.throttle.SetThrottling(kUnmeasured, 10, false);
  script.MoveAfter(0, 0);
  std::atomic<unsigned long long> bytes{0};
  OnThreads(8, [&](int) {
    while (script.clock.ElapsedMilliseconds() < 170'000) {
      script.clock.Advance(2);
      script.throttle.Throttle(kBlock);
      bytes += kBlock;
    }
  });
  const double seconds = static_cast<double>(script.clock.ElapsedMilliseconds()) / 1000;
  EXPECT_NEAR(static_cast<double>(bytes.load()) / seconds, 10'240, 10'240 * 0.03);
}

TEST(ThrottleThreads, LoseNoBytes) {
  ThrottleScript script;
  script.throttle.SetThrottling(1'000'000, 10, false);
  script.MoveAfter(0, 0);
  OnThreads(8, [&](int) {
    for (int block = 0; block < 1000; ++block) script.throttle.Throttle(100);
  });
  script.MoveAfter(10'000, 0);
  EXPECT_EQ(script.TakeLines(), (std::vector<std::wstring>{CorvaneTest::FinishLine(80'000, 1'000'000, 10'240)}));
}

TEST(ThrottleThreads, StartAndFinishAreCountedExactly) {
  ThrottleScript script;
  script.throttle.SetThrottling(kUnmeasured, 10, false);
  script.throttle.StartTransfer();
  OnThreads(8, [&](int) {
    for (int i = 0; i < 1000; ++i) {
      script.throttle.StartTransfer();
      script.throttle.FinishTransfer();
    }
  });
  script.MoveAfter(0, 0);
  script.TakeLines();
  script.throttle.StartTransfer();  // the second: nothing restarts
  script.MoveAfter(0, 0);
  EXPECT_TRUE(script.TakeLines().empty());
  script.throttle.FinishTransfer();
  script.throttle.FinishTransfer();
  script.throttle.StartTransfer();  // the first again
  script.MoveAfter(0, 0);
  EXPECT_EQ(script.TakeLines().size(), 1u);
}

TEST(ThrottleThreads, MayConfigureWhileOthersReport) {
  ThrottleScript script;
  OnThreads(6, [&](int thread) {
    for (unsigned int i = 0; i < 500; ++i) {
      if (thread == 0) script.throttle.SetThrottling(i % 2 == 0 ? kUnmeasured : 1000, i % 7, i % 3 == 0);
      if (thread == 1) script.throttle.StartTransfer();
      if (thread == 2) script.throttle.FinishTransfer();
      if (thread > 2) script.MoveAfter(500, 1'460);
    }
  });
  // Whatever they did to each other, the throttle is in order afterwards.
  script.throttle.SetThrottling(kUnmeasured, 10, false);
  script.TakeLines();
  script.clock.TakeSleeps();
  EXPECT_EQ(script.MoveAfter(0, 0), std::vector<Sleep>());
  EXPECT_EQ(script.MoveAfter(1000, 50'000), (std::vector<Sleep>{{4, 0}}));
  EXPECT_EQ(script.TakeLines(), (std::vector<std::wstring>{CorvaneTest::UnmeasuredLine(10'240)}));
}

}  // namespace
}  // namespace Corvane
