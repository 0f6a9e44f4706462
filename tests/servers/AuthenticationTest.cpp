#include <gmock/gmock.h>

#include <filesystem>
#include <string>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/Daemons.h"
#include "tests/support/Pki.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"

// User and password over HTTP: they leave in the clear over TLS only.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr const char* kPassword = "s3cret \xC3\xA4\xE2\x82\xAC";
constexpr const char* kEncodedBasic = "Basic dXNlcjpzM2NyZXQgw6Tigqw=";  // base64 of "user:" and the password

// An nginx that asks for Basic authentication on both ports and notes every Authorization header that it gets.
class ZTransferAuthentication : public testing::Test {
 protected:
  ZTransferAuthentication() { WriteFile(m_server.RootDir() / "private.txt", "for the user only"); }

  NginxOptions Options() {
    WriteFile(m_folder / "users", std::string("user:{PLAIN}") + kPassword + "\n");
    NginxOptions options;
    options.tls = m_pki.server;
    options.httpLines = "log_format sent '$status \"$http_authorization\"';";
    options.serverLines = "auth_basic \"private\"; auth_basic_user_file " + (m_folder / "users").string() +
                          "; access_log " + (m_folder / "sent").string() + " sent;";
    return options;
  }

  // What the server noted; complete, since the server has ended then.
  std::string Sent() {
    m_server.Stop();
    return ReadFile(m_folder / "sent");
  }

  TempDir m_folder{TempDir::Access::kPublic};
  Pki m_pki = MakePki(m_folder.Path());
  NginxServer m_server{Options()};
};

TEST_F(ZTransferAuthentication, IsBasicOverTls) {
  RecordingLogger logger;
  ZTransfer transfer;
  EXPECT_EQ(transfer.SetSSL(true, true, WidePath(m_pki.caFile), L""), 0u);
  ASSERT_THAT(transfer.SetCredentials(L"user", Wide(kPassword)), IsCode(BASE_S_OK));
  transfer.DetectHttpError(true);
  ZString result;
  EXPECT_THAT(transfer.Download(Wide(m_server.HttpsUrl("/private.txt")), result), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(Narrow(result), "for the user only");
  // The header text holds the first answer, too, which asked for the password.
  EXPECT_THAT(HeaderOf(transfer), StartsWith("HTTP/1.1 401 "));
  EXPECT_THAT(HeaderOf(transfer), HasSubstr("HTTP/1.1 200 OK\r\n"));
  EXPECT_THAT(Sent(), HasSubstr(std::string("200 \"") + kEncodedBasic + "\""));

  EXPECT_THAT(logger.Messages(ZLogLevel::Information),
              Contains("Transfer: Setting curl Authentication set to \"user:*\""));
  EXPECT_THAT(logger.Messages(ZLogLevel::Information), Contains("Transfer: Curl Authentication Type is NTLM,BASIC"));
}

TEST_F(ZTransferAuthentication, OverPlainHttpIsNeverBasic) {
  RecordingLogger logger;
  ZTransfer transfer;
  EXPECT_EQ(transfer.SetCredentials(L"user", Wide(kPassword)), 0u);
  transfer.DetectHttpError(true);
  ZString result;
  EXPECT_THAT(transfer.Download(Wide(m_server.Url("/private.txt")), result), IsCode(TRANSFER_E_CONNECT));
  EXPECT_THAT(HeaderOf(transfer), HasSubstr("\r\nWWW-Authenticate: Basic realm=\"private\"\r\n"));
  const std::string sent = Sent();
  EXPECT_THAT(sent, StartsWith("401 "));
  EXPECT_THAT(sent, Not(HasSubstr("Basic")));
  EXPECT_THAT(logger.Messages(ZLogLevel::Information), Contains("Transfer: Curl Authentication Type is NTLM"));
}

TEST_F(ZTransferAuthentication, WithAWrongPasswordIsRefused) {
  ZTransfer transfer;
  EXPECT_EQ(transfer.SetCredentials(L"user", L"guessed"), 0u);
  const TempDir folder;
  EXPECT_THAT(transfer.DownloadFile(Wide(m_server.HttpsUrl("/private.txt")), WidePath(folder / "a"), false),
              IsCode(TRANSFER_E_CONNECT));
  EXPECT_THAT(NamesIn(folder.Path()), testing::IsEmpty());
}

TEST_F(ZTransferAuthentication, IsNotTriedWithoutAUser) {
  ZTransfer transfer;
  transfer.DetectHttpError(true);
  EXPECT_EQ(transfer.SetCredentials(L"user", Wide(kPassword)), 0u);
  EXPECT_EQ(transfer.SetCredentials(L"", Wide(kPassword)), 0u);  // takes them away
  ZString result;
  EXPECT_THAT(transfer.Download(Wide(m_server.HttpsUrl("/private.txt")), result), IsCode(TRANSFER_E_CONNECT));
  EXPECT_EQ(Sent(), "401 \"-\"\n");
}

TEST_F(ZTransferAuthentication, LeavesNoTraceOfThePassword) {
  const TempDir folder;
  for (const bool overTls : {true, false}) {
    for (const char* path : {"/private.txt", "/missing"}) {
      RecordingLogger logger;
      ZTransfer transfer;
      EXPECT_EQ(transfer.SetCredentials(L"user", Wide(kPassword)), 0u);
      const std::string url = overTls ? m_server.HttpsUrl(path) : m_server.Url(path);
      transfer.DownloadFile(Wide(url), WidePath(folder / "a"), false);
      for (const std::string& secret : {std::string("s3cret"), std::string("dXNlcjpz")}) {
        EXPECT_THAT(logger.Messages(), Not(Contains(HasSubstr(secret))));
        EXPECT_THAT(ErrorOf(transfer), Not(HasSubstr(secret)));
        EXPECT_THAT(HeaderOf(transfer), Not(HasSubstr(secret)));
        EXPECT_THAT(CauseTextOf(transfer), Not(HasSubstr(secret)));
      }
    }
  }
}

// A server that offers whatever would make a client show its password.
TEST(ZTransferCredentials, NeverLeaveInTheClear) {
  for (const char* challenge :
       {"Basic realm=\"x\"", "Digest realm=\"x\", nonce=\"1\"", "NTLM", "Negotiate", "Basic realm=\"x\", NTLM"}) {
    SCOPED_TRACE(challenge);
    ScriptedServer server(KeepAlive(Status(401, "who are you", {{"WWW-Authenticate", challenge}})));
    ZTransfer transfer;
    EXPECT_EQ(transfer.SetCredentials(L"user", L"secret"), 0u);
    transfer.DetectHttpError(true);
    ZString result;
    EXPECT_THAT(transfer.Download(Wide(server.Url()), result), IsCode(TRANSFER_E_CONNECT));
    EXPECT_TRUE(IsFailure(transfer.PostData(Wide(server.Url()), L"data", result)));
    ASSERT_GE(server.Requests().size(), 2u);
    for (const Request& request : server.Requests()) {
      const std::string header = request.Header("Authorization").value_or("NTLM");
      EXPECT_THAT(header, StartsWith("NTLM"));
      EXPECT_THAT(request.raw, Not(HasSubstr("c2VjcmV0")));  // "secret" in base64, if it stood alone
      EXPECT_THAT(request.raw, Not(HasSubstr("dXNlcjpzZWNyZXQ")));
    }
  }
}

}  // namespace
}  // namespace CorvaneTest
