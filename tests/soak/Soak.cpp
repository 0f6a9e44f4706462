// soak [--seconds N] [--round SECONDS] [--objects N] [--seed N]: operations of all kinds run on `objects` objects of all kinds against
// servers that fail now and then, while other threads abort, watch, destroy and replace the objects and change the throttle. What came is
// compared with what was served. After each round everything is destroyed, and what the process still holds is measured.
//
// Fails when a success has wrong bytes or a file is not what it seems, when a call or an abort takes too long, when something never
// happened, and when memory, descriptors or threads grow from round to round.

#include <sys/prctl.h>

#include <atomic>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <Corvane/Transfer.h>

#include "tests/loopback/TransferTesting.h"
#include "tests/soak/Resources.h"
#include "tests/soak/SoakSlot.h"
#include "tests/soak/SoakTally.h"
#include "tests/support/Env.h"
#include "tests/support/Pki.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

constexpr std::chrono::seconds kAbortBound{30};  // generous: under a sanitizer the machine may be very busy
constexpr std::chrono::seconds kCallBound{120};  // a call that takes longer is taken to hang
constexpr std::chrono::seconds kExtraTime{90};   // for what has not happened yet when the time is up
constexpr std::size_t kFewestRounds = 6;         // to see whether something grows

struct SoakOptions {
  unsigned long long seconds = 60;
  unsigned long long round = 10;
  unsigned long long objects = 8;
  unsigned long long seed = 20261;
};

std::unique_ptr<SoakObject> MakeObject(Random& random) {
  const unsigned int kind = random.Below(10);
  if (kind < 5) return MakeSoakTransfer();
  return kind < 7 ? MakeSoakMirror() : MakeSoakTree();
}

// The servers, in a process of their own: what they hold is none of what is measured. They end with this object, or with this process.
class ServerProcess {
 public:
  ServerProcess(const Pki& pki, std::uint64_t seed)
      : m_program({"/proc/self/exe", "--serve", pki.server.certificate, pki.server.key, std::to_string(seed)}) {
    if (!m_program.WaitForOutput("ready")) throw std::runtime_error("no servers: " + m_program.ErrorOutput());
    std::istringstream urls(m_program.Output());
    urls >> targets.http >> targets.tls >> targets.ftp;
    targets.caFile = pki.caFile;
  }

  SoakTargets targets;

 private:
  BackgroundProgram m_program;
};

// One round: everything in it is made at its beginning and gone at its end.
class Round {
 public:
  // isCalm: every operation comes to its own end, as on a slow machine few would otherwise.
  Round(const SoakOptions& options, unsigned long long number, bool isCalm, SoakTally& tally)
      : m_seed(options.seed * 1000003 + number), m_isCalm(isCalm), m_tally(tally), m_servers(ThePki(), m_seed) {
    Random random(m_seed, 0);
    for (unsigned long long i = 0; i < options.objects; ++i) m_slots.emplace_back(MakeObject(random));
  }
  void Run(std::chrono::seconds time);

 private:
  void Work(unsigned int number);
  void Disturb(unsigned int number);
  void DisturbOnce(SoakSlot& slot, Random& random);
  void ChangeThrottle(Random& random);
  void ExitWhenACallHangs() const;

  const std::uint64_t m_seed;
  const bool m_isCalm;
  SoakTally& m_tally;
  const TempDir m_folder;
  ServerProcess m_servers;
  std::deque<SoakSlot> m_slots;
  std::atomic<bool> m_stopWork{false};
  std::atomic<bool> m_stopDisturbing{false};
};

void Round::Work(unsigned int number) {
  Random random(m_seed, 1 + number);
  const std::filesystem::path folder = m_folder / std::to_string(number);
  std::filesystem::create_directory(folder);
  while (!m_stopWork) {
    if (random.OneIn(20)) m_tally.Count(LookUpHost(random));
    m_tally.Count(
        m_slots[number].Run([&](SoakObject& object) { return object.Operate(m_servers.targets, folder, random); }));
  }
}

void Round::Disturb(unsigned int number) {
  Random random(m_seed, 1000 + number);
  while (!m_stopDisturbing) {
    DisturbOnce(m_slots[random.Below(static_cast<unsigned int>(m_slots.size()))], random);
    std::this_thread::sleep_for(std::chrono::microseconds(random.Below(20000)));  // lets operations come to their end
  }
}

void Round::DisturbOnce(SoakSlot& slot, Random& random) {
  if (m_isCalm) return slot.Use([&](SoakObject& object) { static_cast<void>(object.Wait(0)); });
  // At the end of the round all that runs is aborted.
  const unsigned int choice = m_stopWork ? 0 : random.Below(60);
  if (choice == 0) {
    const auto time = slot.AbortRunning(kAbortBound);
    if (time) m_tally.CountAbort(*time);
    if (time && *time >= kAbortBound) m_tally.Fail("an abort did not end an operation");
  } else if (choice == 1) {
    m_tally.CountDestruction(slot.Replace(MakeObject(random)));
  } else if (choice == 2) {
    ChangeThrottle(random);
  } else if (choice == 3) {
    slot.Use([](SoakObject& object) { object.Abort(); });
  } else {
    slot.Use([&](SoakObject& object) { object.Watch(random); });
  }
}

