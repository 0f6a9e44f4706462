// corvane mirror: what is fetched, and what the command line must be.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/cli/CliTesting.h"
#include "tests/cli/MirrorPages.h"
#include "tests/support/Daemons.h"
#include "tests/support/ScriptedFtpServer.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

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
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(OnlyErrorLine(result), HasSubstr("1 entry is left out of what the server lists: 1 folder;"));
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
  EXPECT_EQ(report["events"], nlohmann::json::parse(R"([[1, "0x80011002", 3]])"));  // the listing and two files
  EXPECT_EQ(report["totalSize"], 150000);
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
}

mode_t ModeOf(const fs::path& file) {
  struct stat status {};
  EXPECT_EQ(stat(file.c_str(), &status), 0) << file;
  return status.st_mode & 07777;
}

TEST(Mirror, GivesFetchedFilesTheModeThatTheUmaskAllows) {
  const std::string content = MakePattern(200);
  ScriptedFtpServer server(
      {{"/d/new", "12345"}, {"/d/empty", ""}, {"/d/open", content}, {"/d/secret", content}, {"/d/kept", content}});
  const TempDir folder;
  for (const auto& [name, mode] : {std::pair("open", 0777), std::pair("secret", 0600)}) {
    WriteFile(folder / name, content.substr(0, 100));
    chmod((folder / name).c_str(), static_cast<mode_t>(mode));
  }
  for (const char* const name : {"kept", "other"}) {  // complete, and no part of the mirror
    WriteFile(folder / name, content);
    chmod((folder / name).c_str(), 0755);
  }
  const ProgramResult result =
      RunShell("umask 027; exec \"$0\" mirror \"$1\" \"$2\" --resume", {server.Url("/d"), folder.Path().string()});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_TRUE(ReadFile(folder / "open") == content);
  EXPECT_EQ(ModeOf(folder / "new"), 0640U);
  EXPECT_EQ(ModeOf(folder / "empty"), 0640U);
  EXPECT_EQ(ModeOf(folder / "open"), 0640U);
  EXPECT_EQ(ModeOf(folder / "secret"), 0600U) << "what was hidden from others stays so";
  EXPECT_EQ(ModeOf(folder / "kept"), 0755U);
  EXPECT_EQ(ModeOf(folder / "other"), 0755U);
}

TEST(Mirror, ChangesModesAlsoWhenItFails) {
  const ScriptedServer server(KeepAlive(Directory({{"a", Content("12345")}, {"b", Status(404)}})));
  const TempDir folder;
  const ProgramResult result =
      RunShell("umask 022; exec \"$0\" mirror \"$1\" \"$2\"", {server.Url("/d"), folder.Path().string()});
  EXPECT_EQ(result.exitCode, 1) << result.Describe();
  EXPECT_EQ(ModeOf(folder / "a"), 0644U);
}

// Thousands of files must not make thousands of entries.
TEST(Mirror, CountsTheEventsInItsReport) {
  std::map<std::string, Responder> files;
  for (int number = 0; number < 20; ++number) files.emplace("f" + std::to_string(number), Content("x"));
  const ScriptedServer server(KeepAlive(Directory(files)));
  const TempDir folder;
  const nlohmann::json report = ParseReport(RunCorvane({"mirror", server.Url("/d"), folder.Path(), "--json"}));
  EXPECT_EQ(report["events"], nlohmann::json::parse(R"([[1, "0x80011002", 21]])"));
  EXPECT_EQ(report["totalSize"], nullptr) << "the page tells no sizes";
  EXPECT_EQ(report["receivedSize"], 20);
}

TEST(Mirror, LeavesOutTheFragmentOfTheUrlAndSaysSo) {
  const ScriptedServer server(KeepAlive(Directory({{"a", Content("a")}})));
  const TempDir folder;
  const ProgramResult result = RunCorvane({"mirror", server.Url("/d/#top"), folder.Path()});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_THAT(OnlyErrorLine(result), HasSubstr("\"#top\" is left out of the URL"));
  EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("a"));
}

TEST(Mirror, CompletesAUrlWithoutScheme) {
  const ScriptedServer server(KeepAlive(Directory({{"a", Content("a")}})));
  const TempDir folder;
  EXPECT_EQ(RunCorvane({"mirror", server.Url("/d").substr(7), folder.Path()}).exitCode, 0);
  EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("a"));
}

TEST(Mirror, SendsTheQueryForThePageOnlyAndSaysSo) {
  const ScriptedServer server(KeepAlive(Directory({{"a", Content("a")}})));
  const TempDir folder;
  const ProgramResult result = RunCorvane({"mirror", server.Url("/d/?C=M&O=D"), folder.Path()});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_THAT(OnlyErrorLine(result), HasSubstr("\"?C=M&O=D\" is sent when the directory's page is asked for"));
  EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("a"));

  // The page is also asked for to see that the server is there.
  WriteFile(folder / "sizes", "a\t1\n");
  WriteFile(folder / "a", "old");
  EXPECT_EQ(RunCorvane({"mirror", server.Url("/d?C=M&O=D"), folder.Path(), "--sizes", folder / "sizes"}).exitCode, 0);
  std::vector<std::string> targets;
  for (const Request& request : server.Requests()) targets.push_back(request.target);
  EXPECT_THAT(targets, ElementsAre("/d/?C=M&O=D", "/d/a", "/d/?C=M&O=D", "/d/a"));
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
                                             {"mirror", "http://a:b@h/", "d"},
                                             {"mirror", "ftp://h/d/?sort=name", "d"},
                                             {"mirror", "http://a:b#c@h/", "d"}}) {
    const ProgramResult result = RunCorvane(arguments);
    EXPECT_EQ(result.exitCode, 2) << result.Describe();
    EXPECT_THAT(result.err, testing::EndsWith("Try: corvane mirror --help\n"));
  }
}

}  // namespace
}  // namespace CorvaneTest
