#include <gmock/gmock.h>

#include <atomic>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/ScriptedFtpServer.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/StalledListener.h"
#include "tests/support/TempDir.h"

// Ending an operation from another thread. The time-out is 300 seconds everywhere, so that an operation which ends
// within kAbortLimit was ended by the abort.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::AnyOf;
using testing::IsEmpty;

namespace fs = std::filesystem;

constexpr const char* kAborted = "Download aborted by user";

void SendWithoutEnd(Connection& peer) {
  const std::string block(16384, 'x');
  while (peer.Send(FormatChunk(block))) {
  }
}

// Streams until the client goes away.
ScriptedServer::Handler StreamingHandler() {
  return KeepAlive([](Connection& peer, const Request&) {
    peer.Send(FormatHead(200, {{"Transfer-Encoding", "chunked"}}));
    SendWithoutEnd(peer);
  });
}

// Reads the request and never answers it.
void Silent(Connection& peer) {
  peer.ReadRequest();
  peer.WaitUntilStopped();
}

void ExpectAborted(ZTransfer& transfer, RunningOperation& operation, ZResult code = TRANSFER_E_ABORTED) {
  EXPECT_THAT(transfer.Abort(), IsCode(BASE_S_OK));
  const auto result = operation.Result(After(kAbortLimit));
  ASSERT_TRUE(result) << "the operation runs on";
  EXPECT_THAT(*result, IsCode(code));
  EXPECT_THAT(transfer.GetStatus(), IsCode(code));
  EXPECT_TRUE(transfer.Wait(0));
}

TEST(ZTransferAbort, EndsADownloadWhileDataStreams) {
  for (const bool throttling : {true, false}) {
    ScriptedServer server(StreamingHandler());
    RecordingObserver observer;
    ZTransfer transfer;
    transfer.UseThrottling(throttling);
    transfer.Attach(&observer);
    ZString result;
    RunningOperation download(transfer, [&] { return transfer.Download(Wide(server.Url()), result); });
    ASSERT_TRUE(observer.FirstEvent().Wait());
    ExpectAborted(transfer, download);
    EXPECT_EQ(ErrorOf(transfer), kAborted);
    EXPECT_EQ(result.Length(), transfer.GetDownloadSize());  // what came is handed back
  }
}

TEST(ZTransferAbort, EndsADownloadThatNobodyAnswers) {
  ScriptedServer server(Silent);
  ZTransfer transfer;
  ZString result;
  RunningOperation download(transfer, [&] { return transfer.Download(Wide(server.Url()), result); });
  ASSERT_TRUE(server.WaitForRequests(1));
  ExpectAborted(transfer, download);
  EXPECT_EQ(ErrorOf(transfer), kAborted);
}

TEST(ZTransferAbort, EndsADownloadWhoseBodyStalls) {
  for (const bool throttling : {true, false}) {
    ContentOptions options;
    options.stopAfter = 1000;
    options.ending = ContentOptions::Ending::kStall;
    ScriptedServer server(KeepAlive(Content(std::string(2000, 'x'), options)));
    ZTransfer transfer;
    transfer.UseThrottling(throttling);
    ZString result;
    RunningOperation download(transfer, [&] { return transfer.Download(Wide(server.Url()), result); });
    ASSERT_TRUE(WaitUntil([&] { return transfer.GetDownloadSize() == 1000; }));
    ExpectAborted(transfer, download);
    EXPECT_EQ(ErrorOf(transfer), kAborted);
    EXPECT_EQ(Narrow(result), std::string(1000, 'x'));
  }
}

TEST(ZTransferAbort, EndsADownloadWhoseHeaderStalls) {
  Gate sent;
  ScriptedServer server([&](Connection& peer) {
    peer.ReadRequest();
    peer.Send("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n");
    sent.Open();
    peer.WaitUntilStopped();
  });
  ZTransfer transfer;
  ZString result;
  RunningOperation download(transfer, [&] { return transfer.Download(Wide(server.Url()), result); });
  ASSERT_TRUE(sent.Wait());
  ExpectAborted(transfer, download);
  EXPECT_EQ(ErrorOf(transfer), kAborted);
}

