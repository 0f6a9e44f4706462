#include <gmock/gmock.h>

#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/Pki.h"
#include "tests/tree/TreeTesting.h"

// What a host sets: what is refused, what is in force then, and what becomes of it on the way.
namespace CorvaneTest {
namespace {

using testing::Contains;
using testing::Each;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

constexpr const wchar_t kNoCharacter[] = {0xD800, 0};  // no encoding can express it

class TreeSettings : public testing::Test {
 protected:
  std::filesystem::path Target() const { return folder / "target"; }
  TreeResult Download() { return client.Download(server.Url("/"), Target()); }

  TreeSite site{{{"a", "1"}, {"b/c", "22"}}};
  ScriptedServer server{KeepAlive(site.Serve())};
  TreeClient client;
  TempDir folder;
};

struct RefusedOptions {
  const char* name;
  std::function<void(ZTreeOptions&)> change;
};

TEST_F(TreeSettings, WithAValueThatIsRefusedStayAsTheyWere) {
  const std::vector<RefusedOptions> refused = {
      {"no connection", [](ZTreeOptions& options) { options.mostConnections = 0; }},
      {"too many connections", [](ZTreeOptions& options) { options.mostConnections = 65; }},
      {"too deep", [](ZTreeOptions& options) { options.mostDepth = 65; }},
      {"too many repetitions", [](ZTreeOptions& options) { options.mostRetries = 101; }},
      {"too many redirects", [](ZTreeOptions& options) { options.mostRedirects = 51; }},
      {"no folder", [](ZTreeOptions& options) { options.mostFolders = 0; }},
      {"no entry", [](ZTreeOptions& options) { options.mostEntries = 0; }},
      {"no page", [](ZTreeOptions& options) { options.mostPageBytes = 0; }},
      {"an empty pattern",
       [](ZTreeOptions& options) {
         options.include = {L"x", L""};
       }},
      {"a pattern of slashes", [](ZTreeOptions& options) { options.exclude = {L"//"}; }},
      {"a pattern with a zero", [](ZTreeOptions& options) { options.exclude = {Corvane::ZString(L"a\0b", 3)}; }},
      {"a header without a name", [](ZTreeOptions& options) { options.headers = {L": x"}; }},
      {"a user agent of two lines", [](ZTreeOptions& options) { options.userAgent = L"a\r\nb"; }},
  };
  ZTreeOptions first;
  first.exclude = {L"b"};
  ASSERT_EQ(client.tree.SetOptions(first), 0U);
  for (const RefusedOptions& row : refused) {
    ZTreeOptions options;
    row.change(options);
    EXPECT_THAT(client.tree.SetOptions(options), IsCode(Corvane::ResultFromErrno(EINVAL))) << row.name;
  }
  EXPECT_THAT(client.tree.Download(Wide(server.Url("/")), WidePath(Target())), IsCode(Corvane::TRANSFER_S_FINISHED));
  EXPECT_TRUE(HoldsTree(Target(), {{"a", "1"}}));
}

TEST_F(TreeSettings, AtTheirLimitsAreTaken) {
  client.options.mostConnections = 64;
  client.options.mostDepth = 64;
  client.options.mostRetries = 100;
  client.options.mostRedirects = 50;
  EXPECT_THAT(Download().code, IsCode(Corvane::TRANSFER_S_FINISHED));
}

TEST_F(TreeSettings, ADirectoryWithoutANameIsRefused) {
  for (const wchar_t* const directory : {L"", kNoCharacter}) {
    EXPECT_THAT(client.tree.Download(Wide(server.Url("/")), directory), IsCode(Corvane::BASE_E_INVALID_NAME));
    EXPECT_EQ(Narrow(client.tree.GetError()), MessageOf(Corvane::BASE_E_INVALID_NAME));
  }
  EXPECT_THAT(server.Requests(), IsEmpty());
}

TEST_F(TreeSettings, WithoutATimeLimitARunEndsAllTheSame) {
  ASSERT_EQ(client.tree.SetTimeout(0), 0U);
  EXPECT_THAT(Download().code, IsCode(Corvane::TRANSFER_S_FINISHED));
}

TEST_F(TreeSettings, TheUserAgentIsTold) {
  client.options.userAgent = L"tester/1";
  ASSERT_THAT(Download().code, IsCode(Corvane::TRANSFER_S_FINISHED));
  ASSERT_THAT(server.Requests(), SizeIs(4));
  for (const Request& request : server.Requests()) EXPECT_EQ(request.Header("User-Agent"), "tester/1");
}

TEST_F(TreeSettings, AnObserverIsToldOnceAndNothingOnceItIsDetached) {
  struct Counter : ZTreeDownload::Observer {
    void Update(const ZTreeDownload::Item& /*item*/) override { ++items; }
    int items = 0;
  } counter;
  EXPECT_EQ(client.tree.Attach(&counter), 0U);
  EXPECT_EQ(client.tree.Attach(&counter), 0U);
  Download();
  EXPECT_EQ(counter.items, 2);
  EXPECT_EQ(client.tree.Detach(&counter), 0U);
  EXPECT_THAT(Download().items, SizeIs(2));
  EXPECT_EQ(counter.items, 2);
}

// --- the throttle

// A limit that slows nothing down, and whose first block is told to the logger.
class TreeThrottle : public TreeSettings {
 protected:
  TreeThrottle() { RequireSet(Corvane::ZTransfer::SetThrottling(1000000000, 4000000, false)); }
  ~TreeThrottle() override { Corvane::ZTransfer::SetThrottling(0, 0, false); }

