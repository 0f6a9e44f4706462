#include <gmock/gmock.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"

// The object between and during operations: what it refuses, what it keeps, what it forgets.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

const RecordingObserver::Event kGoodData{1, TRANSFER_E_IN_PROGRESS};

// A server that sends the beginning of a body, and its end when told to.
class HalfwayServer {
 public:
  std::string Url() const { return m_server.Url(); }
  void Finish() { m_finish.Open(); }
  const ScriptedServer& Server() const { return m_server; }

 private:
  Gate m_finish;
  ScriptedServer m_server{KeepAlive([this](Connection& peer, const Request&) {
    peer.Send(FormatHead(200, {{"Content-Length", "10"}}) + "first");
    if (peer.WaitFor(m_finish)) peer.Send("later");
  })};
};

TEST(ZTransferState, OfANewObjectIsNotStarted) {
  ZTransfer transfer;
  EXPECT_THAT(transfer.GetStatus(), IsCode(TRANSFER_E_NOT_STARTED));
  EXPECT_EQ(ErrorOf(transfer), "Download not started yet");
  EXPECT_THAT(CauseOf(transfer), IsCode(TRANSFER_E_NOT_STARTED));
  EXPECT_EQ(HeaderOf(transfer), "");
  EXPECT_EQ(transfer.GetContentSize(), kUnknownSize);
  EXPECT_EQ(transfer.GetDownloadSize(), 0u);
  EXPECT_EQ(transfer.GetTransferSize(), 0u);
  EXPECT_EQ(transfer.GetTransferRate(), 0u);
  EXPECT_EQ(transfer.GetTransferTime(), 0);
  EXPECT_TRUE(transfer.Wait(0));
}