TEST(ZTransferAbort, EndsADownloadThatGetsInterimAnswersOnly) {
  Gate streaming;
  ScriptedServer server([&](Connection& peer) {
    peer.ReadRequest();
    while (peer.Send("HTTP/1.1 103 Early Hints\r\n\r\n")) {
      streaming.Open();
      const Gate never;
      peer.WaitFor(never, After(std::chrono::milliseconds(10)));
    }
  });
  ZTransfer transfer;
  ZString result;
  RunningOperation download(transfer, [&] { return transfer.Download(Wide(server.Url()), result); });
  ASSERT_TRUE(streaming.Wait());
  ExpectAborted(transfer, download);
  EXPECT_EQ(ErrorOf(transfer), kAborted);
}

TEST(ZTransferAbort, EndsADownloadThatCannotConnect) {
  const StalledListener listener;
  ZTransfer transfer;
  ZString result;
  RunningOperation download(transfer, [&] { return transfer.Download(Wide(listener.Url()), result); });
  ASSERT_TRUE(WaitUntil([&] { return transfer.GetStatus() == TRANSFER_S_FINISHED; }));  // the set-up has begun
  ExpectAborted(transfer, download);
  EXPECT_EQ(ErrorOf(transfer), kAborted);
}

TEST(ZTransferAbort, EndsAnFtpDownloadAtEachOfItsSteps) {
  for (const char* verb : {"USER", "PASS", "PWD", "EPSV", "RETR"}) {
    SCOPED_TRACE(verb);
    ScriptedFtpServer server({{"/a", MakePattern(1000)}});
    server.StallAt(verb);
    ZTransfer transfer;
    ZString result;
    RunningOperation download(transfer, [&] { return transfer.Download(Wide(server.Url("/a")), result); });
    ASSERT_TRUE(server.WaitForCommand(verb));
    ExpectAborted(transfer, download);
    EXPECT_EQ(ErrorOf(transfer), kAborted);
  }
}

TEST(ZTransferAbort, EndsAPostWhoseUploadStalls) {
  ScriptedServer server([](Connection& peer) {
    peer.ReadRequest(Body::kLeave);
    peer.Send("HTTP/1.1 100 Continue\r\n\r\n");
    peer.WaitUntilStopped();
  });
  const TempDir folder;
  WriteFile(folder / "large", "");
  fs::resize_file(folder / "large", 64 << 20);  // more than the socket buffers hold
  ZTransfer transfer;
  RunningOperation post(transfer, [&] { return transfer.PostFile(Wide(server.Url()), WidePath(folder / "large")); });
  ASSERT_TRUE(server.WaitForRequests(1));
  ExpectAborted(transfer, post);
  EXPECT_EQ(ErrorOf(transfer), kAborted);
}

// --- downloads into files

TEST(ZTransferAbort, OfADownloadIntoAFileBeforeTheAnswerCountsAsNoAnswer) {
  for (const bool resume : {false, true}) {
    ScriptedServer server(Silent);
    const TempDir folder;
    const std::string old = MakePattern(100);
    if (resume) WriteFile(folder / "a", old);
    ZTransfer transfer;
    const ZString file = WidePath(folder / "a");
    RunningOperation download(transfer, [&] { return transfer.DownloadFile(Wide(server.Url()), file, resume); });
    ASSERT_TRUE(server.WaitForRequests(1));
    ExpectAborted(transfer, download, TRANSFER_E_CONNECT);
    EXPECT_EQ(ErrorOf(transfer), "Failed to connect to the specified URL, " + server.Url() + "\n");
    if (resume) {
      EXPECT_TRUE(FileHolds(folder / "a", old));
    } else {
      EXPECT_THAT(NamesIn(folder.Path()), IsEmpty());
    }
  }
}

