// corvane mirror.

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>

#include <atomic>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/cli/CliTesting.h"
#include "tests/support/Daemons.h"
#include "tests/support/Gate.h"
#include "tests/support/Pki.h"
#include "tests/support/ScriptedFtpServer.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// A page in the style of most servers, in which no sizes can be found.
std::string PageOf(const std::vector<std::string>& names) {
  std::string page = "<html><body><pre>\n<a href=\"../\">../</a>\n";
  for (const std::string& name : names) {
    page.append("<a href=\"").append(name).append("\">").append(name).append("</a>  01-Jan-2026 00:00  5\n");
  }
  return page + "</pre></body></html>\n";
}

// A directory with these files under /d/, whose page lists them.
Responder Directory(const std::map<std::string, Responder>& files) {
  std::vector<std::string> names;
  std::map<std::string, Responder> table;
  for (const auto& [name, responder] : files) {
    names.push_back(name);
    table["/d/" + name] = responder;
  }
  table["/d/"] = Content(PageOf(names));
  return Routes(table);
}

std::vector<std::string> PathsAskedOf(const ScriptedServer& server) {
  std::vector<std::string> paths;
  for (const Request& request : server.Requests()) paths.push_back(request.Path());
  return paths;
}

// --- what is fetched

TEST(Mirror, FetchesTheFilesOfARealWebServer) {
  NginxServer server;
  const std::map<std::string, std::string> files = {
      {"a.bin", MakePattern(300000)}, {"empty", ""}, {"gr\xC3\xBC\xC3\x9F 100%2.txt", "x"}, {"b;c=d#.txt", "yy"}};
  for (const auto& [name, content] : files) WriteFile(server.RootDir() / "pub" / name, content);
  WriteFile(server.RootDir() / "pub/sub/deep", "not fetched");
  const TempDir folder;
  const fs::path target = folder / "new/dir";
  const ProgramResult result = RunCorvane({"mirror", server.Url("/pub/"), target});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_EQ(result.out + result.err, "");
  std::vector<std::string> names;
  for (const auto& [name, content] : files) {
    names.push_back(name);
    EXPECT_TRUE(ReadFile(target / name) == content) << name;
  }
  EXPECT_EQ(NamesIn(target), names);
}

