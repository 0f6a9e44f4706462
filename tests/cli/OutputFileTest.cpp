// corvane get -o: nothing that the user had is lost, and what came is kept.

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/cli/CliTesting.h"
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

constexpr const char* kOld = "what the user had before, and would miss";

// The whole content on the first connection only up to `bytes`, afterwards all that is asked for.
Responder CutOnce(const std::string& content, std::uint64_t bytes) {
  const std::vector<HeaderField> tag = {{"ETag", "\"v1\""}};
  return [broken = Content(content, {.headers = tag, .stopAfter = bytes}), whole = Content(content, {.headers = tag})](
             Connection& peer, const Request& request) { (peer.Number() == 0 ? broken : whole)(peer, request); };
}

// --- an existing file

struct Refusal {
  const char* name;
  std::string url;
};

TEST(ExistingFile, SurvivesEveryKindOfFailure) {
  ContentOptions cut;
  cut.stopAfter = 0;
  ScriptedFtpServer ftp({{"/a", "x"}});
  const ScriptedServer server(KeepAlive(Routes({{"/404", Status(404, "no such thing")},
                                                {"/500", Status(500, "oops")},
                                                {"/moved", Redirect("/elsewhere")},
                                                {"/cut", Content("0123456789", cut)}})));
  const Refusal refusals[] = {
      {"unknown host", "http://no-such-host.invalid/f"},
      {"refused port", RefusedUrl()},
      {"refused FTP port", RefusedUrl("ftp")},
      {"refused TLS port", RefusedUrl("https")},
      {"not found", server.Url("/404")},
      {"server error", server.Url("/500")},
      {"redirection", server.Url("/moved")},
      {"cut before the first byte", server.Url("/cut")},
      {"missing FTP file", ftp.Url("/b")},
  };
  for (const Refusal& refusal : refusals) {
    for (const bool resume : {false, true}) {
      const TempDir folder;
      WriteFile(folder / "f", kOld);
      std::vector<std::string> arguments = {"get", refusal.url, "-o", folder / "f", "--retries", "0"};
      if (resume) arguments.push_back("--resume");
      const ProgramResult result = RunCorvane(arguments);
      EXPECT_THAT(result.exitCode, testing::AnyOf(1, 4)) << refusal.name << result.Describe();
      EXPECT_EQ(ReadFile(folder / "f"), kOld) << refusal.name;
      EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("f")) << refusal.name;
    }
  }
}

TEST(ExistingFile, IsReplacedWhenTheDownloadIsComplete) {
  const ScriptedServer server(KeepAlive(Content("new")));
  const TempDir folder;
  WriteFile(folder / "f", kOld);
  chmod((folder / "f").c_str(), 0604);
  EXPECT_EQ(RunCorvane({"get", server.Url(), "-o", folder / "f"}).exitCode, 0);
  EXPECT_EQ(ReadFile(folder / "f"), "new");
  EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("f"));
  struct stat status {};
  ASSERT_EQ(stat((folder / "f").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0604U);
}

TEST(ExistingFile, IsNamedRelativeToTheWorkingFolder) {
  const ScriptedServer server(KeepAlive(Content("new")));
  const TempDir folder;
  WriteFile(folder / "f", kOld);
  ProgramOptions options;
  options.workingDirectory = folder.Path();
  EXPECT_EQ(RunCorvane({"get", server.Url(), "-o", "f"}, options).exitCode, 0);
  EXPECT_EQ(ReadFile(folder / "f"), "new");
}

TEST(ExistingFile, SymbolicLinkStaysAndItsTargetIsReplaced) {
  const ScriptedServer server(KeepAlive(Content("new")));
  const TempDir folder;
  WriteFile(folder / "real/target", kOld);
  fs::create_symlink("real/target", folder / "link");
  fs::create_symlink("link", folder / "link to link");
  EXPECT_EQ(RunCorvane({"get", server.Url(), "-o", folder / "link to link"}).exitCode, 0);
  EXPECT_TRUE(fs::is_symlink(folder / "link to link"));
  EXPECT_TRUE(fs::is_symlink(folder / "link"));
  EXPECT_EQ(ReadFile(folder / "real/target"), "new");
  EXPECT_THAT(NamesIn(folder / "real"), ElementsAre("target"));
}

