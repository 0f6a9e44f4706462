// corvane get: what it prints, and what it says when it cannot.

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/cli/CliTesting.h"
#include "tests/support/ScriptedFtpServer.h"
#include "tests/support/StalledListener.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr const char* kText =
    "Gr\xC3\xBC\xC3\x9F"
    "e\nWelt\n";

// --- to standard output

TEST(GetText, PrintsTheBodyByteByByteAndNothingElse) {
  const std::string text = std::string(kText) + '\0' + "\xEF\xBB\xBF\xF0\x9F\x98\x80\r\n no line feed at the end";
  const ScriptedServer server(KeepAlive(Content(text)));
  const ProgramResult result = RunCorvane({"get", server.Url("/text")});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_EQ(result.out, text);
  EXPECT_EQ(result.err, "");
}

TEST(GetText, IsUtf8InEveryLocale) {
  const ScriptedServer server(KeepAlive(Content(kText)));
  ProgramOptions options;
  options.environment["LC_ALL"] = "C";
  EXPECT_EQ(RunCorvane({"get", server.Url()}, options).out, kText);
}

TEST(GetText, PrintsNothingForAnEmptyBody) {
  const ScriptedServer server(KeepAlive(Content("")));
  const ProgramResult result = RunCorvane({"get", server.Url()});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_EQ(result.out, "");
}

TEST(GetText, CompletesAUrlWithoutScheme) {
  const ScriptedServer server(KeepAlive(Content(kText)));
  const std::string url = server.Url("/a").substr(std::string("http://").size());
  EXPECT_EQ(RunCorvane({"get", url}).out, kText);
}

TEST(GetText, FetchesOverFtp) {
  const ScriptedFtpServer server({{"/pub/a.txt", kText}});
  EXPECT_EQ(RunCorvane({"get", server.Url("/pub/a.txt")}).out, kText);
}

TEST(GetText, PrintsNothingOfAnErrorPage) {
  const ScriptedServer server(KeepAlive(Status(404, "the page")));
  const ProgramResult result = RunCorvane({"get", server.Url("/x")});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(OnlyErrorLine(result),
            "corvane: cannot get " + server.Url("/x") + ": the server answered 404 Not Found; check the path");
}

TEST(GetText, PrintsAnErrorPageThatIsAccepted) {
  const ScriptedServer server(KeepAlive(Status(404, "the page")));
  const ProgramResult result = RunCorvane({"get", server.Url("/x"), "--accept-http-errors"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.out, "the page");
}

TEST(GetText, SaysThatATruncatedBodyIsNotTheWhole) {
  ContentOptions cut;
  cut.stopAfter = 5;
  const ScriptedServer server(KeepAlive(Content("0123456789", cut)));
  const ProgramResult result = RunCorvane({"get", server.Url()});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.out, "01234");
  EXPECT_THAT(result.err, AllOf(HasSubstr("before the whole content had come"), EndsWith("that is not the whole\n")));
}

// --- standard output that takes nothing

TEST(StandardOutput, FullDeviceIsAFailure) {
  const ScriptedServer server(KeepAlive(Content(kText)));
  const ProgramResult result = RunShell("exec \"$0\" get \"$1\" > /dev/full", {server.Url()});
  EXPECT_EQ(result.exitCode, 3) << result.Describe();
  EXPECT_THAT(OnlyErrorLine(result),
              AllOf(HasSubstr("standard output"), HasSubstr("No space left"), HasSubstr("; check where it goes")));
}

TEST(StandardOutput, ClosedStreamIsAFailureAndNoFileTakesItsPlace) {
  const ScriptedServer server(KeepAlive(Content(kText)));
  for (const char* const options : {"", " --json", " --log-file /dev/null"}) {
    const ProgramResult result = RunShell(std::string("exec \"$0\" get \"$1\"") + options + " >&-", {server.Url()});
    EXPECT_EQ(result.exitCode, 3) << result.Describe();
    EXPECT_THAT(OnlyErrorLine(result), HasSubstr("Bad file descriptor"));
  }
}

