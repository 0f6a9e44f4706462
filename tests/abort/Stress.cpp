// abort_stress [seconds] [threads]: operations of all kinds run on `threads` objects against servers that behave in
// every way, while other threads abort, reset, wait for, watch, destroy and replace the objects. Fails on a result that
// the situation does not allow, on an operation that an abort does not end, on a call that does not return, and when
// something of all this never happened.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <Corvane/Transfer.h>

#include "tests/abort/StressServer.h"
#include "tests/abort/StressSlot.h"
#include "tests/abort/StressTally.h"
#include "tests/loopback/TransferTesting.h"
#include "tests/support/Env.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

using namespace Corvane;

constexpr unsigned int kSeed = 20261;
constexpr std::chrono::seconds kAbortBound{30};  // generous: under a sanitizer the machine may be very busy
constexpr std::chrono::seconds kCallBound{120};  // a call that takes longer is taken to hang
constexpr std::chrono::seconds kExtraTime{90};   // for what has not happened yet when the time is up

// The call that a thread is in, for the watch on hanging calls.
class CallClock {
 public:
  void Begin() { m_begin = Clock::now().time_since_epoch().count(); }
  void End() { m_begin = 0; }
  bool IsHanging() const {
    const Clock::rep begin = m_begin;
    return begin != 0 && Clock::now() - Clock::time_point(Clock::duration(begin)) > kCallBound;
  }

 private:
  std::atomic<Clock::rep> m_begin{0};
};

class Random {
 public:
  explicit Random(unsigned int stream) : m_engine(kSeed + stream) {}
  unsigned int Below(unsigned int limit) { return std::uniform_int_distribution<unsigned int>(0, limit - 1)(m_engine); }

 private:
  std::mt19937 m_engine;
};

class Stress {
 public:
  explicit Stress(unsigned int threads) : m_slots(threads), m_clocks(std::size_t{threads} * 2) {
    WriteFile(m_folder / "small", "data");
    WriteFile(m_folder / "large", "");
    std::filesystem::resize_file(m_folder / "large", 64 << 20);
  }

  bool RunFor(std::chrono::seconds time);

 private:
  void Work(unsigned int number);
  void Disturb(unsigned int number);
  void Watch(unsigned int number);

  Behaviour ChooseBehaviour(Random& random) const;
  ZResult RunOperation(ZTransfer& transfer, Behaviour behaviour, unsigned int kind, const std::string& file);
  void CheckOutcome(Behaviour behaviour, unsigned int kind, ZResult code);
  void DisturbOnce(StressSlot& slot, Random& random);
  void WatchOnce(ZTransfer& transfer);
  void AwaitTime(std::chrono::seconds time);
  void ExitWhenACallHangs() const;

  const TempDir m_folder;
  StressServer m_server;
  std::deque<StressSlot> m_slots;
  std::deque<CallClock> m_clocks;  // of the workers, then of those who disturb
  StressTally m_tally;
  std::atomic<bool> m_stopWork{false};
  std::atomic<bool> m_stopDisturbing{false};
};

// --- operations

constexpr unsigned int kKinds = 4;  // of operations: 0 Download, 1 DownloadFile, 2 PostData, 3 PostFile
constexpr unsigned int kIntoFile = 1;
constexpr unsigned int kPostFile = 3;

void Stress::Work(unsigned int number) {
  Random random(number);
  while (!m_stopWork) {
    const Behaviour behaviour = ChooseBehaviour(random);
    const bool isHttp = behaviour != Behaviour::kNoBanner;
    const unsigned int kind = behaviour == Behaviour::kUnread ? kPostFile : random.Below(isHttp ? kKinds : 2);
    const std::string file = std::to_string(number) + NameOf(behaviour);
    m_clocks[number].Begin();
    const ZResult code = m_slots[number].Run(
        behaviour, [&](ZTransfer& transfer) { return RunOperation(transfer, behaviour, kind, file); });
    m_clocks[number].End();
    CheckOutcome(behaviour, kind, code);
    std::this_thread::sleep_for(std::chrono::microseconds(random.Below(500)));  // idle objects are disturbed, too
  }
}

