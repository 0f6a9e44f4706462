#include <gmock/gmock.h>

#include <atomic>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/mirror/MirrorTesting.h"
#include "tests/support/TempDir.h"

// One thread runs a mirror while others look at it, refuse to wait for it, stop it or destroy it.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::ElementsAre;
using testing::IsEmpty;

// Holds back the answer to one target until it is released; everything else is answered as by `responder`.
class HoldingServer {
 public:
  HoldingServer(const std::string& target, const Responder& responder)
      : m_server(KeepAlive([this, target, responder](Connection& peer, const Request& request) {
          if (request.target == target) {
            m_reached.Open();
            if (!peer.WaitFor(m_release)) return;
          }
          responder(peer, request);
        })) {}

  [[nodiscard]] bool WaitUntilReached() const { return m_reached.Wait(); }
  void Release() { m_release.Open(); }
  ZString Directory() const { return Wide(m_server.Url("/dir/")); }
  const ScriptedServer& Server() const { return m_server; }

 private:
  Gate m_reached;
  Gate m_release;
  ScriptedServer m_server;  // last: stopped before the gates go away
};

class ZMultiDownloadThreads : public testing::Test {
 protected:
  ZString Folder() const { return WidePath(m_folder.Path()); }

  const TempDir m_folder;
};

void ExpectBusy(ZMultiDownload& mirror, RecordingObserver& attached) {
  RecordingObserver other;
  EXPECT_THAT(mirror.SetCredentials(L"user", L"password"), IsCode(BASE_E_BUSY));
  EXPECT_THAT(mirror.Attach(&other), IsCode(BASE_E_BUSY));
  EXPECT_THAT(mirror.Detach(&attached), IsCode(BASE_E_BUSY));
  EXPECT_THAT(mirror.UseThrottling(false), IsCode(BASE_E_BUSY));
  EXPECT_THAT(mirror.SetTimeout(1), IsCode(BASE_E_BUSY));
  EXPECT_THAT(mirror.SetSSL(true, true, L"", L""), IsCode(BASE_E_BUSY));
  EXPECT_THAT(mirror.SetIgnoreList({L"a"}), IsCode(BASE_E_BUSY));
  EXPECT_THAT(mirror.SetFileSizeList(Sizes{{L"c", 1}}), IsCode(BASE_E_BUSY));
  EXPECT_THAT(mirror.SetFileSizeList(Texts{{L"c", L"1"}}), IsCode(BASE_E_BUSY));
  EXPECT_THAT(mirror.SetFileTimeList(Times{{L"a", 1}}), IsCode(BASE_E_BUSY));
  EXPECT_THAT(mirror.SetFileTimeList(Texts{{L"a", L"1"}}), IsCode(BASE_E_BUSY));
  EXPECT_THAT(mirror.Download(L"http://", L"/", false), IsCode(BASE_E_BUSY));
}

TEST_F(ZMultiDownloadThreads, RefuseToChangeARunningMirror) {
  HoldingServer server("/dir/", Directory({{"a", "1"}, {"b", "2"}}));
  ZMultiDownload mirror;
  RecordingObserver observer;
  mirror.Attach(&observer);
  RunningMirror run(mirror, server.Directory(), Folder());
  ASSERT_TRUE(server.WaitUntilReached());
  ExpectBusy(mirror, observer);
  EXPECT_FALSE(mirror.Wait(0));
  EXPECT_FALSE(mirror.Wait(10));
  EXPECT_THAT(mirror.GetStatus(), IsCode(TRANSFER_E_NOT_STARTED));
  EXPECT_EQ(ErrorOf(mirror), "Download not started yet");
  mirror.Notify(7, 42);
  EXPECT_EQ(observer.Events().size(), 1u);

  server.Release();
  ASSERT_TRUE(mirror.Wait(0xFFFFFFFF));
  EXPECT_EQ(run.Result(), TRANSFER_S_FINISHED);
  EXPECT_THAT(NamesIn(m_folder.Path()), ElementsAre("a", "b")) << "what was refused has changed nothing";
  EXPECT_EQ(observer.Events().size(), 4u);
  EXPECT_THAT(mirror.SetIgnoreList({}), IsCode(BASE_S_OK));
  EXPECT_THAT(mirror.SetSSL(false, false, L"", L""), IsCode(BASE_S_OK));
}

