#include "tests/support/ScriptedServer.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Fetch.h"
#include "tests/support/Process.h"
#include "tests/support/Sockets.h"
#include "tests/support/StalledListener.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

using std::chrono::milliseconds;

constexpr auto kSlice = milliseconds(50);  // how long a test looks whether something wrongly happens

// A client that sees every byte. The class that serves the servers serves here, too.
class RawClient : public Connection {
 public:
  explicit RawClient(const ScriptedServer& server) : Connection(ConnectToLoopback(server.Port()), Never()) {}

  // The bytes up to the end of the stream.
  std::string ReadAll() {
    std::string all;
    for (std::string part = ReadSome(); !part.empty(); part = ReadSome()) all += part;
    return all;
  }

 private:
  static const Gate& Never() {
    static const Gate never;
    return never;
  }
};

// Sets the only request header of a fetch.
auto WithHeader(const std::string& line) {
  return [list = std::shared_ptr<curl_slist>(curl_slist_append(nullptr, line.c_str()), curl_slist_free_all)](
             CURL* easy) { curl_easy_setopt(easy, CURLOPT_HTTPHEADER, list.get()); };
}

// --- requests

TEST(ScriptedServer, RecordsTheExactHead) {
  ScriptedServer server(OncePerConnection(Status(204)));
  const std::string head = "GET /a%20b?c HTTP/1.1\r\nHost:  x \r\nX-Odd:\r\n\r\n";
  RawClient client(server);
  ASSERT_TRUE(client.Send(head));
  EXPECT_EQ(client.ReadAll(), "HTTP/1.1 204 No Content\r\nContent-Length: 0\r\n\r\n");
  ASSERT_EQ(server.Requests().size(), 1u);
  const Request request = server.Requests()[0];
  EXPECT_EQ(request.raw, head);
  EXPECT_EQ(request.target, "/a%20b?c");
  EXPECT_TRUE(request.isBodyComplete);
  EXPECT_EQ(server.AcceptedConnections(), 1u);
}

TEST(ScriptedServer, ReadsBodiesOfBothFramings) {
  ScriptedServer server(KeepAlive(Status(200)));
  RawClient client(server);
  client.Send("POST /1 HTTP/1.1\r\nContent-Length: 5\r\n\r\nab\r\nc");
  ASSERT_EQ(client.ReadLine(), "HTTP/1.1 200 OK");
  client.Send(
      "POST /2 HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\nA;x=y\r\n0123456789\r\n0\r\nT: 1\r\n\r\n");
  client.Send("GET /3 HTTP/1.1\r\nConnection: close\r\n\r\n");
  client.ReadAll();
  const std::vector<Request> requests = server.Requests();
  ASSERT_EQ(requests.size(), 3u);
  EXPECT_EQ(requests[0].body, "ab\r\nc");
  EXPECT_EQ(requests[1].body, "abc0123456789");
  EXPECT_EQ(requests[1].bodySize, 13u);
  EXPECT_EQ(requests[2].target, "/3");
  for (const Request& request : requests) EXPECT_TRUE(request.isBodyComplete) << request.target;
}

TEST(ScriptedServer, RecordsABodyThatWasBrokenOffAsIncomplete) {
  Gate isRead;
  ScriptedServer server([&](Connection& peer) {
    EXPECT_FALSE(peer.ReadRequest()->isBodyComplete);
    isRead.Open();
  });
  RawClient client(server);
  client.Send("POST / HTTP/1.1\r\nContent-Length: 10\r\n\r\n1234");
  client.Close();
  ASSERT_TRUE(isRead.Wait());
  EXPECT_EQ(server.Requests().at(0).body, "1234");
  EXPECT_FALSE(server.Requests().at(0).isBodyComplete);
}

TEST(ScriptedServer, TellsAClientThatExpectsItToContinue) {
  ScriptedServer server(OncePerConnection(Status(200)));
  RawClient client(server);
  client.Send("POST / HTTP/1.1\r\nContent-Length: 4\r\nExpect: 100-continue\r\n\r\n");
  ASSERT_EQ(client.ReadLine(), "HTTP/1.1 100 Continue");
  client.Send("body");
  EXPECT_NE(client.ReadAll().find("200 OK"), std::string::npos);
  EXPECT_EQ(server.Requests().at(0).body, "body");
}