TEST(ExistingFile, DanglingLinkSurvivesAFailureAndLeadsToTheDownload) {
  const ScriptedServer server(KeepAlive(Routes({{"/ok", Content("new")}})));
  const TempDir folder;
  fs::create_symlink("target", folder / "link");
  EXPECT_EQ(RunCorvane({"get", server.Url("/404"), "-o", folder / "link"}).exitCode, 1);
  EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("link"));
  EXPECT_EQ(RunCorvane({"get", server.Url("/ok"), "-o", folder / "link"}).exitCode, 0);
  EXPECT_TRUE(fs::is_symlink(folder / "link"));
  EXPECT_EQ(ReadFile(folder / "target"), "new");
}

TEST(ExistingFile, NewDataGoesBesideItUnderTheFirstFreeName) {
  const ScriptedServer server(KeepAlive(CutOnce("0123456789", 4)));
  const TempDir folder;
  WriteFile(folder / "f", kOld);
  WriteFile(folder / "f.part", "someone else's");
  WriteFile(folder / "f.part.1", "someone else's");
  const ProgramResult result = RunCorvane({"get", server.Url(), "-o", folder / "f", "--retries", "0"});
  EXPECT_EQ(result.exitCode, 1) << result.Describe();
  EXPECT_EQ(ReadFile(folder / "f"), kOld);
  EXPECT_EQ(ReadFile(folder / "f.part"), "someone else's");
  EXPECT_EQ(ReadFile(folder / "f.part.1"), "someone else's");
  EXPECT_EQ(ReadFile(folder / "f.part.2"), "0123");
  EXPECT_THAT(result.err, HasSubstr("4 B are kept in " + (folder / "f.part.2").string()));
}

