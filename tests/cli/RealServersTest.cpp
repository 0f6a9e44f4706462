// corvane get from web servers that others wrote.

#include <gmock/gmock.h>

#include <chrono>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "tests/cli/CliTesting.h"
#include "tests/support/Daemons.h"
#include "tests/support/Pki.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

// In the folder, so that -O and --into find it.
ProgramResult RunIn(const TempDir& folder, const std::vector<std::string>& arguments) {
  ProgramOptions options;
  options.workingDirectory = folder.Path();
  return RunCorvane(arguments, options);
}

std::size_t Count(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

// --- nginx: redirects

// /hop1 leads to /f, /hop2 to /hop1 and so on.
std::string Hops(int count) {
  std::string lines = "location = /hop0 { return 301 /f; }\n";
  for (int hop = 1; hop <= count; ++hop) {
    lines += "location = /hop" + std::to_string(hop) + " { return 301 /hop" + std::to_string(hop - 1) + "; }\n";
  }
  return lines;
}

TEST(GetFromNginx, FollowsAChainOfTenRedirectsAndNoLongerOne) {
  NginxOptions options;
  options.serverLines = Hops(10);
  const NginxServer server(options);
  const std::string content = MakePattern(100000);
  WriteFile(server.RootDir() / "f", content);
  const TempDir folder;
  const ProgramResult result = RunIn(folder, {"get", "-O", server.Url("/hop9"), "--json"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("hop9"));
  EXPECT_TRUE(ReadFile(folder / "hop9") == content);
  EXPECT_EQ(ParseReport(result)["effectiveUrl"], server.Url("/f"));
  EXPECT_TRUE(server.WaitForAccess("\"GET /f HTTP/1.1\" 200 100000"));
  EXPECT_EQ(Count(server.AccessLog(), "\" 301 "), 10U);

  for (const auto& [url, most] : std::vector<std::pair<std::string, std::string>>{{"/hop10", "10"}, {"/hop2", "2"}}) {
    const ProgramResult tooLong = RunIn(folder, {"get", server.Url(url), "-o", "g", "--redirects", most});
    EXPECT_EQ(tooLong.exitCode, 1) << tooLong.Describe();
    EXPECT_THAT(OnlyErrorLine(tooLong), HasSubstr("redirect"));
  }
  EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("hop9"));
}

class GetOverTlsFromNginx : public testing::Test {
 protected:
  // With these lines in the server block of the one, which is asked first; the other has none.
  static NginxOptions Redirecting(const std::string& to) {
    NginxOptions options;
    options.tls = ThePki().server;
    options.serverLines = "location / { return 301 " + to + "; }";
    return options;
  }
  static NginxOptions Secure(NginxOptions options = {}) {
    options.tls = ThePki().server;
    return options;
  }
};

TEST_F(GetOverTlsFromNginx, FollowsARedirectFromHttpAndVerifiesWhereItLeads) {
  const NginxServer secure(Secure());
  WriteFile(secure.RootDir() / "f", "over TLS");
  const NginxServer first(Redirecting(secure.HttpsUrl("/f")));
  const ProgramResult result = RunCorvane({"get", first.Url("/f"), "--cacert", ThePki().caFile});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_EQ(result.out, "over TLS");
  EXPECT_TRUE(secure.WaitForAccess("\"GET /f HTTP/1.1\" 200 "));

  for (const std::vector<std::string>& trust : std::vector<std::vector<std::string>>{
           {"--cacert", ThePki().otherCaFile}, {"--capath", ThePki().otherCaDirectory}}) {
    const ProgramResult refused = RunCorvane({"get", first.Url("/f"), trust[0], trust[1]});
    EXPECT_EQ(refused.exitCode, 4) << refused.Describe();
    EXPECT_EQ(refused.out, "");
    EXPECT_THAT(OnlyErrorLine(refused), HasSubstr("certificate was not accepted"));
  }
  EXPECT_EQ(Count(secure.AccessLog(), "\n"), 1U) << "nothing was asked of a server that is not trusted";
}

// The system's own authorities count there as they do for a URL of https.
TEST_F(GetOverTlsFromNginx, TrustsNobodyButTheSystemsAuthoritiesBehindARedirectFromHttp) {
  for (const TlsIdentity& identity : {ThePki().server, ThePki().selfSigned, ThePki().expired}) {
    NginxOptions options;
    options.tls = identity;
    const NginxServer secure(options);
    WriteFile(secure.RootDir() / "f", "from whoever");
    const NginxServer first(Redirecting(secure.HttpsUrl("/f")));
    const ProgramResult direct = RunCorvane({"get", secure.HttpsUrl("/f")});
    EXPECT_EQ(direct.exitCode, 4) << direct.Describe();
    const ProgramResult refused = RunCorvane({"get", first.Url("/f")});
    EXPECT_EQ(refused.exitCode, 4) << refused.Describe();
    EXPECT_EQ(refused.out, "");
    EXPECT_THAT(OnlyErrorLine(refused), HasSubstr("certificate was not accepted"));
    EXPECT_EQ(secure.AccessLog(), "") << "nothing was asked of a server that is not trusted";
  }
}

TEST_F(GetOverTlsFromNginx, NeverFollowsARedirectToHttp) {
  const NginxServer plain;
  WriteFile(plain.RootDir() / "f", "in the clear");
  const NginxServer secure(Redirecting(plain.Url("/f")));
  const NginxServer first(Redirecting(secure.HttpsUrl("/f")));  // http, then https, then http
  const TempDir folder;
  for (const std::string& url : {secure.HttpsUrl("/f"), first.Url("/f")}) {
    const ProgramResult result = RunIn(folder, {"get", url, "-o", "f", "--cacert", ThePki().caFile});
    EXPECT_EQ(result.exitCode, 1) << result.Describe();
    EXPECT_THAT(OnlyErrorLine(result), HasSubstr("redirect"));
  }
  EXPECT_THAT(NamesIn(folder.Path()), IsEmpty());
  EXPECT_EQ(plain.AccessLog(), "");
}

// --- nginx: what comes, and under which name

TEST(GetFromNginx, CompressedFilesArriveAsTheyLieThere) {
  NginxOptions options;
  options.httpLines = "gzip on; gzip_types *; gzip_min_length 1; gzip_http_version 1.0; gzip_proxied any;";
  options.serverLines =
      "location ~ /typed { default_type application/gzip; }\n"
      "location ~ /encoded { default_type text/plain; gzip off; add_header Content-Encoding gzip; }";
  const NginxServer server(options);
  WriteFile(server.RootDir() / "text.txt", std::string(200000, 'x'));
  const std::string packed = RunProgram({"gzip", "-c", (server.RootDir() / "text.txt").string()}).out;
  ASSERT_THAT(packed, StartsWith("\x1f\x8b"));
  for (const char* const name : {"typed.gz", "encoded.txt"}) WriteFile(server.RootDir() / name, packed);
  const TempDir folder;
  const ProgramResult result =
      RunIn(folder, {"get", "-O", server.Url("/typed.gz"), server.Url("/encoded.txt"), server.Url("/text.txt")});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_TRUE(ReadFile(folder / "typed.gz") == packed);
  EXPECT_TRUE(ReadFile(folder / "encoded.txt") == packed);
  EXPECT_TRUE(ReadFile(folder / "text.txt") == std::string(200000, 'x'));
}

TEST(GetFromNginx, TakesTheNameFromTheUrlAndReplacesNothing) {
  const NginxServer server;
  const std::string name =
      "gr\xC3\xB6\xC3\x9F"
      "e 1.tar.gz";
  WriteFile(server.RootDir() / "pub" / name, "content");
  const TempDir folder;
  for (int run = 0; run != 2; ++run) {
    const ProgramResult result = RunIn(folder, {"get", "-O", server.Url("/pub/gr%C3%B6%C3%9Fe%201.tar.gz?version=2")});
    EXPECT_EQ(result.exitCode, 0) << result.Describe();
  }
  EXPECT_THAT(NamesIn(folder.Path()), ElementsAre(name, name + ".1"));
  EXPECT_EQ(ReadFile(folder / (name + ".1")), "content");
}

// --- nginx: refusals

TEST_F(GetOverTlsFromNginx, TellsRefusalsByTheExitCodeAndLeavesNothing) {
  const TempDir accounts(TempDir::Access::kPublic);
  WriteFile(accounts / "accounts", "ada:{PLAIN}s3cret\n");
  NginxOptions options = Secure();
  options.serverLines = "location /forbidden { deny all; }\nlocation /login { auth_basic x; auth_basic_user_file " +
                        (accounts / "accounts").string() + "; }";
  const NginxServer server(options);
  WriteFile(server.RootDir() / "login", "for ada");
  const TempDir folder;
  ProgramOptions program;
  program.workingDirectory = folder.Path();
  const auto get = [&](const std::string& path, const std::string& password) {
    program.environment["CORVANE_PASSWORD"] = password;
    std::vector<std::string> arguments = {"get", server.HttpsUrl(path), "-o", "f", "--cacert", ThePki().caFile};
    if (!password.empty()) arguments.insert(arguments.end(), {"--user", "ada"});
    return RunCorvane(arguments, program);
  };
  struct Case {
    const char* path;
    const char* password;
    int exitCode;
    const char* reason;
  };
  for (const Case& c : {Case{"/missing", "", 1, "404 Not Found"}, Case{"/forbidden", "", 4, "403 Forbidden"},
                        Case{"/login", "", 4, "401 Unauthorized"}, Case{"/login", "wrong", 4, "401 Unauthorized"}}) {
    const ProgramResult result = get(c.path, c.password);
    EXPECT_EQ(result.exitCode, c.exitCode) << result.Describe();
    EXPECT_THAT(OnlyErrorLine(result), HasSubstr(c.reason));
    EXPECT_THAT(NamesIn(folder.Path()), IsEmpty()) << c.reason;
  }
  EXPECT_EQ(get("/login", "s3cret").exitCode, 0);
  EXPECT_EQ(ReadFile(folder / "f"), "for ada");
}

TEST(GetFromNginx, TriesAgainWhenARefusalAsksForIt) {
  NginxOptions options;
  options.serverLines =
      "location = /f { error_page 503 @later; if (!-f $document_root/open) { return 503; } }\n"
      "location @later { add_header Retry-After 1 always; return 503; }";
  const NginxServer server(options);
  WriteFile(server.RootDir() / "f", "content");
  // Half an hour is what it would wait if nobody asked for less.
  const auto program = StartCorvane({"get", server.Url("/f"), "--retry-wait", "1800"});
  ASSERT_TRUE(program->WaitForErrorOutput("trying again in 1 s (1 of 3)\n"));
  const auto refused = Clock::now();
  WriteFile(server.RootDir() / "open", "");
  const auto result = program->Wait();
  ASSERT_TRUE(result.has_value());
  EXPECT_EQ(result->exitCode, 0) << result->Describe();
  EXPECT_EQ(result->out, "content");
  EXPECT_GE(Clock::now() - refused, std::chrono::milliseconds(900));
  EXPECT_TRUE(server.WaitForAccess("\" 200 7"));
  EXPECT_THAT(server.AccessLog(), HasSubstr("\"GET /f HTTP/1.1\" 503 "));
  EXPECT_EQ(Count(server.AccessLog(), "\n"), 2U);
}

// One request every two seconds is allowed, and the two come one right after the other.
TEST(GetFromNginx, TriesAgainUntilALimitOfRequestsLetsItPass) {
  NginxOptions options;
  options.httpLines = "limit_req_zone $binary_remote_addr zone=one:1m rate=30r/m;";
  options.serverLines = "limit_req zone=one; limit_req_status 429;";
  const NginxServer server(options);
  for (const char* const name : {"a", "b"}) WriteFile(server.RootDir() / name, std::string("content of ") + name);
  const TempDir folder;
  const ProgramResult result =
      RunIn(folder, {"get", "-O", server.Url("/a"), server.Url("/b"), "--retry-wait", "2", "--json"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_THAT(result.err, HasSubstr("429 Too Many Requests; trying again in 2 s (1 of 3)\n"));
  EXPECT_EQ(ReadFile(folder / "a"), "content of a");
  EXPECT_EQ(ReadFile(folder / "b"), "content of b");
  const nlohmann::json transfers = ParseReport(result)["transfers"];
  EXPECT_EQ(transfers[0]["attempts"], 1);
  EXPECT_GE(transfers[1]["attempts"], 2);
}

// --- nginx: pipes

TEST_F(GetOverTlsFromNginx, APipeGetsEveryByte) {
  const NginxServer server(Secure());
  WriteFile(server.RootDir() / "f", MakePattern(50 << 20));
  const std::string expected = RunProgram({"sha256sum", (server.RootDir() / "f").string()}).out.substr(0, 64);
  ASSERT_EQ(expected.size(), 64U);
  for (const std::string& url : {server.Url("/f"), server.HttpsUrl("/f")}) {
    const ProgramResult result =
        RunShell("set -o pipefail; \"$0\" get \"$1\" --cacert \"$2\" | sha256sum", {url, ThePki().caFile});
    EXPECT_EQ(result.exitCode, 0) << result.Describe();
    EXPECT_EQ(result.out, expected + "  -\n");
    EXPECT_EQ(result.err, "");

    const TempDir folder;
    const ProgramResult named =
        RunShell("mkfifo \"$3\" && { \"$0\" get \"$1\" --cacert \"$2\" -o \"$3\" & sha256sum <\"$3\"; wait $!; }",
                 {url, ThePki().caFile, folder / "fifo"});
    EXPECT_EQ(named.exitCode, 0) << named.Describe();
    EXPECT_EQ(named.out, expected + "  -\n");
  }
}

// --- Apache

TEST(GetFromApache, TakesTheNameThatTheServerSuggests) {
  ApacheOptions options;
  options.modules = {"headers"};
  options.serverLines =
      "<Location /latest>\nHeader set Content-Disposition \"attachment; filename=\\\"report 1.pdf\\\"\"\n</Location>\n"
      "<Location /evil>\nHeader set Content-Disposition \"attachment; filename=\\\"../../.profile\\\"\"\n</Location>";
  const ApacheServer server(options);
  WriteFile(server.RootDir() / "latest", "the report");
  WriteFile(server.RootDir() / "evil", "malice");
  const TempDir folder;
  EXPECT_EQ(RunIn(folder, {"get", "-O", server.Url("/latest")}).exitCode, 0);
  EXPECT_EQ(RunIn(folder, {"get", server.Url("/latest"), "--into", "in"}).exitCode, 0);
  EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("in", "report 1.pdf"));
  EXPECT_EQ(ReadFile(folder / "in" / "report 1.pdf"), "the report");

  EXPECT_EQ(RunIn(folder, {"get", server.Url("/evil"), "--into", "in/deeper"}).exitCode, 0);
  const std::vector<std::string> names = NamesIn(folder / "in" / "deeper");
  ASSERT_EQ(names.size(), 1U);
  EXPECT_THAT(names[0], AllOf(HasSubstr("profile"), Not(StartsWith("."))));
  EXPECT_THAT(NamesIn(folder / "in"), ElementsAre("deeper", "report 1.pdf"));
}

TEST(GetFromApache, FollowsItsRedirects) {
  const ApacheServer target;
  WriteFile(target.RootDir() / "new" / "a b.bin", "moved");
  const ApacheServer server({.serverLines = "Redirect permanent /old " + target.Url("/new") +
                                            "\nRedirect /older /old\nRedirectMatch 307 ^/oldest/(.*) /older/$1\n"
                                            "Redirect gone /gone"});
  const ProgramResult result = RunCorvane({"get", server.Url("/oldest/a%20b.bin"), "-o", "/dev/stdout", "-v"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_EQ(result.out, "moved");
  for (const char* const status : {"307", "302", "301"}) {
    EXPECT_TRUE(server.WaitForAccess("\" " + std::string(status) + " ")) << status;
  }
  EXPECT_TRUE(target.WaitForAccess("\"GET /new/a%20b.bin HTTP/1.1\" 200 5"));
  const ProgramResult gone = RunCorvane({"get", server.Url("/gone")});
  EXPECT_EQ(gone.exitCode, 1) << gone.Describe();
  EXPECT_THAT(OnlyErrorLine(gone), HasSubstr("410 Gone"));
}

}  // namespace
}  // namespace CorvaneTest
