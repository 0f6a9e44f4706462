// corvane sync interrupted by its user, watched on a terminal, and given secrets.

#include <gmock/gmock.h>
#include <signal.h>

#include <atomic>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/cli/CliTesting.h"
#include "tests/cli/MirrorPages.h"
#include "tests/cli/SyncTesting.h"
#include "tests/support/Gate.h"
#include "tests/support/Pki.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr int kInterrupted = 130;

// Two files, of which the larger stalls in its first answer, and is served in the next ones.
class StallingSite {
 public:
  explicit StallingSite(std::size_t bytes = 300000)
      : m_content(MakePattern(bytes)),
        m_server(KeepAlive(Directory({{"a", Content("12345")}, {"big", StalledOnce()}}))) {}

  std::string Url() const { return m_server.Url("/d/"); }
  const std::string& Content_() const { return m_content; }
  const ScriptedServer& Server() const { return m_server; }

 private:
  Responder StalledOnce() {
    return [this](Connection& peer, const Request& request) {
      ContentOptions options;
      options.headers = {{"ETag", "\"v1\""}, {"Last-Modified", "Mon, 05 May 2025 10:00:00 GMT"}};
      if (request.method == "GET" && m_stalls.exchange(false)) {
        options.stopAfter = 100000;
        options.ending = ContentOptions::Ending::kStall;
      }
      Content(m_content, options)(peer, request);
    };
  }

  const std::string m_content;
  std::atomic<bool> m_stalls{true};
  ScriptedServer m_server;
};

// --- interrupted

TEST(SyncInterrupt, KeepsWhatCameAndTheSameCommandGoesOn) {
  const StallingSite site;
  const TempDir folder;
  const std::string here = folder / "here";
  const auto program = StartCorvane({"sync", site.Url(), here, "--json"});
  ASSERT_TRUE(AwaitPartIn(here, 100000)) << program->ErrorOutput();
  ASSERT_TRUE(AwaitFile(folder / "here/a")) << program->ErrorOutput();
  program->Kill(SIGINT);
  const auto interrupted = program->Wait();
  ASSERT_TRUE(interrupted.has_value());
  EXPECT_EQ(interrupted->exitCode, kInterrupted) << interrupted->Describe();
  EXPECT_THAT(interrupted->err, testing::MatchesRegex("corvane: interrupted\ncorvane: " + here +
                                                      "  1 fetched, 0 continued, 0 kept; 97.7 KiB in [^\n]*\n" +
                                                      "corvane: the same command goes on from here: corvane sync " +
                                                      site.Url() + " " + here + " --json\n"));
  const json report = ParseReport(*interrupted);
  EXPECT_EQ(report["status"], "0x80011003");
  EXPECT_EQ(report["error"], "interrupted");
  EXPECT_EQ(report["exitCode"], kInterrupted);
  EXPECT_EQ(report["statistics"]["receivedBytes"], 100005);
  EXPECT_EQ(FileIn(report, "a")["status"], "0x00000000");
  EXPECT_EQ(ReadFile(folder / "here/a"), "12345");
  EXPECT_FALSE(fs::exists(folder / "here/big"));

  const ProgramResult result = RunSync(site.Url(), here, {"--json"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  const json statistics = ParseReport(result)["statistics"];
  EXPECT_EQ(statistics["filesResumed"], 1);
  EXPECT_EQ(statistics["receivedBytes"], 200005) << "a has no date to be kept by, and comes again";
  EXPECT_TRUE(ReadFile(folder / "here/big") == site.Content_());
  EXPECT_THAT(NamesIn(here), ElementsAre("a", "big"));
}

TEST(SyncInterrupt, EveryEndingSignalStopsAStalledListing) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    Gate asked;
    const ScriptedServer server([&](Connection& peer) {
      peer.ReadRequest();
      asked.Open();
      peer.WaitUntilStopped();
    });
    const TempDir folder;
    const auto program = StartCorvane({"sync", server.Url("/d/"), folder / "here", "--plan", "--json"});
    ASSERT_TRUE(asked.Wait());
    program->Kill(signal);
    const auto result = program->Wait();
    ASSERT_TRUE(result.has_value());
    EXPECT_EQ(result->exitCode, kInterrupted) << result->Describe();
    EXPECT_EQ(OnlyErrorLine(*result), "corvane: interrupted");
    EXPECT_EQ(ParseReport(*result)["files"], json::array());
    EXPECT_FALSE(fs::exists(folder / "here"));
  }
}