TEST(ExistingFile, PartialIsNoMoreReadableThanTheFile) {
  Gate sent, goOn;
  const ScriptedServer server([&](Connection& peer) {
    peer.ReadRequest();
    peer.Send(FormatHead(200, {{"Content-Length", "10"}}) + "01234");
    sent.Open();
    if (peer.WaitFor(goOn)) peer.Send("56789");
  });
  const TempDir folder;
  WriteFile(folder / "f", kOld);
  chmod((folder / "f").c_str(), 0600);
  const auto program = StartCorvane({"get", server.Url(), "-o", folder / "f"});
  ASSERT_TRUE(sent.Wait());
  struct stat status {};
  ASSERT_EQ(stat((folder / "f.part").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
  goOn.Open();
  EXPECT_EQ(program->Wait()->exitCode, 0);
  EXPECT_EQ(ReadFile(folder / "f"), "0123456789");
}

TEST(ExistingFile, NameOfTheGreatestLengthIsReplacedToo) {
  const ScriptedServer server(KeepAlive(Content("new")));
  const TempDir folder;
  const std::string name(255, 'n');
  WriteFile(folder / name, kOld);
  const ProgramResult result = RunCorvane({"get", server.Url(), "-o", folder / name});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_EQ(ReadFile(folder / name), "new");
  EXPECT_THAT(NamesIn(folder.Path()), ElementsAre(name));
}

// --- a partial download

TEST(Partial, IsKeptAndTheMessageTellsHowToGoOn) {
  const std::string content = MakePattern(5000);
  const ScriptedServer server(KeepAlive(CutOnce(content, 1000)));
  const TempDir folder;
  const std::string file = folder / "it's here";
  const ProgramResult result = RunCorvane(
      {"get", server.Url("/a?b&c"), "--output=" + file, "--timeout", "100", "-q", "--json", "--retries", "0"});
  EXPECT_EQ(result.exitCode, 1) << result.Describe();
  EXPECT_EQ(ReadFile(file + ".part"), content.substr(0, 1000));
  EXPECT_EQ(ParseReport(result)["partial"], file + ".part");
  const std::string marker = "1000 B are kept in " + file + ".part; continue with: corvane ";
  const std::size_t begin = result.err.find(marker);
  ASSERT_NE(begin, std::string::npos) << result.Describe();
  const std::string command = result.err.substr(begin + marker.size());
  EXPECT_THAT(command, AllOf(HasSubstr("--timeout 100"), HasSubstr("--quiet"), HasSubstr("--resume")));

  // The command is taken by its word.
  const ProgramResult again = RunShell("\"$0\" " + command);
  EXPECT_EQ(again.exitCode, 0) << again.Describe();
  EXPECT_TRUE(ReadFile(file) == content);
  ASSERT_EQ(server.Requests().size(), 2U);
  EXPECT_EQ(server.Requests()[1].Header("Range"), "bytes=968-");
}

TEST(Partial, OfAReplacementIsContinuedByTheCommandInTheMessage) {
  const std::string content = MakePattern(5000);
  const ScriptedServer server(KeepAlive(CutOnce(content, 1000)));
  const TempDir folder;
  const std::string file = folder / "big file";
  WriteFile(file, kOld);
  const ProgramResult result = RunCorvane({"get", server.Url(), "-o", file, "--retries", "0"});
  EXPECT_EQ(result.exitCode, 1) << result.Describe();
  EXPECT_EQ(ReadFile(file), kOld);
  const std::string marker = "continue with: corvane ";
  const std::size_t begin = result.err.find(marker);
  ASSERT_NE(begin, std::string::npos) << result.Describe();
  const ProgramResult again = RunShell("\"$0\" " + result.err.substr(begin + marker.size()));
  EXPECT_EQ(again.exitCode, 0) << again.Describe();
  EXPECT_TRUE(ReadFile(file) == content);
  EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("big file"));
}

TEST(Partial, WithoutAByteIsRemoved) {
  ContentOptions cut;
  cut.stopAfter = 0;
  const ScriptedServer server(KeepAlive(Content("0123456789", cut)));
  const TempDir folder;
  const ProgramResult result = RunCorvane({"get", server.Url(), "-o", folder / "f", "--retries", "0"});
  EXPECT_EQ(result.exitCode, 1) << result.Describe();
  EXPECT_THAT(NamesIn(folder.Path()), IsEmpty());
  EXPECT_THAT(OnlyErrorLine(result), Not(HasSubstr("kept")));
}

TEST(Resume, BeginsAFileThatIsMissing) {
  const ScriptedServer server(KeepAlive(Content("whole")));
  const TempDir folder;
  EXPECT_EQ(RunCorvane({"get", server.Url(), "-o", folder / "f", "--resume"}).exitCode, 0);
  EXPECT_EQ(ReadFile(folder / "f"), "whole");
}

// --- names and places that cannot be written

TEST(Unwritable, EachNamesTheFileTheReasonAndTheRemedy) {
  const ScriptedServer server(KeepAlive(Content("new")));
  const TempDir folder;
  WriteFile(folder / "file", kOld);
  struct Case {
    std::string path;
    const char* reason;
  };
  const Case cases[] = {
      {folder.Path(), "Is a directory; name a file inside it"},
      {folder / "", "Is a directory; name a file inside it"},
      {folder / "new/", "Is a directory; name a file inside it"},
      {folder / "file/x", "Not a directory"},
      {folder / "file/x/y", "Not a directory"},
      {folder / std::string(256, 'n'), "File name too long"},
  };
  for (const Case& c : cases) {
    const ProgramResult result = RunCorvane({"get", server.Url(), "-o", c.path});
    EXPECT_EQ(result.exitCode, 3) << result.Describe();
    EXPECT_THAT(OnlyErrorLine(result),
                AllOf(HasSubstr("cannot write " + c.path), HasSubstr(c.reason), HasSubstr("; ")));
  }
  EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("file"));
  EXPECT_THAT(server.Requests(), IsEmpty());
}

TEST(Unwritable, NameThatTheLocaleCannotExpress) {
  const TempDir folder;
  ProgramOptions options;
  options.environment["LC_ALL"] = "C";
  const ProgramResult result = RunCorvane({"get", RefusedUrl(), "-o", folder / "gr\xC3\xBC\xC3\x9F"}, options);
  EXPECT_EQ(result.exitCode, 3) << result.Describe();
  EXPECT_THAT(OnlyErrorLine(result),
              AllOf(HasSubstr("gr\\xC3\\xBC\\xC3\\x9F"), HasSubstr("the locale cannot express the name"),
                    HasSubstr("LC_ALL=C.UTF-8")));
  EXPECT_THAT(NamesIn(folder.Path()), IsEmpty());
  EXPECT_EQ(RunCorvane({"get", RefusedUrl(), "-o", folder / "\xFF"}).exitCode, 3);
}