TEST(ScriptedServer, CountsABodyWithoutKeepingIt) {
  ScriptedServer server(OncePerConnection(Status(200), Body::kCount));
  RawClient client(server);
  client.Send("POST / HTTP/1.1\r\nContent-Length: 3000000\r\n\r\n" + MakePattern(3000000));
  client.ReadAll();
  const Request request = server.Requests().at(0);
  EXPECT_EQ(request.bodySize, 3000000u);
  EXPECT_EQ(request.body, "");
  EXPECT_TRUE(request.isBodyComplete);
}

TEST(ScriptedServer, LeavesABodyUntilItIsAskedFor) {
  ScriptedServer server([](Connection& peer) {
    Request request = *peer.ReadRequest(Body::kLeave);
    EXPECT_FALSE(request.isBodyComplete);
    peer.Send(FormatHead(200));
    EXPECT_TRUE(peer.ReadBody(request));
    EXPECT_EQ(request.body, "1234");
  });
  RawClient client(server);
  client.Send("POST / HTTP/1.1\r\nContent-Length: 4\r\n\r\n");
  ASSERT_EQ(client.ReadLine(), "HTTP/1.1 200 OK");
  EXPECT_EQ(server.Requests().at(0).bodySize, 0u);
  client.Send("1234");
  client.ReadAll();
  EXPECT_EQ(server.Requests().at(0).body, "1234");
}

TEST(ScriptedServer, ReportsTheEndOfAConnectionWithoutARequest) {
  Gate hasEnded;
  ScriptedServer server([&](Connection& peer) {
    if (!peer.ReadRequest()) hasEnded.Open();
  });
  RawClient client(server);
  client.Send("GET / HTTP/1.1\r\nHost: x\r\n");
  client.Close();
  EXPECT_TRUE(hasEnded.Wait());
  EXPECT_TRUE(server.Requests().empty());
}

TEST(ScriptedServer, NumbersItsConnections) {
  ScriptedServer server([](Connection& peer) { peer.Send(std::to_string(peer.Number())); });
  for (const char* number : {"0", "1", "2"}) EXPECT_EQ(RawClient(server).ReadAll(), number);
  EXPECT_TRUE(server.WaitForConnections(3));
  EXPECT_FALSE(server.WaitForConnections(4, After(milliseconds(1))));
}

TEST(ScriptedServer, WaitsForRequestsAsTheyCome) {
  ScriptedServer server(KeepAlive(Status(200)));
  EXPECT_FALSE(server.WaitForRequests(1, After(milliseconds(1))));
  std::thread client([&] {
    for (int i = 0; i < 3; ++i) EXPECT_EQ(Fetch(server.Url()).status, 200);
  });
  EXPECT_TRUE(server.WaitForRequests(3));
  client.join();
}

TEST(ScriptedServer, ReadsLinesAndCountsOfBytes) {
  ScriptedServer server([](Connection& peer) {
    EXPECT_EQ(peer.ReadLine(), "one");
    EXPECT_EQ(peer.ReadLine(), "");
    EXPECT_EQ(peer.ReadLine(), "two");
    EXPECT_EQ(peer.ReadExactly(3), "abc");
    EXPECT_EQ(peer.ReadSome(1), "d");
    EXPECT_EQ(peer.ReadExactly(10), "ef");
    EXPECT_EQ(peer.ReadLine(), std::nullopt);
    EXPECT_EQ(peer.ReadSome(), "");
    peer.Send("done");
  });
  RawClient client(server);
  client.Send("one\r\n\ntwo\nabcdef");
  client.HalfClose();
  EXPECT_EQ(client.ReadAll(), "done");
}

// --- ends of connections

// What a plain read of the client meets: 0 for FIN, else errno.
int ReadError(const FileDescriptor& socket) {
  char byte = 0;
  const ssize_t count = recv(socket.Get(), &byte, 1, 0);
  return count < 0 ? errno : static_cast<int>(count);
}

TEST(Connection, CloseSendsFinEvenWithUnreadData) {
  Gate isSent;
  ScriptedServer server([&](Connection& peer) {
    EXPECT_TRUE(peer.WaitFor(isSent));
    peer.Close();
  });
  const FileDescriptor socket = ConnectToLoopback(server.Port());
  send(socket.Get(), "unread", 6, 0);
  isSent.Open();
  EXPECT_EQ(ReadError(socket), 0);
}