TEST(ZTransferAbort, OfADownloadIntoAFileKeepsWhatCameAndCanBeResumed) {
  const std::string content = MakePattern(300000);
  std::atomic<bool> isFirst{true};
  ScriptedServer server(KeepAlive([&](Connection& peer, const Request& request) {
    ContentOptions options;
    if (isFirst.exchange(false)) {
      options.stopAfter = 100000;
      options.ending = ContentOptions::Ending::kStall;
    }
    Content(content, options)(peer, request);
  }));
  const TempDir folder;
  ZTransfer transfer;
  const ZString file = WidePath(folder / "a");
  {
    RunningOperation download(transfer, [&] { return transfer.DownloadFile(Wide(server.Url()), file, true); });
    ASSERT_TRUE(WaitUntil([&] { return transfer.GetDownloadSize() == 100000; }));
    ExpectAborted(transfer, download);
    EXPECT_EQ(ErrorOf(transfer), kAborted);
    EXPECT_TRUE(FileHolds(folder / "a", content.substr(0, 100000)));
  }
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), file, true), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(folder / "a", content));
  EXPECT_EQ(server.Requests().back().Header("Range"), "bytes=99968-");
}

// --- without an operation

TEST(ZTransferAbort, OfAnIdleObjectDoesNothingToTheNextOperation) {
  ScriptedServer server(KeepAlive(Status(200, "x")));
  ZTransfer transfer;
  ZString result;
  for (int i = 0; i < 3; ++i) {
    EXPECT_THAT(transfer.Abort(), IsCode(BASE_S_OK));
    EXPECT_TRUE(transfer.Wait(0));
    EXPECT_THAT(transfer.Download(Wide(server.Url()), result), IsCode(TRANSFER_S_FINISHED));
  }
}

// The limits that an abort set to one second are as before, too.
TEST(ZTransferAbort, OfAnIdleObjectDoesNotShortenTheNextOperation) {
  ScriptedServer server(KeepAlive([](Connection& peer, const Request& request) {
    const Gate never;
    peer.WaitFor(never, After(std::chrono::milliseconds(2500)));
    Status(200, "x")(peer, request);
  }));
  ZTransfer transfer;
  transfer.Abort();
  ZString result;
  EXPECT_THAT(transfer.Download(Wide(server.Url()), result), IsCode(TRANSFER_S_FINISHED));
}

