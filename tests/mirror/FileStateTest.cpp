#include <gtest/gtest.h>

#include <Corvane/MultiDownload/FileStateImpl.h>

namespace CorvaneTest {
namespace {

using namespace Corvane;

constexpr long kTime = 1500000000;

// A file of this many bytes, last changed at this time.
constexpr LocalFile FileOf(unsigned long long size, long time = kTime) { return {true, size, time}; }

struct StateCase {
  const char* name;
  unsigned long long localSize;
  unsigned long long expectedSize;
  long expectedTime;
  FileState state;
};

constexpr StateCase kStateCases[] = {
    {"as expected, time unknown", 40, 40, 0, FILE_COMPLETE},
    {"as expected, same time", 40, 40, kTime, FILE_COMPLETE},
    {"as expected, local is newer", 40, 40, kTime - 1, FILE_COMPLETE},
    {"as expected, a time before the epoch", 40, 40, -1, FILE_COMPLETE},
    {"as expected, but stale by a second", 40, 40, kTime + 1, FILE_REFETCH},
    {"partial and stale", 40, 100, kTime + 1, FILE_REFETCH},
    {"too large by a byte", 41, 40, 0, FILE_REFETCH},
    {"size unknown", 40, 0, 0, FILE_REFETCH},
    {"size unknown, local is newer", 40, 0, kTime - 1, FILE_REFETCH},
    {"empty and size unknown", 0, 0, 0, FILE_REFETCH},
    {"partial", 40, 100, 0, FILE_PARTIAL},
    {"partial, a byte is missing", 99, 100, kTime, FILE_PARTIAL},
    {"empty", 0, 1, 0, FILE_PARTIAL},
    {"partial, the largest size there is", 1, ~0ULL, 0, FILE_PARTIAL},
};

TEST(FileState, IsTheFirstRuleThatApplies) {
  for (const StateCase& c : kStateCases) {
    EXPECT_EQ(GetFileState(FileOf(c.localSize), {c.expectedSize, c.expectedTime}), c.state) << c.name;
  }
}

TEST(FileState, OfAFileFromBeforeTheEpochIsStaleToo) {
  EXPECT_EQ(GetFileState(FileOf(40, -1), {40, 1}), FILE_REFETCH);
  EXPECT_EQ(GetFileState(FileOf(40, -1), {40, 0}), FILE_COMPLETE) << "the time is unknown";
}

TEST(FileState, OfAMissingFileIsRefetchWhateverIsExpected) {
  for (const unsigned long long size : {0ULL, 1ULL, ~0ULL}) {
    for (const long time : {0L, -1L, kTime}) {
      EXPECT_EQ(GetFileState(LocalFile(), {size, time}), FILE_REFETCH) << size << ' ' << time;
    }
  }
}

TEST(FileState, HasFixedNumbers) {
  EXPECT_EQ(FILE_COMPLETE, 0);
  EXPECT_EQ(FILE_PARTIAL, 1);
  EXPECT_EQ(FILE_REFETCH, 2);
}

// --- the plan

struct PlanCase {
  const char* name;
  LocalFile local;
  ExpectedFile expected;
  FilePlan resuming;
  FilePlan afresh;
};

constexpr PlanCase kPlanCases[] = {
    {"missing", {}, {100, 0}, {FileAction::Replace, 0, 100}, {FileAction::Replace, 0, 100}},
    {"complete", FileOf(40), {40, 0}, {FileAction::Keep, 40, 0}, {FileAction::Overwrite, 0, 0}},
    {"partial", FileOf(40), {100, 0}, {FileAction::Continue, 40, 60}, {FileAction::Replace, 0, 100}},
    {"empty", FileOf(0), {100, 0}, {FileAction::Continue, 0, 100}, {FileAction::Replace, 0, 100}},
    {"too large", FileOf(41), {40, 0}, {FileAction::Replace, 0, 40}, {FileAction::Replace, 0, 40}},
    {"size unknown", FileOf(40), {0, 0}, {FileAction::Replace, 0, 0}, {FileAction::Replace, 0, 0}},
    {"stale", FileOf(40), {40, kTime + 1}, {FileAction::Replace, 0, 40}, {FileAction::Replace, 0, 40}},
    {"the largest", FileOf(1), {~0ULL, 0}, {FileAction::Continue, 1, ~0ULL - 1}, {FileAction::Replace, 0, ~0ULL}},
};

void ExpectPlan(const PlanCase& c, bool resume, const FilePlan& expected) {
  const FilePlan plan = PlanFile(c.local, c.expected, resume);
  EXPECT_EQ(plan.action, expected.action) << c.name;
  EXPECT_EQ(plan.bytesPresent, expected.bytesPresent) << c.name;
  EXPECT_EQ(plan.bytesNeeded, expected.bytesNeeded) << c.name;
}

TEST(FilePlan, FollowsFromTheStateAndWhetherToResume) {
  for (const PlanCase& c : kPlanCases) {
    ExpectPlan(c, true, c.resuming);
    ExpectPlan(c, false, c.afresh);
  }
}

}  // namespace
}  // namespace CorvaneTest
