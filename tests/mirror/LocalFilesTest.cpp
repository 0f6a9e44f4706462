#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <chrono>
#include <optional>
#include <string>

#include "tests/mirror/FetchLoopTesting.h"
#include "tests/support/FileDescriptor.h"

// What a run makes of the files that are there before it fetches the first one.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace fs = std::filesystem;

// --- free space

TEST_F(FetchLoop, FailsWhenTheFreeSpaceIsUnknown) {
  Serve(Files{{"a", "1"}});
  m_system.freeSpaceError = EIO;
  EXPECT_THAT(Run(false), IsCode(TRANSFER_E_DISK_SPACE));
  EXPECT_THAT(m_mirror.GetStatus(), IsCode(TRANSFER_E_DISK_SPACE));
  const ZResult cause = ResultFromErrno(EIO);
  EXPECT_EQ(ErrorOf(m_mirror), "Cannot obtain disk space required for downloading " + Url() + " to " + Folder() + " (" +
                                   std::to_string(cause) + ", " + MessageOf(cause) + ")");
  EXPECT_THAT(Targets(), ElementsAre("/dir/"));
}

TEST_F(FetchLoop, AFolderThatCannotBeMadeShowsWhenItsSpaceIsAsked) {
  Serve(Files{{"a", "1"}});
  WriteLocal("file", "no folder");
  const std::string folder = Local("file") / "folder";
  EXPECT_THAT(m_mirror.Download(Wide(Url()), Wide(folder), false), IsCode(TRANSFER_E_DISK_SPACE));
  const ZResult cause = ResultFromErrno(ENOTDIR);
  EXPECT_EQ(ErrorOf(m_mirror), "Cannot obtain disk space required for downloading " + Url() + " to " + folder + " (" +
                                   std::to_string(cause) + ", " + MessageOf(cause) + ")");
  EXPECT_TRUE(FileHolds(Local("file"), "no folder"));
}

struct SpaceCase {
  const char* name;
  Sizes sizes;
  unsigned long long freeKilobytes;
  std::optional<std::string> missing;  // what the text says; nothing when there is enough
};

TEST_F(FetchLoop, ComparesWholeKilobytesWithTheFreeSpace) {
  Serve(Status(404));
  const SpaceCase cases[] = {
      {"1023 bytes are 0 KB", {{L"a", 1023}}, 0, {}},
      {"1024 bytes are 1 KB", {{L"a", 1024}}, 0, "Required: 1 Kb. Available: 0 Kb."},
      {"1024 bytes fit into 1 KB", {{L"a", 1024}}, 1, {}},
      {"only the sum is rounded down", {{L"a", 600}, {L"b", 600}}, 0, "Required: 1 Kb. Available: 0 Kb."},
      {"unknown sizes need nothing", {{L"a", 0}, {L"b", 0}}, 0, {}},
      {"the largest size", {{L"a", kLargest}}, 1000, "Required: 18014398509481983 Kb. Available: 1000 Kb."},
      {"a sum beyond 64 bits",
       {{L"a", kLargest}, {L"b", 2}},
       1000,
       "Required: 18014398509481983 Kb. Available: 1000 Kb."},
      {"more than the halves",
       {{L"a", 1ULL << 63}, {L"b", 1ULL << 63}},
       0,
       "Required: 18014398509481983 Kb. Available: 0 Kb."},
  };
  for (const SpaceCase& c : cases) {
    m_system.freeKilobytes = c.freeKilobytes;
    if (!c.missing) {
      EXPECT_THAT(Run(c.sizes), IsCode(TRANSFER_E_CONNECT)) << c.name << ": the first file is asked for";
      continue;
    }
    const std::size_t asked = Targets().size();
    EXPECT_THAT(Run(c.sizes), IsCode(TRANSFER_E_DISK_SPACE)) << c.name;
    EXPECT_THAT(m_mirror.GetStatus(), IsCode(TRANSFER_E_DISK_SPACE)) << c.name;
    EXPECT_EQ(ErrorOf(m_mirror), "Insufficient disk space to download " + Url() + " to " + Folder() + ". " + *c.missing)
        << c.name;
    EXPECT_EQ(Targets().size(), asked) << c.name;
  }
}