// Root may write anywhere, so from root the program runs on behalf of nobody. Every other account does without.
TEST(Unwritable, NoPermission) {
  const ScriptedServer server(KeepAlive(Content("new")));
  const TempDir folder(TempDir::Access::kPublic);
  WriteFile(folder / "theirs", kOld);
  fs::create_directory(folder / "open");
  chmod((folder / "open").c_str(), 0777);
  WriteFile(folder / "open/readonly", kOld);
  WriteFile(folder / "writable", kOld);
  chmod((folder / "writable").c_str(), 0666);
  for (const char* const name : {"theirs", "open/readonly"}) chmod((folder / name).c_str(), 0444);
  chmod(folder.Path().c_str(), 0555);
  const std::string become = geteuid() == 0 ? "setpriv --reuid=65534 --regid=65534 --clear-groups " : "";
  for (const char* const name : {"new", "dir/new", "theirs", "open/readonly", "writable"}) {
    const ProgramResult result =
        RunShell("exec " + become + "\"$0\" get \"$1\" -o \"$2\"", {server.Url(), folder / name});
    EXPECT_EQ(result.exitCode, 3) << name << result.Describe();
    EXPECT_THAT(OnlyErrorLine(result), AllOf(HasSubstr("cannot write " + (folder / name).string()),
                                             HasSubstr("Permission denied"), HasSubstr("; ")));
  }
  chmod(folder.Path().c_str(), 0755);  // so that it can be removed
  for (const char* const name : {"theirs", "open/readonly", "writable"}) EXPECT_EQ(ReadFile(folder / name), kOld);
  EXPECT_THAT(server.Requests(), IsEmpty());
}

// --- no space

TEST(NoSpace, FullDeviceIsReportedAndNotRemoved) {
  const ScriptedServer server(KeepAlive(Content("new")));
  const ProgramResult result = RunCorvane({"get", server.Url(), "-o", "/dev/full"});
  EXPECT_EQ(result.exitCode, 3) << result.Describe();
  EXPECT_THAT(OnlyErrorLine(result), HasSubstr("cannot write /dev/full: No space left on device; check where it goes"));
  EXPECT_TRUE(fs::is_character_file("/dev/full"));
}

TEST(NoSpace, NullDeviceTakesEverythingAndSurvivesARefusal) {
  const ScriptedServer server(KeepAlive(Routes({{"/ok", Content(MakePattern(100000))}})));
  EXPECT_EQ(RunCorvane({"get", server.Url("/ok"), "-o", "/dev/null"}).exitCode, 0);
  EXPECT_EQ(RunCorvane({"get", server.Url("/404"), "-o", "/dev/null"}).exitCode, 1);
  EXPECT_TRUE(fs::is_character_file("/dev/null"));
}

TEST(NoSpace, FileSizeLimitIsNamedAndThePartialCanBeContinued) {
  const std::string content = MakePattern(300000);
  const ScriptedServer server(KeepAlive(Content(content, {.headers = {{"ETag", "\"v1\""}}})));
  const TempDir folder;
  ProgramOptions options;
  options.limits = {{RLIMIT_FSIZE, 65536}};
  const ProgramResult result = RunCorvane({"get", server.Url(), "-o", folder / "f"}, options);
  EXPECT_EQ(result.exitCode, 3) << result.Describe();
  EXPECT_THAT(result.err, AllOf(HasSubstr("the limit for the size of files is 64.0 KiB; raise it (ulimit -f)"),
                                HasSubstr("64.0 KiB are kept"), HasSubstr("--resume")));
  EXPECT_EQ(RunCorvane({"get", server.Url(), "-o", folder / "f", "--resume"}).exitCode, 0);
  EXPECT_TRUE(ReadFile(folder / "f") == content);
}

}  // namespace
}  // namespace CorvaneTest