TEST(ZTransferAbort, KeepsTheOutcomeOfAnOperationThatHasEnded) {
  ScriptedServer server(KeepAlive(Status(200, "x")));
  ZTransfer transfer;
  ZString result;
  ASSERT_THAT(transfer.Download(Wide(server.Url()), result), IsCode(TRANSFER_S_FINISHED));
  transfer.Abort();
  EXPECT_THAT(transfer.GetStatus(), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(ErrorOf(transfer), "Transfer has finished successfully");
}

TEST(ZTransferAbort, LeavesTheObjectUsable) {
  ScriptedServer silent(Silent);
  ScriptedServer server(KeepAlive(Status(200, "x")));
  ZTransfer transfer;
  ZString result;
  {
    RunningOperation download(transfer, [&] { return transfer.Download(Wide(silent.Url()), result); });
    ASSERT_TRUE(silent.WaitForRequests(1));
    ExpectAborted(transfer, download);
  }
  EXPECT_THAT(transfer.Download(Wide(server.Url()), result), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(Narrow(result), "x");
}

// --- Reset and destruction

TEST(ZTransferAbort, IsPartOfAResetOnAnotherThread) {
  ScriptedServer server(Silent);
  ZTransfer transfer;
  ZString result;
  RunningOperation download(transfer, [&] { return transfer.Download(Wide(server.Url()), result); });
  ASSERT_TRUE(server.WaitForRequests(1));
  EXPECT_THAT(transfer.Reset(), IsCode(BASE_S_OK));
  EXPECT_THAT(transfer.GetStatus(), IsCode(TRANSFER_E_NOT_STARTED));
  EXPECT_EQ(ErrorOf(transfer), "Download not started yet");
  ASSERT_TRUE(download.Result());
  // The thread of the operation reads its outcome when the reset may already have cleared it.
  EXPECT_THAT(*download.Result(), IsCode(TRANSFER_E_ABORTED));
}

TEST(ZTransferAbort, IsPartOfADestructionOnAnotherThread) {
  for (int i = 0; i < 5; ++i) {
    ScriptedServer server(i % 2 == 0 ? ScriptedServer::Handler(Silent) : StreamingHandler());
    auto transfer = std::make_unique<ZTransfer>();
    ZString result;
    std::future<ZResult> download = std::async(std::launch::async, [&result, &server, object = transfer.get()] {
      return object->Download(Wide(server.Url()), result);
    });
    const bool hasBegun = server.WaitForRequests(1);
    EXPECT_TRUE(hasBegun);
    transfer.reset();  // returns when the operation has ended
    EXPECT_THAT(download.get(), IsCode(TRANSFER_E_ABORTED));
  }
}

TEST(ZTransferAbort, OfADestroyedObjectEndsItsPostAndItsDownloadIntoAFile) {
  ScriptedServer server(Silent);
  const TempDir folder;
  const ZString file = WidePath(folder / "a");
  const ZString url = Wide(server.Url());
  for (const bool post : {false, true}) {
    auto transfer = std::make_unique<ZTransfer>();
    const std::size_t before = server.Requests().size();
    std::future<ZResult> operation = std::async(std::launch::async, [&, object = transfer.get()] {
      return post ? object->PostData(url, L"data") : object->DownloadFile(url, file, false);
    });
    EXPECT_TRUE(server.WaitForRequests(before + 1));
    transfer.reset();
    EXPECT_THAT(operation.get(), IsCode(post ? TRANSFER_E_ABORTED : TRANSFER_E_CONNECT));
  }
  EXPECT_THAT(NamesIn(folder.Path()), IsEmpty());
}

// Aborts that come at any moment of an operation, its set-up and its end included, end it or miss it, no more.
TEST(ZTransferAbort, MayComeAtAnyMoment) {
  ScriptedServer server(KeepAlive(Content(MakePattern(20000))));
  ZTransfer transfer;
  std::atomic<bool> done{false};
  std::thread aborter([&] {
    while (!done) transfer.Abort();
  });
  const TempDir folder;
  ZString result;
  for (int i = 0; i < 100; ++i) {
    const ZResult code = i % 2 == 0 ? transfer.Download(Wide(server.Url()), result)
                                    : transfer.DownloadFile(Wide(server.Url()), WidePath(folder / "a"), false);
    ASSERT_THAT(code, AnyOf(IsCode(TRANSFER_S_FINISHED), IsCode(TRANSFER_E_ABORTED), IsCode(TRANSFER_E_CONNECT)));
  }
  done = true;
  aborter.join();
  EXPECT_THAT(transfer.Download(Wide(server.Url()), result), IsCode(TRANSFER_S_FINISHED));
}

TEST(ZTransferAbort, ByManyThreadsIsOneAbort) {
  ScriptedServer server(StreamingHandler());
  RecordingObserver observer;
  ZTransfer transfer;
  transfer.Attach(&observer);
  ZString result;
  RunningOperation download(transfer, [&] { return transfer.Download(Wide(server.Url()), result); });
  ASSERT_TRUE(observer.FirstEvent().Wait());
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      transfer.Abort();
      EXPECT_TRUE(transfer.Wait(60000));
    });
  }
  for (std::thread& thread : threads) thread.join();
  ASSERT_TRUE(download.Result());
  EXPECT_THAT(*download.Result(), IsCode(TRANSFER_E_ABORTED));
}

}  // namespace
}  // namespace CorvaneTest