TEST(Mirror, ResumesOverFtp) {
  const std::string content = MakePattern(50000);
  ScriptedFtpServer server({{"/pub/complete", content}, {"/pub/missing", content}, {"/pub/partial", content}});
  const TempDir folder;
  WriteFile(folder / "complete", content);
  WriteFile(folder / "partial", content.substr(0, 20000));
  const ProgramResult result = RunCorvane({"mirror", server.Url("/pub"), folder.Path(), "--resume", "--json"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  for (const char* const name : {"complete", "missing", "partial"})
    EXPECT_TRUE(ReadFile(folder / name) == content) << name;
  EXPECT_TRUE(server.HasCommand("REST 19968"));
  EXPECT_FALSE(server.HasCommand("RETR complete"));
  const nlohmann::json report = ParseReport(result);
  EXPECT_EQ(report["operation"], "mirror");
  EXPECT_EQ(report["url"], server.Url("/pub"));
  EXPECT_EQ(report["directory"], folder.Path().string());
  EXPECT_EQ(report["status"], "0x00010000");
  EXPECT_EQ(report["error"], nullptr);
  EXPECT_EQ(report["downloadSize"], 150000);
  EXPECT_GT(report["transferSize"], 80000);
  EXPECT_TRUE(report["transferRate"].is_number_unsigned());
  EXPECT_GE(report["transferTimeMs"], 0);
  EXPECT_EQ(report["events"].size(), 3U);  // the listing and two files
  EXPECT_EQ(report["file"], nullptr);
  EXPECT_EQ(report["files"],
            nlohmann::json({{"known", 3}, {"fetched", 1}, {"resumed", 1}, {"skipped", 1}, {"mismatched", 0}}));
  EXPECT_EQ(report["receivedSize"], 80000);
}

TEST(Mirror, LeavesOutIgnoredFiles) {
  const ScriptedServer server(KeepAlive(Directory({{"a", Content("a")}, {"b", Content("b")}, {"c d", Content("c")}})));
  const TempDir folder;
  const ProgramResult result =
      RunCorvane({"mirror", server.Url("/d"), folder.Path(), "--ignore", "a", "--ignore", "c d", "--ignore", "other"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("b"));
}

TEST(Mirror, TakesNamesSizesAndTimesFromLists) {
  const ScriptedServer server(
      KeepAlive(Routes({{"/d/a", Content("12345")}, {"/d/b%20c", Content("123")}, {"/d/d", Content("x")}})));
  const TempDir folder;
  WriteFile(folder / "sizes", "a\t5\nb c\t3\r\n");
  WriteFile(folder / "times", "a\t1000000000");
  const ProgramResult result = RunCorvane(
      {"mirror", server.Url("/d/"), folder / "dir", "--sizes", folder / "sizes", "--times", folder / "times"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_THAT(NamesIn(folder / "dir"), ElementsAre("a", "b c"));
  EXPECT_THAT(PathsAskedOf(server), ElementsAre("/d/a", "/d/b%20c"));  // no listing
  struct stat status {};
  ASSERT_EQ(stat((folder / "dir/a").c_str(), &status), 0);
  EXPECT_EQ(status.st_mtime, 1000000000);
  EXPECT_EQ(status.st_mode & 0777, 0755U);
}

TEST(Mirror, TellsWhenTheServerListsNoFiles) {
  const ScriptedServer server(KeepAlive(Routes({{"/table/", Content("<table><a href=\"a\">a</a></table>")}})));
  const TempDir folder;
  const ProgramResult result = RunCorvane({"mirror", server.Url("/table/"), folder.Path()});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_EQ(OnlyErrorLine(result), "corvane: the server lists no files at " + server.Url("/table/") +
                                       "; if there are some, name them with --sizes");
  EXPECT_EQ(RunCorvane({"mirror", server.Url("/table/"), folder.Path(), "--quiet"}).err, "");
}

TEST(Mirror, CompletesAUrlWithoutScheme) {
  const ScriptedServer server(KeepAlive(Directory({{"a", Content("a")}})));
  const TempDir folder;
  EXPECT_EQ(RunCorvane({"mirror", server.Url("/d").substr(7), folder.Path()}).exitCode, 0);
  EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("a"));
}

// --- failures

TEST(MirrorFailure, WithoutAListingTouchesNothing) {
  const ScriptedServer server(
      KeepAlive(Routes({{"/401/", Status(401)}, {"/500/", Status(500)}, {"/moved/", Redirect("/x/")}})));
  struct Case {
    std::string url;
    int code;
    const char* reason;
  };
  const Case cases[] = {
      {"http://no-such-host.invalid/", 1, "cannot be resolved"},
      {RefusedUrl(), 1, "the connection failed"},
      {RefusedUrl("ftp"), 1, "the connection failed"},
      {server.Url("/404/"), 1, "404 Not Found; check the path"},
      {server.Url("/500/"), 1, "500 Internal Server Error"},
      {server.Url("/moved/"), 1, "ask for /x/ instead"},
      {server.Url("/401/"), 4, "401 Unauthorized; give --user NAME"},
  };
  const TempDir folder;
  WriteFile(folder / "dir/a", "old");
  WriteFile(folder / "sizes", "a\t5\n");
  for (const Case& c : cases) {
    const ProgramResult result = RunCorvane({"mirror", c.url, folder / "dir"});
    EXPECT_EQ(result.exitCode, c.code) << result.Describe();
    EXPECT_THAT(OnlyErrorLine(result), AllOf(HasSubstr("cannot mirror " + c.url), HasSubstr(c.reason)));
    EXPECT_EQ(ReadFile(folder / "dir/a"), "old");
  }
}

TEST(MirrorFailure, UnreachableServerCostsNoFileOfAList) {
  const ScriptedServer server(KeepAlive(Routes({{"/401/", Status(401)}})));
  const TempDir folder;
  WriteFile(folder / "dir/a", "old");
  WriteFile(folder / "sizes", "a\t5\n");
  for (const std::string& url : {std::string("http://no-such-host.invalid/"), RefusedUrl(), RefusedUrl("https"),
                                 RefusedUrl("ftp"), server.Url("/401/")}) {
    for (const char* const resume : {"--resume", "--no-throttle"}) {
      const ProgramResult result = RunCorvane({"mirror", url, folder / "dir", "--sizes", folder / "sizes", resume});
      EXPECT_THAT(result.exitCode, testing::AnyOf(1, 4)) << result.Describe();
      EXPECT_THAT(OnlyErrorLine(result), HasSubstr("cannot mirror " + url));
      EXPECT_EQ(ReadFile(folder / "dir/a"), "old") << url;
    }
  }
}

TEST(MirrorFailure, ServerWithoutListingStillGivesTheFilesOfAList) {
  const ScriptedServer server(KeepAlive(Routes({{"/d/", Status(403)}, {"/d/a", Content("12345")}})));
  const TempDir folder;
  WriteFile(folder / "dir/a", "old");
  WriteFile(folder / "sizes", "a\t5\n");
  const ProgramResult result = RunCorvane({"mirror", server.Url("/d/"), folder / "dir", "--sizes", folder / "sizes"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_EQ(ReadFile(folder / "dir/a"), "12345");
}

TEST(MirrorFailure, NamesTheFileThatWasRefusedAndKeepsTheOthers) {
  const ScriptedServer server(KeepAlive(Directory({{"a", Content("12345")}, {"b", Status(404)}, {"c", Content("c")}})));
  const TempDir folder;
  const ProgramResult result = RunCorvane({"mirror", server.Url("/d/"), folder.Path()});
  EXPECT_EQ(result.exitCode, 1) << result.Describe();
  EXPECT_THAT(result.err,
              AllOf(HasSubstr("cannot mirror " + server.Url("/d/") + ": file b: "), HasSubstr("404 Not Found"),
                    HasSubstr("continue with: corvane mirror " + server.Url("/d/") + " " + folder.Path().string() +
                              " --resume\n")));
  EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("a"));
}

TEST(MirrorFailure, TellsASizeThatDiffersOfAnyFile) {
  const ScriptedServer server(KeepAlive(Directory({{"a", Content("12345")}, {"b", Content("123")}})));
  const TempDir folder;
  for (const char* const sizes : {"a\t4\nb\t3\n", "a\t5\nb\t2\n"}) {
    WriteFile(folder / "sizes", sizes);
    const ProgramResult result = RunCorvane({"mirror", server.Url("/d/"), folder / "dir", "--sizes", folder / "sizes"});
    EXPECT_EQ(result.exitCode, 1) << result.Describe();
    EXPECT_THAT(result.err, AllOf(HasSubstr("Download file size mismatch, File: "), HasSubstr("check the sizes in "),
                                  Not(HasSubstr("more"))));
  }
  WriteFile(folder / "sizes", "a\t4\nb\t2\n");
  const ProgramResult both =
      RunCorvane({"mirror", server.Url("/d/"), folder / "dir", "--sizes", folder / "sizes", "--json"});
  EXPECT_EQ(both.exitCode, 1) << both.Describe();
  EXPECT_THAT(both.err, HasSubstr("(and 1 more)"));
  EXPECT_EQ(ParseReport(both)["files"]["mismatched"], 2);
}

TEST(MirrorFailure, AsksTheServerOnlyOnceForWhatItRefuses) {
  const ScriptedServer server(KeepAlive(Routes({{"/d/", Status(403)}})));
  const TempDir folder;
  const ProgramResult result = RunCorvane({"mirror", server.Url("/d/"), folder.Path()});
  EXPECT_EQ(result.exitCode, 4) << result.Describe();
  EXPECT_THAT(OnlyErrorLine(result), HasSubstr("403 Forbidden"));
  EXPECT_THAT(PathsAskedOf(server), ElementsAre("/d/"));
}

TEST(MirrorFailure, TellsWhatToRemoveWhenTheServerCannotResume) {
  const Responder whole = [](Connection& peer, const Request&) {
    peer.Send(FormatHead(200, {{"Content-Length", "500"}}) + MakePattern(500));  // whatever range was asked for
  };
  const ScriptedServer server(KeepAlive(Routes({{"/d/a", Content("12345")}, {"/d/b%20c", whole}})));
  const TempDir folder;
  WriteFile(folder / "dir/b c", MakePattern(200));
  WriteFile(folder / "sizes", "a\t5\nb c\t500\n");
  const std::vector<std::string> command = {"mirror",  server.Url("/d/"), folder / "dir",
                                            "--sizes", folder / "sizes",  "--resume"};
  const ProgramResult refused = RunCorvane(command);
  EXPECT_EQ(refused.exitCode, 1) << refused.Describe();
  EXPECT_THAT(refused.err, AllOf(HasSubstr(": file b c: the server cannot resume: it sends only the whole content"),
                                 HasSubstr("; remove " + (folder / "dir/b c").string() +
                                           ", which has to be fetched from its beginning\n"),
                                 HasSubstr("continue with: corvane mirror ")));
  EXPECT_TRUE(ReadFile(folder / "dir/b c") == MakePattern(200)) << "what is there is kept";
  fs::remove(folder / "dir/b c");
  EXPECT_EQ(RunCorvane(command).exitCode, 0);
  EXPECT_TRUE(ReadFile(folder / "dir/b c") == MakePattern(500));
  EXPECT_EQ(ReadFile(folder / "dir/a"), "12345");
}

TEST(MirrorFailure, NeedsTheSpaceThatTheListsSay) {
  const ScriptedServer server(KeepAlive(Directory({{"a", Content("12345")}})));
  const TempDir folder;
  WriteFile(folder / "sizes", "a\t9000000000000000000\n");
  const ProgramResult result = RunCorvane({"mirror", server.Url("/d/"), folder / "dir", "--sizes", folder / "sizes"});
  EXPECT_EQ(result.exitCode, 3) << result.Describe();
  EXPECT_THAT(OnlyErrorLine(result), AllOf(HasSubstr("Insufficient disk space"), HasSubstr("; free some space")));
}

TEST(MirrorFailure, RefusesACertificateThatIsNotTrusted) {
  const TempDir folder;
  const Pki pki = MakePki(folder.Path());
  const ScriptedServer server(KeepAlive(Directory({{"a", Content("a")}})), pki.server);
  WriteFile(folder / "sizes", "a\t1\n");
  for (const std::vector<std::string>& list :
       std::vector<std::vector<std::string>>{{}, {"--sizes", folder / "sizes"}}) {
    std::vector<std::string> arguments = {"mirror", server.Url("/d/"), folder / "dir"};
    arguments.insert(arguments.end(), list.begin(), list.end());
    const ProgramResult result = RunCorvane(arguments);
    EXPECT_EQ(result.exitCode, 4) << result.Describe();
    EXPECT_THAT(OnlyErrorLine(result), HasSubstr("certificate was not accepted"));
    EXPECT_THAT(NamesIn(folder / "dir"), IsEmpty());
    arguments.insert(arguments.end(), {"--cacert", pki.caFile});
    EXPECT_EQ(RunCorvane(arguments).exitCode, 0);
    fs::remove_all(folder / "dir");
  }
}

TEST(MirrorFailure, NamesADirectoryThatCannotBeWritten) {
  const TempDir folder;
  WriteFile(folder / "file", "x");
  struct Case {
    std::string path;
    const char* reason;
  };
  const Case cases[] = {{folder / "file", "Not a directory"},
                        {folder / "file/dir", "Not a directory"},
                        {folder / "\xFF", "the locale cannot express the name"},
                        {"/proc/new", "No such file or directory"}};
  for (const Case& c : cases) {
    const ProgramResult result = RunCorvane({"mirror", RefusedUrl(), c.path});
    EXPECT_EQ(result.exitCode, 3) << result.Describe();
    EXPECT_THAT(OnlyErrorLine(result), AllOf(HasSubstr("cannot write into"), HasSubstr(c.reason), HasSubstr("; ")));
  }
}

TEST(MirrorUsage, NamesTheWrongLineOfAList) {
  const TempDir folder;
  struct Case {
    const char* text;
    const char* problem;
  };
  const Case cases[] = {
      {"a\t5\nb\n", "line 2 of "},
      {"a\t5\n\nb\t6\n", "line 2 of "},
      {"5 a\n", "there is no tab"},
      {"# sizes\n", "there is no tab"},
      {"a\tx\n", "no number follows"},
      {"a\t5 \n", "no number follows"},
      {"a\t\n", "no number follows"},
      {"a\t-1\n", "no number follows"},
      {"a\t99999999999999999999\n", "no number follows"},
      {"\t5\n", "plain name"},
      {"../a\t5\n", "plain name"},
      {"..\t5\n", "plain name"},
      {"a\t5\na\t6\n", "there twice"},
      {"\xFF\t5\n", "LC_ALL=C.UTF-8"},
  };
  for (const Case& c : cases) {
    WriteFile(folder / "list", c.text);
    for (const char* const option : {"--sizes", "--times"}) {
      const ProgramResult result = RunCorvane({"mirror", RefusedUrl(), folder / "dir", option, folder / "list"});
      EXPECT_EQ(result.exitCode, 2) << result.Describe();
      EXPECT_THAT(OnlyErrorLine(result), AllOf(HasSubstr((folder / "list").string()), HasSubstr(c.problem)));
    }
  }
  WriteFile(folder / "list", "");
  const ProgramResult empty = RunCorvane({"mirror", RefusedUrl(), folder / "dir", "--sizes", folder / "list"});
  EXPECT_EQ(empty.exitCode, 2);
  EXPECT_THAT(OnlyErrorLine(empty), HasSubstr("it names no file"));
  WriteFile(folder / "list", "a\t9223372036854775808\n");
  EXPECT_EQ(RunCorvane({"mirror", RefusedUrl(), folder / "dir", "--times", folder / "list"}).exitCode, 2);
  const ProgramResult missing = RunCorvane({"mirror", RefusedUrl(), folder / "dir", "--sizes", folder / "none"});
  EXPECT_EQ(missing.exitCode, 2);
  EXPECT_THAT(OnlyErrorLine(missing), HasSubstr("No such file"));
  EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("list"));
}

TEST(MirrorUsage, NeedsUrlAndDirectory) {
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{"mirror"},
                                             {"mirror", "http://h/"},
                                             {"mirror", "http://h/", ""},
                                             {"mirror", "http://h/", "d", "e"},
                                             {"mirror", "http://a:b@h/", "d"}}) {
    const ProgramResult result = RunCorvane(arguments);
    EXPECT_EQ(result.exitCode, 2) << result.Describe();
    EXPECT_THAT(result.err, testing::EndsWith("Try: corvane mirror --help\n"));
  }
}

// --- people

TEST(MirrorInterrupt, KeepsWhatCameAndTellsHowToGoOn) {
  Gate sent;
  const Responder stalled = [&](Connection& peer, const Request&) {
    peer.Send(FormatHead(200, {{"Content-Length", "5000"}}) + std::string(1000, 'x'));
    sent.Open();
    peer.WaitUntilStopped();
  };
  const ScriptedServer server(KeepAlive(Directory({{"a", Content("12345")}, {"b", stalled}, {"c", Content("c")}})));
  const TempDir folder;
  const auto program = StartCorvane({"mirror", server.Url("/d/"), folder.Path(), "--json"});
  ASSERT_TRUE(sent.Wait());
  const Deadline deadline = After(kPatience);
  while (NamesIn(folder.Path()).size() < 2 || FileSize(folder / "b") < 1000) ASSERT_LT(Clock::now(), deadline);
  program->Kill(SIGINT);
  const auto result = program->Wait();
  ASSERT_TRUE(result.has_value());
  EXPECT_EQ(result->exitCode, 130) << result->Describe();
  EXPECT_THAT(result->err, AllOf(HasSubstr("corvane: interrupted\n"), HasSubstr("continue with: corvane mirror ")));
  EXPECT_EQ(ParseReport(*result)["status"], "0x80011003");
  EXPECT_EQ(ParseReport(*result)["file"], "b");
  EXPECT_EQ(ParseReport(*result)["receivedSize"], 1005);
  EXPECT_EQ(ReadFile(folder / "a"), "12345");
  EXPECT_EQ(FileSize(folder / "b"), 1000U);
  EXPECT_FALSE(fs::exists(folder / "c"));
}

TEST(MirrorInterrupt, IsContinuedByTheSameCommandWithResume) {
  Gate sent;
  const std::string content = MakePattern(5000);
  std::atomic<bool> stalls{true};
  const Responder stalledOnce = [&](Connection& peer, const Request& request) {
    if (!stalls.exchange(false)) return Content(content)(peer, request);
    peer.Send(FormatHead(200, {{"Content-Length", "5000"}}) + content.substr(0, 1000));
    sent.Open();
    peer.WaitUntilStopped();
  };
  const ScriptedServer server(KeepAlive(Directory({{"a", Content("12345")}, {"b", stalledOnce}, {"c", Content("c")}})));
  const TempDir folder;
  WriteFile(folder / "sizes", "a\t5\nb\t5000\nc\t1\n");
  std::vector<std::string> command = {"mirror", server.Url("/d/"), folder / "dir", "--sizes", folder / "sizes"};
  const auto program = StartCorvane(command);
  ASSERT_TRUE(sent.Wait());
  const Deadline deadline = After(kPatience);
  while (!fs::exists(folder / "dir/b") || FileSize(folder / "dir/b") < 1000) ASSERT_LT(Clock::now(), deadline);
  program->Kill(SIGINT);
  const auto interrupted = program->Wait();
  ASSERT_TRUE(interrupted.has_value());
  ASSERT_EQ(interrupted->exitCode, 130) << interrupted->Describe();

  command.insert(command.end(), {"--resume", "--json"});
  const ProgramResult result = RunCorvane(command);
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_TRUE(ReadFile(folder / "dir/b") == content);
  EXPECT_EQ(ReadFile(folder / "dir/c"), "c");
  EXPECT_EQ(ParseReport(result)["files"],
            nlohmann::json({{"known", 3}, {"fetched", 1}, {"resumed", 1}, {"skipped", 1}, {"mismatched", 0}}));
  EXPECT_EQ(ParseReport(result)["receivedSize"], 4001);
  EXPECT_THAT(PathsAskedOf(server), ElementsAre("/d/a", "/d/b", "/d/b", "/d/c")) << "what is complete is not asked for";
}

TEST(MirrorInterrupt, StopsAStalledListing) {
  Gate asked;
  const ScriptedServer server([&](Connection& peer) {
    peer.ReadRequest();
    asked.Open();
    peer.WaitUntilStopped();
  });
  const TempDir folder;
  const auto program = StartCorvane({"mirror", server.Url("/d/"), folder.Path()});
  ASSERT_TRUE(asked.Wait());
  program->Kill(SIGINT);
  const auto result = program->Wait();
  ASSERT_TRUE(result.has_value());
  EXPECT_EQ(result->exitCode, 130) << result->Describe();
  EXPECT_EQ(OnlyErrorLine(*result), "corvane: interrupted");
}

TEST(MirrorProgress, CountsTheFiles) {
  Gate goOn;
  const Responder halved = [&](Connection& peer, const Request&) {
    peer.Send(FormatHead(200, {{"Content-Length", "5000"}}) + std::string(2500, 'x'));
    if (peer.WaitFor(goOn)) peer.Send(std::string(2500, 'x'));
  };
  const ScriptedServer server(KeepAlive(Directory({{"a", Content(std::string(5000, 'a'))}, {"b", halved}})));
  const TempDir folder;
  WriteFile(folder / "sizes", "a\t5000\nb\t5000\nz\t50\n");
  ProgramOptions options;
  options.terminalError = true;
  options.workingDirectory = folder.Path();
  const auto program = StartCorvane({"mirror", server.Url("/d/"), "dir", "--sizes", "sizes", "--ignore", "z"}, options);
  EXPECT_TRUE(program->WaitForTerminalOutput("\r\x1b[Kdir  1 of 2 files   75%  [")) << program->TerminalOutput();
  goOn.Open();
  const auto result = program->Wait();
  ASSERT_TRUE(result.has_value());
  EXPECT_EQ(result->exitCode, 0) << result->Describe();
  EXPECT_THAT(result->terminal,
              testing::ContainsRegex("\r.\\[Kdir  2 fetched, 0 skipped, 0 resumed; 9.8 KiB in .*/s\\)\r\n$"));
}

TEST(MirrorProgress, CountsFilesWhereSizesAreNotKnown) {
  Gate goOn;
  const Responder held = [&](Connection& peer, const Request&) {
    if (peer.WaitFor(goOn)) peer.Send(FormatHead(200, {{"Content-Length", "2"}}) + "bb");
  };
  const ScriptedServer server(KeepAlive(Directory({{"a", Content("a")}, {"b", held}})));
  const TempDir folder;
  ProgramOptions options;
  options.terminalError = true;
  options.workingDirectory = folder.Path();
  const auto program = StartCorvane({"mirror", server.Url("/d/"), "dir"}, options);
  EXPECT_TRUE(program->WaitForTerminalOutput("\r\x1b[Kdir  1 of 2 files   50%  [")) << program->TerminalOutput();
  goOn.Open();
  const auto result = program->Wait();
  ASSERT_TRUE(result.has_value());
  EXPECT_EQ(result->exitCode, 0) << result->Describe();
}

TEST(MirrorProgress, TellsOfASecondRunThatNothingWasFetched) {
  ScriptedFtpServer server({{"/pub/a", "12345"}, {"/pub/b", "67"}});
  const TempDir folder;
  ProgramOptions options;
  options.terminalError = true;
  for (const char* const summary :
       {"2 fetched, 0 skipped, 0 resumed; 7 B in ", "0 fetched, 2 skipped, 0 resumed; 0 B in "}) {
    const auto program = StartCorvane({"mirror", server.Url("/pub"), folder.Path(), "--resume"}, options);
    const auto result = program->Wait();
    ASSERT_TRUE(result.has_value());
    EXPECT_EQ(result->exitCode, 0) << result->Describe();
    EXPECT_THAT(result->terminal, HasSubstr(summary));
  }
}

}  // namespace
}  // namespace CorvaneTest
