#include <gmock/gmock.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/HttpResponders.h"
#include "tests/support/Pki.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"

// What the posts put on the wire.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

using Fields = ZMap<ZString, ZString, ZLtstr>;

// Answers one request per connection and collects whatever the client sends beyond it.
class OneRequestServer {
 public:
  explicit OneRequestServer(Body body = Body::kRead) : m_body(body) {}

  ZString Url() const { return Wide(m_server.Url("/form?x=1")); }

  // Everything that came, once the client has closed its connections. The caller asks after the operation has returned; the
  // answer says "Connection: close", so the client has closed by itself.
  std::vector<Request> Requests() {
    EXPECT_TRUE(WaitUntil([&] { return m_ended.load() == m_server.AcceptedConnections(); }));
    return m_server.Requests();
  }

  std::string Surplus() const {
    const std::lock_guard lock(m_mutex);
    return m_surplus;
  }

 private:
  void Serve(Connection& peer) {
    if (const std::optional<Request> request = peer.ReadRequest(m_body)) {
      Status(200, "answer", {{"Connection", "close"}})(peer, *request);
      peer.HalfClose();
      for (std::string bytes; !(bytes = peer.ReadSome()).empty();) {
        const std::lock_guard lock(m_mutex);
        m_surplus += bytes;
      }
    }
    ++m_ended;
  }

  const Body m_body;
  mutable std::mutex m_mutex;
  std::string m_surplus;  // guarded by m_mutex
  std::atomic<std::size_t> m_ended{0};
  ScriptedServer m_server{[this](Connection& peer) { Serve(peer); }};
};

std::vector<std::string> HeaderLines(const Request& request) {
  std::vector<std::string> lines;
  for (const HeaderField& field : request.headers) lines.push_back(field.name + ": " + field.value);
  return lines;
}

struct PostCase {
  std::string name;
  std::function<ZResult(ZTransfer&, const ZString& url)> post;
  std::string body;
};

void ExpectOnTheWire(const PostCase& c) {
  SCOPED_TRACE(c.name);
  OneRequestServer server;
  ZTransfer transfer;
  EXPECT_THAT(c.post(transfer, server.Url()), IsCode(TRANSFER_S_FINISHED)) << ErrorOf(transfer);
  EXPECT_EQ(ErrorOf(transfer), "Transfer has finished successfully");
  const std::vector<Request> requests = server.Requests();
  ASSERT_EQ(requests.size(), 1u);
  const Request& request = requests[0];
  EXPECT_EQ(request.raw.substr(0, request.raw.find('\n') + 1), "POST /form?x=1 HTTP/1.1\r\n");
  EXPECT_THAT(HeaderLines(request), UnorderedElementsAre("Host: " + request.Header("Host").value_or(""), "Accept: */*",
                                                         "Content-Length: " + std::to_string(c.body.size()),
                                                         "Content-Type: application/x-www-form-urlencoded"));
  EXPECT_TRUE(request.isBodyComplete);
  EXPECT_TRUE(request.body == c.body) << request.body.size() << " bytes: " << testing::PrintToString(request.body);
  EXPECT_THAT(server.Surplus(), IsEmpty());
}

PostCase Field(std::string name, const ZString& field, const ZString& value, std::string body) {
  return {std::move(name), [=](ZTransfer& t, const ZString& url) { return t.Post(url, field, value); },
          std::move(body)};
}

PostCase Map(std::string name, const Fields& fields, std::string body) {
  return {std::move(name), [=](ZTransfer& t, const ZString& url) { return t.Post(url, fields); }, std::move(body)};
}

PostCase DataOf(std::string name, const std::wstring& text, std::string body) {
  return {std::move(name), [=](ZTransfer& t, const ZString& url) { return t.PostData(url, ZString(text)); },
          std::move(body)};
}

// --- fields

TEST(ZTransferPostFields, AreSentAsTheyStand) {
  const PostCase cases[] = {
      Field("one field", L"a", L"1", "a=1"),
      Field("separators", L"a&b=c", L"1&2=3", "a&b=c=1&2=3"),
      Field("blank", L"a name", L"two words", "a name=two words"),
      Field("percent", L"%41", L"100%2", "%41=100%2"),
      Field("plus and line ends", L"+", L"\r\n\t", "+=\r\n\t"),
      Field("non-ASCII", L"caf\u00E9", L"\u20AC\U0001F600", "caf\xC3\xA9=\xE2\x82\xAC\xF0\x9F\x98\x80"),
      Field("no value", L"a", L"", "a="),
      Field("no name", L"", L"1", "=1"),
      Field("neither", L"", L"", "="),
  };
  for (const PostCase& c : cases) ExpectOnTheWire(c);
}