TEST(Connection, ResetSendsRst) {
  ScriptedServer server([](Connection& peer) { peer.Reset(); });
  const FileDescriptor socket = ConnectToLoopback(server.Port());
  EXPECT_EQ(ReadError(socket), ECONNRESET);
}

TEST(Connection, HalfCloseLeavesTheOtherDirection) {
  Gate isRead;
  ScriptedServer server([&](Connection& peer) {
    peer.HalfClose();
    EXPECT_EQ(peer.ReadLine(), "still here");
    EXPECT_FALSE(peer.Send("x"));
    isRead.Open();
  });
  RawClient client(server);
  EXPECT_EQ(client.ReadSome(), "");
  EXPECT_TRUE(client.Send("still here\n"));
  EXPECT_TRUE(isRead.Wait());
}

TEST(Connection, IsUnusableAfterClose) {
  ScriptedServer server([](Connection& peer) {
    peer.Close();
    EXPECT_FALSE(peer.IsOpen());
    EXPECT_FALSE(peer.Send("x"));
    EXPECT_EQ(peer.ReadSome(), "");
    EXPECT_EQ(peer.ReadRequest(), std::nullopt);
    EXPECT_TRUE(peer.WaitUntilPeerCloses());
    peer.Close();
    peer.Reset();
    peer.HalfClose();
  });
  EXPECT_EQ(RawClient(server).ReadAll(), "");
}

TEST(Connection, WaitsUntilThePeerCloses) {
  Gate isWaiting, hasClosed;
  ScriptedServer server([&](Connection& peer) {
    EXPECT_FALSE(peer.WaitUntilPeerCloses(After(milliseconds(1))));
    isWaiting.Open();
    if (peer.WaitUntilPeerCloses()) hasClosed.Open();
  });
  {
    RawClient client(server);
    client.Send("thrown away");
    ASSERT_TRUE(isWaiting.Wait());
    EXPECT_FALSE(hasClosed.IsOpen());
  }
  EXPECT_TRUE(hasClosed.Wait());
}

TEST(Connection, WaitUntilThePeerClosesKeepsItsDeadlineWhileThePeerSends) {
  ScriptedServer server([&](Connection& peer) { EXPECT_FALSE(peer.WaitUntilPeerCloses(After(kSlice))); });
  RawClient client(server);
  while (client.Send(MakePattern(65536))) {
  }
}

TEST(Connection, NoticesAPeerThatResets) {
  Gate hasClosed;
  ScriptedServer server([&](Connection& peer) {
    if (peer.WaitUntilPeerCloses()) hasClosed.Open();
  });
  RawClient(server).Reset();
  EXPECT_TRUE(hasClosed.Wait());
}

// The default disposition of SIGPIPE would end the test.
TEST(Connection, SendingToAPeerThatIsGoneFailsWithoutSigpipe) {
  Gate isGone, hasFailed;
  ScriptedServer server([&](Connection& peer) {
    EXPECT_TRUE(peer.WaitFor(isGone));
    while (peer.Send(MakePattern(100000))) {
    }
    hasFailed.Open();
  });
  RawClient(server).Reset();
  isGone.Open();
  EXPECT_TRUE(hasFailed.Wait());
}

TEST(Connection, WaitForAGateKeepsItsDeadline) {
  Gate never;
  ScriptedServer server([&](Connection& peer) {
    EXPECT_FALSE(peer.WaitFor(never, After(milliseconds(1))));
    peer.Send("done");
  });
  EXPECT_EQ(RawClient(server).ReadAll(), "done");
}

// --- stopping

struct BlockingCase {
  const char* name;
  std::function<void(Connection&)> block;
};