// The throttle sleeps for up to ten seconds, during which an abort has to wait.
TEST(SyncInterrupt, ASecondSignalEndsAtOnce) {
  const StallingSite site(9000000);
  const TempDir folder;
  ProgramOptions options;
  options.terminalError = true;
  const auto program = StartCorvane({"sync", site.Url(), folder / "here", "--limit", "1k"}, options);
  ASSERT_TRUE(program->WaitForTerminalOutput(" KiB")) << program->TerminalOutput();
  program->Kill(SIGINT);
  ASSERT_TRUE(program->WaitForTerminalOutput("corvane: stopping; once more ends at once"));
  const auto first = Clock::now();
  while (program->IsRunning() && Clock::now() < first + kPatience) program->Kill(SIGINT);
  const auto result = program->Wait();
  EXPECT_GE(Clock::now() - first, std::chrono::milliseconds(400)) << "those within half a second belong to the first";
  EXPECT_LT(Clock::now() - first, std::chrono::seconds(5)) << "it did not wait for the throttle";
  ASSERT_TRUE(result.has_value());
  EXPECT_EQ(result->exitCode, kInterrupted) << result->Describe();
  EXPECT_THAT(result->terminal, Not(HasSubstr("corvane: interrupted")));
}

// --- on a terminal

ProgramOptions AtATerminal(const TempDir& folder) {
  ProgramOptions options;
  options.terminalError = true;
  options.workingDirectory = folder.Path();
  return options;
}

TEST(SyncProgress, ShowsTheListingTheFilesAndASummary) {
  Gate listed, goOn;
  const Responder page = [&](Connection& peer, const Request& request) {
    if (peer.WaitFor(listed)) Content(PageOf({"a", "b"}))(peer, request);
  };
  const Responder halved = [&](Connection& peer, const Request&) {
    peer.Send(FormatHead(200, {{"Content-Length", "5000"}}) + std::string(2500, 'x'));
    if (peer.WaitFor(goOn)) peer.Send(std::string(2500, 'x'));
  };
  const ScriptedServer server(
      KeepAlive(Routes({{"/d/", page}, {"/d/a", Content(std::string(5000, 'a'))}, {"/d/b", halved}})));
  const TempDir folder;
  const auto program = StartCorvane({"sync", server.Url("/d/"), "here"}, AtATerminal(folder));
  EXPECT_TRUE(program->WaitForTerminalOutput("\r\x1b[Khere  listing: 0 folders, 0 files  0:0"))
      << program->TerminalOutput();
  listed.Open();
  EXPECT_TRUE(program->WaitForTerminalOutput("\r\x1b[Khere  1 of 2 files   50%  ")) << program->TerminalOutput();
  EXPECT_TRUE(program->WaitForTerminalOutput("  7.3 KiB")) << program->TerminalOutput();
  EXPECT_TRUE(program->WaitForTerminalOutput("1 in flight")) << program->TerminalOutput();
  goOn.Open();
  const auto result = program->Wait();
  ASSERT_TRUE(result.has_value());
  EXPECT_EQ(result->exitCode, 0) << result->Describe();
  EXPECT_EQ(result->out, "");
  EXPECT_THAT(result->terminal,
              testing::ContainsRegex("\r.\\[Khere  2 fetched, 0 continued, 0 kept; 9.8 KiB in .*/s\\)\r\n$"));
}

TEST(SyncProgress, IsNotForQuietNorJson) {
  const ScriptedServer server(KeepAlive(Directory({{"a", Content("a")}})));
  const TempDir folder;
  for (const char* const option : {"--quiet", "--json"}) {
    const ProgramResult result = RunSync(server.Url("/d/"), folder / "here", {option}, AtATerminal(folder));
    EXPECT_EQ(result.exitCode, 0) << result.Describe();
    EXPECT_EQ(result.terminal, "");
  }
}

// --- what servers write

// Names with a line feed, an escape sequence and a mark that turns the writing direction round; "%" with hexadecimal digits as a
// page has it.
constexpr const char* kHostile = "x%0Aforged: line%1B%5B31m%C2%9B31m%E2%80%AE.txt";

// A page that says that it is a listing, whatever the names on it look like.
Responder ListingOf(const std::vector<std::string>& names) {
  return Content("<html><head><title>Index of /d/</title></head>" + PageOf(names) + "</html>");
}

bool HasControls(const std::string& terminal) {
  for (std::size_t i = 0; i < terminal.size(); ++i) {
    const auto byte = static_cast<unsigned char>(terminal[i]);
    const bool isErasing = terminal.compare(i, 3, "\x1b[K") == 0;
    if (byte < 0x20 && byte != '\r' && byte != '\n' && !isErasing) return true;
  }
  return terminal.find("\xC2\x9B") != std::string::npos || terminal.find("\xE2\x80\xAE") != std::string::npos;
}