TEST(ZTransferPostFields, AreJoinedInTheOrderOfTheirNames) {
  const PostCase cases[] = {
      Map("two", {{L"b", L"2"}, {L"a", L"1"}}, "a=1&b=2"),
      Map("by character number",
          {{L"b", L"1"}, {L"B", L"2"}, {L"\u00E9", L"3"}, {L"a", L"4"}, {L"1", L"5"}, {L"", L""}},
          "=&1=5&B=2&a=4&b=1&\xC3\xA9=3"),
      Map("a beginning before the whole", {{L"aa", L"1"}, {L"a", L"2"}, {L"ab", L"3"}}, "a=2&aa=1&ab=3"),
      Map("beyond the first plane", {{L"\U0001F600", L"2"}, {L"\uFFFD", L"1"}}, "\xEF\xBF\xBD=1&\xF0\x9F\x98\x80=2"),
      Map("empty values", {{L"a", L""}, {L"b", L""}}, "a=&b="),
      Map("one", {{L"a", L"1&b=2"}}, "a=1&b=2"),
  };
  for (const PostCase& c : cases) ExpectOnTheWire(c);
}

TEST(ZTransferPostFields, OfAnEmptyMapAreAPostWithAnEmptyBody) { ExpectOnTheWire(Map("none", {}, "")); }

// A name with a zero character ends the body like any data; the fields that follow are lost with it.
TEST(ZTransferPostFields, EndAtAZeroCharacter) {
  ExpectOnTheWire(Map("zero", {{L"a", ZString(std::wstring(L"1\0002", 3))}, {L"b", L"2"}}, "a=1"));
}

TEST(ZTransferPostFields, AreTheSameWithAndWithoutAResult) {
  ZString answer;
  const PostCase cases[] = {
      {"one field", [&](ZTransfer& t, const ZString& url) { return t.Post(url, L"a b", L"&", answer); }, "a b=&"},
      {"map",
       [&](ZTransfer& t, const ZString& url) {
         return t.Post(url, Fields{{L"b", L"2"}, {L"a", L"1"}}, answer);
       },
       "a=1&b=2"},
      {"empty map", [&](ZTransfer& t, const ZString& url) { return t.Post(url, Fields(), answer); }, ""},
      {"data", [&](ZTransfer& t, const ZString& url) { return t.PostData(url, L"data", answer); }, "data"},
  };
  for (const PostCase& c : cases) {
    answer = L"before";
    ExpectOnTheWire(c);
    EXPECT_EQ(Narrow(answer), "answer") << c.name;
  }
}

// --- data

TEST(ZTransferPostData, IsSentAsUtf8UpToItsFirstZeroCharacter) {
  const PostCase cases[] = {
      DataOf("plain", L"some data", "some data"),
      DataOf("empty", L"", ""),
      DataOf("non-ASCII", L"\u00E4\u20AC\U0001F600", "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"),
      DataOf("zero inside", std::wstring(L"ab\000cd", 5), "ab"),
      DataOf("zero first", std::wstring(L"\000cd", 3), ""),
      DataOf("structured", L"{\"a\": [1, 2]}\r\n", "{\"a\": [1, 2]}\r\n"),
      DataOf("just below a megabyte", std::wstring(1000000, L'x'), std::string(1000000, 'x')),
  };
  for (const PostCase& c : cases) ExpectOnTheWire(c);
}

TEST(ZTransferPostData, DoesNotNeedTheStringsAfterwards) {
  OneRequestServer server;
  ZTransfer transfer;
  {
    const auto data = std::make_unique<ZString>(std::wstring(50000, L'x'));
    const auto url = std::make_unique<ZString>(server.Url());
    EXPECT_THAT(transfer.PostData(*url, *data), IsCode(TRANSFER_S_FINISHED));
  }
  EXPECT_THAT(transfer.PostData(server.Url(), L"y"), IsCode(TRANSFER_S_FINISHED));
  const std::vector<Request> requests = server.Requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].bodySize, 50000u);
  EXPECT_EQ(requests[1].body, "y");
}

// --- files

class ZTransferPostFileWire : public testing::Test {
 protected:
  // The posted file's name.
  ZString Write(const std::string& bytes) {
    WriteFile(m_folder / "input", bytes);
    return WidePath(m_folder / "input");
  }

  PostCase FileOf(std::string name, std::string bytes) {
    const ZString input = Write(bytes);
    return {std::move(name), [=](ZTransfer& t, const ZString& url) { return t.PostFile(url, input); },
            std::move(bytes)};
  }

  TempDir m_folder;
};

TEST_F(ZTransferPostFileWire, CarriesTheBytesOfTheFile) {
  ExpectOnTheWire(FileOf("text", "some text\n"));
  ExpectOnTheWire(FileOf("empty", ""));
  ExpectOnTheWire(FileOf("zero byte", std::string("a\0b", 3)));
  ExpectOnTheWire(FileOf("line ends", "\r\n\n\r\x1A"));
  for (const std::size_t size : {1u, 16383u, 16384u, 16385u, 65536u, 1000000u}) {
    ExpectOnTheWire(FileOf("pattern of " + std::to_string(size), MakePattern(size)));
  }
}

