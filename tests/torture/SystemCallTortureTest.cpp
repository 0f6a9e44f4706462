#include <gmock/gmock.h>

#include <cerrno>
#include <iostream>

#include "tests/torture/Torture.h"

// Every call of the system that the library makes in a run, failing in every way that is usual for it.
namespace CorvaneTest {
namespace {

struct Family {
  Target target;
  std::vector<Fault> faults;
};

const std::vector<Family>& Families() {
  static const std::vector<Family> families = {
      {Target::kOpen, {{EMFILE}, {EACCES}, {EIO}, {EINTR}}},
      {Target::kRead, {{EIO}, {EINTR}, {0, true}}},
      {Target::kWrite, {{ENOSPC}, {EIO}, {EINTR}, {EINTR, true}, {ENOSPC, true}}},
      {Target::kSeek, {{EIO}}},
      {Target::kStatus, {{EIO}, {EACCES}}},
      {Target::kClose, {{EIO}, {ENOSPC}, {EINTR}}},
      {Target::kRemove, {{EACCES}, {EIO}, {EBUSY}}},
      {Target::kRename, {{EACCES}, {EIO}, {ENOSPC}}},
      {Target::kTimes, {{EPERM}, {EIO}}},
      {Target::kMode, {{EPERM}, {EIO}}},
      {Target::kMakeFolder, {{EACCES}, {ENOSPC}}},
      {Target::kSpace, {{EIO}, {EINTR}}},
      {Target::kTruncate, {{EIO}, {EINTR}}},
      {Target::kLock, {{ENOLCK}, {EINTR}}},
      {Target::kControl, {{EIO}}},
      {Target::kStream, {{ENOMEM}}},
      {Target::kReadFolder, {{EIO}, {ENOMEM}}},
      {Target::kSocket, {{EMFILE}, {ENOBUFS}}},
  };
  return families;
}

class SystemCallTorture : public testing::TestWithParam<RunKind> {
 protected:
  Torture torture{GetParam()};
};

// So that a family that a run comes to need is not forgotten, and one that it needs no more tests something.
TEST_P(SystemCallTorture, KnowsWhatTheRunCalls) {
  for (const Family& family : Families()) {
    const bool isKnown = GetParam().calls.count(family.target) != 0;
    EXPECT_EQ(torture.Count(family.target) != 0, isKnown) << NameOf(family.target);
  }
}

TEST_P(SystemCallTorture, EachFailure) {
  ASSERT_FALSE(HasFailure()) << "it fails without any failure";
  for (const Family& family : Families()) {
    if (GetParam().calls.count(family.target) == 0) continue;
    for (const Fault& fault : family.faults) {
      const Tally tally = torture.FailEach(family.target, fault);
      std::cout << "[ torture  ] " << GetParam().name << ", " << NameOf(family.target) << " (" << NameOf(fault)
                << "): " << tally << std::endl;
      EXPECT_GT(tally.injected, 0U) << NameOf(family.target);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Runs, SystemCallTorture, testing::ValuesIn(AllRuns()),
                         [](const auto& run) { return std::string(run.param.name); });

}  // namespace
}  // namespace CorvaneTest