// The quick ones come more often: each of the others takes the time that an abort takes.
Behaviour Stress::ChooseBehaviour(Random& random) const {
  constexpr auto kQuick = static_cast<unsigned int>(Behaviour::kStallHead);
  const bool isQuick = random.Below(10) != 0;
  return static_cast<Behaviour>(random.Below(isQuick ? kQuick : static_cast<unsigned int>(kBehaviours)));
}

ZResult Stress::RunOperation(ZTransfer& transfer, Behaviour behaviour, unsigned int kind, const std::string& file) {
  const ZString url = Wide(m_server.Url(behaviour));
  ZString result;
  switch (kind) {
    case 0:
      return transfer.Download(url, result);
    case kIntoFile:
      return transfer.DownloadFile(url, WidePath(m_folder / file), behaviour == Behaviour::kAnswer);
    case 2:
      return transfer.PostData(url, L"data", result);
    default:
      return transfer.PostFile(url, WidePath(m_folder / (behaviour == Behaviour::kUnread ? "large" : "small")));
  }
}

void Stress::CheckOutcome(Behaviour behaviour, unsigned int kind, ZResult code) {
  m_tally.CountOperation(behaviour, code);
  if (code == TRANSFER_E_ABORTED) return;
  if (code == TRANSFER_S_FINISHED && MaySucceed(behaviour)) return;
  if (code == TRANSFER_E_CONNECT && kind == kIntoFile) return;  // without an answer, whatever the reason
  for (const unsigned int failure : FailuresOf(behaviour)) {
    if (code == CurlFailure(failure)) return;
  }
  m_tally.Fail(Hex(code) + " from operation " + std::to_string(kind) + " on " + NameOf(behaviour));
}

// --- other threads

void Stress::Disturb(unsigned int number) {
  Random random(1000 + number);
  CallClock& clock = m_clocks[m_slots.size() + number];
  while (!m_stopDisturbing) {
    clock.Begin();
    DisturbOnce(m_slots[random.Below(static_cast<unsigned int>(m_slots.size()))], random);
    clock.End();
    std::this_thread::sleep_for(std::chrono::microseconds(random.Below(2000)));  // lets operations come to their end
  }
}

void Stress::DisturbOnce(StressSlot& slot, Random& random) {
  switch (random.Below(8)) {
    case 0:
      if (slot.Use([](ZTransfer& transfer) { transfer.Abort(); })) m_tally.CountBlindAbort();
      return;
    case 1:
      if (slot.Use([](ZTransfer& transfer) { transfer.Reset(); })) m_tally.CountReset();
      return;
    case 2: {
      const unsigned long limit = random.Below(20);
      if (slot.Use([&](ZTransfer& transfer) { transfer.Wait(limit); })) m_tally.CountWait();
      return;
    }
    case 3:
      return m_tally.CountDestruction(slot.Replace());
    default:
      break;
  }
  const auto abort = slot.AbortRunning(kAbortBound);
  if (!abort) return;
  m_tally.CountAbort(abort->behaviour, abort->time);
  if (abort->time >= kAbortBound) m_tally.Fail(std::string("an abort did not end ") + NameOf(abort->behaviour));
}

void Stress::Watch(unsigned int number) {
  for (std::size_t next = number; !m_stopDisturbing; ++next) {
    const bool isWatched = m_slots[next % m_slots.size()].Use([&](ZTransfer& transfer) { WatchOnce(transfer); });
    if (isWatched) m_tally.CountWatched();
    std::this_thread::sleep_for(std::chrono::microseconds(50));  // leaves the machine to the others
  }
}

