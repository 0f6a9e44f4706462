// corvane get --resume from web servers that others wrote: what a kill left is continued when the server proves that it still has
// the same, and is never mixed with anything else.

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "tests/cli/CliTesting.h"
#include "tests/cli/KilledDownload.h"
#include "tests/support/Daemons.h"
#include "tests/support/Pki.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

// To this client the servers below send 200 KiB a second, to every other as fast as they can: what is to be killed takes some twenty
// seconds, what goes on with it none.
const std::vector<std::string> kSlow = {"--user-agent", "slow"};

NginxOptions SlowNginx(const std::string& lines = {}) {
  NginxOptions options;
  options.httpLines = "map $http_user_agent $rate { slow 200k; default 0; }";
  options.serverLines = "limit_rate $rate;\n" + lines;
  return options;
}

ApacheOptions SlowApache(const std::string& lines) {
  ApacheOptions options;
  options.modules = {"env", "ratelimit", "setenvif"};
  options.serverLines =
      "SetEnvIf User-Agent ^slow$ rate-limit=200\n<Location />\nSetOutputFilter RATE_LIMIT\n</Location>\n" + lines;
  return options;
}

// How the access log tells that the answer was what was missing, and no more than the 32 bytes before it.
std::string RestOf(std::size_t size, const KilledDownload& download) {
  return "\" 206 " + std::to_string(size - download.PartSize() + 32);
}

void ExpectContinued(const Daemon& server, const std::string& content, const KilledDownload& download) {
  ASSERT_LT(download.PartSize(), content.size());
  const ProgramResult result = download.Resume();
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_EQ(result.err, "");
  EXPECT_TRUE(download.Holds(content));
  EXPECT_TRUE(server.WaitForAccess(RestOf(content.size(), download), After(std::chrono::seconds(10))))
      << server.AccessLog();
}

void ExpectBegunAnew(const std::string& content, const std::string& reason, const KilledDownload& download) {
  const ProgramResult result = download.Resume();
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_THAT(OnlyErrorLine(result), AllOf(HasSubstr(reason), HasSubstr("beginning anew")));
  EXPECT_TRUE(download.Holds(content));
}

// Other bytes, and yet of the same size and with the same end: only what the server says of it tells the two apart.
std::string Changed(std::string content) {
  std::reverse(content.begin(), content.begin() + 1000);
  return content;
}

struct WebServer {
  const char* name;
  std::unique_ptr<Daemon> (*start)(const char* lines);
  const char* noTags;    // the line of its configuration
  const char* noRanges;  // likewise
};

void PrintTo(const WebServer& server, std::ostream* text) { *text << server.name; }

std::unique_ptr<Daemon> StartNginx(const char* lines) { return std::make_unique<NginxServer>(SlowNginx(lines)); }
std::unique_ptr<Daemon> StartApache(const char* lines) { return std::make_unique<ApacheServer>(SlowApache(lines)); }

class ResumeFromWebServer : public testing::TestWithParam<WebServer> {
 protected:
  static std::unique_ptr<Daemon> Start(const char* lines = "") { return GetParam().start(lines); }
  const std::string m_content = MakePattern(kLarge);
};

TEST_P(ResumeFromWebServer, ContinuesByTheTag) {
  const auto server = Start();
  Publish(server->RootDir() / "f", m_content);
  const KilledDownload download(server->Url("/f"), kSlow);
  EXPECT_THAT(download.Validator(), StartsWith("\""));
  ExpectContinued(*server, m_content, download);
}

TEST_P(ResumeFromWebServer, ContinuesByTheDateWhereThereIsNoTag) {
  const auto server = Start(GetParam().noTags);
  Publish(server->RootDir() / "f", m_content);
  const KilledDownload download(server->Url("/f"), kSlow);
  EXPECT_THAT(download.Validator(), HasSubstr(" GMT"));
  ExpectContinued(*server, m_content, download);
}

TEST_P(ResumeFromWebServer, BeginsAnewWhenTheFileWasReplacedByOneOfTheSameSize) {
  for (const char* const lines : {"", GetParam().noTags}) {
    const auto server = Start(lines);
    Publish(server->RootDir() / "f", m_content);
    const KilledDownload download(server->Url("/f"), kSlow);
    Publish(server->RootDir() / "f", Changed(m_content), std::chrono::minutes(1));
    ExpectBegunAnew(Changed(m_content), "cannot continue", download);
    EXPECT_THAT(server->AccessLog(), Not(HasSubstr("\" 206 "))) << "it was asked for the rest of one version only";
  }
}