  static constexpr const char* kTold = "Measure period not needed";
};

TEST_F(TreeThrottle, CountsWhatComes) {
  const RecordingLogger logger;
  ASSERT_THAT(Download().code, IsCode(Corvane::TRANSFER_S_FINISHED));
  EXPECT_THAT(logger.Messages(), Contains(HasSubstr(kTold)));
}

TEST_F(TreeThrottle, CountsNothingWhenItIsNotWanted) {
  const RecordingLogger logger;
  ASSERT_EQ(client.tree.UseThrottling(false), 0U);
  ASSERT_THAT(Download().code, IsCode(Corvane::TRANSFER_S_FINISHED));
  EXPECT_THAT(logger.Messages(), Each(Not(HasSubstr(kTold))));
}

// Throws when it is told of the throttle, that is while libcurl hands on what has come.
template <class Exception>
class ThrowingLogger : public Corvane::ZLogger {
 public:
  explicit ThrowingLogger(Exception exception) : m_exception(exception) {
    EnableUpTo(Corvane::ZLogLevel::Information);
    m_former = Corvane::ZLog::SetLogger(this);
  }
  ~ThrowingLogger() override { Corvane::ZLog::SetLogger(m_former); }

  void Write(Corvane::ZLogLevel /*level*/, const Corvane::ZString& message, const char* /*file*/,
             int /*line*/) override {
    if (message.StartsWith(L"Measure period")) throw m_exception;
  }

 private:
  Exception m_exception;
  Corvane::ZLogger* m_former;
};

TEST_F(TreeThrottle, AnExceptionOfTheLoggerEndsTheRunAndReachesItsCaller) {
  {
    const ThrowingLogger logger(std::runtime_error("the host's"));
    EXPECT_THROW(client.tree.Download(Wide(server.Url("/")), WidePath(Target())), std::runtime_error);
  }
  EXPECT_TRUE(client.tree.Wait(0));
  EXPECT_THAT(client.tree.GetStatus(), IsCode(Corvane::TRANSFER_E_DOWNLOAD));
  EXPECT_FALSE(std::filesystem::exists(Target() / "a"));
  EXPECT_THAT(Download().code, IsCode(Corvane::TRANSFER_S_FINISHED));
  EXPECT_TRUE(HoldsTree(Target(), {{"a", "1"}, {"b/c", "22"}}));
}

TEST_F(TreeThrottle, MemoryThatRunsOutThereIsAFailureOfTheRequest) {
  {
    const ThrowingLogger logger{std::bad_alloc()};
    const TreeResult result = Download();
    EXPECT_THAT(result.code, IsCode(CurlFailure(kOutOfMemory)));
    EXPECT_EQ(result.error, server.Url("/") + ": Out of memory");
  }
  EXPECT_THAT(Download().code, IsCode(Corvane::TRANSFER_S_FINISHED));
}

// --- verification

class TreeOverTls : public testing::Test {
 protected:
  void Serve(const TlsIdentity& identity) { server.emplace(KeepAlive(site.Serve()), identity); }
  TreeResult Download() {
    std::filesystem::remove_all(folder / "target");
    client.options.mostRetries = 0;
    return client.Download(server->Url("/"), folder / "target");
  }
  void SetSSL(bool verifyHost, bool verifyPeer, const std::filesystem::path& file,
              const std::filesystem::path& directory) {
    ASSERT_EQ(client.tree.SetSSL(verifyHost, verifyPeer, WidePath(file), WidePath(directory)), 0U);
  }
  void ExpectArrives() {
    const TreeResult result = Download();
    EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_S_FINISHED)) << result;
    EXPECT_TRUE(HoldsTree(folder / "target", {{"a", "1"}, {"b/c", "22"}}));
  }
  void ExpectDistrusted() {
    EXPECT_THAT(Download().code, IsCode(CurlFailure(kPeerNotVerified)));
    EXPECT_THAT(server->Requests(), IsEmpty());
  }

  const Pki& pki = ThePki();
  TreeSite site{{{"a", "1"}, {"b/c", "22"}}};
  std::optional<ScriptedServer> server;
  TreeClient client;
  TempDir folder;
};

TEST_F(TreeOverTls, IsVerifiedUntilToldOtherwise) {
  Serve(pki.server);
  ExpectDistrusted();
  SetSSL(false, false, "", "");
  ExpectArrives();
}