void Stress::WatchOnce(ZTransfer& transfer) {
  const ZString& error = transfer.GetError();
  const std::string before = Narrow(error);
  ZString header, cause;
  const ZResult status = transfer.GetStatus();
  // For a moment libcurl's own code for an aborted transfer shows, and what a file's failure to open would leave.
  const ZResult codes[] = {TRANSFER_E_NOT_STARTED,   TRANSFER_S_FINISHED,       TRANSFER_E_ABORTED,
                           TRANSFER_E_CONNECT,       TRANSFER_E_DOWNLOAD,       CurlFailure(kPartialFile),
                           CurlFailure(kWriteError), CurlFailure(kTimedOut),    CurlFailure(52),
                           CurlFailure(55),          CurlFailure(kReceiveError)};
  if (std::find(std::begin(codes), std::end(codes), status) == std::end(codes)) m_tally.Fail("status " + Hex(status));
  if (transfer.GetHeader(header) == BASE_S_OK && !header.IsEmpty() && Narrow(header).substr(0, 9) != "HTTP/1.1 ") {
    m_tally.Fail("header " + Narrow(header));
  }
  transfer.GetCause(cause);
  static_cast<void>(transfer.GetContentSize());
  static_cast<void>(transfer.GetDownloadSize());
  static_cast<void>(transfer.GetTransferSize());
  static_cast<void>(transfer.GetTransferRate());
  if (transfer.GetTransferTime() < 0) m_tally.Fail("negative time");
  if (transfer.GetTransferStartTime().GetMicroSecondsSinceEpoch() <= 0) m_tally.Fail("no start time");
  if (Narrow(error) != before) m_tally.Fail("an error text changed under its reader");
}

// --- the run

bool Stress::RunFor(std::chrono::seconds time) {
  std::vector<std::thread> workers;
  std::vector<std::thread> others;
  for (unsigned int i = 0; i < m_slots.size(); ++i) {
    workers.emplace_back([this, i] { Work(i); });
    others.emplace_back([this, i] { Disturb(i); });
  }
  for (unsigned int i = 0; i < 2; ++i) others.emplace_back([this, i] { Watch(i); });
  AwaitTime(time);
  m_stopWork = true;
  // Those who disturb go on until the last operation has ended, which may be one that only an abort ends.
  std::thread last([&] {
    for (std::thread& worker : workers) worker.join();
    m_stopDisturbing = true;
  });
  while (!m_stopDisturbing) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ExitWhenACallHangs();
  }
  last.join();
  for (std::thread& other : others) other.join();
  for (const std::string& name : m_tally.Missing()) m_tally.Fail("never happened: " + name);
  m_tally.Print();
  return !m_tally.HasFailed();
}

void Stress::AwaitTime(std::chrono::seconds time) {
  const Deadline end = Clock::now() + time;
  const Deadline latest = end + kExtraTime;
  while (Clock::now() < end || (Clock::now() < latest && !m_tally.Missing().empty())) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    ExitWhenACallHangs();
  }
}

void Stress::ExitWhenACallHangs() const {
  for (std::size_t i = 0; i < m_clocks.size(); ++i) {
    if (!m_clocks[i].IsHanging()) continue;
    m_tally.Print();
    const bool isWorker = i < m_slots.size();
    std::printf("FAILED: %s %zu does not come back from its call\n", isWorker ? "worker" : "disturber", i);
    std::fflush(stdout);
    std::_Exit(EXIT_FAILURE);  // nothing can be destroyed under the hanging thread
  }
}

}  // namespace
}  // namespace CorvaneTest

int main(int argc, char** argv) {
  CorvaneTest::PrepareTestProcess();
  const int seconds = argc > 1 ? std::atoi(argv[1]) : 3;
  const int threads = argc > 2 ? std::atoi(argv[2]) : 4;
  if (seconds < 1 || threads < 1) {
    std::fprintf(stderr, "usage: abort_stress [seconds] [threads]\n");
    return 2;
  }
  std::printf("seed %u, %d s, %d objects\n", CorvaneTest::kSeed, seconds, threads);
  CorvaneTest::Stress stress(static_cast<unsigned int>(threads));
  return stress.RunFor(std::chrono::seconds(seconds)) ? EXIT_SUCCESS : EXIT_FAILURE;
}