TEST_P(ResumeFromWebServer, BeginsAnewWhenTheFileHasBecomeShorterThanThePart) {
  const auto server = Start();
  Publish(server->RootDir() / "f", m_content);
  const KilledDownload download(server->Url("/f"), kSlow);
  ASSERT_GT(download.PartSize(), 1000U);
  Publish(server->RootDir() / "f", m_content.substr(0, 1000), std::chrono::minutes(1));
  ExpectBegunAnew(m_content.substr(0, 1000), "cannot continue", download);
}

TEST_P(ResumeFromWebServer, BeginsAnewWhereTheServerSendsNoParts) {
  const auto server = Start(GetParam().noRanges);
  Publish(server->RootDir() / "f", m_content);
  const KilledDownload download(server->Url("/f"), kSlow);
  ExpectBegunAnew(m_content, "cannot continue", download);
  EXPECT_THAT(server->AccessLog(), Not(HasSubstr("\" 206 ")));
}

// A time in the future is one that the file may have for a while yet, whatever is written into it.
TEST_P(ResumeFromWebServer, BeginsAnewWhereTheFirstAnswerProvesNothing) {
  const auto server = Start(GetParam().noTags);
  Publish(server->RootDir() / "f", m_content, std::chrono::hours(48));
  const KilledDownload download(server->Url("/f"), kSlow);
  EXPECT_EQ(download.Validator(), "");
  Publish(server->RootDir() / "f", Changed(m_content), std::chrono::hours(48));
  ExpectBegunAnew(Changed(m_content), "nothing proves", download);
}

TEST_P(ResumeFromWebServer, FetchesACompleteFileAgainOnlyWhenItIsNewer) {
  const auto server = Start();
  const TempDir folder;
  const auto get = [&] {
    return RunCorvane({"get", server->Url("/f"), "-o", folder / "f", "--remote-time", "--resume"});
  };
  Publish(server->RootDir() / "f", m_content);
  EXPECT_EQ(get().exitCode, 0);
  const ProgramResult same = get();
  EXPECT_EQ(same.exitCode, 0) << same.Describe();
  EXPECT_THAT(OnlyErrorLine(same), HasSubstr("is complete already"));
  EXPECT_TRUE(server->WaitForAccess("\"GET /f HTTP/1.1\" 206 32")) << server->AccessLog();

  Publish(server->RootDir() / "f", Changed(m_content), std::chrono::minutes(1));
  const ProgramResult newer = get();
  EXPECT_EQ(newer.exitCode, 0) << newer.Describe();
  EXPECT_THAT(OnlyErrorLine(newer), AllOf(HasSubstr("nothing proves"), HasSubstr("beginning anew")));
  EXPECT_TRUE(ReadFile(folder / "f") == Changed(m_content));
}

INSTANTIATE_TEST_SUITE_P(Servers, ResumeFromWebServer,
                         testing::Values(WebServer{"Nginx", StartNginx, "etag off;", "max_ranges 0;"},
                                         WebServer{"Apache", StartApache, "FileETag None", "MaxRanges none"}),
                         [](const testing::TestParamInfo<WebServer>& server) { return server.param.name; });

// Apache's tag of a file that has been written within the last second is a weak one, as is that of one from the future.
TEST(ResumeFromApache, BeginsAnewWhereTheTagIsWeak) {
  const std::string content = MakePattern(kLarge);
  const ApacheServer server(SlowApache(""));
  Publish(server.RootDir() / "f", content, std::chrono::hours(48));
  const KilledDownload download(server.Url("/f"), kSlow);
  EXPECT_EQ(download.Validator(), "");
  ExpectBegunAnew(content, "nothing proves", download);
}

TEST(ResumeFromNginx, ContinuesOverTlsAndHttp2) {
  const TempDir folder(TempDir::Access::kPublic);
  const Pki pki = MakePki(folder.Path());
  const std::string content = MakePattern(kLarge);
  for (const bool http2 : {false, true}) {
    NginxOptions options = SlowNginx();
    options.tls = pki.server;
    options.http2 = http2;
    const NginxServer server(options);
    Publish(server.RootDir() / "f", content);
    const KilledDownload download(server.HttpsUrl("/f"), kSlow, {"--cacert", pki.caFile});
    ExpectContinued(server, content, download);
    EXPECT_THAT(server.AccessLog(), HasSubstr(http2 ? "HTTP/2.0\" 206 " : "HTTP/1.1\" 206 "));
  }
}

}  // namespace
}  // namespace CorvaneTest
