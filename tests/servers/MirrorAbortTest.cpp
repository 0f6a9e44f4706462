#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <chrono>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/servers/MirrorRuns.h"
#include "tests/support/ScriptedFtpServer.h"

// Mirrors that another thread stops: in the listing, in a file, between files. What came keeps its times, and a run
// with resume completes the rest.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::AnyOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace fs = std::filesystem;

constexpr long kTime = 1000000000;

Times TimesOf(const Files& files) {
  Times times;
  for (const auto& [name, content] : files) times[Wide(name)] = kTime;
  return times;
}

void ExpectComplete(const fs::path& folder, const Files& files, const std::set<std::string>& withoutTime = {}) {
  EXPECT_TRUE(HoldsExactly(folder, files));
  for (const auto& [name, content] : files) {
    if (withoutTime.count(name) != 0) continue;
    EXPECT_EQ(StatusOf(folder / name).st_mtime, kTime) << name;
  }
}

// --- in a file

struct SlowServer {
  explicit SlowServer(ServerKind kind, unsigned int bytesPerSecond) {
    if (IsFtp(kind)) {
      vsftpd = std::make_unique<WatchedVsftpd>(WatchedOptions{bytesPerSecond});
    } else {
      nginx = std::make_unique<WatchedNginx>(WatchedOptions{bytesPerSecond});
    }
  }
  std::string Url(std::string_view path) const { return vsftpd ? vsftpd->Url(path) : nginx->Url(path); }
  const fs::path& RootDir() const { return vsftpd ? vsftpd->RootDir() : nginx->RootDir(); }

  std::unique_ptr<WatchedVsftpd> vsftpd;
  std::unique_ptr<WatchedNginx> nginx;
};

class ZMultiDownloadAbort : public testing::TestWithParam<ServerKind> {
 protected:
  // Over HTTP the sizes come from a list, so that the second run can continue.
  static Sizes ListFor(const Files& files) { return IsFtp(GetParam()) ? Sizes() : SizeListOf(files); }

  TempDir m_folder;
};

TEST_P(ZMultiDownloadAbort, InAFileKeepsItsBeginningAndTheFilesBefore) {
  const Files files = {{"a", "small"}, {"b", MakePattern(3000000)}, {"c", MakePattern(1000)}};
  {
    const SlowServer server(GetParam(), 20000);
    WriteFiles(server.RootDir() / "pub", files);
    ZMultiDownload mirror;
    mirror.SetFileSizeList(ListFor(files));
    mirror.SetFileTimeList(TimesOf(files));
    RunningMirror run(mirror, Wide(server.Url("/pub")), WidePath(m_folder.Path()), true);
    ASSERT_TRUE(WaitUntil([&] { return fs::exists(m_folder / "b") && FileSize(m_folder / "b") > 1000; }));
    EXPECT_THAT(mirror.Abort(), IsCode(BASE_S_OK));
    EXPECT_EQ(run.Result(After(kAbortLimit)), TRANSFER_E_ABORTED);
    EXPECT_EQ(ErrorOf(mirror), "Download aborted by user");
  }
  EXPECT_THAT(NamesIn(m_folder.Path()), ElementsAre("a", "b"));
  EXPECT_TRUE(HoldsBeginningsOf(m_folder.Path(), files));
  EXPECT_EQ(StatusOf(m_folder / "a").st_mtime, kTime);
  EXPECT_GT(StatusOf(m_folder / "b").st_mtime, kTime) << "it is not complete";
  const std::uintmax_t begun = FileSize(m_folder / "b");

  const SlowServer server(GetParam(), 0);
  WriteFiles(server.RootDir() / "pub", files);
  const Outcome outcome = MirrorAfresh(server.Url("/pub"), m_folder.Path(), true, ListFor(files), TimesOf(files));
  EXPECT_THAT(outcome.code, IsCode(TRANSFER_S_FINISHED)) << outcome.error;
  ExpectComplete(m_folder.Path(), files);
  if (server.vsftpd) {
    EXPECT_THAT(server.vsftpd->Commands(), testing::Contains("REST " + std::to_string(begun - 32)));
  } else {
    EXPECT_THAT(server.nginx->Requests(),
                ElementsAre(testing::EndsWith(" 206 /pub/b"), testing::EndsWith(" 200 /pub/c")));
  }
}

