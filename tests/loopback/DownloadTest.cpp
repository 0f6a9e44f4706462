#include <gmock/gmock.h>

#include <string>
#include <vector>

#include <Corvane/Base/Url.h>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/ScriptedServer.h"

// Downloads into memory that succeed: what comes back, what the server was asked, what observers are told.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

TEST(ZTransferDownload, HandsBackTheBody) {
  ScriptedServer server(KeepAlive(Status(200, "Hello, world\n")));
  ZTransfer transfer;
  ZString result(L"of an earlier operation");

  EXPECT_THAT(transfer.Download(Wide(server.Url("/greeting.txt")), result), IsCode(TRANSFER_S_FINISHED));

  EXPECT_EQ(Narrow(result), "Hello, world\n");
  EXPECT_THAT(transfer.GetStatus(), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(ErrorOf(transfer), "Transfer has finished successfully");
  EXPECT_THAT(CauseOf(transfer), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(transfer.GetContentSize(), 13u);
  EXPECT_EQ(transfer.GetDownloadSize(), 13u);
}

TEST(ZTransferDownload, AsksPlainlyForTheWholeResource) {
  ScriptedServer server(KeepAlive(Status(200, "x")));
  ZTransfer transfer;
  ZString result;
  ASSERT_THAT(transfer.Download(Wide(server.Url("/dir/a%20b.txt?q=1")), result), IsCode(TRANSFER_S_FINISHED));

  const std::vector<Request> requests = server.Requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].method, "GET");
  EXPECT_EQ(requests[0].target, "/dir/a%20b.txt?q=1");
  EXPECT_EQ(requests[0].Header("Host"), "127.0.0.1:" + std::to_string(server.Port()));
  EXPECT_EQ(requests[0].Header("Range"), std::nullopt);
  EXPECT_EQ(requests[0].Header("Authorization"), std::nullopt);
  // A compressed body would be stored as it comes.
  EXPECT_EQ(requests[0].Header("Accept-Encoding"), std::nullopt);
}

TEST(ZTransferDownload, SendsTheUrlAsUtf8) {
  ScriptedServer server(KeepAlive(Status(200, "x")));
  ZTransfer transfer;
  ZString result;
  ASSERT_THAT(transfer.Download(Wide(server.Url("/gr\xC3\xBC\xC3\x9F")), result), IsCode(TRANSFER_S_FINISHED));
  ASSERT_EQ(server.Requests().size(), 1u);
  // libcurl may or may not encode what is not ASCII.
  ZString target;
  ZUrl::Decode(Wide(server.Requests()[0].target), target);
  EXPECT_EQ(Narrow(target), "/gr\xC3\xBC\xC3\x9F");
}

TEST(ZTransferDownload, KnowsTheSchemeInCapitals) {
  ScriptedServer server(KeepAlive(Status(404, "no such page")));
  ZTransfer transfer;
  transfer.DetectHttpError(true);
  ZString result;
  const std::string url = "HTTP://127.0.0.1:" + std::to_string(server.Port()) + "/";
  EXPECT_THAT(transfer.Download(Wide(url), result), IsCode(TRANSFER_E_CONNECT));
  EXPECT_THAT(HeaderOf(transfer), HasSubstr("HTTP/1.1 404 Not Found\r\n"));
}