TEST_F(ZMultiDownloadThreads, RefuseToChangeItBetweenItsFilesToo) {
  HoldingServer server("/dir/b", Directory({{"a", "1"}, {"b", "2"}}));
  ZMultiDownload mirror;
  RecordingObserver observer;
  mirror.Attach(&observer);
  RunningMirror run(mirror, server.Directory(), Folder());
  ASSERT_TRUE(server.WaitUntilReached());
  ExpectBusy(mirror, observer);
  EXPECT_EQ(mirror.GetDownloadSize(), 1u);
  EXPECT_THAT(mirror.GetStatus(), IsCode(TRANSFER_S_FINISHED)) << "the first file's result";
  server.Release();
  EXPECT_EQ(run.Result(), TRANSFER_S_FINISHED);
}

TEST_F(ZMultiDownloadThreads, OfManyOnlyOneRuns) {
  HoldingServer server("/dir/", Directory({{"a", "1"}}));
  ZMultiDownload mirror;
  std::atomic<int> busy{0};
  std::atomic<int> finished{0};
  std::vector<std::thread> threads(8);
  for (std::thread& thread : threads) {
    thread = std::thread([&] {
      const ZResult result = mirror.Download(server.Directory(), Folder(), false);
      if (result == BASE_E_BUSY && ++busy == 7) server.Release();
      if (result == TRANSFER_S_FINISHED) ++finished;
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(busy, 7);
  EXPECT_EQ(finished, 1);
}

// --- abort

TEST_F(ZMultiDownloadThreads, AbortDuringTheListingLeavesTheRunNotStarted) {
  HoldingServer server("/dir/", Directory({{"a", "1"}}));
  ZMultiDownload mirror;
  RunningMirror run(mirror, server.Directory(), Folder());
  ASSERT_TRUE(server.WaitUntilReached());
  EXPECT_THAT(mirror.Abort(), IsCode(BASE_S_OK));
  EXPECT_EQ(run.Result(After(kAbortLimit)), TRANSFER_E_NOT_STARTED);
  EXPECT_THAT(mirror.GetStatus(), IsCode(TRANSFER_E_NOT_STARTED));
  EXPECT_EQ(ErrorOf(mirror), "Download not started yet");
  EXPECT_THAT(NamesIn(m_folder.Path()), IsEmpty());
}

TEST_F(ZMultiDownloadThreads, AbortDuringAFileEndsTheRun) {
  const Responder others = Directory({{"a", "1"}, {"b", "2"}, {"c", "3"}});
  ScriptedServer server(KeepAlive([&](Connection& peer, const Request& request) {
    if (request.target != "/dir/b") return others(peer, request);
    peer.Send(FormatHead(200, {{"Content-Length", "10"}}) + "begun");
    peer.WaitUntilStopped();
  }));
  ZMultiDownload mirror;
  RecordingObserver observer;
  mirror.Attach(&observer);
  RunningMirror run(mirror, Wide(server.Url("/dir/")), Folder());
  ASSERT_TRUE(WaitUntil([&] { return observer.Events().size() == 3; })) << "the third is that file's";
  EXPECT_THAT(mirror.Abort(), IsCode(BASE_S_OK));
  EXPECT_EQ(run.Result(After(kAbortLimit)), TRANSFER_E_ABORTED);
  EXPECT_THAT(mirror.GetStatus(), IsCode(TRANSFER_E_ABORTED));
  EXPECT_EQ(ErrorOf(mirror), "Download aborted by user");
  EXPECT_TRUE(FileHolds(m_folder / "a", "1"));
  EXPECT_THAT(TargetsOf(server), ElementsAre("/dir/", "/dir/a", "/dir/b"));
}

// As for a single file: without an answer there is nothing to tell an abort from a server that is not there.
TEST_F(ZMultiDownloadThreads, AbortBeforeTheAnswerForAFileIsAFailureToConnect) {
  HoldingServer server("/dir/b", Directory({{"a", "1"}, {"b", "2"}, {"c", "3"}}));
  ZMultiDownload mirror;
  RunningMirror run(mirror, server.Directory(), Folder());
  ASSERT_TRUE(server.WaitUntilReached());
  EXPECT_THAT(mirror.Abort(), IsCode(BASE_S_OK));
  EXPECT_EQ(run.Result(After(kAbortLimit)), TRANSFER_E_CONNECT);
  EXPECT_THAT(mirror.GetStatus(), IsCode(TRANSFER_E_CONNECT));
  EXPECT_EQ(ErrorOf(mirror), MessageOf(TRANSFER_E_CONNECT) + ", " + server.Server().Url("/dir/b") + "\n");
  EXPECT_THAT(NamesIn(m_folder.Path()), ElementsAre("a"));
  EXPECT_THAT(TargetsOf(server.Server()), ElementsAre("/dir/", "/dir/a", "/dir/b"));
}

class AbortingObserver : public ZTransfer::Observer {
 public:
  AbortingObserver(ZMultiDownload& mirror, int event) : m_mirror(mirror), m_left(event) {}
  void Update(int /*event*/, long /*value*/) override {
    if (--m_left == 0) m_mirror.Abort();
  }

 private:
  ZMultiDownload& m_mirror;
  int m_left;
};

TEST_F(ZMultiDownloadThreads, AnObserverMayAbort) {
  ScriptedServer server(KeepAlive(Directory({{"a", MakePattern(3000000)}, {"b", "2"}})));
  ZMultiDownload mirror;
  AbortingObserver observer(mirror, 2);  // the listing's data, then the first file's
  mirror.Attach(&observer);
  EXPECT_THAT(mirror.Download(Wide(server.Url("/dir/")), Folder(), false), IsCode(TRANSFER_E_ABORTED));
  EXPECT_EQ(ErrorOf(mirror), "Download aborted by user");
  EXPECT_THAT(TargetsOf(server), ElementsAre("/dir/", "/dir/a"));
}

TEST_F(ZMultiDownloadThreads, ARunAfterAnAbortIsWhole) {
  HoldingServer server("/dir/a", Directory({{"a", "1"}, {"b", "2"}}));
  ZMultiDownload mirror;
  {
    RunningMirror run(mirror, server.Directory(), Folder());
    ASSERT_TRUE(server.WaitUntilReached());
    mirror.Abort();
    EXPECT_EQ(run.Result(After(kAbortLimit)), TRANSFER_E_CONNECT);
  }
  server.Release();
  EXPECT_THAT(mirror.Download(server.Directory(), Folder(), false), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(NamesIn(m_folder.Path()), ElementsAre("a", "b"));
}

// --- teardown

TEST_F(ZMultiDownloadThreads, DestructionEndsTheRunOfAnotherThread) {
  for (const std::string target : {"/dir/", "/dir/a"}) {
    HoldingServer server(target, Directory({{"a", "1"}}));
    auto mirror = std::make_unique<ZMultiDownload>();
    ZMultiDownload* const object = mirror.get();
    auto run =
        std::async(std::launch::async, [&, object] { return object->Download(server.Directory(), Folder(), false); });
    ASSERT_TRUE(server.WaitUntilReached());
    mirror.reset();
    ASSERT_EQ(run.wait_for(kPatience), std::future_status::ready);
    EXPECT_THAT(run.get(), IsCode(target == "/dir/" ? TRANSFER_E_NOT_STARTED : TRANSFER_E_CONNECT));
  }
}

TEST_F(ZMultiDownloadThreads, DestructionRightAfterWaitIsSafe) {
  ScriptedServer server(KeepAlive(Directory({{"a", "1"}})));
  const ZString url = Wide(server.Url("/dir/"));
  for (int i = 0; i < 50; ++i) {
    auto mirror = std::make_unique<ZMultiDownload>();
    Gate started;
    std::thread thread([&, object = mirror.get()] {
      started.Open();
      object->Download(url, Folder(), false);
    });
    ASSERT_TRUE(started.Wait());
    const bool begun = WaitUntil([&] { return mirror->GetTransferSize() != 0; });
    EXPECT_TRUE(begun);
    EXPECT_TRUE(mirror->Wait(0xFFFFFFFF));
    if (begun) mirror.reset();
    thread.join();
  }
}

// --- counters

TEST_F(ZMultiDownloadThreads, DownloadSizeCountsAResumedFileTwiceUntilItsTransferHasCaughtUp) {
  const std::string content = MakePattern(5000);
  WriteFile(m_folder / "a", content.substr(0, 40));
  WriteFile(m_folder / "here", content.substr(0, 7));
  HoldingServer server("/dir/a", Directory({{"a", content}}));
  ZMultiDownload mirror;
  mirror.SetFileSizeList(Sizes{{L"a", 5000}, {L"here", 7}});
  RunningMirror run(mirror, server.Directory(), Folder(), true);
  ASSERT_TRUE(server.WaitUntilReached());
  EXPECT_EQ(mirror.GetDownloadSize(), 40u + 7u + 40u);
  server.Release();
  EXPECT_EQ(run.Result(), TRANSFER_S_FINISHED);
  EXPECT_EQ(mirror.GetDownloadSize(), 5007u);
  EXPECT_TRUE(FileHolds(m_folder / "a", content));
}

// A resumed transfer fetches the last 32 bytes again. With these its count has reached the old file's size.
TEST_F(ZMultiDownloadThreads, DownloadSizeCountsAResumedFileOnceItsTransferHasCaughtUp) {
  const std::string content = MakePattern(5000);
  WriteFile(m_folder / "a", content.substr(0, 4096));
  WriteFile(m_folder / "here", content.substr(0, 7));
  Gate caughtUp, goOn, further, goOnToTheEnd;
  ScriptedServer server(KeepAlive([&](Connection& peer, const Request&) {
    peer.Send(FormatHead(206, {{"Content-Length", "936"}, {"Content-Range", "bytes 4064-4999/5000"}}));
    peer.Send(content.substr(4064, 32));
    caughtUp.Open();
    if (!peer.WaitFor(goOn)) return;
    peer.Send(content.substr(4096, 100));
    further.Open();
    if (peer.WaitFor(goOnToTheEnd)) peer.Send(content.substr(4196));
  }));
  ZMultiDownload mirror;
  mirror.SetFileSizeList(Sizes{{L"a", 5000}, {L"here", 7}});
  RunningMirror run(mirror, Wide(server.Url("/dir/")), Folder(), true);
  ASSERT_TRUE(caughtUp.Wait());
  EXPECT_TRUE(WaitUntil([&] { return mirror.GetDownloadSize() == 4096 + 7; })) << mirror.GetDownloadSize();
  goOn.Open();
  ASSERT_TRUE(further.Wait());
  EXPECT_TRUE(WaitUntil([&] { return mirror.GetDownloadSize() == 4196 + 7; })) << mirror.GetDownloadSize();
  goOnToTheEnd.Open();
  EXPECT_EQ(run.Result(), TRANSFER_S_FINISHED);
  EXPECT_EQ(mirror.GetDownloadSize(), 5007u);
  EXPECT_TRUE(FileHolds(m_folder / "a", content));
}

TEST_F(ZMultiDownloadThreads, SizesGrowDuringAFile) {
  Gate half, goOn;
  ScriptedServer server(KeepAlive([&](Connection& peer, const Request&) {
    peer.Send(FormatHead(200, {{"Content-Length", "2000"}}));
    peer.Send(std::string(1000, 'x'));
    half.Open();
    if (peer.WaitFor(goOn)) peer.Send(std::string(1000, 'x'));
  }));
  ZMultiDownload mirror;
  mirror.SetFileSizeList(Sizes{{L"a", 2000}});
  RunningMirror run(mirror, Wide(server.Url("/dir/")), Folder());
  ASSERT_TRUE(half.Wait());
  EXPECT_TRUE(WaitUntil([&] { return mirror.GetDownloadSize() == 1000; }));
  EXPECT_GT(mirror.GetTransferSize(), 1000u);
  EXPECT_EQ(mirror.GetDownloadTime(), 0) << "told at the end of a transfer";
  EXPECT_EQ(mirror.GetTransferRate(), 0u);
  EXPECT_THAT(mirror.GetStatus(), IsCode(TRANSFER_S_FINISHED)) << "the status while fetching, until a file fails";
  EXPECT_EQ(ErrorOf(mirror), MessageOf(TRANSFER_S_FINISHED));
  goOn.Open();
  EXPECT_EQ(run.Result(), TRANSFER_S_FINISHED);
  EXPECT_EQ(mirror.GetDownloadSize(), 2000u);
}

// ThreadSanitizer is the real judge of this one.
TEST_F(ZMultiDownloadThreads, MayLookAtEverythingWhileRunsBeginAndEnd) {
  ScriptedServer server(KeepAlive(Directory({{"a", "1"}, {"b", std::string(3000, 'x')}})));
  ZMultiDownload mirror;
  std::atomic<bool> done{false};
  std::thread watcher([&] {
    while (!done) {
      LookAtEverything(
          mirror, {TRANSFER_E_NOT_STARTED, TRANSFER_S_FINISHED, TRANSFER_E_INVALID_URL, TRANSFER_E_CONNECT}, 100000, 2);
      mirror.UseThrottling(true);
      mirror.SetTimeout(300);
    }
  });
  for (int i = 0; i < 50; ++i) {
    mirror.SetFileSizeList(Sizes());
    EXPECT_THAT(mirror.Download(Wide(server.Url("/dir/")), Folder(), false), IsCode(TRANSFER_S_FINISHED));
    EXPECT_THAT(mirror.Download(L"http://", Folder(), false), IsCode(TRANSFER_E_INVALID_URL));
    mirror.SetFileSizeList(Sizes());
    EXPECT_THAT(mirror.Download(Wide(server.Url("/missing/")), Folder(), false), IsCode(TRANSFER_E_CONNECT));
  }
  done = true;
  watcher.join();
}

}  // namespace
}  // namespace CorvaneTest