// At random moments of a run that is slow enough to be hit anywhere, again and again until everything is there.
TEST_P(ZMultiDownloadAbort, AtAnyMomentLosesNothing) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  Files files;
  for (std::size_t i = 0; i < 12; ++i) {
    files["file" + std::to_string(i)] = MakePattern(i % 4 == 3 ? 200 : 40000 + 7919 * i, i);
  }
  std::size_t total = 0;
  for (const auto& [name, content] : files) total += content.size();
  const SlowServer server(GetParam(), 2000000);
  WriteFiles(server.RootDir() / "pub", files);
  std::size_t endedInATransfer = 0;
  // Aborted behind their last byte, before the server's word about them: the next run finds them complete, and leaves them alone.
  std::set<std::string> withoutTime;
  for (int i = 0; i < 25; ++i) {
    ZMultiDownload mirror;
    mirror.SetFileSizeList(ListFor(files));
    mirror.SetFileTimeList(TimesOf(files));
    RunningMirror run(mirror, Wide(server.Url("/pub")), WidePath(m_folder.Path()), true);
    // What is there counts; and so do the bytes of the listing and the header lines before the first file.
    const unsigned long long goal = random() % (total / 12);
    ASSERT_TRUE(WaitUntil([&] { return mirror.GetTransferSize() > goal || run.Result(Clock::now()).has_value(); }));
    mirror.Abort();
    const std::optional<ZResult> result = run.Result(After(kAbortLimit));
    ASSERT_TRUE(result.has_value()) << "runs on";
    EXPECT_THAT(*result, AnyOf(IsCode(TRANSFER_E_ABORTED), IsCode(TRANSFER_E_NOT_STARTED), IsCode(TRANSFER_E_CONNECT),
                               IsCode(TRANSFER_S_FINISHED)));
    EXPECT_FALSE(ErrorOf(mirror).empty());
    EXPECT_EQ(mirror.GetStatus(), *result);
    if (*result == TRANSFER_E_ABORTED) ++endedInATransfer;
    if (fs::exists(m_folder.Path())) {
      ASSERT_TRUE(HoldsBeginningsOf(m_folder.Path(), files));
      const std::size_t before = withoutTime.size();
      for (const std::string& name : NamesIn(m_folder.Path())) {
        const bool isWhole = FileSize(m_folder / name) == files.at(name).size();
        const bool hasTime = StatusOf(m_folder / name).st_mtime == kTime;
        if (isWhole && !hasTime && *result != TRANSFER_S_FINISHED) withoutTime.insert(name);
      }
      EXPECT_LE(withoutTime.size(), before + 1) << "one file is under way at a time";
    }
    if (*result == TRANSFER_S_FINISHED) {
      ExpectComplete(m_folder.Path(), files, withoutTime);
      fs::remove_all(m_folder.Path());
      withoutTime.clear();
    }
  }
  EXPECT_GE(endedInATransfer, 8U) << "too few of the aborts met what they were meant for";
  const Outcome outcome = MirrorAfresh(server.Url("/pub"), m_folder.Path(), true, ListFor(files), TimesOf(files));
  EXPECT_THAT(outcome.code, IsCode(TRANSFER_S_FINISHED)) << outcome.error;
  EXPECT_TRUE(HoldsExactly(m_folder.Path(), files));
}

INSTANTIATE_TEST_SUITE_P(Daemons, ZMultiDownloadAbort, testing::Values(ServerKind::kNginx, ServerKind::kVsftpd),
                         [](const auto& server) { return NameOf(server.param); });

// --- in the listing

TEST(ZMultiDownloadAbortOfListing, FromNginxLeavesTheRunNotStarted) {
  WatchedNginx nginx({20000});
  Files files;
  for (int i = 0; i < 3000; ++i) files["file" + std::to_string(i)] = "";
  WriteFiles(nginx.RootDir() / "pub", files);  // a page of some 200 KiB
  const TempDir folder;
  WriteFile(folder / "file7", "was there before");
  RecordingObserver observer;
  ZMultiDownload mirror;
  mirror.Attach(&observer);
  RunningMirror run(mirror, Wide(nginx.Url("/pub")), WidePath(folder.Path()), true);
  ASSERT_TRUE(observer.FirstEvent().Wait());
  EXPECT_THAT(mirror.Abort(), IsCode(BASE_S_OK));
  EXPECT_EQ(run.Result(After(kAbortLimit)), TRANSFER_E_NOT_STARTED);
  EXPECT_EQ(ErrorOf(mirror), "Download not started yet");
  EXPECT_TRUE(HoldsExactly(folder.Path(), {{"file7", "was there before"}}));
}