TEST(ZTransferDownload, CollectsTheHeaderLinesAsReceived) {
  ScriptedServer server(KeepAlive(Status(200, "x", {{"X-First", "1"}, {"x-second", "  2  "}})));
  ZTransfer transfer;
  ZString result;
  ASSERT_THAT(transfer.Download(Wide(server.Url()), result), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(HeaderOf(transfer), "HTTP/1.1 200 OK\r\nX-First: 1\r\nx-second:   2  \r\nContent-Length: 1\r\n\r\n");
}

TEST(ZTransferDownload, ForgetsTheHeaderOfTheOperationBefore) {
  ScriptedServer server(KeepAlive(Status(200, "x")));
  ZTransfer transfer;
  ZString result;
  ASSERT_THAT(transfer.Download(Wide(server.Url()), result), IsCode(TRANSFER_S_FINISHED));
  ASSERT_THAT(transfer.Download(L"http://127.0.0.1:1x/", result), Not(IsCode(TRANSFER_S_FINISHED)));
  EXPECT_EQ(HeaderOf(transfer), "");
}

TEST(ZTransferDownload, KeepsInterimAnswersInTheHeaderText) {
  const std::string answer =
      "HTTP/1.1 100 Continue\r\n\r\n"
      "HTTP/1.1 103 Early Hints\r\nLink: </style.css>\r\n\r\n"
      "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n";
  ScriptedServer server(KeepAlive([&](Connection& peer, const Request&) { peer.Send(answer + "body"); }));
  ZTransfer transfer;
  transfer.DetectHttpError(true);
  ZString result;
  EXPECT_THAT(transfer.Download(Wide(server.Url()), result), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(Narrow(result), "body");
  EXPECT_EQ(HeaderOf(transfer), answer);
}

TEST(ZTransferDownload, ReusesTheConnection) {
  ScriptedServer server(KeepAlive(Status(200, "x")));
  ZTransfer transfer;
  ZString result;
  for (int i = 0; i < 3; ++i) {
    ASSERT_THAT(transfer.Download(Wide(server.Url()), result), IsCode(TRANSFER_S_FINISHED)) << i;
  }
  EXPECT_EQ(server.Requests().size(), 3u);
  EXPECT_EQ(server.AcceptedConnections(), 1u);
}

TEST(ZTransferDownload, RepeatsARequestWhoseReusedConnectionWasClosed) {
  ScriptedServer server(OncePerConnection(Status(200, "x")));
  ZTransfer transfer;
  ZString result;
  for (int i = 0; i < 3; ++i) {
    ASSERT_THAT(transfer.Download(Wide(server.Url()), result), IsCode(TRANSFER_S_FINISHED)) << i;
    EXPECT_EQ(ErrorOf(transfer), "Transfer has finished successfully");
    EXPECT_EQ(CauseTextOf(transfer), "");
  }
  EXPECT_EQ(server.AcceptedConnections(), 3u);
}

TEST(ZTransferDownload, DoesNotFollowRedirects) {
  ScriptedServer server(KeepAlive(Routes({{"/old", Redirect("/new")}, {"/new", Status(200, "never to be fetched")}})));
  ZTransfer transfer;
  ZString result;
  EXPECT_THAT(transfer.Download(Wide(server.Url("/old")), result), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(Narrow(result), "");
  EXPECT_EQ(server.Requests().size(), 1u);
  transfer.DetectHttpError(true);
  EXPECT_THAT(transfer.Download(Wide(server.Url("/old")), result), IsCode(TRANSFER_E_CONNECT));
  EXPECT_EQ(server.Requests().size(), 2u);
}

TEST(ZTransferDownload, TwoObjectsRunAtTheSameTime) {
  // Neither is answered before both have asked.
  Gate bothAsked;
  std::atomic<int> asked{0};
  ScriptedServer server(KeepAlive([&](Connection& peer, const Request& request) {
    if (++asked == 2) bothAsked.Open();
    if (peer.WaitFor(bothAsked)) Status(200, "page of " + request.target)(peer, request);
  }));
  ZTransfer first, second;
  ZString firstPage, secondPage;
  RunningOperation firstRun(first, [&] { return first.Download(Wide(server.Url("/1")), firstPage); });
  RunningOperation secondRun(second, [&] { return second.Download(Wide(server.Url("/2")), secondPage); });
  ASSERT_TRUE(firstRun.Result() && secondRun.Result());
  EXPECT_THAT(*firstRun.Result(), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(*secondRun.Result(), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(Narrow(firstPage), "page of /1");
  EXPECT_EQ(Narrow(secondPage), "page of /2");
}

// --- bodies without content, and of unknown length

struct BodyCase {
  const char* name;
  const char* answer;  // the exact bytes of the answer, after which the connection is closed
  const char* body;
  unsigned long long contentSize;
};

constexpr BodyCase kBodyCases[] = {
    {"length given", "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nabcde", "abcde", 5},
    {"length of zero", "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", "", kUnknownSize},
    {"no content", "HTTP/1.1 204 No Content\r\n\r\n", "", kUnknownSize},
    {"not modified, with the length of what it is not", "HTTP/1.1 304 Not Modified\r\nContent-Length: 9\r\n\r\n", "",
     kUnknownSize},
    {"chunked", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n2\r\nde\r\n0\r\n\r\n", "abcde",
     kUnknownSize},
    {"chunked and empty", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", "", kUnknownSize},
    {"until the connection closes", "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\nabcde", "abcde", kUnknownSize},
    {"until the connection closes at once", "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n", "", kUnknownSize},
    {"HTTP/1.0", "HTTP/1.0 200 OK\r\n\r\nabcde", "abcde", kUnknownSize},
    {"lines that end in LF only", "HTTP/1.1 200 OK\nContent-Length: 5\n\nabcde", "abcde", 5},
};

TEST(ZTransferDownload, TellsTheContentSizeOnlyWhenItIsKnown) {
  for (const BodyCase& c : kBodyCases) {
    SCOPED_TRACE(c.name);
    ScriptedServer server(OncePerConnection([&](Connection& peer, const Request&) { peer.Send(c.answer); }));
    ZTransfer transfer;
    ZString result(L"old");
    EXPECT_THAT(transfer.Download(Wide(server.Url()), result), IsCode(TRANSFER_S_FINISHED));
    EXPECT_EQ(Narrow(result), c.body);
    EXPECT_EQ(transfer.GetContentSize(), c.contentSize);
    EXPECT_EQ(transfer.GetDownloadSize(), std::string(c.body).size());
  }
}

TEST(ZTransferDownload, TellsObserversOnlyOfABodyThatIsNotEmpty) {
  for (const BodyCase& c : kBodyCases) {
    SCOPED_TRACE(c.name);
    ScriptedServer server(OncePerConnection([&](Connection& peer, const Request&) { peer.Send(c.answer); }));
    RecordingObserver observer;
    ZTransfer transfer;
    ASSERT_THAT(transfer.Attach(&observer), IsCode(BASE_S_OK));
    ZString result;
    EXPECT_THAT(transfer.Download(Wide(server.Url()), result), IsCode(TRANSFER_S_FINISHED));
    const std::size_t expected = std::string(c.body).empty() ? 0 : 1;
    EXPECT_EQ(observer.Events(), std::vector<RecordingObserver::Event>(expected, {1, TRANSFER_E_IN_PROGRESS}));
  }
}

// --- HTTP errors

struct StatusCase {
  int status;
  bool isAcceptable;
};

constexpr StatusCase kStatusCases[] = {
    {200, true},  {201, true},  {206, true},  {299, true},  {300, false}, {301, false}, {302, false}, {400, false},
    {401, false}, {403, false}, {404, false}, {407, false}, {416, false}, {500, false}, {503, false}, {599, false},
};

TEST(ZTransferDownload, WithoutDetectionAnErrorPageIsTheResult) {
  for (const StatusCase& c : kStatusCases) {
    SCOPED_TRACE(c.status);
    ScriptedServer server(KeepAlive(Status(c.status, "the page")));
    ZTransfer transfer;
    ZString result;
    EXPECT_THAT(transfer.Download(Wide(server.Url()), result), IsCode(TRANSFER_S_FINISHED));
    EXPECT_EQ(ErrorOf(transfer), "Transfer has finished successfully");
    EXPECT_EQ(Narrow(result), "the page");
  }
}

TEST(ZTransferDownload, WithDetectionAnErrorPageIsAFailureAndStillTheResult) {
  for (const StatusCase& c : kStatusCases) {
    SCOPED_TRACE(c.status);
    ScriptedServer server(KeepAlive(Status(c.status, "the page")));
    ZTransfer transfer;
    ASSERT_THAT(transfer.DetectHttpError(true), IsCode(BASE_S_OK));
    ZString result;
    const ZResult expected = c.isAcceptable ? TRANSFER_S_FINISHED : TRANSFER_E_CONNECT;
    EXPECT_THAT(transfer.Download(Wide(server.Url("/a")), result), IsCode(expected));
    EXPECT_THAT(transfer.GetStatus(), IsCode(expected));
    EXPECT_EQ(ErrorOf(transfer), c.isAcceptable ? "Transfer has finished successfully"
                                                : "Failed to connect to the specified URL, " + server.Url("/a"));
    EXPECT_EQ(Narrow(result), "the page");
    EXPECT_THAT(CauseOf(transfer), IsCode(TRANSFER_S_FINISHED));
  }
}

TEST(ZTransferDownload, TellsObserversWhetherTheAnswerIsAcceptable) {
  for (const bool detect : {false, true}) {
    for (const StatusCase& c : kStatusCases) {
      SCOPED_TRACE(c.status);
      ScriptedServer server(KeepAlive(Status(c.status, "the page")));
      RecordingObserver first, second;
      ZTransfer transfer;
      transfer.DetectHttpError(detect);
      transfer.Attach(&first);
      transfer.Attach(&second);
      ZString result;
      transfer.Download(Wide(server.Url()), result);
      const RecordingObserver::Event event{1, c.isAcceptable ? TRANSFER_E_IN_PROGRESS : TRANSFER_E_CONNECT};
      EXPECT_THAT(first.Events(), ElementsAre(event));
      EXPECT_THAT(second.Events(), ElementsAre(event));
    }
  }
}

TEST(ZTransferDownload, NotifiesOncePerOperation) {
  ContentOptions options;
  options.framing = ContentOptions::Framing::kChunked;
  options.chunkSize = 1000;
  ScriptedServer server(KeepAlive(Content(std::string(200000, 'x'), options)));
  RecordingObserver observer;
  ZTransfer transfer;
  transfer.Attach(&observer);
  ZString result;
  for (std::size_t operations = 1; operations <= 2; ++operations) {
    ASSERT_THAT(transfer.Download(Wide(server.Url()), result), IsCode(TRANSFER_S_FINISHED));
    EXPECT_EQ(observer.Events().size(), operations);
  }
}

TEST(ZTransferDownload, TellsObserversNothingWhenNoAnswerComes) {
  ScriptedServer server([](Connection& peer) { peer.ReadRequest(); });
  RecordingObserver observer;
  ZTransfer transfer;
  transfer.Attach(&observer);
  ZString result;
  EXPECT_TRUE(IsFailure(transfer.Download(Wide(server.Url()), result)));
  EXPECT_THAT(observer.Events(), IsEmpty());
}

}  // namespace
}  // namespace CorvaneTest
