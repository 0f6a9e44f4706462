#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/abort/AbortTesting.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"

// An abort, a reset and a destruction at thousands of random moments of short operations: while they begin, run and
// end. Everything is answered at once, so that no operation waits for the abort's limit. ThreadSanitizer and
// AddressSanitizer are the sharper judges; without them the codes and the ends are checked.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using std::chrono::nanoseconds;
using testing::AnyOf;

constexpr int kRounds = 2000;
constexpr unsigned int kSeed = 20;  // fixed: a failure can be tried again

void SpinFor(nanoseconds time) {
  const auto end = Clock::now() + time;
  while (Clock::now() < end) std::this_thread::yield();
}

// Moments from the beginning of an operation to a little after its end, however long operations take on this machine.
class RandomMoment {
 public:
  nanoseconds Next() {
    std::uniform_real_distribution<double> part(0.0, 1.3);
    return nanoseconds(static_cast<long long>(part(m_random) * static_cast<double>(m_typical.count())));
  }
  void Learn(nanoseconds duration) { m_typical = (m_typical * 7 + duration) / 8; }

 private:
  std::mt19937 m_random{kSeed};
  nanoseconds m_typical{std::chrono::microseconds(500)};
};

class AbortRace : public testing::Test {
 protected:
  // One of several kinds of operation.
  ZResult Run(ZTransfer& transfer, int round) {
    ZString result;
    switch (round % 3) {
      case 0:
        return transfer.Download(Wide(m_server.Url()), result);
      case 1:
        return transfer.DownloadFile(Wide(m_server.Url()), WidePath(m_folder / "file"), round % 2 == 0);
      default:
        return transfer.PostData(Wide(m_server.Url()), L"data", result);
    }
  }

  // Starts the operation on another thread, does `disturb` at a random moment, and returns when both are over.
  ZResult RunDisturbed(ZTransfer& transfer, int round, const std::function<void()>& disturb) {
    std::promise<void> start;
    auto operation = std::async(std::launch::async, [this, &transfer, round, &start] {
      start.set_value();
      const auto begin = Clock::now();
      const ZResult code = Run(transfer, round);
      return std::make_pair(code, Clock::now() - begin);
    });
    start.get_future().wait();
    SpinFor(m_moment.Next());
    disturb();
    const auto [code, duration] = operation.get();
    if (code == TRANSFER_S_FINISHED) m_moment.Learn(duration);
    ++m_codes[code];
    return code;
  }

  // A download into a file that is aborted before its answer counts as one that could not connect.
  static auto IsAllowed(int round) {
    const ZResult unanswered = round % 3 == 1 ? TRANSFER_E_CONNECT : TRANSFER_E_ABORTED;
    return AnyOf(IsCode(TRANSFER_S_FINISHED), IsCode(TRANSFER_E_ABORTED), IsCode(unanswered));
  }

  // The moments were worth something: some operations were hit and some were missed.
  void ExpectHitsAndMisses() {
    EXPECT_GT(m_codes[TRANSFER_S_FINISHED], 0);
    EXPECT_GT(m_codes[TRANSFER_E_ABORTED], 0);
    for (const auto& [code, count] : m_codes) {
      std::printf("[ OUTCOME  ] %s: %d of %d\n", Hex(code).c_str(), count, kRounds);
    }
  }

  const TempDir m_folder;
  ScriptedServer m_server{KeepAlive(Content(std::string(200000, 'x')))};
  RandomMoment m_moment;
  std::map<ZResult, int> m_codes;
};

TEST_F(AbortRace, AbortsHitOrMiss) {
  ZTransfer transfer;
  for (int round = 0; round < kRounds; ++round) {
    ASSERT_THAT(RunDisturbed(transfer, round, [&] { transfer.Abort(); }), IsAllowed(round)) << round;
    ASSERT_TRUE(transfer.Wait(0)) << round;
  }
  ExpectHitsAndMisses();
}

TEST_F(AbortRace, ResetsHitOrMiss) {
  ZTransfer transfer;
  for (int round = 0; round < kRounds; ++round) {
    ASSERT_THAT(RunDisturbed(transfer, round, [&] { transfer.Reset(); }), IsAllowed(round)) << round;
    ASSERT_TRUE(transfer.Wait(0)) << round;
  }
  ExpectHitsAndMisses();
  EXPECT_THAT(Run(transfer, 0), IsCode(TRANSFER_S_FINISHED));
}

// The host sees to it that no operation begins on an object that is being destroyed. So the moment is counted from when
// the operation has begun: it runs, is at its end, or is over.
TEST_F(AbortRace, DestructionsHitOrMiss) {
  for (int round = 0; round < kRounds; ++round) {
    auto transfer = std::make_unique<ZTransfer>();
    ZTransfer& object = *transfer;
    ASSERT_THAT(RunDisturbed(object, round,
                             [&] {
                               while (object.GetStatus() == TRANSFER_E_NOT_STARTED) std::this_thread::yield();
                               SpinFor(m_moment.Next());
                               transfer.reset();
                             }),
                IsAllowed(round))
        << round;
  }
  ExpectHitsAndMisses();
}

// Aborts, resets and waits of several threads at once, on one object that begins one operation after the other.
TEST_F(AbortRace, ManyThreadsDisturbOneObject) {
  ZTransfer transfer;
  std::atomic<bool> done{false};
  std::vector<std::thread> threads;
  const std::function<void()> disturbances[] = {[&] { transfer.Abort(); }, [&] { transfer.Reset(); },
                                                [&] { transfer.Wait(1); }};
  for (const auto& disturb : disturbances) {
    threads.emplace_back([&, disturb] {
      RandomMoment moment;
      while (!done) {
        SpinFor(moment.Next());
        disturb();
      }
    });
  }
  for (int round = 0; round < kRounds; ++round) EXPECT_THAT(Run(transfer, round), IsAllowed(round)) << round;
  done = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(Run(transfer, 0), IsCode(TRANSFER_S_FINISHED));
}

}  // namespace
}  // namespace CorvaneTest