TEST(StandardOutput, FileSizeLimitIsAFailure) {
  const ScriptedServer server(KeepAlive(Content(std::string(100000, 'x'))));
  const TempDir folder;
  ProgramOptions options;
  options.limits = {{RLIMIT_FSIZE, 4096}};
  const std::string script = "exec \"$0\" get \"$1\" > " + (folder / "out").string();
  const ProgramResult result = RunShell(script, {server.Url()}, options);
  EXPECT_EQ(result.exitCode, 3) << result.Describe();
  EXPECT_THAT(OnlyErrorLine(result), HasSubstr("File too large"));
}

// --- into a file

TEST(GetFile, WritesExactBytesSilently) {
  const std::string bytes = MakePattern(300000);
  const ScriptedServer server(KeepAlive(Content(bytes)));
  const TempDir folder;
  for (const char* const option : {"-o", "--output"}) {
    const ProgramResult result = RunCorvane({"get", server.Url(), option, folder / "sub/dir/file"});
    EXPECT_EQ(result.exitCode, 0) << result.Describe();
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(ReadFile(folder / "sub/dir/file"), bytes);
  }
}

TEST(GetFile, WritesAnEmptyFileForAnEmptyBody) {
  const ScriptedServer server(KeepAlive(Content("")));
  const TempDir folder;
  EXPECT_EQ(RunCorvane({"get", server.Url(), "-o", folder / "file"}).exitCode, 0);
  EXPECT_EQ(ReadFile(folder / "file"), "");
}

TEST(GetFile, TakesANameInTheLocalesEncoding) {
  const ScriptedServer server(KeepAlive(Content("x")));
  const TempDir folder;
  EXPECT_EQ(RunCorvane({"get", server.Url(), "-o", folder / "gr\xC3\xBC\xC3\x9F -o 100%2.txt"}).exitCode, 0);
  EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("gr\xC3\xBC\xC3\x9F -o 100%2.txt"));
}

