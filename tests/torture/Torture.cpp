#include "tests/torture/Torture.h"

#include <sched.h>

#include <algorithm>
#include <new>
#include <optional>
#include <sstream>

#include "tests/loopback/TransferTesting.h"
#include "tests/torture/Watch.h"

namespace CorvaneTest {
namespace {

// Mistakes tend to come in hundreds.
constexpr std::size_t kMostWrong = 5;

std::size_t OpenDescriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

int FailedExpectations() { return testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count(); }

}  // namespace

std::ostream& operator<<(std::ostream& stream, const Tally& tally) {
  stream << tally.injected << " failures, " << tally.reported << " reported, " << tally.survived << " survived";
  if (tally.thrown != 0) stream << ", " << tally.thrown << " thrown";
  if (tally.leftOut != 0) stream << ", " << tally.leftOut << " left out";
  if (tally.wrong != 0) stream << ", " << tally.wrong << " WRONG";
  return stream << "; slowest " << tally.slowest.count() << " ms";
}

// What is made only once in a process or a server, by the first operation, is made before anything fails.
Torture::Torture(const RunKind& kind) : m_kind(kind), m_run(kind.make()) {
  for (int i = 0; i < 2; ++i) {
    m_run->Prepare();
    m_run->Repeat();
    m_run->Discard();
    // Whatever the servers have open still goes soon.
    m_openAtRest = OpenDescriptors();
    WaitUntil([&] {
      const std::size_t open = OpenDescriptors();
      return open >= std::exchange(m_openAtRest, std::min(open, m_openAtRest));
    });
  }
}

Torture::~Torture() = default;

std::size_t Torture::Count(Target target) {
  m_run->Prepare();
  std::size_t calls = 0;
  Corvane::ZResult code = 0;
  {
    const Injection injection(target, 0);
    code = m_run->Execute();
    calls = injection.Calls();
  }
  EXPECT_THAT(code, IsCode(m_run->Expected()));
  m_run->Discard();
  return calls;
}

Tally Torture::FailEach(Target target, Fault fault, std::size_t stride) {
  Tally tally;
  for (std::size_t number = 1; tally.wrong < kMostWrong && FailOne(target, fault, number, tally);) number += stride;
  return tally;
}

bool Torture::FailOne(Target target, Fault fault, std::size_t number, Tally& tally) {
  const int failedBefore = FailedExpectations();
  m_run->Prepare();
  std::ostringstream what;
  what << m_kind.name << ": " << NameOf(target) << " number " << number << ' ' << NameOf(fault);
  const Watch watch(what.str());
  bool hasFailed = false;
  RunOutcome outcome;
  {
    Injection injection(target, number, fault);
    outcome = Execute(target, tally);
    hasFailed = injection.HasFailed();
    tally.leftOut = std::max(tally.leftOut, injection.LeftOut());
    if (hasFailed) what << ", which was " << injection.Place();
  }
  {
    SCOPED_TRACE(what.str());
    if (!hasFailed) {
      EXPECT_EQ(outcome.code, m_run->Expected());
    }
    m_run->Check(outcome);
    m_run->Repeat();
    m_run->Discard();
    ExpectNothingOpen();
  }
  if (!hasFailed) return false;
  ++tally.injected;
  ++(!outcome.code ? tally.thrown : *outcome.code == m_run->Expected() ? tally.survived : tally.reported);
  if (FailedExpectations() != failedBefore) ++tally.wrong;
  return true;
}

RunOutcome Torture::Execute(Target target, Tally& tally) {
  RunOutcome outcome;
  outcome.target = target;
  const Clock::time_point begin = Clock::now();
  try {
    outcome.code = m_run->Execute();
  } catch (const std::bad_alloc&) {
    const Injection::Pause pause;
    EXPECT_TRUE(m_run->MayThrow()) << "std::bad_alloc came out";
  }
  const auto spent = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin);
  tally.slowest = std::max(tally.slowest, spent);
  return outcome;
}

// Servers notice a moment later that their clients have gone.
void Torture::ExpectNothingOpen() {
  for (int i = 0; i < 100 && OpenDescriptors() > m_openAtRest; ++i) sched_yield();
  if (WaitUntil([&] { return OpenDescriptors() <= m_openAtRest; }, After(std::chrono::seconds(10)))) return;
  const std::size_t open = OpenDescriptors();
  ADD_FAILURE() << open << " descriptors are open in place of " << m_openAtRest;
  m_openAtRest = open;
}

}  // namespace CorvaneTest
