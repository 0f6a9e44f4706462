#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <functional>
#include <future>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/mirror/LineRecorder.h"
#include "tests/mirror/MirrorTesting.h"
#include "tests/mirror/ScriptedSystem.h"
#include "tests/support/TempDir.h"

// What a run does with each file of its list, with every answer that the system can give.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace fs = std::filesystem;

constexpr long kTime = 1500000000;
constexpr unsigned long long kLargest = ~0ULL;

class FetchLoop : public testing::Test {
 protected:
  using Files = std::map<std::string, std::string>;

  void Serve(const Files& files) { Serve(Directory(files)); }
  void Serve(const Responder& responder) { m_server.emplace(KeepAlive(responder)); }
  ZResult Run(bool resume) { return m_mirror.Download(Wide(Url()), Wide(Folder()), resume); }
  ZResult Run(const Sizes& sizes, bool resume = false) {
    m_mirror.SetFileSizeList(sizes);
    return Run(resume);
  }

  std::string Url() const { return m_server->Url("/dir/"); }
  std::string Folder() const { return m_folder.Path().native(); }
  fs::path Local(const std::string& name) const { return m_folder / name; }
  std::vector<std::string> Names() const { return NamesIn(m_folder.Path()); }
  std::vector<std::string> Targets() const { return TargetsOf(*m_server); }

  void WriteLocal(const std::string& name, const std::string& content, long time = kTime) {
    WriteFile(Local(name), content);
    const timespec times[2] = {{time, 0}, {time, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, Local(name).c_str(), times, 0), 0);
    m_system.calls.clear();  // this was the test's own
  }
  struct stat StatusOf(const std::string& name) const {
    struct stat status {};
    EXPECT_EQ(stat(Local(name).c_str(), &status), 0) << name;
    return status;
  }
  long TimeOf(const std::string& name) const { return StatusOf(name).st_mtim.tv_sec; }
  std::string Mismatch(const std::string& name, unsigned long long size, unsigned long long expected) const {
    return MessageOf(TRANSFER_E_SIZE_MISMATCH) + ", File: " + Local(name).native() + " Size: " + std::to_string(size) +
           " Expected size: " + std::to_string(expected);
  }
  // Aborts the run right before this call of the system is made.
  void AbortAt(const std::string& call) {
    m_system.onCall = [this, call](const std::string& made) {
      if (made == call) m_mirror.Abort();
    };
  }

  const TempDir m_folder;
  std::optional<ScriptedServer> m_server;
  ZMultiDownload m_mirror;
  ScriptedSystem m_system{m_folder.Path()};
};

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

TEST_F(FetchLoop, AFolderWithTheNameOfAFileStays) {
  Serve(Files{{"a", "new"}});
  WriteFile(Local("a") / "inner", "mine");
  EXPECT_THAT(Run({{L"a", 3}}), IsCode(TRANSFER_E_DOWNLOAD));
  EXPECT_TRUE(FileHolds(Local("a") / "inner", "mine"));
}

// --- order and results