TEST(ZTransferState, DuringAnOperationSettingsAreRefused) {
  HalfwayServer server;
  RecordingObserver observer, other;
  ZTransfer transfer;
  ASSERT_THAT(transfer.Attach(&observer), IsCode(BASE_S_OK));
  ZString result;
  RunningOperation download(transfer, [&] { return transfer.Download(Wide(server.Url()), result); });
  ASSERT_TRUE(observer.FirstEvent().Wait());

  EXPECT_THAT(transfer.DetectHttpError(true), IsCode(BASE_E_BUSY));
  EXPECT_THAT(transfer.UseThrottling(false), IsCode(BASE_E_BUSY));
  EXPECT_THAT(transfer.SetSSL(true, true, L"", L""), IsCode(BASE_E_BUSY));
  EXPECT_THAT(transfer.SetCredentials(L"user", L"secret"), IsCode(BASE_E_BUSY));
  EXPECT_THAT(transfer.Attach(&other), IsCode(BASE_E_BUSY));
  EXPECT_THAT(transfer.Detach(&observer), IsCode(BASE_E_BUSY));
  ZString header(L"untouched"), cause(L"untouched");
  EXPECT_THAT(transfer.GetHeader(header), IsCode(BASE_E_BUSY));
  EXPECT_THAT(transfer.GetCause(cause), IsCode(BASE_E_BUSY));
  EXPECT_EQ(Narrow(header), "untouched");
  EXPECT_EQ(Narrow(cause), "untouched");
  EXPECT_THAT(transfer.SetTimeout(200), IsCode(BASE_S_OK));
  EXPECT_THAT(transfer.GetStatus(), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(transfer.GetTransferTime(), 0);

  server.Finish();
  ASSERT_TRUE(download.Result());
  EXPECT_THAT(*download.Result(), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(Narrow(result), "firstlater");

  // The refused ones changed nothing: the observers are as before, and no credentials are sent.
  ASSERT_THAT(transfer.Download(Wide(server.Url()), result), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(observer.Events(), ElementsAre(kGoodData, kGoodData));
  EXPECT_THAT(other.Events(), IsEmpty());
  EXPECT_EQ(server.Server().Requests().back().Header("Authorization"), std::nullopt);
}

TEST(ZTransferState, DuringAnOperationEveryOtherIsRefused) {
  HalfwayServer server;
  const TempDir folder;
  const std::string input = folder / "input";
  WriteFile(input, "data");
  RecordingObserver observer;
  ZTransfer transfer;
  transfer.Attach(&observer);
  ZString result;
  RunningOperation download(transfer, [&] { return transfer.Download(Wide(server.Url()), result); });
  ASSERT_TRUE(observer.FirstEvent().Wait());
  const std::string before = ErrorOf(transfer);

  ZString other(L"untouched");
  const ZString url = Wide(server.Url());
  EXPECT_THAT(transfer.Download(url, other), IsCode(BASE_E_IN_USE));
  EXPECT_THAT(transfer.DownloadFile(url, WidePath(folder / "new" / "file"), false), IsCode(BASE_E_IN_USE));
  EXPECT_THAT(transfer.Post(url, L"a", L"1", other), IsCode(BASE_E_IN_USE));
  EXPECT_THAT(transfer.PostFile(url, Wide(input), WidePath(folder / "answer")), IsCode(BASE_E_IN_USE));
  EXPECT_EQ(Narrow(other), "untouched");
  EXPECT_EQ(ErrorOf(transfer), before);
  EXPECT_THAT(transfer.GetStatus(), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("input"));

  server.Finish();
  ASSERT_TRUE(download.Result());
  EXPECT_THAT(*download.Result(), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(Narrow(result), "firstlater");
  EXPECT_THAT(server.Server().Requests(), SizeIs(1));
}

TEST(ZTransferState, WaitTellsWhetherAnOperationRuns) {
  HalfwayServer server;
  RecordingObserver observer;
  ZTransfer transfer;
  transfer.Attach(&observer);
  ZString result;
  RunningOperation download(transfer, [&] { return transfer.Download(Wide(server.Url()), result); });
  ASSERT_TRUE(observer.FirstEvent().Wait());
  EXPECT_FALSE(transfer.Wait(0));
  EXPECT_FALSE(transfer.Wait(50));
  EXPECT_FALSE(transfer.Wait(std::chrono::microseconds(50)));
  EXPECT_FALSE(transfer.Wait(std::chrono::hours::min()));
  server.Finish();
  EXPECT_TRUE(transfer.Wait(std::chrono::hours::max()));
  EXPECT_TRUE(transfer.Wait(0xFFFFFFFF));
  EXPECT_TRUE(transfer.Wait(0));
  EXPECT_THAT(transfer.GetStatus(), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(transfer.SetCredentials(L"", L""), IsCode(BASE_S_OK));  // no longer busy once Wait has returned
  ASSERT_TRUE(download.Result());
  EXPECT_EQ(transfer.GetTransferDuration(), std::chrono::milliseconds(transfer.GetTransferTime()));
}

TEST(ZTransferState, AnObserverAttachedTwiceIsToldOnce) {
  ScriptedServer server(KeepAlive(Status(200, "x")));
  RecordingObserver observer;
  ZTransfer transfer;
  EXPECT_THAT(transfer.Attach(&observer), IsCode(BASE_S_OK));
  EXPECT_THAT(transfer.Attach(&observer), IsCode(BASE_S_OK));
  ZString result;
  transfer.Download(Wide(server.Url()), result);
  EXPECT_THAT(observer.Events(), ElementsAre(kGoodData));
}

TEST(ZTransferState, ADetachedObserverIsToldNothing) {
  ScriptedServer server(KeepAlive(Status(200, "x")));
  RecordingObserver first, second, third;
  ZTransfer transfer;
  for (RecordingObserver* observer : {&first, &second, &third}) transfer.Attach(observer);
  EXPECT_THAT(transfer.Detach(&second), IsCode(BASE_S_OK));
  EXPECT_THAT(transfer.Detach(&second), IsCode(BASE_S_OK));  // not attached any more
  ZString result;
  transfer.Download(Wide(server.Url()), result);
  EXPECT_THAT(first.Events(), ElementsAre(kGoodData));
  EXPECT_THAT(second.Events(), IsEmpty());
  EXPECT_THAT(third.Events(), ElementsAre(kGoodData));
}

TEST(ZTransferState, NoObserverIsNoNullPointer) {
  ZTransfer transfer;
  EXPECT_THAT(transfer.Attach(nullptr), IsCode(BASE_E_BUSY));
  EXPECT_THAT(transfer.Detach(nullptr), IsCode(BASE_S_OK));
}

TEST(ZTransferState, NotifyPassesEventsOfTheHost) {
  RecordingObserver first, second;
  ZTransfer transfer;
  transfer.Attach(&first);
  transfer.Attach(&second);
  transfer.Notify(42, 7);
  EXPECT_THAT(first.Events(), ElementsAre(RecordingObserver::Event(42, 7)));
  EXPECT_THAT(second.Events(), ElementsAre(RecordingObserver::Event(42, 7)));
}

TEST(ZTransferState, ResetForgetsTheOperationAndKeepsTheSettings) {
  ScriptedServer server(KeepAlive(Status(404, "no such page")));
  RecordingObserver observer;
  ZTransfer transfer;
  transfer.Attach(&observer);
  transfer.DetectHttpError(true);
  ZString result;
  ASSERT_THAT(transfer.Download(Wide(server.Url()), result), IsCode(TRANSFER_E_CONNECT));

  EXPECT_THAT(transfer.Reset(), IsCode(BASE_S_OK));
  EXPECT_THAT(transfer.GetStatus(), IsCode(TRANSFER_E_NOT_STARTED));
  EXPECT_EQ(ErrorOf(transfer), "Download not started yet");
  EXPECT_THAT(CauseOf(transfer), IsCode(TRANSFER_E_NOT_STARTED));
  EXPECT_EQ(HeaderOf(transfer), "");
  EXPECT_EQ(transfer.GetContentSize(), kUnknownSize);
  EXPECT_EQ(transfer.GetDownloadSize(), 0u);
  EXPECT_EQ(transfer.GetTransferSize(), 0u);
  EXPECT_EQ(transfer.GetTransferRate(), 0u);
  EXPECT_EQ(transfer.GetTransferTime(), 0);
  EXPECT_TRUE(transfer.Wait(0));

  EXPECT_THAT(transfer.Download(Wide(server.Url()), result), IsCode(TRANSFER_E_CONNECT));  // still detected
  EXPECT_THAT(observer.Events(), SizeIs(2));                                               // still attached
  EXPECT_EQ(server.AcceptedConnections(), 1u);                                             // still connected
}

// --- exceptions of the host's code

class ThrowingObserver : public ZTransfer::Observer {
 public:
  void Update(int, long) override { throw std::runtime_error("the host's own"); }
};

TEST(ZTransferState, AnExceptionOfAnObserverReachesTheCaller) {
  ScriptedServer server(KeepAlive(Status(200, "some data")));
  ThrowingObserver observer;
  ZTransfer transfer;
  transfer.Attach(&observer);
  ZString result;
  try {
    transfer.Download(Wide(server.Url()), result);
    ADD_FAILURE() << "no exception came";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "the host's own");
  }
  // The operation has ended, with a failure, and the object works on.
  EXPECT_TRUE(transfer.Wait(0));
  EXPECT_TRUE(IsFailure(transfer.GetStatus()));
  EXPECT_THAT(transfer.Detach(&observer), IsCode(BASE_S_OK));
  EXPECT_THAT(transfer.Download(Wide(server.Url()), result), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(Narrow(result), "some data");
}

TEST(ZTransferState, AnExceptionDuringADownloadIntoAFileClosesIt) {
  ScriptedServer server(KeepAlive(Status(200, "some data")));
  const TempDir folder;
  ThrowingObserver observer;
  ZTransfer transfer;
  transfer.Attach(&observer);
  const ZString file = WidePath(folder / "file");
  EXPECT_THROW(transfer.DownloadFile(Wide(server.Url()), file, false), std::runtime_error);
  transfer.Detach(&observer);
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), file, false), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(folder / "file", "some data"));
}

TEST(ZTransferState, AnExceptionOfTheLoggerReachesTheCaller) {
  class ThrowingLogger : public ZLogger {
   public:
    ThrowingLogger() { EnableUpTo(ZLogLevel::Information); }
    void Write(ZLogLevel, const ZString&, const char*, int) override { throw std::runtime_error("disk full"); }
  };
  ScriptedServer server(KeepAlive(Status(200, "x")));
  ZTransfer transfer;
  EXPECT_EQ(transfer.SetCredentials(L"user", L"secret"), 0u);  // they are what is logged
  ThrowingLogger logger;
  ZString result;
  ZLog::SetLogger(&logger);
  EXPECT_THROW(transfer.Download(Wide(server.Url()), result), std::runtime_error);
  ZLog::SetLogger(nullptr);
  EXPECT_TRUE(transfer.Wait(0));
  EXPECT_THAT(transfer.SetCredentials(L"", L""), IsCode(BASE_S_OK));
  EXPECT_THAT(transfer.Download(Wide(server.Url()), result), IsCode(TRANSFER_S_FINISHED));
}

}  // namespace
}  // namespace CorvaneTest