std::vector<BlockingCase> MakeBlockingCases() {
  static const Gate never;
  return {
      {"ReadRequest", [](Connection& peer) { EXPECT_EQ(peer.ReadRequest(), std::nullopt); }},
      {"ReadSome", [](Connection& peer) { EXPECT_EQ(peer.ReadSome(), ""); }},
      {"Send",
       [](Connection& peer) {
         while (peer.Send(MakePattern(100000))) {
         }
       }},
      {"WaitFor", [](Connection& peer) { EXPECT_FALSE(peer.WaitFor(never, Deadline::max())); }},
      {"WaitUntilPeerCloses", [](Connection& peer) { EXPECT_FALSE(peer.WaitUntilPeerCloses(Deadline::max())); }},
      {"WaitUntilStopped", [](Connection& peer) { peer.WaitUntilStopped(); }},
      {"AcceptFrom",
       [](Connection& peer) {
         const FileDescriptor listener = ListenOnLoopback(1);
         EXPECT_EQ(peer.AcceptFrom(listener), nullptr);
       }},
  };
}

TEST(ScriptedServer, StopEndsEveryBlockingCall) {
  for (const BlockingCase& c : MakeBlockingCases()) {
    SCOPED_TRACE(c.name);
    Gate isRunning;
    std::atomic<bool> hasReturned{false};
    ScriptedServer server([&](Connection& peer) {
      isRunning.Open();
      c.block(peer);
      EXPECT_TRUE(peer.IsStopping());
      hasReturned = true;
    });
    const RawClient client(server);
    ASSERT_TRUE(isRunning.Wait());
    server.Stop();
    EXPECT_TRUE(hasReturned);
  }
}

TEST(ScriptedServer, StopEndsATlsHandshake) {
  const TempDir folder;
  ScriptedServer server([](Connection&) { ADD_FAILURE() << "no handshake took place"; }, MakePki(folder.Path()).server);
  const RawClient silent(server);
  ASSERT_TRUE(server.WaitForConnections(1));
  server.Stop();
  EXPECT_EQ(server.TlsFailures(), std::vector<std::string>{"the server was stopped"});
}

TEST(ScriptedServer, RefusesConnectionsOnceStopped) {
  ScriptedServer server(KeepAlive(Status(200)));
  server.Stop();
  server.Stop();
  EXPECT_THROW(ConnectToLoopback(server.Port()), std::system_error);
}

TEST(ScriptedServer, ServesManyConnectionsOnSeveralThreads) {
  ScriptedServer server(KeepAlive(Content("content")));
  std::vector<std::thread> clients;
  for (int i = 0; i < 4; ++i) {
    clients.emplace_back([&] {
      for (int k = 0; k < 50; ++k) EXPECT_EQ(Fetch(server.Url()).body, "content");
    });
  }
  for (std::thread& client : clients) client.join();
  EXPECT_EQ(server.AcceptedConnections(), 200u);
  EXPECT_EQ(server.Requests().size(), 200u);
}

TEST(ScriptedServer, ExceptionOfAHandlerFailsTheTest) {
  const auto serve = [] {
    ScriptedServer server([](Connection&) { throw std::runtime_error("on purpose"); });
    RawClient(server).ReadAll();
  };
  EXPECT_NONFATAL_FAILURE_ON_ALL_THREADS(serve(), "on purpose");
}

// --- responders

struct RangeCase {
  const char* header;
  long status;
  const char* body;
  const char* contentRange;  // null: none
};
constexpr RangeCase kRangeCases[] = {
    {"bytes=0-", 206, "0123456789", "bytes 0-9/10"},  {"bytes=3-", 206, "3456789", "bytes 3-9/10"},
    {"bytes=3-5", 206, "345", "bytes 3-5/10"},        {"bytes=9-9", 206, "9", "bytes 9-9/10"},
    {"bytes=3-99", 206, "3456789", "bytes 3-9/10"},   {"bytes=-4", 206, "6789", "bytes 6-9/10"},
    {"bytes=-99", 206, "0123456789", "bytes 0-9/10"}, {"bytes=10-", 416, "", "bytes */10"},
    {"bytes=99999999999-", 416, "", "bytes */10"},    {"bytes=-0", 416, "", "bytes */10"},
    {"bytes=5-3", 200, "0123456789", nullptr},        {"bytes=1-2,4-5", 200, "0123456789", nullptr},
    {"bytes=", 200, "0123456789", nullptr},           {"bytes=-", 200, "0123456789", nullptr},
    {"bytes=a-b", 200, "0123456789", nullptr},        {"lines=1-2", 200, "0123456789", nullptr},
};

