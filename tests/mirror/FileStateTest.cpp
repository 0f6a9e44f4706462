#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <string>

#include <Corvane/MultiDownloadImpl.h>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

using namespace Corvane;

constexpr long kTime = 1500000000;

// A file of this many bytes, last changed at this time.
ZFileInfo MakeLocalFile(const TempDir& folder, std::size_t size, long time = kTime) {
  WriteFile(folder / "file", std::string(size, 'x'));
  const timespec times[2] = {{time, 0}, {time, 0}};
  EXPECT_EQ(utimensat(AT_FDCWD, (folder / "file").c_str(), times, 0), 0);
  return ZFileInfo(WidePath(folder / "file"), 0);
}

struct StateCase {
  const char* name;
  std::size_t localSize;
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
    const TempDir folder;
    const ZFileInfo local = MakeLocalFile(folder, c.localSize);
    EXPECT_EQ(ZMultiDownload::ZMultiDownloadImpl::GetFileState(local, c.expectedSize, c.expectedTime), c.state)
        << c.name;
  }
}

TEST(FileState, OfAFileFromBeforeTheEpochIsStaleToo) {
  const TempDir folder;
  const ZFileInfo local = MakeLocalFile(folder, 40, -1);
  EXPECT_EQ(ZMultiDownload::ZMultiDownloadImpl::GetFileState(local, 40, 1), FILE_REFETCH);
  EXPECT_EQ(ZMultiDownload::ZMultiDownloadImpl::GetFileState(local, 40, 0), FILE_COMPLETE) << "the time is unknown";
}

TEST(FileState, OfAMissingFileIsRefetchWhateverIsExpected) {
  const TempDir folder;
  const ZFileInfo local(WidePath(folder / "missing"), 0);
  for (const unsigned long long size : {0ULL, 1ULL, ~0ULL}) {
    for (const long time : {0L, -1L, kTime}) {
      EXPECT_EQ(ZMultiDownload::ZMultiDownloadImpl::GetFileState(local, size, time), FILE_REFETCH)
          << size << ' ' << time;
    }
  }
}

TEST(FileState, HasFixedNumbers) {
  EXPECT_EQ(FILE_COMPLETE, 0);
  EXPECT_EQ(FILE_PARTIAL, 1);
  EXPECT_EQ(FILE_REFETCH, 2);
}

}  // namespace
}  // namespace CorvaneTest
