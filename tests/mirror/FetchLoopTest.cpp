#include <gmock/gmock.h>

#include <functional>
#include <future>
#include <string>

#include "tests/mirror/FetchLoopTesting.h"
#include "tests/mirror/LineRecorder.h"

// What a run does with each file of its list.
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

// --- locks

// The clock is looked at with the object locked, when a file is finished. What another thread does meanwhile without
// having to wait needs no lock.
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