TEST_F(ZTransferPostFileWire, CarriesAFileWithANonAsciiName) {
  const std::filesystem::path input = m_folder /
                                      "Gr\xC3\xBC\xC3\x9F"
                                      "e \xE2\x82\xAC";
  WriteFile(input, "posted");
  ExpectOnTheWire(
      {"name", [&](ZTransfer& t, const ZString& url) { return t.PostFile(url, WidePath(input)); }, "posted"});
}

// libcurl asks before it sends more than a megabyte.
TEST_F(ZTransferPostFileWire, WaitsForTheServersConsentToALargeFile) {
  const std::string bytes = MakePattern(2500000);
  ScriptedServer server(KeepAlive(Status(200, "stored")));
  ZTransfer transfer;
  EXPECT_THAT(transfer.PostFile(Wide(server.Url()), Write(bytes)), IsCode(TRANSFER_S_FINISHED));
  ASSERT_EQ(server.Requests().size(), 1u);
  const Request request = server.Requests()[0];
  EXPECT_EQ(request.Header("Expect"), "100-continue");
  EXPECT_EQ(request.Header("Content-Length"), "2500000");
  EXPECT_TRUE(request.body == bytes);
  EXPECT_THAT(HeaderOf(transfer), testing::StartsWith("HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\n"));
}

// A server that knows nothing of that question does not answer it; libcurl goes on after a second.
TEST_F(ZTransferPostFileWire, IsSentAlsoToAServerThatGivesNoConsent) {
  const std::string bytes = MakePattern(2500000);
  std::string received;
  ScriptedServer server([&](Connection& peer) {
    const std::optional<Request> request = peer.ReadRequest(Body::kLeave);
    if (!request) return;
    received = peer.ReadExactly(bytes.size());
    Status(200, "stored")(peer, *request);
    peer.WaitUntilPeerCloses();
  });
  {
    ZTransfer transfer;
    EXPECT_THAT(transfer.PostFile(Wide(server.Url()), Write(bytes)), IsCode(TRANSFER_S_FINISHED));
    EXPECT_THAT(HeaderOf(transfer), testing::StartsWith("HTTP/1.1 200 OK\r\n"));
  }
  server.Stop();
  EXPECT_TRUE(received == bytes) << received.size();
  ASSERT_EQ(server.Requests().size(), 1u);
  EXPECT_EQ(server.Requests()[0].Header("Expect"), "100-continue");
}

// --- requests that libcurl has to send a second time: the body must come from its beginning again

TEST_F(ZTransferPostFileWire, IsSentAgainWhenAKeptConnectionTurnsOutToBeDead) {
  const std::string bytes = MakePattern(300000);
  ScriptedServer server([](Connection& peer) {
    while (const std::optional<Request> request = peer.ReadRequest()) {
      if (peer.Number() == 0 && request->body != "first") return peer.Close();  // without a word
      Status(200, "stored")(peer, *request);
    }
  });
  ZTransfer transfer;
  EXPECT_THAT(transfer.PostData(Wide(server.Url()), L"first"), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(transfer.PostFile(Wide(server.Url()), Write(bytes)), IsCode(TRANSFER_S_FINISHED)) << ErrorOf(transfer);
  EXPECT_EQ(ErrorOf(transfer), "Transfer has finished successfully");
  EXPECT_EQ(CauseTextOf(transfer), "");
  const std::vector<Request> requests = server.Requests();
  ASSERT_EQ(requests.size(), 3u);
  EXPECT_TRUE(requests[1].body == bytes);
  EXPECT_TRUE(requests[2].body == bytes);
  EXPECT_EQ(requests[2].connection, 1u);
}

TEST_F(ZTransferPostFileWire, IsSentAgainWithTheCredentialsThatTheServerAsksFor) {
  const std::string bytes = MakePattern(300000);
  const Pki pki = MakePki(m_folder.Path());
  ScriptedServer server(KeepAlive([](Connection& peer, const Request& request) {
                          if (request.Header("Authorization")) return Status(200, "stored")(peer, request);
                          Status(401, "who?", {{"WWW-Authenticate", "Basic realm=\"x\""}})(peer, request);
                        }),
                        pki.server);
  ZTransfer transfer;
  ASSERT_THAT(transfer.SetCredentials(L"user", L"secret"), IsCode(BASE_S_OK));
  const std::filesystem::path answer = m_folder / "answer";
  EXPECT_THAT(transfer.PostFile(Wide(server.Url()), Write(bytes), WidePath(answer)), IsCode(TRANSFER_S_FINISHED));
  const std::vector<Request> requests = server.Requests();
  ASSERT_GE(requests.size(), 2u);
  EXPECT_EQ(requests.back().Header("Authorization"), "Basic dXNlcjpzZWNyZXQ=");
  EXPECT_TRUE(requests.back().body == bytes) << requests.back().bodySize;
  EXPECT_TRUE(FileHolds(answer, "stored")) << "without the first answer's page";
}

}  // namespace
}  // namespace CorvaneTest