TEST(Content, ServesRanges) {
  ScriptedServer server(KeepAlive(Content("0123456789")));
  for (const RangeCase& c : kRangeCases) {
    const Fetched fetched = Fetch(server.Url(), WithHeader(std::string("Range: ") + c.header));
    EXPECT_EQ(fetched.status, c.status) << c.header;
    EXPECT_EQ(fetched.body, c.body) << c.header;
    const std::string line = std::string("Content-Range: ") + (c.contentRange != nullptr ? c.contentRange : "");
    EXPECT_EQ(fetched.head.find(line + (c.contentRange != nullptr ? "\r\n" : "")) != std::string::npos,
              c.contentRange != nullptr)
        << c.header << "\n"
        << fetched.head;
  }
}

TEST(Content, IgnoresOrRefusesRangesWhenTold) {
  ScriptedServer ignoring(KeepAlive(Content("0123456789", {.ranges = ContentOptions::Ranges::kIgnored})));
  const Fetched ignored = Fetch(ignoring.Url(), WithHeader("Range: bytes=3-5"));
  EXPECT_EQ(ignored.status, 200);
  EXPECT_EQ(ignored.body, "0123456789");

  ScriptedServer refusing(KeepAlive(Content("0123456789", {.ranges = ContentOptions::Ranges::kRefused})));
  EXPECT_EQ(Fetch(refusing.Url(), WithHeader("Range: bytes=3-5")).status, 416);
  EXPECT_EQ(Fetch(refusing.Url()).body, "0123456789");
}

TEST(Content, ArrivesWholeInEveryFramingAndSize) {
  using Framing = ContentOptions::Framing;
  for (const Framing framing : {Framing::kContentLength, Framing::kChunked, Framing::kUntilClose}) {
    for (const std::size_t size : {0u, 1u, 99u, 100u, 101u, 300000u}) {
      const std::string content = MakePattern(size);
      ScriptedServer server(KeepAlive(Content(content, {.framing = framing, .chunkSize = 100})));
      const Fetched fetched = Fetch(server.Url());
      EXPECT_EQ(fetched.code, CURLE_OK);
      EXPECT_TRUE(fetched.body == content) << "framing " << static_cast<int>(framing) << ", size " << size;
    }
  }
}

TEST(Content, AnswersHeadWithoutBody) {
  ScriptedServer server(KeepAlive(Content("0123456789", {.headers = {{"X-Extra", "yes"}}})));
  RawClient client(server);
  client.Send("HEAD / HTTP/1.1\r\nConnection: close\r\n\r\n");
  EXPECT_EQ(client.ReadAll(), "HTTP/1.1 200 OK\r\nX-Extra: yes\r\nContent-Length: 10\r\n\r\n");
}

TEST(Content, BreaksOffAsTold) {
  using Options = ContentOptions;
  for (const Options::Framing framing : {Options::Framing::kContentLength, Options::Framing::kChunked}) {
    ScriptedServer closing(KeepAlive(Content("0123456789", {.framing = framing, .stopAfter = 4})));
    const Fetched closed = Fetch(closing.Url());
    EXPECT_EQ(closed.code, CURLE_PARTIAL_FILE);
    EXPECT_EQ(closed.body, "0123");
  }
  ScriptedServer resetting(KeepAlive(Content("0123456789", {.stopAfter = 0, .ending = Options::Ending::kReset})));
  EXPECT_EQ(Fetch(resetting.Url()).code, CURLE_RECV_ERROR);
}

TEST(Content, StallsAsTold) {
  ScriptedServer server(KeepAlive(Content("0123456789", {.stopAfter = 4, .ending = ContentOptions::Ending::kStall})));
  RawClient client(server);
  client.Send("GET / HTTP/1.1\r\n\r\n");
  while (client.ReadLine() != "") {
  }
  EXPECT_EQ(client.ReadExactly(4), "0123");
  EXPECT_FALSE(client.WaitUntilPeerCloses(After(kSlice)));
  server.Stop();
  EXPECT_EQ(client.ReadAll(), "");
}

TEST(Content, IsNotBrokenOffBeyondItsEnd) {
  ScriptedServer server(KeepAlive(Content("0123456789", {.stopAfter = 10})));
  EXPECT_EQ(Fetch(server.Url()).code, CURLE_OK);
}

