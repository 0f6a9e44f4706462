// Where the password comes from, and where it never goes.

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/cli/CliTesting.h"
#include "tests/support/Pki.h"
#include "tests/support/ScriptedFtpServer.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kPassword = "s3cr\xC3\xA9t :/@%\"'";
// "ada:" and the password in Base64.
constexpr const char* kBasic = "Basic YWRhOnMzY3LDqXQgOi9AJSIn";

// Asks for a login, then gives the content.
Responder Protected() {
  return [](Connection& peer, const Request& request) {
    if (request.Header("Authorization") == kBasic) return Content("content")(peer, request);
    Status(401, "no", {{"WWW-Authenticate", "Basic realm=\"x\""}})(peer, request);
  };
}

class Login : public testing::Test {
 protected:
  Login() : m_pki(MakePki(m_folder.Path())), m_server(KeepAlive(Protected()), m_pki.server) {}

  std::vector<std::string> Get(std::vector<std::string> more) const {
    more.insert(more.begin(), {"get", m_server.Url(), "--cacert", m_pki.caFile, "--user", "ada"});
    return more;
  }

  TempDir m_folder;
  Pki m_pki;
  ScriptedServer m_server;
};

ProgramOptions WithVariable(const std::string& password) {
  ProgramOptions options;
  options.environment["CORVANE_PASSWORD"] = password;
  return options;
}

TEST_F(Login, TakesThePasswordFromTheVariable) {
  const ProgramResult result = RunCorvane(Get({}), WithVariable(kPassword));
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_EQ(result.out, "content");
}

TEST_F(Login, TakesThePasswordFromTheFirstLineOfAFile) {
  for (const std::string& text :
       {std::string(kPassword), kPassword + std::string("\nsecond line\n"), kPassword + std::string("\r\n")}) {
    WriteFile(m_folder / "password", text);
    const ProgramResult result = RunCorvane(Get({"--password-file", m_folder / "password"}));
    EXPECT_EQ(result.exitCode, 0) << result.Describe();
  }
}

// The variable may have been exported for another server.
TEST_F(Login, PrefersTheFileThatTheCommandLineNames) {
  WriteFile(m_folder / "password", kPassword);
  const ProgramResult result = RunCorvane(Get({"--password-file", m_folder / "password"}), WithVariable("other"));
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
}

TEST_F(Login, TakesThePasswordFromAPipe) {
  const ProgramResult result =
      RunShell("exec \"$0\" get \"$1\" --cacert \"$2\" --user ada --password-file <(printf '%s\\n' \"$3\")",
               {m_server.Url(), m_pki.caFile, kPassword});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
}

TEST_F(Login, WrongPasswordIsAnAuthenticationFailure) {
  const ProgramResult result = RunCorvane(Get({}), WithVariable("wrong"));
  EXPECT_EQ(result.exitCode, 4) << result.Describe();
  EXPECT_THAT(OnlyErrorLine(result),
              AllOf(HasSubstr("401 Unauthorized"), HasSubstr("check the user name and the password")));
}

TEST_F(Login, MissingPasswordFileIsRefusedBeforeAnyRequest) {
  const ProgramResult result = RunCorvane(Get({"--password-file", m_folder / "missing"}));
  EXPECT_EQ(result.exitCode, 4) << result.Describe();
  EXPECT_THAT(OnlyErrorLine(result), AllOf(HasSubstr((m_folder / "missing").string()), HasSubstr("No such file")));
  EXPECT_EQ(m_server.AcceptedConnections(), 0U);
}

TEST_F(Login, PasswordThatTheLocaleCannotExpressIsRefused) {
  ProgramOptions options = WithVariable(kPassword);
  options.environment["LC_ALL"] = "C";
  const ProgramResult result = RunCorvane(Get({}), options);
  EXPECT_EQ(result.exitCode, 2) << result.Describe();
  EXPECT_THAT(OnlyErrorLine(result),
              AllOf(HasSubstr("CORVANE_PASSWORD"), HasSubstr("LC_ALL=C.UTF-8"), Not(HasSubstr("s3cr"))));
}

TEST_F(Login, PasswordAppearsNowhere) {
  for (const char* const password : {kPassword, "wrong-s3cr-one"}) {
    const ProgramResult result = RunCorvane(
        Get({"-v", "--json", "--log-file", m_folder / "log", "-o", m_folder / "file"}), WithVariable(password));
    const std::string everything = result.out + result.err + ReadFile(m_folder / "log");
    EXPECT_THAT(everything, HasSubstr("\"ada:*\""));
    EXPECT_THAT(everything, AllOf(Not(HasSubstr("s3cr")), Not(HasSubstr("YWRh"))));
  }
}

TEST(LoginOverPlainHttp, NeverSendsBasic) {
  const ScriptedServer server(KeepAlive(Protected()));
  const ProgramResult result = RunCorvane({"get", server.Url(), "--user", "ada"}, WithVariable(kPassword));
  EXPECT_EQ(result.exitCode, 4) << result.Describe();
  EXPECT_THAT(OnlyErrorLine(result), AllOf(HasSubstr("over plain http only NTLM is used"), HasSubstr("https")));
  for (const Request& request : server.Requests()) EXPECT_THAT(request.raw, Not(HasSubstr("Basic")));
}

TEST(LoginOverFtp, IsUsed) {
  ScriptedFtpServer server({{"/a", "content"}});
  server.SetLogin("ada", kPassword);
  const ProgramResult result = RunCorvane({"get", server.Url("/a"), "--user", "ada"}, WithVariable(kPassword));
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_EQ(result.out, "content");
}

}  // namespace
}  // namespace CorvaneTest