// Mostly off, and never so low that a round would be spent asleep.
void Round::ChangeThrottle(Random& random) {
  using Corvane::ZTransfer;
  ZTransfer::StartMulti();
  ZTransfer::SetThrottling(random.OneIn(3) ? 1000000000 : 0, 20000 + random.Below(100000), false);
  ZTransfer::FinishMulti();
}

void Round::Run(std::chrono::seconds time) {
  std::vector<std::thread> workers, others;
  for (unsigned int i = 0; i < m_slots.size(); ++i) workers.emplace_back([this, i] { Work(i); });
  for (unsigned int i = 0; i < 3; ++i) others.emplace_back([this, i] { Disturb(i); });
  const Deadline end = After(time);
  std::atomic<bool> isOver{false};
  std::thread last([&] {
    while (Clock::now() < end) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    m_stopWork = true;
    for (std::thread& worker : workers) worker.join();
    isOver = true;
  });
  while (!isOver) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ExitWhenACallHangs();
  }
  m_stopDisturbing = true;
  last.join();
  for (std::thread& other : others) other.join();
  Corvane::ZTransfer::SetThrottling(0, 0, false);
}

void Round::ExitWhenACallHangs() const {
  for (const SoakSlot& slot : m_slots) {
    if (slot.RunningFor() < kCallBound) continue;
    m_tally.Fail("an operation does not come back");
    m_tally.Print();
    std::_Exit(EXIT_FAILURE);  // nothing can be destroyed under the hanging thread
  }
}

bool Soak(const SoakOptions& options) {
  SoakTally tally;
  std::vector<Resources> held;
  ThePki();
  const Deadline end = After(std::chrono::seconds(options.seconds));
  std::printf("%8s %11s %11s %9s %9s %9s %5s %8s\n", "seconds", "operations", "op/s", "MiB/s", "RSS, KiB", "heap, KiB",
              "fds", "threads");
  const Clock::time_point begin = Clock::now();
  const auto isDone = [&] {
    if (Clock::now() < end || held.size() < kFewestRounds) return false;
    return tally.Missing().empty() || Clock::now() > end + kExtraTime;
  };
  for (unsigned long long number = 0; !isDone(); ++number) {
    const unsigned long long operations = tally.Operations(), bytes = tally.Bytes();
    const Clock::time_point roundBegin = Clock::now();
    std::make_unique<Round>(options, number, Clock::now() > end, tally)->Run(std::chrono::seconds(options.round));
    const double seconds = std::chrono::duration<double>(Clock::now() - roundBegin).count();
    held.push_back(held.empty() ? Resources::Now() : Resources::Settled(held.front()));
    std::printf("%8.0f %11llu %11.0f %9.2f %9zu %9zu %5zu %8zu\n",
                std::chrono::duration<double>(Clock::now() - begin).count(), tally.Operations(),
                static_cast<double>(tally.Operations() - operations) / seconds,
                static_cast<double>(tally.Bytes() - bytes) / seconds / (1U << 20U), held.back().residentBytes / 1024,
                held.back().heapBytes / 1024, held.back().descriptors, held.back().threads);
    std::fflush(stdout);
  }
  for (const std::string& name : tally.Missing()) tally.Fail("never happened: " + name);
  for (const std::string& growth : GrowthOf(held)) tally.Fail(growth);
  tally.Print();
  return !tally.HasFailed();
}

// What ServerProcess starts.
int Serve(char** arguments) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  SoakServers servers({arguments[0], arguments[1]}, std::stoull(arguments[2]));
  std::printf("%s %s %s ready\n", servers.HttpUrl().c_str(), servers.TlsUrl().c_str(), servers.FtpUrl().c_str());
  std::fflush(stdout);
  while (true) {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    servers.ChangeFtpFault();
  }
}

// False for what is no option with a number above 0.
bool ReadOption(SoakOptions& options, const std::string& name, const std::string& value) {
  unsigned long long number = 0;
  const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
  if (error != std::errc() || end != value.data() + value.size() || number == 0) return false;
  if (name == "--seconds")
    options.seconds = number;
  else if (name == "--round")
    options.round = number;
  else if (name == "--objects")
    options.objects = number;
  else if (name == "--seed")
    options.seed = number;
  else
    return false;
  return true;
}

}  // namespace
}  // namespace CorvaneTest

int main(int argc, char** argv) {
  CorvaneTest::PrepareTestProcess();
  if (argc == 5 && std::string(argv[1]) == "--serve") return CorvaneTest::Serve(argv + 2);
  CorvaneTest::SoakOptions options;
  for (int i = 1; i < argc; i += 2) {
    if (i + 1 < argc && CorvaneTest::ReadOption(options, argv[i], argv[i + 1])) continue;
    std::fprintf(stderr, "usage: soak [--seconds N] [--round SECONDS] [--objects N] [--seed N]\n");
    return 2;
  }
  std::printf("seed %llu, %llu objects, %llu s in rounds of %llu s\n", options.seed, options.objects, options.seconds,
              options.round);
  return CorvaneTest::Soak(options) ? EXIT_SUCCESS : EXIT_FAILURE;
}