TEST(KeepAlive, AnswersSeveralRequestsOnOneConnection) {
  ScriptedServer server(KeepAlive(Content("x")));
  RawClient client(server);
  client.Send("GET /1 HTTP/1.1\r\n\r\nGET /2 HTTP/1.1\r\n\r\nGET /3 HTTP/1.1\r\nconnection: Close\r\n\r\n");
  const std::string answer = "HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\nx";
  EXPECT_EQ(client.ReadAll(), answer + answer + answer);
  EXPECT_EQ(server.AcceptedConnections(), 1u);
  EXPECT_EQ(server.Requests().at(2).target, "/3");
}

TEST(KeepAlive, EndsForAnOldClientThatDoesNotAskForIt) {
  ScriptedServer server(KeepAlive(Content("x")));
  RawClient client(server);
  client.Send("GET /1 HTTP/1.0\r\nConnection: keep-alive\r\n\r\nGET /2 HTTP/1.0\r\n\r\n");
  client.ReadAll();
  EXPECT_EQ(server.Requests().size(), 2u);
}

TEST(Status, HasItsReasonHeadersAndBody) {
  ScriptedServer server(KeepAlive(Status(503, "later", {{"Retry-After", "5"}})));
  const Fetched fetched = Fetch(server.Url());
  EXPECT_EQ(fetched.head, "HTTP/1.1 503 Service Unavailable\r\nRetry-After: 5\r\nContent-Length: 5\r\n\r\n");
  EXPECT_EQ(fetched.body, "later");
}

TEST(Routes, ChooseByPathWithoutQuery) {
  ScriptedServer server(KeepAlive(Routes({{"/a", Content("A")}, {"/b", Redirect("/a")}})));
  EXPECT_EQ(Fetch(server.Url("/a?query")).body, "A");
  EXPECT_EQ(Fetch(server.Url("/c")).status, 404);
  const Fetched redirect = Fetch(server.Url("/b"));
  EXPECT_EQ(redirect.status, 302);
  EXPECT_NE(redirect.head.find("Location: /a\r\n"), std::string::npos);
}

TEST(HeadOfSize, HasExactlyThatSize) {
  for (const std::size_t size : {200u, 201u, 1000u, 1040u, 1041u, 1060u, 1061u, 1062u, 2000u, 50000u, 1000000u}) {
    ScriptedServer server(OncePerConnection(HeadOfSize(size, "body")));
    RawClient client(server);
    client.Send("GET / HTTP/1.1\r\n\r\n");
    const std::string answer = client.ReadAll();
    EXPECT_EQ(answer.find("\r\n\r\n") + 4, size);
    EXPECT_EQ(answer.substr(size), "body");
  }
}

TEST(HeadOfSize, IsAcceptedByAClient) {
  ScriptedServer server(OncePerConnection(HeadOfSize(90000, "body")));
  const Fetched fetched = Fetch(server.Url());
  EXPECT_EQ(fetched.code, CURLE_OK);
  EXPECT_EQ(fetched.head.size(), 90000u);
  EXPECT_EQ(fetched.body, "body");
}

// --- TLS

auto Trusting(const Pki& pki) {
  return [path = pki.caFile.string()](CURL* easy) { curl_easy_setopt(easy, CURLOPT_CAINFO, path.c_str()); };
}

TEST(ScriptedServerTls, ServesAClientThatTrustsTheAuthority) {
  const TempDir folder;
  const Pki pki = MakePki(folder.Path());
  const std::string content = MakePattern(1000000);
  ScriptedServer server(KeepAlive(Content(content)), pki.server);
  EXPECT_EQ(server.Url("/x"), "https://localhost:" + std::to_string(server.Port()) + "/x");
  for (const std::string& url : {server.Url("/x"), server.UrlFor("127.0.0.1", "/x")}) {
    const Fetched fetched = Fetch(url, Trusting(pki));
    EXPECT_EQ(fetched.code, CURLE_OK) << url;
    EXPECT_TRUE(fetched.body == content) << url;
  }
  EXPECT_TRUE(server.TlsFailures().empty());
}

TEST(ScriptedServerTls, RecordsAClientThatDoesNotTrustTheCertificate) {
  const TempDir folder;
  ScriptedServer server(KeepAlive(Content("x")), MakePki(folder.Path()).selfSigned);
  EXPECT_EQ(Fetch(server.Url()).code, CURLE_PEER_FAILED_VERIFICATION);
  server.Stop();
  ASSERT_EQ(server.TlsFailures().size(), 1u);
  EXPECT_TRUE(server.Requests().empty());
}