TEST_F(FetchLoop, FetchesInTheOrderOfTheNames) {
  Serve(Status(200, "x"));
  EXPECT_THAT(Run({{L"b", 1}, {L"a", 1}, {L"B", 1}, {L"a b", 1}, {L"10", 1}, {L"9", 1}}), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(Targets(), ElementsAre("/dir/10", "/dir/9", "/dir/B", "/dir/a", "/dir/a%20b", "/dir/b"));
}

TEST_F(FetchLoop, StopsAtTheFirstFileThatFails) {
  Serve(Files{{"a", "1"}, {"c", "3"}});
  ZTransfer transfer;
  EXPECT_THAT(transfer.DownloadFile(Wide(Url() + "b"), WidePath(Local("b")), false), IsCode(TRANSFER_E_CONNECT));
  m_system.calls.clear();
  m_mirror.SetFileTimeList(Times{{L"a", kTime}, {L"b", kTime}});
  EXPECT_THAT(Run({{L"a", 1}, {L"b", 1}, {L"c", 1}}), IsCode(TRANSFER_E_CONNECT));
  EXPECT_THAT(m_mirror.GetStatus(), IsCode(TRANSFER_E_CONNECT));
  EXPECT_EQ(ErrorOf(m_mirror), ErrorOf(transfer));
  EXPECT_THAT(Targets(), ElementsAre("/dir/b", "/dir/a", "/dir/b"));
  EXPECT_THAT(Names(), ElementsAre("a"));
  EXPECT_EQ(TimeOf("a"), kTime) << "what was fetched until then gets its time";
}

TEST_F(FetchLoop, FilesBecomeExecutableWhateverTheyWere) {
  Serve(Files{{"a", "1"}, {"b", "2"}});
  WriteLocal("a", "x");
  fs::permissions(Local("a"), fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_THAT(Run({{L"a", 1}, {L"b", 0}}), IsCode(TRANSFER_S_FINISHED));
  for (const char* name : {"a", "b"}) EXPECT_EQ(StatusOf(name).st_mode & 07777u, 0755u) << name;
}

TEST_F(FetchLoop, AModeThatCannotBeSetIsNoFailure) {
  Serve(Files{{"a", "1"}, {"b", "2"}});
  m_system.modeError["a"] = EPERM;
  EXPECT_THAT(Run({{L"a", 1}, {L"b", 1}}), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(m_system.calls, ElementsAre("space", "chmod a 755", "chmod b 755"));
}

// --- verification

TEST_F(FetchLoop, AMismatchOfTheLastFileIsTheResult) {
  Serve(Files{{"a", "1"}, {"b", "content"}});
  m_mirror.SetFileTimeList(Times{{L"b", kTime}});
  EXPECT_THAT(Run({{L"a", 1}, {L"b", 1000}}), IsCode(TRANSFER_E_SIZE_MISMATCH));
  EXPECT_THAT(m_mirror.GetStatus(), IsCode(TRANSFER_E_SIZE_MISMATCH));
  EXPECT_EQ(ErrorOf(m_mirror), Mismatch("b", 7, 1000));
  EXPECT_TRUE(FileHolds(Local("b"), "content")) << "it stays";
  EXPECT_EQ(StatusOf("b").st_mode & 07777u, 0755u);
  EXPECT_EQ(TimeOf("b"), kTime);
}

TEST_F(FetchLoop, AMismatchOfAnEarlierFileIsReplaced) {
  Serve(Files{{"a", "content"}, {"b", "2"}});
  EXPECT_THAT(Run({{L"a", 1000}, {L"b", 1}}), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(m_mirror.GetStatus(), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(ErrorOf(m_mirror), Mismatch("a", 7, 1000)) << "a good file has no text that could replace it";
  EXPECT_THAT(Names(), ElementsAre("a", "b"));
}

TEST_F(FetchLoop, AMismatchStaysWhenNothingElseIsTransferred) {
  Serve(Files{{"a", "content"}});
  WriteLocal("b", "2");
  m_mirror.SetIgnoreList({L"c"});
  EXPECT_THAT(Run({{L"a", 1000}, {L"b", 1}, {L"c", 1}}, true), IsCode(TRANSFER_E_SIZE_MISMATCH));
  EXPECT_EQ(ErrorOf(m_mirror), Mismatch("a", 7, 1000));
}

TEST_F(FetchLoop, AnUnknownSizeIsVerifiedByTheServersLength) {
  Serve(Files{{"a", "content"}});
  WriteLocal("a", "the old content");
  m_system.additionalSize["a"] = 5;
  EXPECT_THAT(Run(false), IsCode(TRANSFER_E_SIZE_MISMATCH));
  EXPECT_EQ(ErrorOf(m_mirror), Mismatch("a", 12, 7));
  EXPECT_THAT(m_system.calls, ElementsAre("unlink a", "space", "chmod a 755"));
}

TEST_F(FetchLoop, AnUnknownSizeIsNotVerifiedWithoutTheServersLength) {
  ContentOptions chunked;
  chunked.framing = ContentOptions::Framing::kChunked;
  Serve(Content("content", chunked));
  m_system.additionalSize["a"] = 5;
  EXPECT_THAT(Run({{L"a", 0}}), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(Local("a"), "content"));
}

TEST_F(FetchLoop, AFileThatCannotBeReadAfterItsDownloadEndsTheRun) {
  Serve(Files{{"a", "content"}, {"b", "2"}});
  m_system.unreadable["a"] = EACCES;
  m_mirror.SetFileTimeList(Times{{L"a", kTime}});
  EXPECT_THAT(Run({{L"a", 7}, {L"b", 1}}), IsCode(TRANSFER_E_SIZE_MISMATCH));
  EXPECT_EQ(ErrorOf(m_mirror), MessageOf(TRANSFER_E_SIZE_MISMATCH) + ", cannot get file " + Local("a").native() +
                                   " size: " + MessageOf(ResultFromErrno(EACCES)));
  EXPECT_THAT(Targets(), ElementsAre("/dir/a"));
  EXPECT_THAT(m_system.calls, ElementsAre("space", "times a 1500000000 1500000000"));
}

// --- times

TEST_F(FetchLoop, FilesOfUnknownTimeKeepTheTimeOfTheirDownload) {
  Serve(Files{{"a", "1"}, {"b", "2"}});
  m_mirror.SetFileTimeList(Times{{L"a", 0}});
  EXPECT_THAT(Run(false), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(m_system.calls, Each(Not(StartsWith("times"))));
}

TEST_F(FetchLoop, TimesAreSetAfterTheLastFile) {
  Serve(Files{{"a", "1"}, {"b", "2"}});
  m_mirror.SetFileTimeList(Times{{L"a", 1}, {L"b", -1}, {L"not listed", 5}});
  EXPECT_THAT(Run(false), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(m_system.calls, ElementsAre("space", "chmod a 755", "chmod b 755", "times a 1 1", "times b -1 -1"));
}

TEST_F(FetchLoop, ATimeThatCannotBeSetIsLoggedOnly) {
  Serve(Files{{"a", "1"}, {"b", "2"}});
  m_system.timeError["a"] = EPERM;
  m_mirror.SetFileTimeList(Times{{L"a", kTime}, {L"b", kTime}});
  LineRecorder log;
  EXPECT_THAT(Run({{L"a", 1}, {L"b", 1}}), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(ErrorOf(m_mirror), MessageOf(TRANSFER_S_FINISHED));
  EXPECT_EQ(TimeOf("b"), kTime);
  const ZResult cause = ResultFromErrno(EPERM);
  EXPECT_THAT(log.LinesOf("Corvane/MultiDownload"),
              ElementsAre(LogLine{ZLogLevel::Critical,
                                  "Failed to set file " + Local("a").native() + " time (" + std::to_string(cause) +
                                      ", " + MessageOf(cause) + ").",
                                  "Corvane/MultiDownload", 1276}));
}

TEST_F(FetchLoop, ATimeThatCannotBeSetIsNotLoggedBelowTheCriticalLevel) {
  Serve(Files{{"a", "1"}});
  m_system.timeError["a"] = EPERM;
  m_mirror.SetFileTimeList(Times{{L"a", kTime}});
  LineRecorder log;
  log.Enable(ZLogLevel::Critical, false);
  EXPECT_THAT(Run({{L"a", 1}}), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(log.LinesOf("Corvane/MultiDownload"), IsEmpty());
}

// --- abort

TEST_F(FetchLoop, AbortBetweenTwoFilesKeepsWhatIsHere) {
  Serve(Files{{"a", "1"}, {"b", "2"}});
  m_mirror.SetFileTimeList(Times{{L"a", kTime}});
  AbortAt("chmod a 755");  // the last thing that happens to the file
  EXPECT_THAT(Run({{L"a", 1}, {L"b", 1}}), IsCode(TRANSFER_E_ABORTED));
  EXPECT_THAT(m_mirror.GetStatus(), IsCode(TRANSFER_E_ABORTED));
  EXPECT_EQ(ErrorOf(m_mirror), "Download aborted by user");
  EXPECT_THAT(Targets(), ElementsAre("/dir/a"));
  EXPECT_THAT(Names(), ElementsAre("a"));
  EXPECT_EQ(TimeOf("a"), kTime);
}

TEST_F(FetchLoop, AbortAfterTheLastFileIsAnAbort) {
  Serve(Files{{"a", "1"}});
  AbortAt("chmod a 755");
  EXPECT_THAT(Run({{L"a", 1}}), IsCode(TRANSFER_E_ABORTED));
  EXPECT_TRUE(FileHolds(Local("a"), "1"));
}

TEST_F(FetchLoop, AbortDoesNotReplaceAFailure) {
  Serve(Files{{"a", "content"}, {"b", "2"}});
  AbortAt("chmod a 755");
  EXPECT_THAT(Run({{L"a", 1000}, {L"b", 1}}), IsCode(TRANSFER_E_SIZE_MISMATCH));
  EXPECT_EQ(ErrorOf(m_mirror), Mismatch("a", 7, 1000));
  EXPECT_THAT(Targets(), ElementsAre("/dir/a"));
}

// Does these steps whenever a transfer's first data comes.
class AtFirstData : public ZTransfer::Observer {
 public:
  explicit AtFirstData(std::function<void()> steps) : m_steps(std::move(steps)) {}
  void Update(int /*event*/, long /*value*/) override { m_steps(); }

 private:
  std::function<void()> m_steps;
};

TEST_F(FetchLoop, AbortAtTheEndOfTheListingLeavesItUnread) {
  Serve(Files{{"a", "1"}});
  m_mirror.UseThrottling(false);  // which would look at the clock, too
  int looks = 0;
  AtFirstData observer([&] {
    m_system.onClock = [&] {
      // The first look is the listing's only block's, the second the end of its transfer's, which has succeeded then.
      if (++looks == 2) m_mirror.Abort();
    };
  });
  m_mirror.Attach(&observer);
  EXPECT_THAT(Run(false), IsCode(TRANSFER_E_ABORTED));
  EXPECT_EQ(ErrorOf(m_mirror), "Download aborted by user");
  EXPECT_THAT(Targets(), ElementsAre("/dir/"));

  m_mirror.Detach(&observer);
  m_system.onClock = nullptr;
  EXPECT_THAT(Run(false), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(Targets(), ElementsAre("/dir/", "/dir/", "/dir/a")) << "there are no names from the first run";
}

TEST_F(FetchLoop, AbortEndsTheLookAtTheLocalFiles) {
  Serve(Files{{"a", "1"}, {"b", "2"}});
  WriteLocal("a", "old");
  WriteLocal("b", "old");
  AbortAt("unlink a");
  EXPECT_THAT(Run({{L"a", 1}, {L"b", 1}}), IsCode(TRANSFER_E_ABORTED));
  EXPECT_EQ(ErrorOf(m_mirror), "Download aborted by user");
  EXPECT_THAT(m_system.calls, ElementsAre("unlink a"));
  EXPECT_THAT(Names(), ElementsAre("b"));
  EXPECT_THAT(Targets(), IsEmpty());
}

// --- counters

constexpr long long kStart = 1600000000000000;

TEST_F(FetchLoop, TimeAndRateAreThoseOfTheWholeRun) {
  Serve(Files{{"a", MakePattern(300000)}, {"b", MakePattern(100000)}});
  m_system.now = kStart;
  m_system.onCall = [this](const std::string& call) {
    if (call == "chmod a 755") m_system.now = kStart + 1500000;
    if (call == "chmod b 755") m_system.now = kStart + 2000999;
  };
  EXPECT_THAT(Run(false), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(m_mirror.GetDownloadTime(), 2000);
  const unsigned long long moved = m_mirror.GetTransferSize();
  EXPECT_GT(moved, 400000u);
  EXPECT_EQ(m_mirror.GetTransferRate(), static_cast<unsigned int>(static_cast<long double>(moved) / 2.000999L / 1024));
  EXPECT_EQ(m_mirror.GetDownloadSize(), 400000u) << "the listing is no file";
}

// Files without a transfer bring the counters up to date like the others.
TEST_F(FetchLoop, TimeGoesOnOverFilesThatAreNotFetched) {
  Serve(Status(200, "new"));
  for (const bool complete : {false, true}) {
    if (complete) WriteLocal("a", "old");
    m_mirror.SetIgnoreList(complete ? Container::ZStringList{} : Container::ZStringList{L"a"});
    m_system.now = kStart;
    m_system.onCall = [this](const std::string& call) {
      if (call == "space") m_system.now = kStart + 7000;
    };
    long long time = -1;
    AtFirstData observer([&] { time = m_mirror.GetDownloadTime(); });
    m_mirror.Attach(&observer);
    EXPECT_THAT(Run({{L"a", 3}, {L"b", 3}}, true), IsCode(TRANSFER_S_FINISHED));
    EXPECT_EQ(time, 7) << (complete ? "complete" : "ignored");
    m_mirror.Detach(&observer);
    fs::remove(Local("b"));
  }
  EXPECT_THAT(Targets(), ElementsAre("/dir/b", "/dir/b"));
}

TEST_F(FetchLoop, AFailureIsCountedAfterTheTimesAreSet) {
  Serve(Files{{"a", "1"}});
  m_mirror.SetFileTimeList(Times{{L"a", kTime}});
  m_system.now = kStart;
  long long atTimes = -1;
  m_system.onCall = [&](const std::string& call) {
    if (call == "chmod a 755") m_system.now = kStart + 3000;
    if (call.rfind("times", 0) == 0) atTimes = m_mirror.GetDownloadTime();
  };
  AtFirstData observer([&] {
    if (m_mirror.GetDownloadTime() != 0) m_system.now = kStart + 8000;  // the second file
  });
  m_mirror.Attach(&observer);
  EXPECT_THAT(Run({{L"a", 1}, {L"b", 1}}), IsCode(TRANSFER_E_CONNECT));
  EXPECT_EQ(atTimes, 3);
  EXPECT_EQ(m_mirror.GetDownloadTime(), 8);
}

TEST_F(FetchLoop, AListingThatFailsIsCounted) {
  Serve(Status(404, "nothing here"));
  m_system.now = kStart;
  AtFirstData observer([&] { m_system.now = kStart + 1000; });
  m_mirror.Attach(&observer);
  EXPECT_THAT(Run(false), IsCode(TRANSFER_E_CONNECT));
  EXPECT_EQ(m_mirror.GetDownloadTime(), 1);
  EXPECT_GT(m_mirror.GetTransferRate(), 0u);
  EXPECT_EQ(m_mirror.GetDownloadSize(), 0u);
}

TEST_F(FetchLoop, NoTimeMakesNoRate) {
  Serve(Files{{"a", "1"}});
  m_system.now = kStart;
  EXPECT_THAT(Run({{L"a", 1}}), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(m_mirror.GetDownloadTime(), 0);
  EXPECT_EQ(m_mirror.GetTransferRate(), 0u);
  EXPECT_GT(m_mirror.GetTransferSize(), 0u);
}

TEST_F(FetchLoop, AClockSetBackMakesNoTime) {
  Serve(Files{{"a", "1"}});
  m_system.now = kStart;
  m_system.onCall = [this](const std::string&) { m_system.now = kStart - 1000000; };
  EXPECT_THAT(Run({{L"a", 1}}), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(m_mirror.GetDownloadTime(), 0);
  EXPECT_EQ(m_mirror.GetTransferRate(), 0u);
}

TEST_F(FetchLoop, OfARateBeyond32BitsTheLowHalfIsKept) {
  Serve(Files{{"a", std::string(5000000, 'x')}});
  m_system.now = kStart;
  m_system.onCall = [this](const std::string&) { m_system.now = kStart + 1; };
  EXPECT_THAT(Run({{L"a", 5000000}}), IsCode(TRANSFER_S_FINISHED));
  const long double rate = static_cast<long double>(m_mirror.GetTransferSize()) / 1024 * 1000 * 1000;
  ASSERT_GT(rate, 4294967296.0L);
  EXPECT_EQ(m_mirror.GetTransferRate(), static_cast<unsigned int>(static_cast<long long>(rate)));
}

TEST_F(FetchLoop, TransferSizeIsEveryByteInBothDirections) {
  std::size_t sent = 0;
  const auto answer = [&sent](Connection& peer, const Request& request) {
    const std::string body = request.target == "/dir/" ? PageOf({"a", "b"}) : "content of " + request.target;
    const std::string bytes = FormatHead(200, {{"Content-Length", std::to_string(body.size())}}) + body;
    sent += bytes.size();
    peer.Send(bytes);
  };
  Serve(answer);
  EXPECT_THAT(Run(false), IsCode(TRANSFER_S_FINISHED));
  std::size_t received = 0;
  for (const Request& request : m_server->Requests()) received += request.raw.size();
  m_server->Stop();
  EXPECT_EQ(m_mirror.GetTransferSize(), sent + received);
}

TEST_F(FetchLoop, CountersBeginAnewWithEachRun) {
  Serve(Files{{"a", "1"}});
  m_system.now = kStart;
  m_system.onCall = [this](const std::string&) { *m_system.now += 1000; };
  EXPECT_THAT(Run({{L"a", 1}}), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(m_mirror.GetDownloadTime(), 2) << "space and mode";
  const unsigned long long moved = m_mirror.GetTransferSize();
  EXPECT_THAT(Run({{L"a", 1}}), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(m_mirror.GetTransferSize(), moved);
  EXPECT_EQ(m_mirror.GetDownloadSize(), 1u);
  EXPECT_EQ(m_mirror.GetDownloadTime(), 2);
  m_mirror.Download(L"http://", L"/", false);
  EXPECT_EQ(m_mirror.GetDownloadTime(), 0);
  EXPECT_EQ(m_mirror.GetTransferSize(), 0u);
  EXPECT_EQ(m_mirror.GetDownloadSize(), 0u);
  EXPECT_EQ(m_mirror.GetTransferRate(), 0u);
}

// --- locks

// The clock is looked at with the object locked, when a file is finished. What another thread does meanwhile without having
// to wait needs no lock.
TEST_F(FetchLoop, RefusalsStatusAndNotifyWaitForNoLock) {
  Serve(Files{{"a", "1"}});
  RecordingObserver observer;
  m_mirror.Attach(&observer);
  std::future<void> other;
  m_system.onCall = [&](const std::string& call) {
    if (call != "chmod a 755") return;
    m_system.onClock = [&] {
      m_system.onClock = nullptr;
      other = std::async(std::launch::async, [&] {
        EXPECT_THAT(m_mirror.Download(Wide(Url()), Wide(Folder()), false), IsCode(BASE_E_BUSY));
        EXPECT_THAT(m_mirror.SetSSL(false, false, L"", L""), IsCode(BASE_E_BUSY));
        EXPECT_THAT(m_mirror.GetStatus(), IsCode(TRANSFER_S_FINISHED));
        EXPECT_EQ(ErrorOf(m_mirror), MessageOf(TRANSFER_S_FINISHED));
        EXPECT_FALSE(m_mirror.Wait(0));
        m_mirror.Notify(7, 42);
      });
      EXPECT_EQ(other.wait_for(kPatience), std::future_status::ready);
    };
  };
  EXPECT_THAT(Run({{L"a", 1}}), IsCode(TRANSFER_S_FINISHED));
  ASSERT_TRUE(other.valid());
  other.get();
  EXPECT_THAT(observer.Events(), Contains(testing::Pair(7, 42u)));
}

}  // namespace
}  // namespace CorvaneTest