TEST(SyncNames, CannotRuleATerminalNorForgeLines) {
  for (const Responder& file : {Content("content"), Status(404)}) {
    const ScriptedServer server([&](Connection& peer) {
      KeepAlive([&](Connection& connection, const Request& request) {
        request.Path() == "/d/" ? ListingOf({kHostile})(connection, request) : file(connection, request);
      })(peer);
    });
    const TempDir folder;
    ProgramOptions options = AtATerminal(folder);
    options.terminalOutput = true;
    for (const std::vector<std::string>& more :
         std::vector<std::vector<std::string>>{{"--plan"}, {"-v"}, {"--plan", "-v"}, {"--json"}}) {
      const ProgramResult result = RunSync(server.Url("/d/"), "here", more, options);
      EXPECT_THAT(result.terminal, HasSubstr("forged: line")) << "the name was shown at all";
      EXPECT_FALSE(HasControls(result.terminal)) << result.Describe();
      EXPECT_THAT(result.terminal, Not(HasSubstr("\nforged")));
      if (more.front() != "--json") continue;
      const json report = json::parse(result.terminal.substr(result.terminal.find('{')));
      EXPECT_EQ(ActionsIn(report).begin()->first,
                "x\nforged: line\x1b[31m\xC2\x9B"
                "31m\xE2\x80\xAE.txt");
    }
  }
}

TEST(SyncNames, ArriveAsTheyAreWhateverTheLocale) {
  const std::string name = "gr\xC3\xBC\xC3\x9F";
  const ScriptedServer server(
      KeepAlive(Routes({{"/d/", ListingOf({name, "bytes %FF"})}, {"/d/gr%C3%BC%C3%9F", Content("x")}})));
  const TempDir folder;
  ProgramOptions options;
  options.environment["LC_ALL"] = "C";
  const ProgramResult result = RunSync(server.Url("/d/"), folder / "here", {"-v"}, options);
  EXPECT_EQ(ReadFile(folder / "here" / name), "x") << result.Describe();
  EXPECT_THAT(result.err, AllOf(HasSubstr("fetched: gr\\xC3\\xBC\\xC3\\x9F"), HasSubstr("bytes \\xFF")));
  const json report = ParseReport(RunSync(server.Url("/d/"), folder / "here", {"--json"}));
  EXPECT_EQ(FileIn(report, name)["action"], "fetch");
  EXPECT_EQ(FileIn(report, "bytes \xEF\xBF\xBD")["httpStatus"], 404);
}

// --- secrets

TEST(SyncSecrets, AppearNowhere) {
  const TempDir folder;
  const Pki pki = MakePki(folder.Path());
  const std::string content = MakePattern(300000);
  const auto guarded = [&](Connection& peer, const Request& request) {
    const bool isGood =
        request.Header("Authorization") == "Basic YWRhOnMzY3JldA==" && request.Header("X-Token") == "t0ken";
    if (!isGood) return Status(401, "no", {{"WWW-Authenticate", "Basic realm=\"x\""}})(peer, request);
    ContentOptions options;
    options.headers = {{"ETag", "\"v1\""}};
    options.stopAfter = 200000;
    request.Path() == "/d/" ? Content(PageOf({"f"}))(peer, request) : Content(content, options)(peer, request);
  };
  const ScriptedServer server(KeepAlive(guarded), pki.server);
  WriteFile(folder / "headers", "X-Token: t0ken\n");
  for (const char* const password : {"s3cret", "wrong-s3cret"}) {
    ProgramOptions options;
    options.environment["CORVANE_PASSWORD"] = password;
    const ProgramResult result = RunSync(server.Url("/d/"), folder / "here",
                                         {"--user", "ada", "--cacert", pki.caFile, "--header-file", folder / "headers",
                                          "--retries", "0", "-v", "--json", "--log-file", folder / "log"},
                                         options);
    EXPECT_EQ(result.exitCode, std::string(password) == "s3cret" ? 1 : 4) << result.Describe();
    std::string everything = result.out + result.err + ReadFile(folder / "log");
    for (const auto& [path, bytes] : TreeIn(folder / "here")) everything += bytes;
    EXPECT_THAT(everything, HasSubstr("300000")) << "what is under way was looked at, too";
    for (const char* const secret : {"s3cret", "YWRh", "t0ken"}) EXPECT_THAT(everything, Not(HasSubstr(secret)));
  }
}

}  // namespace
}  // namespace CorvaneTest
