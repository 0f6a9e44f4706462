// corvane sync when something fails: what is said, how it ends, and what is there then.

#include <gmock/gmock.h>

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/cli/CliTesting.h"
#include "tests/cli/MirrorPages.h"
#include "tests/cli/SyncTesting.h"
#include "tests/cli/VersionedFile.h"
#include "tests/support/ScriptedFtpServer.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

// --- the command line

struct UsageCase {
  std::vector<std::string> options;
  const char* text;
};

TEST(SyncUsage, WrongOptionsAreRefusedBeforeAnything) {
  const UsageCase cases[] = {
      {{"--max-delete", "5"}, "--max-delete needs --delete"},
      {{"--delete", "--max-delete", "-1"}, "--max-delete \"-1\" is no number of files"},
      {{"--include", ""}, "--include got an empty pattern"},
      {{"--exclude", ""}, "--exclude got an empty pattern"},
      {{"--exclude", "//"}, "--exclude got an empty pattern"},
      {{"--depth", "65"}, "give a whole number from 0 to 64"},
      {{"--connections", "0"}, "give a whole number from 1 to 64"},
      {{"--connections", "65"}, "give a whole number from 1 to 64"},
      {{"--redirects", "51"}, "give a whole number from 0 to 50"},
      {{"--retries", "101"}, "give a whole number from 0 to 100"},
      {{"--resume"}, "--resume is not known here"},
  };
  const TempDir folder;
  for (const UsageCase& c : cases) {
    const ProgramResult result = RunSync("http://127.0.0.1:1/", folder / "here", c.options);
    EXPECT_EQ(result.exitCode, 2) << result.Describe();
    EXPECT_THAT(result.err,
                AllOf(StartsWith("corvane: "), HasSubstr(c.text), HasSubstr("\nTry: corvane sync --help\n")));
  }
  EXPECT_FALSE(fs::exists(folder / "here"));
}

TEST(SyncUsage, UrlAndDirectoryAreDemanded) {
  EXPECT_THAT(RunCorvane({"sync"}).err, StartsWith("corvane: no URL; "));
  EXPECT_THAT(RunCorvane({"sync", "http://h/"}).err, StartsWith("corvane: no DIR; "));
  EXPECT_THAT(RunCorvane({"sync", "http://h/", ""}).err, StartsWith("corvane: DIR is empty; "));
  EXPECT_THAT(RunCorvane({"sync", "http://ada:s3cret@h/", "d"}).err,
              AllOf(HasSubstr("--user"), Not(HasSubstr("s3cret"))));
  EXPECT_THAT(RunCorvane({"sync", "ftp://h/?x", "d"}).err, HasSubstr("cannot sync ftp://h/?x: FTP has no queries"));
  for (const std::vector<std::string>& command : std::vector<std::vector<std::string>>{
           {"sync"}, {"sync", "http://h/"}, {"sync", "http://h/", ""}, {"sync", "ftp://h/?x", "d"}}) {
    EXPECT_EQ(RunCorvane(command).exitCode, 2);
  }
}

// --- the directory itself

TEST(SyncFailure, TellsWhyTheDirectoryCannotBeHad) {
  struct Case {
    Responder page;
    int exitCode;
    const char* text;
  };
  const Case cases[] = {
      {Status(404), 1, "the server answered 404 Not Found; check the path"},
      {Status(401, "", {{"WWW-Authenticate", "Basic realm=\"x\""}}), 4,
       "the server answered 401 Unauthorized; give --user NAME"},
      {Status(403), 4, "the server answered 403 Forbidden; check the path, or give --user NAME"},
      {Status(500), 1, "the server answered 500 Internal Server Error; the server has a problem: try again later"},
      {Redirect("ftp://127.0.0.1/d/"), 1, "the server redirects to ftp://127.0.0.1/d/, which is not followed; ask for"},
      {Content("<html><body>Welcome to <a href=\"shop/cart\">our shop</a></body></html>"), 1,
       "the page is no listing of a directory; check the URL"},
  };
  for (const Case& c : cases) {
    const ScriptedServer server(KeepAlive(Routes({{"/d/", c.page}})));
    const TempDir folder;
    const ProgramResult result = RunSync(server.Url("/d/"), folder / "here", {"--retries", "0", "--json"});
    EXPECT_EQ(result.exitCode, c.exitCode) << result.Describe();
    EXPECT_THAT(OnlyErrorLine(result), StartsWith("corvane: cannot sync " + server.Url("/d/") + ": " + c.text));
    const json report = ParseReport(result);
    EXPECT_EQ(report["exitCode"], c.exitCode);
    EXPECT_EQ(report["error"], OnlyErrorLine(result).substr(9));
    EXPECT_EQ(report["statistics"]["foldersFailed"], 1);
    EXPECT_EQ(FileIn(report, "/")["isFolder"], true);
  }
  const TempDir folder;
  const ProgramResult refused = RunSync(RefusedUrl(), folder / "here", {"--retries", "0"});
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_THAT(OnlyErrorLine(refused), HasSubstr("the connection failed"));
}