// The lines that came until then name files, and yet none is fetched.
TEST(ZMultiDownloadAbortOfListing, OverFtpLeavesTheRunNotStarted) {
  ScriptedFtpServer server({{"/pub/a", "1"}, {"/pub/b", "2"}, {"/pub/c", "3"}});
  server.StallDataAfter(100);  // in the second line
  const TempDir folder;
  RecordingObserver observer;
  ZMultiDownload mirror;
  mirror.Attach(&observer);
  RunningMirror run(mirror, Wide(server.Url("/pub")), WidePath(folder.Path()), true);
  ASSERT_TRUE(observer.FirstEvent().Wait());
  EXPECT_THAT(mirror.Abort(), IsCode(BASE_S_OK));
  EXPECT_EQ(run.Result(After(kAbortLimit)), TRANSFER_E_NOT_STARTED);
  EXPECT_THAT(server.Commands(), Not(testing::Contains(testing::StartsWith("RETR"))));
  EXPECT_THAT(NamesIn(folder.Path()), IsEmpty());

  server.StallDataAfter(std::nullopt);
  EXPECT_THAT(mirror.Download(Wide(server.Url("/pub")), WidePath(folder.Path()), true), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(HoldsExactly(folder.Path(), {{"a", "1"}, {"b", "2"}, {"c", "3"}}));
}

// --- steps of FTP, one by one

struct FtpStep {
  const char* name;
  const char* verb;  // the command that gets no answer ...
  int count;         // ... the so-manieth time
  ZResult result;
  std::vector<std::string> names;  // what is there after the abort
};

const FtpStep kFtpSteps[] = {
    {"login", "USER", 1, TRANSFER_E_NOT_STARTED, {}},
    {"the listing's connection", "EPSV", 1, TRANSFER_E_NOT_STARTED, {}},
    {"the listing", "LIST", 1, TRANSFER_E_NOT_STARTED, {}},
    {"the first file's connection", "EPSV", 2, TRANSFER_E_ABORTED, {}},
    {"the first file's size", "SIZE", 1, TRANSFER_E_ABORTED, {}},
    {"the first file", "RETR", 1, TRANSFER_E_ABORTED, {}},
    {"the second file's size", "SIZE", 2, TRANSFER_E_ABORTED, {"a"}},
    {"the second file", "RETR", 2, TRANSFER_E_ABORTED, {"a"}},
    {"the third file", "RETR", 3, TRANSFER_E_ABORTED, {"a", "b"}},
};

// Leaves the command of the step without an answer, once.
void Hold(ScriptedFtpServer& server, const FtpStep& step, Gate& reached) {
  const auto left = std::make_shared<std::atomic<int>>(step.count);
  server.OnCommand(step.verb, [&reached, left](Connection& control, const std::string&) {
    if (--*left != 0) return false;
    reached.Open();
    control.WaitUntilPeerCloses(Deadline::max());
    return true;
  });
}

TEST(ZMultiDownloadAbortOfFtp, AtEachStepKeepsTheFilesBeforeWithTheirTimes) {
  const Files files = {{"a", MakePattern(1000, 1)}, {"b", MakePattern(2000, 2)}, {"c", MakePattern(3000, 3)}};
  for (const FtpStep& step : kFtpSteps) {
    SCOPED_TRACE(step.name);
    Gate reached;
    ScriptedFtpServer server({{"/pub/a", files.at("a")}, {"/pub/b", files.at("b")}, {"/pub/c", files.at("c")}});
    Hold(server, step, reached);
    const FtpDelay relay(server.Port());
    const TempDir folder;
    ZMultiDownload mirror;
    mirror.SetFileTimeList(TimesOf(files));
    RunningMirror run(mirror, Wide(relay.Url("/pub")), WidePath(folder.Path()), true);
    ASSERT_TRUE(reached.Wait());
    mirror.Abort();
    const std::optional<ZResult> result = run.Result(After(kAbortLimit));
    ASSERT_TRUE(result.has_value()) << "runs on";
    EXPECT_THAT(*result, IsCode(step.result));
    for (const std::string& name : step.names) {
      EXPECT_TRUE(FileHolds(folder / name, files.at(name)));
      EXPECT_EQ(StatusOf(folder / name).st_mtime, kTime);
    }
    EXPECT_TRUE(HoldsBeginningsOf(folder.Path(), files));
    EXPECT_LE(NamesIn(folder.Path()).size(), step.names.size() + 1) << "the file that was begun";

    const Outcome outcome = MirrorAfresh(relay.Url("/pub"), folder.Path(), true, {}, TimesOf(files));
    EXPECT_THAT(outcome.code, IsCode(TRANSFER_S_FINISHED)) << outcome.error;
    ExpectComplete(folder.Path(), files);
  }
}

// --- at the end of a file

// All of the file is here when the abort comes, but only the end of the connection tells so.
TEST(ZMultiDownloadAbortAtTheEndOfAFile, KeepsTheFileAndBeginsNoOther) {
  const Files files = {{"a", MakePattern(1000, 1)}, {"b", MakePattern(2000, 2)}, {"c", MakePattern(3000, 3)}};
  Gate lastByteSent, aborted;
  const Responder others = Directory(files);
  const ScriptedServer server(KeepAlive([&](Connection& peer, const Request& request) {
    if (request.target != "/dir/b" || aborted.IsOpen()) return others(peer, request);
    peer.Send(FormatHead(200, {{"Connection", "close"}}) + files.at("b"));
    lastByteSent.Open();
    if (peer.WaitFor(aborted)) peer.Close();
  }));
  const TempDir folder;
  ZMultiDownload mirror;
  mirror.SetFileTimeList(TimesOf(files));
  mirror.SetFileSizeList(SizeListOf(files));
  RunningMirror run(mirror, Wide(server.Url("/dir")), WidePath(folder.Path()), true);
  ASSERT_TRUE(lastByteSent.Wait());
  ASSERT_TRUE(WaitUntil([&] { return fs::exists(folder / "b") && FileSize(folder / "b") == 2000; }));
  mirror.Abort();
  aborted.Open();
  const std::optional<ZResult> result = run.Result(After(kAbortLimit));
  ASSERT_TRUE(result.has_value()) << "runs on";
  EXPECT_THAT(*result, IsCode(TRANSFER_E_ABORTED));
  EXPECT_EQ(ErrorOf(mirror), "Download aborted by user");
  EXPECT_THAT(TargetsOf(server), ElementsAre("/dir/a", "/dir/b"));
  EXPECT_TRUE(HoldsExactly(folder.Path(), {{"a", files.at("a")}, {"b", files.at("b")}}));
  EXPECT_EQ(StatusOf(folder / "a").st_mtime, kTime);

  const Outcome outcome = MirrorAfresh(server.Url("/dir"), folder.Path(), true, SizeListOf(files), TimesOf(files));
  EXPECT_THAT(outcome.code, IsCode(TRANSFER_S_FINISHED)) << outcome.error;
  EXPECT_TRUE(HoldsExactly(folder.Path(), files));
  EXPECT_THAT(TargetsOf(server), ElementsAre("/dir/a", "/dir/b", "/dir/c"));
}

// --- watchers

// ThreadSanitizer is the real judge of this one.
TEST(ZMultiDownloadWatchers, SeeSenseWhileRunsBeginEndAndAreAborted) {
  NginxServer server;
  Files files;
  for (std::size_t i = 0; i < 8; ++i) files["file" + std::to_string(i)] = MakePattern(30000 * i, i);
  WriteFiles(server.RootDir() / "pub", files);
  const TempDir folder;
  ZMultiDownload mirror;
  const std::vector<ZResult> results = {TRANSFER_S_FINISHED, TRANSFER_E_ABORTED, TRANSFER_E_NOT_STARTED,
                                        TRANSFER_E_CONNECT};
  // Stopped and joined by their destructors when the test ends early.
  std::array<std::jthread, 4> watchers;
  for (std::jthread& watcher : watchers) {
    watcher = std::jthread([&](const std::stop_token& stop) {
      while (!stop.stop_requested()) LookAtEverything(mirror, results, 10000000, 8);
    });
  }
  std::jthread aborter([&](const std::stop_token& stop) {
    for (unsigned long long i = 1; !stop.stop_requested(); ++i) {
      WaitUntil([&] { return stop.stop_requested() || mirror.GetDownloadSize() > i * 37777 % 900000; });
      mirror.Abort();
      // The next run has begun.
      WaitUntil([&] { return stop.stop_requested() || mirror.GetDownloadSize() == 0; });
    }
  });
  int finished = 0, unfinished = 0;
  const auto run = [&] {
    mirror.SetFileSizeList(Sizes());
    const ZResult result = mirror.Download(Wide(server.Url("/pub")), WidePath(folder.Path()), false);
    ++(result == TRANSFER_S_FINISHED ? finished : unfinished);
    EXPECT_THAT(results, testing::Contains(result)) << Hex(result);
    EXPECT_TRUE(HoldsBeginningsOf(folder.Path(), files));
  };
  const Deadline deadline = After(kPatience);
  for (int i = 0; i < 60 || unfinished < 10; ++i) {
    run();
    ASSERT_LT(Clock::now(), deadline) << finished << " finished, " << unfinished << " aborted";
  }
  aborter.request_stop();
  aborter.join();
  for (int i = 0; i < 20; ++i) run();
  EXPECT_GE(finished, 20);
  for (std::jthread& watcher : watchers) watcher.request_stop();
  for (std::jthread& watcher : watchers) watcher.join();
  EXPECT_TRUE(HoldsExactly(folder.Path(), files));
}

}  // namespace
}  // namespace CorvaneTest