TEST_F(FetchLoop, RemovesStaleFilesBeforeItLooksForSpace) {
  Serve(Files{});
  WriteLocal("a stale", "local");
  WriteLocal("b unknown", "local");
  WriteLocal("c large", "local");
  WriteLocal("d partial", "local");
  WriteLocal("e not listed", "local");
  m_system.freeKilobytes = 0;
  m_mirror.SetFileTimeList(Times{{L"a stale", kTime + 1}});
  EXPECT_THAT(Run({{L"a stale", 5}, {L"b unknown", 0}, {L"c large", 4}, {L"d partial", 5000}}),
              IsCode(TRANSFER_E_DISK_SPACE));
  EXPECT_THAT(m_system.calls,
              ElementsAre("unlink a stale", "unlink b unknown", "unlink c large", "unlink d partial", "space"));
  EXPECT_THAT(Names(), ElementsAre("e not listed"));
}

TEST_F(FetchLoop, ACompleteFileIsFetchedOverItselfWithoutResume) {
  const std::string content = MakePattern(5000);
  Serve(Files{{"a", content}});
  WriteLocal("a", std::string(5000, 'x'));
  const ino_t inode = StatusOf("a").st_ino;
  m_system.freeKilobytes = 0;
  EXPECT_THAT(Run({{L"a", 5000}}), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(m_system.calls, Not(Contains(StartsWith("unlink"))));
  EXPECT_EQ(StatusOf("a").st_ino, inode);
  EXPECT_TRUE(FileHolds(Local("a"), content));
  EXPECT_EQ(m_mirror.GetDownloadSize(), 5000u);
}

TEST_F(FetchLoop, ACompleteFileIsSkippedAndCountedWhenResuming) {
  Serve(Files{{"a", "new"}, {"b", "new"}});
  WriteLocal("a", "old");
  m_system.freeKilobytes = 0;
  m_mirror.SetFileTimeList(Times{{L"a", kTime - 100}});
  EXPECT_THAT(Run({{L"a", 3}, {L"b", 3}}, true), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(Targets(), ElementsAre("/dir/b"));
  EXPECT_TRUE(FileHolds(Local("a"), "old"));
  EXPECT_EQ(TimeOf("a"), kTime) << "it was not fetched, so its time stays";
  EXPECT_EQ(m_mirror.GetDownloadSize(), 6u);
}

TEST_F(FetchLoop, APartialFileNeedsSpaceForItsRestOnly) {
  const std::string content = MakePattern(10240);
  Serve(Files{{"a", content}});
  WriteLocal("a", content.substr(0, 4096));
  m_system.freeKilobytes = 5;
  EXPECT_THAT(Run({{L"a", 10240}}, true), IsCode(TRANSFER_E_DISK_SPACE));
  EXPECT_THAT(ErrorOf(m_mirror), testing::HasSubstr("Required: 6 Kb. Available: 5 Kb."));
  EXPECT_TRUE(FileHolds(Local("a"), content.substr(0, 4096)));
  EXPECT_EQ(m_mirror.GetDownloadSize(), 4096u);

  m_system.freeKilobytes = 6;
  EXPECT_THAT(Run({{L"a", 10240}}, true), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(Local("a"), content));
  EXPECT_EQ(m_mirror.GetDownloadSize(), 10240u);
  ASSERT_EQ(m_server->Requests().size(), 1u);
  EXPECT_EQ(m_server->Requests()[0].Header("Range"), "bytes=4064-") << "a margin is fetched again";
}

TEST_F(FetchLoop, FortyBytesOfAHundredAreCountedOnce) {
  const std::string content = MakePattern(100);
  Serve(Files{{"a", content}});
  WriteLocal("a", content.substr(0, 40));
  EXPECT_THAT(Run({{L"a", 100}}, true), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(m_system.calls, Not(Contains(StartsWith("unlink"))));
  EXPECT_TRUE(FileHolds(Local("a"), content));
  EXPECT_EQ(m_mirror.GetDownloadSize(), 100u);
}

TEST_F(FetchLoop, APartialFileIsFetchedAfreshWithoutResume) {
  const std::string content = MakePattern(5000);
  Serve(Files{{"a", content}});
  WriteLocal("a", std::string(4000, 'x'));
  EXPECT_THAT(Run({{L"a", 5000}}), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(m_system.calls.at(0), "unlink a");
  EXPECT_EQ(m_server->Requests().at(0).CountHeaders("Range"), 0u);
  EXPECT_TRUE(FileHolds(Local("a"), content));
  EXPECT_EQ(m_mirror.GetDownloadSize(), 5000u);
}

TEST_F(FetchLoop, AStaleFileIsFetchedAfreshWhenResuming) {
  Serve(Files{{"newer", MakePattern(200)}, {"larger", MakePattern(200)}});
  WriteLocal("newer", std::string(200, 'x'));
  WriteLocal("larger", std::string(201, 'x'));
  m_mirror.SetFileTimeList(Times{{L"newer", kTime + 1}});
  EXPECT_THAT(Run({{L"larger", 200}, {L"newer", 200}}, true), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(m_system.calls, ElementsAre("unlink larger", "unlink newer", "space", "chmod larger 755",
                                          "chmod newer 755", "times newer 1500000001 1500000001"));
  EXPECT_EQ(StatusOf("newer").st_mtim.tv_sec, kTime + 1);
  EXPECT_EQ(StatusOf("newer").st_atim.tv_sec, kTime + 1);
  for (const char* name : {"larger", "newer"}) EXPECT_TRUE(FileHolds(Local(name), MakePattern(200))) << name;
  EXPECT_EQ(m_mirror.GetDownloadSize(), 400u);
}

TEST_F(FetchLoop, IgnoredFilesAreNeitherCountedNorTouched) {
  Serve(Files{{"a", "new"}});
  WriteLocal("ignored", "old");
  m_system.freeKilobytes = 0;
  m_mirror.SetIgnoreList({L"ignored", L"missing"});
  EXPECT_THAT(Run({{L"a", 3}, {L"ignored", 5000}, {L"missing", 5000}}), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(Targets(), ElementsAre("/dir/a"));
  EXPECT_THAT(m_system.calls, ElementsAre("space", "chmod a 755"));
  EXPECT_TRUE(FileHolds(Local("ignored"), "old"));
  EXPECT_EQ(m_mirror.GetDownloadSize(), 3u);
}

// --- what is no regular file

class WhatIsNoFile : public FetchLoop {
 protected:
  void ExpectRefused(const std::string& name) {
    EXPECT_THAT(m_mirror.GetStatus(), IsCode(TRANSFER_E_DOWNLOAD));
    EXPECT_EQ(ErrorOf(m_mirror),
              "Failed to open output file " + Local(name).native() + ": " + MessageOf(BASE_E_NOT_A_FILE));
    EXPECT_EQ(Narrow(m_mirror.GetStatistics().fileName), name);
    EXPECT_THAT(Targets(), IsEmpty());
  }
};

TEST_F(WhatIsNoFile, StaysAndEndsTheRun) {
  Serve(Files{{"a", "new"}});
  WriteFile(Local("a") / "inner", "mine");
  for (const bool resume : {false, true}) {
    for (const unsigned long long size : {0u, 3u}) {
      EXPECT_THAT(Run({{L"a", size}}, resume), IsCode(TRANSFER_E_DOWNLOAD));
      ExpectRefused("a");
      EXPECT_TRUE(FileHolds(Local("a") / "inner", "mine"));
    }
  }
}

// A folder has a size, too.
TEST_F(WhatIsNoFile, IsNeverCompleteNorPartial) {
  Serve(Files{{"a", "new"}});
  fs::create_directory(Local("a"));
  const auto size = static_cast<unsigned long long>(StatusOf("a").st_size);
  for (const bool resume : {false, true}) {
    for (const unsigned long long expected : {size, size + 1}) {
      EXPECT_THAT(Run({{L"a", expected}}, resume), IsCode(TRANSFER_E_DOWNLOAD));
      ExpectRefused("a");
      EXPECT_EQ(m_mirror.GetDownloadSize(), 0u);
      EXPECT_EQ(m_mirror.GetStatistics().filesSkipped, 0u);
    }
  }
  EXPECT_TRUE(fs::is_directory(Local("a")));
}

TEST_F(WhatIsNoFile, NeedsTheSpaceOfAMissingFile) {
  Serve(Files{{"a", "new"}});
  fs::create_directory(Local("a"));
  const unsigned long long size = static_cast<unsigned long long>(StatusOf("a").st_size) + 4096;
  m_system.freeKilobytes = size / 1024 - 1;
  EXPECT_THAT(Run({{L"a", size}}, true), IsCode(TRANSFER_E_DISK_SPACE));
}

// Opening a FIFO waits until somebody reads from it, beyond every time limit.
TEST_F(WhatIsNoFile, MayBeAFifo) {
  Serve(Files{{"a", "new"}});
  ASSERT_EQ(mkfifo(Local("a").c_str(), 0600), 0);
  for (const unsigned long long size : {0u, 3u}) {
    m_mirror.SetFileSizeList(Sizes{{L"a", size}});
    RunningMirror run(m_mirror, Wide(Url()), Wide(Folder()), true);
    EXPECT_EQ(run.Result(After(std::chrono::seconds(5))), TRANSFER_E_DOWNLOAD);
    const FileDescriptor reader(
        open(Local("a").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));  // lets a run go that waits
    run.Result();
    ExpectRefused("a");
  }
  EXPECT_TRUE(fs::is_fifo(Local("a")));
}

TEST_F(WhatIsNoFile, LeavesItsLinkLikeAnythingStale) {
  Serve(Files{{"a", "new"}, {"b", "new"}});
  fs::create_directory(Local("folder"));
  fs::create_directory_symlink("folder", Local("a"));
  fs::create_symlink("/dev/null", Local("b"));
  const auto size = static_cast<unsigned long long>(StatusOf("a").st_size);
  EXPECT_THAT(Run({{L"a", size}, {L"b", 3}}, true), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(m_mirror.GetStatistics().filesFetched, 2u);
  EXPECT_TRUE(FileHolds(Local("a"), "new"));
  EXPECT_TRUE(FileHolds(Local("b"), "new"));
}

TEST_F(WhatIsNoFile, IsNoLinkToAFile) {
  Serve(Files{{"complete", "12345"}, {"partial", MakePattern(1000)}});
  WriteFile(Local("elsewhere") / "complete", "12345");
  WriteFile(Local("elsewhere") / "partial", MakePattern(1000).substr(0, 500));
  for (const char* const name : {"complete", "partial"}) fs::create_symlink(fs::path("elsewhere") / name, Local(name));
  EXPECT_THAT(Run({{L"complete", 5}, {L"partial", 1000}}, true), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(m_mirror.GetStatistics().filesSkipped, 1u);
  EXPECT_EQ(m_mirror.GetStatistics().filesResumed, 1u);
  EXPECT_TRUE(fs::is_symlink(Local("partial")));
  EXPECT_TRUE(FileHolds(Local("elsewhere") / "partial", MakePattern(1000)));
}

// --- times that the file system cannot keep

constexpr long kLatest = 4000000000;  // of a file system that knows times until 2096

TEST_F(FetchLoop, ATimeBeyondWhatTheFileSystemKeepsIsReachedByItsLatest) {
  Serve(Files{{"a", "12345"}});
  m_system.latestTime = kLatest;
  m_mirror.SetFileTimeList(Times{{L"a", kLatest + 1}});
  EXPECT_THAT(Run({{L"a", 5}}, true), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(TimeOf("a"), kLatest);
  EXPECT_THAT(Run({{L"a", 5}}, true), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(m_mirror.GetStatistics().filesSkipped, 1u) << "it was fetched again, for ever";
  EXPECT_THAT(Targets(), ElementsAre("/dir/a"));
  EXPECT_EQ(TimeOf("a"), kLatest);
}

TEST_F(FetchLoop, AFileOlderThanTheFileSystemsLatestTimeIsStillStale) {
  Serve(Files{{"a", "12345"}, {"b", "12345"}});
  m_system.latestTime = kLatest;
  m_mirror.SetFileTimeList(Times{{L"a", kLatest + 1}, {L"b", kLatest}});
  WriteLocal("a", "54321", kLatest - 1);
  WriteLocal("b", "54321", kLatest - 1);
  EXPECT_THAT(Run({{L"a", 5}, {L"b", 5}}, true), IsCode(TRANSFER_S_FINISHED));
  for (const char* const name : {"a", "b"}) EXPECT_TRUE(FileHolds(Local(name), "12345")) << name;
}

// Until a run has fetched the file, its own time must not change: the run may be killed.
TEST_F(FetchLoop, TheFileSystemIsAskedWithTheTimeOfLastAccessAlone) {
  Serve(Files{{"a", "12345"}});
  WriteLocal("a", "54321", kTime);
  m_mirror.SetFileTimeList(Times{{L"a", kLatest}});
  m_system.freeKilobytes = 0;
  EXPECT_THAT(Run({{L"a", 5}}, true), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(m_system.calls, ElementsAre("times a 4000000000 as it is", "unlink a", "space", "chmod a 755",
                                          "times a 4000000000 4000000000"));
}

TEST_F(FetchLoop, ATimeThatEveryFileSystemKeepsIsNotAskedFor) {
  Serve(Files{{"a", "12345"}, {"b", "12345"}});
  WriteLocal("a", "54321", kTime);
  m_mirror.SetFileTimeList(Times{{L"a", 0x7FFFFFFF}, {L"b", kLatest}});
  EXPECT_THAT(Run({{L"a", 5}, {L"b", 5}}, true), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(m_system.calls, ElementsAre("unlink a", "space", "chmod a 755", "chmod b 755",
                                          "times a 2147483647 2147483647", "times b 4000000000 4000000000"));
}

}  // namespace
}  // namespace CorvaneTest