TEST(SyncFailure, TriesAgainWhatMayPass) {
  VersionedFile file({"content", {{"ETag", "\"v1\""}}});
  file.BreakAfter({3});
  std::atomic<bool> isFirst{true};
  const Responder busyOnce = [&](Connection& peer, const Request& request) {
    isFirst.exchange(false) ? Status(503)(peer, request) : Content(PageOf({"f"}))(peer, request);
  };
  const ScriptedServer server(KeepAlive(Routes({{"/d/", busyOnce}, {"/d/f", file.Serve()}})));
  const TempDir folder;
  const ProgramResult result = RunSync(server.Url("/d/"), folder / "here", {"--retry-wait", "0", "--json"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_EQ(ReadFile(folder / "here/f"), "content");
  EXPECT_EQ(FileIn(ParseReport(result), "f")["attempts"], 2);
  EXPECT_THAT(PathsAskedOf(server), ElementsAre("/d/", "/d/", "/d/f", "/d/f"));
}

// --- files

TEST(SyncFailure, NamesTheFileTheReasonAndTheRemedyAndFetchesTheRest) {
  const ScriptedServer server(KeepAlive(Directory({{"a", Content("a")}, {"b[1]", Status(404)}, {"c", Content("c")}})));
  const TempDir folder;
  const std::string here = folder / "here";
  const ProgramResult result = RunSync(server.Url("/d/"), here);
  EXPECT_EQ(result.exitCode, 1) << result.Describe();
  EXPECT_THAT(result.err,
              testing::MatchesRegex("corvane: cannot sync " + server.Url("/d/") +
                                    ": b.1.: the server answered 404 Not Found; leave it out with --exclude "
                                    "'/b.*1.'\ncorvane: " +
                                    here + "  2 fetched, 0 continued, 0 kept, 1 failed; 2 B in [^\n]*\n" +
                                    "corvane: the same command goes on from here: corvane sync " + server.Url("/d/") +
                                    " " + here + "\n"));
  EXPECT_THAT(result.err, HasSubstr("--exclude '/b\\[1]'"));
  EXPECT_EQ(TreeIn(here), (Tree{{"a", "a"}, {"c", "c"}}));
  const ProgramResult without = RunSync(server.Url("/d/"), here, {"--exclude", "/b\\[1]"});
  EXPECT_EQ(without.exitCode, 0) << "what the remedy says helps: " << without.Describe();
}

TEST(SyncFailure, NamesTheFirstTwentyAndCountsTheRest) {
  std::map<std::string, Responder> files = {{"good", Content("x")}};
  for (int number = 10; number < 35; ++number) files["bad" + std::to_string(number)] = Status(404);
  const ScriptedServer server(KeepAlive(Directory(files)));
  const TempDir folder;
  const ProgramResult result = RunSync(server.Url("/d/"), folder / "here", {"--connections", "1", "--json"});
  EXPECT_EQ(result.exitCode, 1) << result.Describe();
  EXPECT_THAT(result.err, StartsWith("corvane: cannot sync " + server.Url("/d/") +
                                     ": 25 files failed, first bad10: the server answered 404 Not Found; "));
  for (int number = 11; number < 30; ++number) {
    EXPECT_THAT(result.err,
                HasSubstr("\ncorvane: also failed: bad" + std::to_string(number) + ": the server answered 404\n"));
  }
  EXPECT_THAT(result.err, AllOf(Not(HasSubstr("bad30")), HasSubstr("\ncorvane: and 5 more; -v names them all\n")));
  const json report = ParseReport(result);
  EXPECT_EQ(report["files"].size(), 26U) << "the report has them all";
  EXPECT_EQ(FileIn(report, "bad34")["httpStatus"], 404);
  EXPECT_EQ(FileIn(report, "bad34")["error"], "The server answered 404.");
  const ProgramResult verbose = RunSync(server.Url("/d/"), folder / "here", {"-v"});
  for (int number = 10; number < 35; ++number) {
    EXPECT_THAT(verbose.err, HasSubstr("bad" + std::to_string(number) + ": The server answered 404."));
  }
  EXPECT_THAT(verbose.err, Not(HasSubstr("also failed")));
}

TEST(SyncFailure, FailFastEndsAtTheFirst) {
  const ScriptedServer server(
      KeepAlive(Directory({{"a", Content("a")}, {"b", Status(404)}, {"c", Content("c")}, {"d", Content("d")}})));
  const TempDir folder;
  const ProgramResult result = RunSync(server.Url("/d/"), folder / "here", {"--fail-fast", "--connections", "1"});
  EXPECT_EQ(result.exitCode, 1) << result.Describe();
  EXPECT_EQ(TreeIn(folder / "here"), (Tree{{"a", "a"}}));
  // The next file may be under way when the answer is looked at, and is given up.
  const std::vector<std::string> asked = PathsAskedOf(server);
  ASSERT_GE(asked.size(), 3U);
  EXPECT_THAT(std::vector<std::string>(asked.begin(), asked.begin() + 3), ElementsAre("/d/", "/d/a", "/d/b"));
  EXPECT_THAT(asked, testing::Not(testing::Contains("/d/d")));
}

TEST(SyncFailure, CountsWhatIsLeftOutAndNamesItInTheLog) {
  std::string page = PageOf({"f"});
  page.insert(page.find("</pre>"), "<a href=\"%2e%2e%2fescape\">escape</a>\n<a href=\".corvane/\">.corvane/</a>\n");
  const ScriptedServer server(KeepAlive(Routes({{"/d/", Content(page)}, {"/d/f", Content("x")}})));
  const TempDir folder;
  const ProgramResult result = RunSync(server.Url("/d/"), folder / "here", {"--json", "-v"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_THAT(result.err, AllOf(HasSubstr("corvane: 2 entries are left out of what the server shows: no file or folder "
                                          "with a plain name; -v names them\n"),
                                HasSubstr("left out: ../escape (no file or folder with a plain name)\n"),
                                HasSubstr("left out: .corvane (no file or folder with a plain name)\n")));
  const json report = ParseReport(result);
  EXPECT_EQ(report["statistics"]["leftOut"], 2);
  EXPECT_EQ(FileIn(report, "../escape")["action"], "leaveOut");
  EXPECT_EQ(TreeIn(folder / "here"), (Tree{{"f", "x"}}));
  EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("here"));
}

// --- this side

TEST(SyncFailure, WhatIsInTheWayIsNamedAndStays) {
  const ScriptedServer server(KeepAlive(Directory({{"a", Content("a")}, {"b", Content("b")}})));
  const TempDir folder;
  WriteFile(folder / "here/b/in it", "mine");
  const ProgramResult result = RunSync(server.Url("/d/"), folder / "here", {"--delete", "--json"});
  EXPECT_EQ(result.exitCode, 3) << result.Describe();
  EXPECT_THAT(result.err,
              HasSubstr(": b: something that is no file stands in its place; remove what is there, or leave "
                        "it out with --exclude /b\n"));
  EXPECT_EQ(ReadFile(folder / "here/b/in it"), "mine");
  EXPECT_EQ(ReadFile(folder / "here/a"), "a");
  EXPECT_EQ(FileIn(ParseReport(result), "b")["reason"], "inTheWay");
}

TEST(SyncFailure, ADirectoryThatIsNoneIsALocalFailure) {
  const ScriptedServer server(KeepAlive(Directory({{"a", Content("a")}})));
  const TempDir folder;
  WriteFile(folder / "file", "mine");
  const ProgramResult result = RunSync(server.Url("/d/"), folder / "file");
  EXPECT_EQ(result.exitCode, 3) << result.Describe();
  EXPECT_EQ(OnlyErrorLine(result), "corvane: cannot sync " + server.Url("/d/") + ": " + (folder / "file").string() +
                                       ": Not a directory; choose another directory, or change the permissions");
  ProgramOptions options;
  options.environment["LC_ALL"] = "C";
  const ProgramResult name = RunSync(server.Url("/d/"), folder / "gr\xC3\xBC\xC3\x9F", {}, options);
  EXPECT_EQ(name.exitCode, 3) << name.Describe();
  EXPECT_THAT(OnlyErrorLine(name), HasSubstr("the locale cannot express the name; set LC_ALL=C.UTF-8"));
  EXPECT_THAT(server.Requests(), testing::IsEmpty());
}

TEST(SyncFailure, AnOutputThatTakesNothingIsALocalFailure) {
  const ScriptedServer server(KeepAlive(Directory({{"a", Content("a")}})));
  const TempDir folder;
  for (const char* const option : {"--json", "--plan"}) {
    const ProgramResult result =
        RunShell("exec \"$0\" sync \"$1\" \"$2\" $3 > /dev/full", {server.Url("/d/"), folder / "here", option});
    EXPECT_EQ(result.exitCode, 3) << result.Describe();
    EXPECT_THAT(OnlyErrorLine(result), HasSubstr("cannot write to the standard output: No space left on device"));
  }
}

TEST(SyncFailure, APlanShowsWhatItCouldFindOut) {
  const ScriptedServer server(KeepAlive(Routes({{"/d/", Content(PageOf({"f", "sub/"}))}, {"/d/f", Content("12345")}})));
  const TempDir folder;
  const ProgramResult result = RunSync(server.Url("/d/"), folder / "here", {"--plan"});
  EXPECT_EQ(result.exitCode, 1) << result.Describe();
  EXPECT_EQ(result.out,
            "fetch             5 B  f  (not here)\n"
            "refuse              -  sub/  (The server answered 404)\n"
            "1 to fetch, 0 to continue, 0 to keep, 0 to delete, 1 failed; 5 B to come\n");
  EXPECT_THAT(OnlyErrorLine(result), HasSubstr("sub/: the server answered 404 Not Found; leave it out with --exclude "
                                               "/sub"));
}

// --- requests

TEST(SyncRequests, CarryTheHeadersAndFollowRedirects) {
  const ScriptedServer other(KeepAlive(Directory({{"a", Content("a")}})));
  const ScriptedServer server(KeepAlive(Redirect(other.Url("/d/"))));
  const TempDir folder;
  const ProgramResult result = RunSync(server.Url("/start/"), folder / "here",
                                       {"--header", "X-Mine: 1", "--header", "Cookie: secret", "--user-agent", "me"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_EQ(ReadFile(folder / "here/a"), "a");
  EXPECT_EQ(server.Requests().front().Header("Cookie"), "secret");
  for (const Request& request : other.Requests()) {
    EXPECT_EQ(request.Header("X-Mine"), "1");
    EXPECT_EQ(request.Header("User-Agent"), "me");
    EXPECT_EQ(request.Header("Cookie"), std::nullopt) << "secrets are for the first server";
  }
  const ProgramResult refused = RunSync(server.Url("/start/"), folder / "other", {"--redirects", "0"});
  EXPECT_EQ(refused.exitCode, 1) << refused.Describe();
  EXPECT_THAT(OnlyErrorLine(refused), HasSubstr("which is not followed; ask for that address itself"));
  const ProgramResult usual = RunSync(other.Url("/d/"), folder / "third");
  EXPECT_EQ(usual.exitCode, 0);
  EXPECT_THAT(*other.Requests().back().Header("User-Agent"), StartsWith("corvane/"));
}

}  // namespace
}  // namespace CorvaneTest