TEST(ScriptedServerTls, CloseEndsTheStreamOrderlyAndCutOffDoesNot) {
  const TempDir folder;
  const Pki pki = MakePki(folder.Path());
  for (const bool isCutOff : {false, true}) {
    const auto serve = [&](Connection& peer) {
      EXPECT_EQ(peer.ReadLine(), "request");
      peer.Send("answer");
      isCutOff ? peer.CutOff() : peer.Close();
    };
    ScriptedServer server(serve, pki.server);
    // Not libcurl, which may take either end for a good one.
    ProgramOptions options;
    options.input = "request\n";
    const ProgramResult result = RunProgram(
        {"openssl", "s_client", "-quiet", "-connect", "127.0.0.1:" + std::to_string(server.Port())}, options);
    EXPECT_EQ(result.out, "answer") << result.Describe();
    EXPECT_EQ(result.err.find("unexpected eof") != std::string::npos, isCutOff) << result.Describe();
  }
}

// Writes until a write fails. The default disposition of SIGPIPE would end the test.
TEST(ScriptedServerTls, SendingToAPeerThatIsGoneFailsWithoutSigpipe) {
  const TempDir folder;
  const Pki pki = MakePki(folder.Path());
  Gate hasFailed;
  const auto serve = [&](Connection& peer) {
    peer.ReadRequest();
    peer.Send("HTTP/1.1 200 OK\r\n\r\n");
    while (peer.Send(MakePattern(100000))) {
    }
    hasFailed.Open();
  };
  ScriptedServer server(serve, pki.server);
  const Fetched fetched = Fetch(server.Url(), [&](CURL* easy) {
    Trusting(pki)(easy);
    curl_easy_setopt(easy, CURLOPT_MAXFILESIZE, 1L);
    curl_easy_setopt(
        easy, CURLOPT_WRITEFUNCTION, +[](char*, std::size_t, std::size_t, void*) { return std::size_t{0}; });
  });
  EXPECT_EQ(fetched.code, CURLE_WRITE_ERROR);
  EXPECT_TRUE(hasFailed.Wait());
}

TEST(ScriptedServerTls, RefusesACertificateThatIsNone) {
  const TempDir folder;
  WriteFile(folder / "x.pem", "no certificate");
  EXPECT_THROW(ScriptedServer(KeepAlive(Status(200)), {folder / "x.pem", folder / "x.pem"}), std::runtime_error);
}

// What is reset only then takes nothing from the client that was sent before.
TEST(ScriptedServer, KnowsWhenTheClientHasReadAll) {
  Gate hasLooked;
  Gate isRead;
  ScriptedServer server([&](Connection& peer) {
    peer.Send("12345");
    EXPECT_FALSE(peer.WaitUntilPeerHasRead(After(kSlice)));
    hasLooked.Open();
    EXPECT_TRUE(peer.WaitUntilPeerHasRead());
    isRead.Open();
  });
  RawClient client(server);
  ASSERT_TRUE(hasLooked.Wait());
  EXPECT_EQ(client.ReadExactly(5), "12345");
  EXPECT_TRUE(isRead.Wait());
}

// --- StalledListener

bool IsConnected(const FileDescriptor& socket) {
  pollfd event{socket.Get(), POLLOUT, 0};
  return poll(&event, 1, static_cast<int>(kSlice.count())) > 0;
}

TEST(StalledListener, LeavesClientsHanging) {
  const StalledListener listener;
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(IsConnected(StartConnectingToLoopback(listener.Port())));
}

TEST(StalledListener, LetsAClientTimeOutWhileConnecting) {
  const StalledListener listener;
  const Fetched fetched = Fetch(listener.Url(), [](CURL* easy) {
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(kSlice.count()));
  });
  EXPECT_EQ(fetched.code, CURLE_OPERATION_TIMEDOUT);
}

TEST(PortReservation, KeepsThePortFreeForAServerThatReusesAddresses) {
  const PortReservation first, second;
  EXPECT_NE(first.Port(), second.Port());
  EXPECT_THROW(ConnectToLoopback(first.Port()), std::system_error);
}

}  // namespace
}  // namespace CorvaneTest
