// corvane mirror when something fails: what it says, and what it leaves.

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/cli/CliTesting.h"
#include "tests/cli/MirrorPages.h"
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

TEST(MirrorFailure, WithoutAListingTouchesNothing) {
  const ScriptedServer server(
      KeepAlive(Routes({{"/401/", Status(401)}, {"/500/", Status(500)}, {"/moved/", Redirect("/x/")}})));
  struct Case {
    std::string url;
    int code;
    std::string reason;
  };
  const Case cases[] = {
      {"http://no-such-host.invalid/", 1, "cannot be resolved"},
      {RefusedUrl(), 1, "the connection failed"},
      {RefusedUrl("ftp"), 1, "the connection failed"},
      {server.Url("/404/"), 1, "404 Not Found; check the path"},
      {server.Url("/500/"), 1, "500 Internal Server Error"},
      {server.Url("/moved/"), 1, "ask for " + server.Url("/x/") + " instead"},
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
                    HasSubstr("; leave the file out with --ignore b\n"),
                    HasSubstr("1 file is kept in " + folder.Path().string() + ", but the server's page tells no sizes"),
                    HasSubstr("list the sizes with --sizes FILE"), Not(HasSubstr("continue with"))));
  EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("a"));
}

TEST(MirrorFailure, OverFtpIsContinued) {
  ScriptedFtpServer server({{"/d/a", "12345"}, {"/d/b", MakePattern(5000)}});
  server.OnCommand("RETR", [](Connection& control, const std::string& argument) {
    if (argument != "b") return false;
    control.Send("550 No.\r\n");
    return true;
  });
  const TempDir folder;
  const ProgramResult result = RunCorvane({"mirror", server.Url("/d"), folder.Path()});
  EXPECT_EQ(result.exitCode, 1) << result.Describe();
  EXPECT_THAT(result.err,
              AllOf(HasSubstr("; leave the file out with --ignore b\n"),
                    HasSubstr("1 file is kept in " + folder.Path().string() + "; continue with: corvane mirror " +
                              server.Url("/d") + " " + folder.Path().string() + " --resume\n")));
}

TEST(MirrorFailure, SaysNothingOfKeptFilesWhereThereAreNone) {
  const ScriptedServer server(KeepAlive(Directory({{"a", Status(404, "a page that is no file")}})));
  const TempDir folder;
  const ProgramResult result = RunCorvane({"mirror", server.Url("/d/"), folder.Path()});
  EXPECT_EQ(result.exitCode, 1) << result.Describe();
  EXPECT_THAT(OnlyErrorLine(result), HasSubstr("404"));
  EXPECT_THAT(NamesIn(folder.Path()), IsEmpty());
}

TEST(MirrorFailure, NameThatTheDiskRefusesIsToBeIgnored) {
  const std::string name(256, 'x');
  const ScriptedServer server(KeepAlive(Directory({{name, Content("a")}, {"y", Content("y")}})));
  const TempDir folder;
  const ProgramResult result = RunCorvane({"mirror", server.Url("/d/"), folder.Path()});
  EXPECT_EQ(result.exitCode, 3) << result.Describe();
  EXPECT_THAT(OnlyErrorLine(result), AllOf(HasSubstr("File name too long"), HasSubstr("--ignore " + name)));
  EXPECT_EQ(RunCorvane({"mirror", server.Url("/d/"), folder.Path(), "--ignore", name}).exitCode, 0);
}

TEST(MirrorFailure, NameThatTheLocaleRefusesNeedsAnotherLocale) {
  const ScriptedServer server(KeepAlive(Directory({{"gr\xC3\xBC\xC3\x9F", Content("a")}})));
  const TempDir folder;
  ProgramOptions options;
  options.environment["LC_ALL"] = "C";
  const ProgramResult result = RunCorvane({"mirror", server.Url("/d/"), folder.Path()}, options);
  EXPECT_EQ(result.exitCode, 3) << result.Describe();
  EXPECT_THAT(OnlyErrorLine(result), AllOf(HasSubstr("invalid characters"), HasSubstr("; set LC_ALL=C.UTF-8")));
}

// Resuming would find the file complete, or fetch it again, for ever.
TEST(MirrorFailure, SizeThatTheListingTellsWrongIsNotToBeResumed) {
  const std::string content = MakePattern(5000);
  ScriptedFtpServer server({{"/d/a", content}});
  server.SetListing("/d", "-rw-r--r--   1 0        0            6000 Jan 01 00:00 a\r\n");
  const TempDir folder;
  for (const char* const option : {"--no-throttle", "--resume"}) {
    const ProgramResult result = RunCorvane({"mirror", server.Url("/d"), folder.Path(), option});
    EXPECT_EQ(result.exitCode, 1) << result.Describe();
    EXPECT_THAT(OnlyErrorLine(result),
                AllOf(HasSubstr("Size: 5000 Expected size: 6000"), HasSubstr("run again without --resume"),
                      HasSubstr("--sizes FILE"), HasSubstr("--ignore NAME"), Not(HasSubstr("continue with"))));
  }
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

}  // namespace
}  // namespace CorvaneTest