TEST_F(TreeOverTls, TrustsTheFileAndTheDirectoryThatAreNamed) {
  Serve(pki.server);
  SetSSL(true, true, pki.otherCaFile, pki.otherCaDirectory);
  ExpectDistrusted();
  SetSSL(true, true, pki.caFile, "");
  ExpectArrives();
  SetSSL(true, true, pki.otherCaFile, pki.caDirectory);
  ExpectArrives();
}

TEST_F(TreeOverTls, LooksAtTheHostsNameOnlyWhenThatIsWanted) {
  Serve(pki.wrongHost);
  SetSSL(true, true, pki.caFile, "");
  ExpectDistrusted();
  SetSSL(false, true, pki.caFile, "");
  ExpectArrives();
}

TEST_F(TreeOverTls, ASettingThatFailsChangesNothing) {
  Serve(pki.server);
  SetSSL(true, true, pki.otherCaFile, "");
  const Corvane::ZString missing = WidePath(folder / "missing");
  const Corvane::ZString good = WidePath(pki.caFile);
  ZTreeDownload& tree = client.tree;
  EXPECT_THAT(tree.SetSSL(false, true, missing, L""), IsCode(Corvane::BASE_E_INVALID_NAME));
  EXPECT_THAT(tree.SetSSL(false, true, good, missing), IsCode(Corvane::BASE_E_INVALID_NAME));
  EXPECT_THAT(tree.SetSSL(false, true, good, good), IsCode(Corvane::BASE_E_INVALID_NAME)) << "no directory";
  EXPECT_THAT(tree.SetSSL(false, false, kNoCharacter, L""), IsCode(Corvane::BASE_E_INVALID_NAME));
  EXPECT_THAT(tree.SetSSL(false, false, L"", kNoCharacter), IsCode(Corvane::BASE_E_INVALID_NAME));
  ExpectDistrusted();
}

// --- credentials

constexpr const char* kBasic = "Basic YWRhOnNlY3JldA==";  // ada:secret

Responder ForAda(Responder responder) {
  return [responder = std::move(responder)](Connection& peer, const Request& request) {
    if (request.Header("Authorization") == kBasic) return responder(peer, request);
    Status(401, "no", {{"WWW-Authenticate", "Basic realm=\"x\""}})(peer, request);
  };
}

// Once a server has asked for the password in the clear it is not asked again for every file.
TEST_F(TreeOverTls, TheServerIsAskedOnceHowToLogIn) {
  for (int i = 0; i < 5; ++i) site.SetFile("many/" + std::to_string(i), "x");
  server.emplace(KeepAlive(ForAda(site.Serve())), pki.server);
  SetSSL(true, true, pki.caFile, "");
  ASSERT_EQ(client.tree.SetCredentials(L"ada", L"secret"), 0U);
  client.options.mostConnections = 1;
  const TreeResult result = Download();
  EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_S_FINISHED)) << result;
  const auto isWithout = [](const Request& request) { return !request.Header("Authorization"); };
  const std::vector<Request> requests = server->Requests();
  EXPECT_EQ(std::count_if(requests.begin(), requests.end(), isWithout), 1);
}

TEST_F(TreeOverTls, CredentialsGoToTheFirstServerOnly) {
  ScriptedServer other(KeepAlive(Content("moved")), pki.server);
  site.Answer("a", Redirect(other.Url("/a")));
  server.emplace(KeepAlive(ForAda(site.Serve())), pki.server);
  SetSSL(true, true, pki.caFile, "");
  ASSERT_EQ(client.tree.SetCredentials(L"ada", L"secret"), 0U);
  const TreeResult result = Download();
  EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_S_FINISHED)) << result;
  EXPECT_TRUE(HoldsTree(folder / "target", {{"a", "moved"}, {"b/c", "22"}}));
  ASSERT_THAT(other.Requests(), SizeIs(1));
  EXPECT_THAT(other.Requests()[0].raw, Not(HasSubstr("Authorization")));
}

TEST_F(TreeSettings, APasswordIsNotSentInTheClear) {
  ASSERT_EQ(client.tree.SetCredentials(L"ada", L"secret"), 0U);
  site.Answer("", ForAda(Content(IndexPage({"a"}))));
  const TreeResult result = Download();
  EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_E_CONNECT));
  EXPECT_EQ(result.error, server.Url("/") + ": The server answered 401.");
  for (const Request& request : server.Requests()) EXPECT_THAT(request.raw, Not(HasSubstr("Basic")));
}

TEST_F(TreeSettings, AnEmptyUserTakesTheCredentialsBack) {
  ASSERT_EQ(client.tree.SetCredentials(L"ada", L"secret"), 0U);
  ASSERT_EQ(client.tree.SetCredentials(L"", L""), 0U);
  EXPECT_THAT(Download().code, IsCode(Corvane::TRANSFER_S_FINISHED));
  for (const Request& request : server.Requests()) EXPECT_EQ(request.Header("Authorization"), std::nullopt);
}

}  // namespace
}  // namespace CorvaneTest