TEST(GetFile, WritesThroughAPipe) {
  const std::string bytes = MakePattern(300000);
  const ScriptedServer server(KeepAlive(Content(bytes)));
  const ProgramResult result = RunCorvane({"get", server.Url(), "-o", "/dev/stdout"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_TRUE(result.out == bytes);
}

TEST(GetFile, KeepsAnErrorPageThatIsAccepted) {
  const ScriptedServer server(KeepAlive(Status(503, "the page")));
  const TempDir folder;
  const ProgramResult result = RunCorvane({"get", server.Url(), "-o", folder / "f", "--accept-http-errors", "--json"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_EQ(ReadFile(folder / "f"), "the page");
  EXPECT_EQ(ParseReport(result)["status"], "0x00010000");
}

TEST(GetFile, AcceptsNoMissingAnswer) {
  const TempDir folder;
  const ProgramResult result =
      RunCorvane({"get", RefusedUrl(), "-o", folder / "f", "--accept-http-errors", "--retries", "0"});
  EXPECT_EQ(result.exitCode, 1) << result.Describe();
  EXPECT_THAT(NamesIn(folder.Path()), IsEmpty());
}

// --- failures

TEST(GetFailure, NamesAnUnknownHost) {
  const ProgramResult result = RunCorvane({"get", "http://no-such-host.invalid/"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(OnlyErrorLine(result), AllOf(HasSubstr("http://no-such-host.invalid/"), HasSubstr("cannot be resolved"),
                                           HasSubstr("check the host name")));
}

TEST(GetFailure, NamesARefusedPort) {
  for (const char* const scheme : {"http", "ftp"}) {
    const std::string url = RefusedUrl(scheme);
    const ProgramResult result = RunCorvane({"get", url, "--retries", "0"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(OnlyErrorLine(result),
                AllOf(HasSubstr(url), HasSubstr("the connection failed"), HasSubstr("check the host and the port")));
  }
}

TEST(GetFailure, NamesTheTimeLimitThatRanOut) {
  const StalledListener listener;
  const ProgramResult result = RunCorvane({"get", listener.Url(), "--timeout", "1", "--retries", "0"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(OnlyErrorLine(result),
              AllOf(HasSubstr("it took too long"), HasSubstr("a limit of 1 seconds"), HasSubstr("--timeout SECONDS")));
}

TEST(GetFailure, NamesWhereARedirectionLeadsThatIsNotFollowed) {
  const ScriptedServer server(KeepAlive(Redirect("http://elsewhere.invalid/x")));
  const ProgramResult result = RunCorvane({"get", server.Url(), "--redirects", "0"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(OnlyErrorLine(result), AllOf(HasSubstr("302 Found"), HasSubstr("ask for http://elsewhere.invalid/x")));
}

TEST(GetFailure, TellsByTheExitCodeThatALoginIsMissing) {
  for (const int status : {401, 403, 407}) {
    const ScriptedServer server(KeepAlive(Status(status)));
    const ProgramResult result = RunCorvane({"get", server.Url()});
    EXPECT_EQ(result.exitCode, 4) << result.Describe();
    EXPECT_THAT(OnlyErrorLine(result), HasSubstr(std::to_string(status)));
  }
  const ScriptedFtpServer ftp({{"/a", "x"}});
  const_cast<ScriptedFtpServer&>(ftp).SetLogin("ada", "other");
  const ProgramResult result = RunCorvane({"get", ftp.Url("/a")});
  EXPECT_EQ(result.exitCode, 4) << result.Describe();
  EXPECT_THAT(OnlyErrorLine(result), HasSubstr("does not accept the login"));
}

TEST(GetFailure, NamesAMissingFtpFileAndLeavesNothing) {
  const ScriptedFtpServer server({{"/pub/a", "x"}});
  const TempDir folder;
  const ProgramResult result = RunCorvane({"get", server.Url("/pub/b"), "-o", folder / "b"});
  EXPECT_EQ(result.exitCode, 1) << result.Describe();
  EXPECT_THAT(OnlyErrorLine(result), HasSubstr("server does not have the file"));
  EXPECT_THAT(NamesIn(folder.Path()), IsEmpty());
}

// libcurl calls it a success: no length was announced, and the connection has ended.
TEST(GetFailure, IsAnAnswerThatEndsWithinItsHeader) {
  for (const char* const head : {"HTTP/1.1 200 OK\r\n", "HTTP/1.1 200 OK\r\nServer: x\r\n",
                                 "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\nServer: x\r\n"}) {
    const ScriptedServer server(OncePerConnection([head](Connection& peer, const Request&) { peer.Send(head); }));
    const TempDir folder;
    for (const std::vector<std::string>& where : {std::vector<std::string>{}, {"-o", folder / "b"}, {"--json"}}) {
      std::vector<std::string> line{"get", server.Url(), "--retries", "0"};
      line.insert(line.end(), where.begin(), where.end());
      const ProgramResult result = RunCorvane(line);
      EXPECT_EQ(result.exitCode, 1) << result.Describe();
      EXPECT_THAT(where == std::vector<std::string>{"--json"} ? result.out : result.err,
                  HasSubstr("the answer ends within its header lines"));
    }
    EXPECT_THAT(NamesIn(folder.Path()), IsEmpty()) << head;
  }
}

TEST(GetFailure, LetsNoServerTextReachTheTerminalUnchanged) {
  const ScriptedServer server(OncePerConnection([](Connection& peer, const Request&) {
    peer.Send("HTTP/1.1 404 \x1b[2J\x1b]0;title\x07\r\nContent-Length: 0\r\n\r\n");
  }));
  const ProgramResult result = RunCorvane({"get", server.Url()});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(OnlyErrorLine(result), AllOf(HasSubstr("404"), Not(HasSubstr("\x1b")), Not(HasSubstr("\x07"))));
}

// --- JSON

TEST(GetJson, DescribesASuccessInOneObject) {
  const ScriptedServer server(KeepAlive(Content(kText, {.headers = {{"X-Test", "yes"}}})));
  const ProgramResult result = RunCorvane({"get", server.Url("/a"), "--json"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_EQ(result.err, "");
  const nlohmann::json report = ParseReport(result);
  EXPECT_EQ(report["operation"], "get");
  EXPECT_EQ(report["url"], server.Url("/a"));
  EXPECT_EQ(report["file"], nullptr);
  EXPECT_EQ(report["status"], "0x00010000");
  EXPECT_EQ(report["error"], nullptr);
  EXPECT_EQ(report["contentSize"], 13);
  EXPECT_EQ(report["downloadSize"], 13);
  EXPECT_GT(report["transferSize"], 13);
  EXPECT_TRUE(report["transferRate"].is_number_unsigned());
  EXPECT_GE(report["transferTimeMs"], 0);
  EXPECT_THAT(report["header"].get<std::string>(),
              AllOf(StartsWith("HTTP/1.1 200 OK\r\n"), HasSubstr("X-Test: yes\r\n")));
  EXPECT_EQ(report["events"], nlohmann::json::parse(R"([[1, "0x80011002"]])"));
  EXPECT_EQ(report["partial"], nullptr);
  EXPECT_EQ(report["body"], kText);
}

TEST(GetJson, NamesTheFileAndOmitsTheBody) {
  const ScriptedServer server(KeepAlive(Content("x", {.framing = ContentOptions::Framing::kChunked})));
  const TempDir folder;
  const ProgramResult result = RunCorvane({"get", server.Url(), "-o", folder / "gr\xC3\xBC\xC3\x9F", "--json"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  const nlohmann::json report = ParseReport(result);
  EXPECT_EQ(report["file"], (folder / "gr\xC3\xBC\xC3\x9F").string());
  EXPECT_EQ(report["contentSize"], nullptr);  // the server did not tell
  EXPECT_EQ(report.count("body"), 0U);
}

TEST(GetJson, HasTheErrorPageAndTheReason) {
  const ScriptedServer server(KeepAlive(Status(404, "the page")));
  const ProgramResult result = RunCorvane({"get", server.Url(), "--json"});
  EXPECT_EQ(result.exitCode, 1);
  const nlohmann::json report = ParseReport(result);
  EXPECT_EQ(report["status"], "0x80011389");
  EXPECT_EQ("corvane: " + report["error"].get<std::string>(), OnlyErrorLine(result));
  EXPECT_EQ(report["body"], "the page");
  EXPECT_EQ(report["events"], nlohmann::json::parse(R"([[1, "0x80011389"]])"));
}

TEST(GetJson, IsThereWhenNothingWasBegun) {
  const ProgramResult result = RunCorvane({"get", "https://127.0.0.1:1/", "--cacert", "/no/such/file", "--json"});
  EXPECT_EQ(result.exitCode, 4);
  EXPECT_EQ(ParseReport(result)["status"], "0x80011001");
}

TEST(GetJson, IsNotThereForAWrongCommandLine) {
  const ProgramResult result = RunCorvane({"get", "http://h/", "--json", "--timeout", "x"});
  EXPECT_EQ(result.exitCode, 2);
  EXPECT_EQ(result.out, "");
}

TEST(GetJson, SurvivesBytesThatAreNotUtf8) {
  const ScriptedServer server(KeepAlive(Content("a\xFF", {.headers = {{"X-Test", "\xFF\xFE"}}})));
  const ProgramResult result = RunCorvane({"get", server.Url(), "--json"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(ParseReport(result)["body"], "a\xEF\xBF\xBD");
}

// --- throttle options

TEST(Throttle, LimitHoldsFromTheFirstByte) {
  const ScriptedServer server(KeepAlive(Content(MakePattern(std::size_t{3} * 65536))));
  const TempDir folder;
  const ProgramResult result =
      RunCorvane({"get", server.Url(), "-o", folder / "f", "--limit", "64k", "--log-file", folder / "log"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_THAT(ReadFile(folder / "log"), HasSubstr("Measure period not needed. Limit = 65536 b/s"));
}

TEST(Throttle, LowWaterMarkLeavesTheFirstSecondsFree) {
  const ScriptedServer server(KeepAlive(Content(MakePattern(1 << 20))));
  const TempDir folder;
  for (const std::vector<std::string>& limit : std::vector<std::vector<std::string>>{
           {"--limit", "1k", "--low-water", "100M"}, {"--limit-percent", "1"}, {"--no-throttle"}}) {
    std::vector<std::string> arguments = {"get", server.Url(), "-o", folder / "f", "--log-file", folder / "log"};
    arguments.insert(arguments.end(), limit.begin(), limit.end());
    const ProgramResult result = RunCorvane(arguments);  // at 1 KiB/s this would take 17 minutes
    EXPECT_EQ(result.exitCode, 0) << result.Describe();
  }
  EXPECT_THAT(ReadFile(folder / "log"), Not(HasSubstr("Limit =")));
}

}  // namespace
}  // namespace CorvaneTest
