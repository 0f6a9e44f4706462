#include <gmock/gmock.h>

#include <filesystem>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/loopback/AdditionsTesting.h"
#include "tests/support/Pki.h"
#include "tests/support/ScriptedFtpServer.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"

// What a trace is told of real requests, and what it is never told.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class ATracedTransfer : public testing::Test {
 protected:
  ATracedTransfer() { Set({}); }

  void Set(ZTransferOptions options) {
    options.trace = &trace;
    options.mostRedirects = 5;
    EXPECT_THAT(transfer.SetOptions(options), IsCode(BASE_S_OK));
  }

  ZResult Get(const std::string& url) { return transfer.Download(Wide(url), result); }

  // No line holds the secret, nor what Basic makes of it.
  void ExpectHidden(const std::vector<std::string>& secrets) const {
    for (const std::string& secret : secrets) EXPECT_THAT(trace.lines, Not(Contains(HasSubstr(secret)))) << secret;
  }

  static std::string WithLogin(const std::string& url, const std::string& login) {
    const std::size_t host = url.find("://") + 3;
    return url.substr(0, host) + login + "@" + url.substr(host);
  }

  TempDir folder;
  RecordingTrace trace;
  ZTransfer transfer;
  ZString result;
};

TEST_F(ATracedTransfer, TellsOfConnectionRequestAndAnswerButNotOfBodies) {
  ScriptedServer server(KeepAlive(Content("the body", {.headers = {{"X-Server", "yes"}}})));
  EXPECT_THAT(transfer.PostData(Wide(server.Url("/a")), L"the post", result), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(Narrow(result), "the body");
  EXPECT_THAT(trace.lines, Contains(AllOf(StartsWith("* "), HasSubstr("127.0.0.1"))));
  EXPECT_THAT(trace.lines, Contains("> POST /a HTTP/1.1"));
  EXPECT_THAT(trace.lines, Contains("> Host: 127.0.0.1:" + std::to_string(server.Port())));
  EXPECT_THAT(trace.lines, Contains("> "));
  EXPECT_THAT(trace.lines, Contains("< HTTP/1.1 200 OK"));
  EXPECT_THAT(trace.lines, Contains("< X-Server: yes"));
  EXPECT_THAT(trace.lines, Contains("< "));
  ExpectHidden({"the body", "the post", "\r", "\n"});
}

TEST_F(ATracedTransfer, TellsTheSameGettersAndResultAsWithout) {
  ScriptedServer server(KeepAlive(Content("content")));
  EXPECT_THAT(Get(server.Url()), IsCode(TRANSFER_S_FINISHED));
  const std::string header = HeaderOf(transfer);
  EXPECT_EQ(transfer.SetOptions(ZTransferOptions()), 0u);
  EXPECT_THAT(Get(server.Url()), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(HeaderOf(transfer), header);
  EXPECT_EQ(Narrow(result), "content");
}

TEST_F(ATracedTransfer, TellsOfEachRequestWhenRedirected) {
  ScriptedServer second(KeepAlive(Content("content")));
  ScriptedServer first(KeepAlive(Redirect(WithLogin(second.Url("/b"), "ada:s3cret"))));
  EXPECT_THAT(Get(first.Url("/a")), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(trace.lines, Contains("> GET /a HTTP/1.1"));
  EXPECT_THAT(trace.lines, Contains("< HTTP/1.1 302 Found"));
  EXPECT_THAT(trace.lines, Contains("< Location: " + WithLogin(second.Url("/b"), "ada:***")));
  EXPECT_THAT(trace.lines, Contains("> GET /b HTTP/1.1"));
  EXPECT_THAT(trace.lines, Contains("< HTTP/1.1 200 OK"));
  ExpectHidden({"s3cret", "YWRhOnMzY3JldA"});
}

TEST_F(ATracedTransfer, TellsOfEachRequestOnAReusedConnection) {
  ScriptedServer server(KeepAlive(Content("content")));
  for (const char* path : {"/a", "/b", "/c"}) {
    trace.lines.clear();
    EXPECT_THAT(Get(server.Url(path)), IsCode(TRANSFER_S_FINISHED));
    EXPECT_THAT(trace.lines, Contains(std::string("> GET ") + path + " HTTP/1.1"));
    EXPECT_THAT(trace.lines, Contains("< HTTP/1.1 200 OK"));
  }
  EXPECT_EQ(server.AcceptedConnections(), 1u);
}

TEST_F(ATracedTransfer, ShowsNoSecretOfHttp) {
  ScriptedServer server(KeepAlive(
      Routes({{"/a", Redirect("/b", 307)},
              {"/b", Content("content", {.headers = {{"Set-Cookie", "id=cook1e"}, {"x-token", "echo3d"}}})}})));
  ZTransferOptions options;
  options.headers = {L"Cookie: id=bisc8it", L"X-Token: t0ken", L"Accept: acc3pt", L"Proxy-Authorization: pr0xy"};
  Set(options);
  EXPECT_THAT(Get(WithLogin(server.Url("/a"), "ada:s3cret")), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(server.Requests()[1].Header("X-Token"), "t0ken");
  for (const char* name : {"Authorization", "Cookie", "X-Token", "Accept", "Proxy-Authorization"}) {
    EXPECT_THAT(trace.lines, Contains(std::string("> ") + name + ": ***")) << name;
  }
  EXPECT_THAT(trace.lines, Contains("< Set-Cookie: ***"));
  EXPECT_THAT(trace.lines, Contains("< x-token: ***"));
  ExpectHidden({"s3cret", "YWRhOnMzY3JldA", "bisc8it", "t0ken", "acc3pt", "pr0xy", "cook1e", "echo3d"});
}

TEST_F(ATracedTransfer, ShowsTlsButNoSecretOfIt) {
  ScriptedServer server(KeepAlive(Content("content")), MakePki(folder.Path()).server);
  EXPECT_EQ(transfer.SetCredentials(L"ada", L"s3cret"), 0u);
  EXPECT_THAT(Get(server.Url("/a")), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(trace.lines, Contains(HasSubstr("TLSv1")));
  EXPECT_THAT(trace.lines, Contains("< HTTP/1.1 200 OK"));
  ExpectHidden({"s3cret", "YWRhOnMzY3JldA"});
}

TEST_F(ATracedTransfer, ShowsNoPasswordOfFtp) {
  ScriptedFtpServer server({{"/f", "content"}});
  server.SetLogin("ada", "s3cret");
  EXPECT_THAT(Get(WithLogin(server.Url("/f"), "ada:s3cret")), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(trace.lines, Contains("< 220 Ready"));
  EXPECT_THAT(trace.lines, Contains("> USER ada"));
  EXPECT_THAT(trace.lines, Contains("> PASS ***"));
  EXPECT_THAT(trace.lines, Contains("> RETR f"));
  EXPECT_THAT(trace.lines, Contains("< 226 Transfer complete."));
  ExpectHidden({"s3cret", "content"});
}

// libcurl sends at most 16 KiB over TLS at once, and hands over what it has sent.
TEST_F(ATracedTransfer, ShowsNoSecretOfARequestThatGoesOutInPieces) {
  ScriptedServer server(KeepAlive(Content("content")), MakePki(folder.Path()).server);
  std::string secret;
  while (secret.size() < 100000) secret += "s3cret";
  ZTransferOptions options;
  options.headers = {Wide("X-Token: " + secret), L"X-Last: yes"};
  Set(options);
  EXPECT_THAT(Get(server.Url("/a")), IsCode(TRANSFER_S_FINISHED));
  ASSERT_EQ(server.Requests().size(), 1u);
  EXPECT_EQ(server.Requests()[0].Header("X-Token"), secret);
  EXPECT_THAT(trace.lines, Contains("> X-Token: ***"));
  ExpectHidden({"s3cret"});
}

TEST_F(ATracedTransfer, TellsOfARequestThatFails) {
  ScriptedServer server(KeepAlive(Status(404, "page")));
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url("/a")), WidePath(folder / "f"), false), IsCode(TRANSFER_E_CONNECT));
  EXPECT_THAT(trace.lines, Contains("< HTTP/1.1 404 Not Found"));
  server.Stop();
  trace.lines.clear();
  EXPECT_THAT(Get(server.Url("/a")), IsCode(CurlFailure(kRefusedConnection)));
  EXPECT_THAT(trace.lines, Not(IsEmpty()));
}

// --- whom it tells

TEST_F(ATracedTransfer, TellsNobodyAfterItWasTakenBack) {
  ScriptedServer server(KeepAlive(Content("content")));
  auto gone = std::make_unique<RecordingTrace>();
  ZTransferOptions options;
  options.trace = gone.get();
  EXPECT_EQ(transfer.SetOptions(options), 0u);
  EXPECT_THAT(Get(server.Url()), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(gone->lines, Not(IsEmpty()));
  EXPECT_EQ(transfer.SetOptions(ZTransferOptions()), 0u);
  gone.reset();
  EXPECT_THAT(Get(server.Url()), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(trace.lines, IsEmpty());
}

// libcurl has something to say of connections that it closes with the handle, and of FTP servers that it takes its leave of.
TEST_F(ATracedTransfer, TellsNobodyOutsideOfOperations) {
  ScriptedServer http(KeepAlive(Content("content")));
  ScriptedFtpServer ftp({{"/f", "content"}});
  for (const std::string& url : {http.Url(), ftp.Url("/f")}) {
    auto gone = std::make_unique<RecordingTrace>();
    auto other = std::make_unique<ZTransfer>();
    ZTransferOptions options;
    options.trace = gone.get();
    EXPECT_EQ(other->SetOptions(options), 0u);
    EXPECT_THAT(other->Download(Wide(url), result), IsCode(TRANSFER_S_FINISHED));
    const std::size_t told = gone->lines.size();
    EXPECT_EQ(other->SetOptions(ZTransferOptions()), 0u);
    gone.reset();
    other.reset();
    EXPECT_GT(told, 0u);
  }
  ZTransfer last;
  ZTransferOptions options;
  options.trace = &trace;
  EXPECT_EQ(last.SetOptions(options), 0u);
  EXPECT_THAT(last.Download(Wide(ftp.Url("/f")), result), IsCode(TRANSFER_S_FINISHED));
  const std::size_t told = trace.lines.size();
  last.Reset();
  EXPECT_EQ(trace.lines.size(), told);
}

TEST_F(ATracedTransfer, CannotBeChangedWhileItTells) {
  ScriptedServer server(KeepAlive(Content("content")));
  ZResult set = 0, begun = 0;
  ZString url;
  trace.onLine = [&] {
    set = transfer.SetOptions(ZTransferOptions());
    begun = transfer.Download(L"http://127.0.0.1:1/", result);
    transfer.GetEffectiveUrl(url);
  };
  EXPECT_THAT(Get(server.Url("/a")), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(set, IsCode(BASE_E_BUSY));
  EXPECT_THAT(begun, IsCode(BASE_E_IN_USE));
  EXPECT_EQ(Narrow(url), server.Url("/a"));
}

// --- what its exceptions do

TEST_F(ATracedTransfer, PassesAnExceptionToTheCallerWhenAllIsDone) {
  ScriptedServer server(KeepAlive(Routes({{"/a", Content("content")}})));
  trace.onLine = [] { throw std::runtime_error("trace"); };
  EXPECT_THROW(Get(server.Url("/a")), std::runtime_error);
  EXPECT_EQ(trace.Take().size(), 1u) << "it is told nothing more";
  EXPECT_THAT(transfer.GetStatus(), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(Narrow(result), "content");
  EXPECT_TRUE(transfer.Wait(0));

  EXPECT_THROW(transfer.DownloadFile(Wide(server.Url("/a")), WidePath(folder / "f"), false), std::runtime_error);
  EXPECT_TRUE(FileHolds(folder / "f", "content"));
  EXPECT_THROW(transfer.DownloadFile(Wide(server.Url("/gone")), WidePath(folder / "g"), false), std::runtime_error);
  EXPECT_THAT(transfer.GetStatus(), IsCode(TRANSFER_E_CONNECT));
  EXPECT_FALSE(std::filesystem::exists(folder / "g")) << "the page of the refusal does not stay";

  trace.onLine = nullptr;
  trace.lines.clear();
  EXPECT_THAT(Get(server.Url("/a")), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(trace.lines, Contains("< HTTP/1.1 200 OK"));
}

TEST_F(ATracedTransfer, FailsWhenItsHostHasNoMemory) {
  ScriptedServer server(KeepAlive(Content("content")));
  trace.onLine = [] { throw std::bad_alloc(); };
  EXPECT_THAT(Get(server.Url("/a")), IsCode(TRANSFER_E_DOWNLOAD));
  trace.onLine = nullptr;
  EXPECT_THAT(Get(server.Url("/a")), IsCode(TRANSFER_S_FINISHED));
}

TEST_F(ATracedTransfer, LeavesTheExceptionOfASinkItsTurn) {
  ScriptedServer server(KeepAlive(Content("content")));
  trace.onLine = [] { throw std::logic_error("trace"); };
  CollectingSink sink;
  sink.thrown = true;
  EXPECT_THROW(transfer.Download(Wide(server.Url("/a")), sink), std::runtime_error);
  trace.onLine = nullptr;
  EXPECT_THAT(Get(server.Url("/a")), IsCode(TRANSFER_S_FINISHED));
}

TEST_F(ATracedTransfer, MayBeAbortedByItsHost) {
  ScriptedServer server(KeepAlive(Content("content")));
  trace.onLine = [&] { transfer.Abort(); };
  EXPECT_THAT(Get(server.Url("/a")), IsCode(TRANSFER_E_ABORTED));
}

}  // namespace
}  // namespace CorvaneTest
