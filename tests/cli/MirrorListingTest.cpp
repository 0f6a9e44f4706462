// corvane mirror on listings of which it does not take everything, and on pages that are none.

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <string>

#include "tests/cli/CliTesting.h"
#include "tests/cli/MirrorPages.h"
#include "tests/support/ScriptedFtpServer.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

TEST(MirrorListing, PageThatIsNoneIsAFailure) {
  const ScriptedServer server(KeepAlive(Routes({{"/home/", Content("<html><body><h1>Welcome</h1></body></html>")},
                                                {"/table/", Content("<table><a href=\"a\">a</a></table>")}})));
  const TempDir folder;
  for (const std::string& url : {server.Url("/home/"), server.Url("/table/")}) {
    const ProgramResult result = RunCorvane({"mirror", url, folder.Path(), "--json"});
    EXPECT_EQ(result.exitCode, 1) << result.Describe();
    EXPECT_THAT(OnlyErrorLine(result),
                AllOf(HasSubstr("cannot mirror " + url + ": "), HasSubstr("no listing"), HasSubstr("--sizes FILE")));
    EXPECT_EQ(ParseReport(result)["isListing"], false);
    EXPECT_THAT(NamesIn(folder.Path()), IsEmpty());
  }
}

TEST(MirrorListing, OfAnEmptyDirectoryIsASuccess) {
  const ScriptedServer server(KeepAlive(Directory({})));
  ScriptedFtpServer ftp;
  ftp.SetListing("/d", "");
  const TempDir folder;
  for (const std::string& url : {server.Url("/d/"), ftp.Url("/d")}) {
    const ProgramResult result = RunCorvane({"mirror", url, folder.Path()});
    EXPECT_EQ(result.exitCode, 0) << result.Describe();
    EXPECT_EQ(OnlyErrorLine(result), "corvane: the directory " + url + " is empty");
    EXPECT_EQ(RunCorvane({"mirror", url, folder.Path(), "--quiet"}).err, "");
  }
}

TEST(MirrorListing, WhatIsNotTakenIsCountedAndNamed) {
  const std::string page =
      "<html><body><pre>\n<a href=\"../\">../</a>\n<a href=\"a\">a</a>\n<a href=\"sub/\">sub/</a>\n"
      "<a href=\"other/\">other/</a>\n<a href=\"a-long-name.iso\">a-long-n..&gt;</a>\n"
      "<a href=\"b%26c\">b&amp;c</a>\n</pre></body></html>\n";
  const ScriptedServer server(KeepAlive(Routes({{"/d/", Content(page)}, {"/d/a", Content("a")}})));
  const TempDir folder;
  const ProgramResult result = RunCorvane({"mirror", server.Url("/d/"), folder / "dir"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_THAT(
      OnlyErrorLine(result),
      AllOf(HasSubstr("4 entries are left out"), HasSubstr("1 name that the page shortens"),
            HasSubstr("1 link with another text than its name"), HasSubstr("2 folders"), HasSubstr("--sizes FILE")));
  EXPECT_THAT(NamesIn(folder / "dir"), ElementsAre("a"));

  const ProgramResult verbose = RunCorvane({"mirror", server.Url("/d/"), folder / "dir", "-v", "--json"});
  for (const char* const name : {": a-long-name.iso\n", ": b&c\n", ": sub\n", ": other\n"}) {
    EXPECT_THAT(verbose.err, HasSubstr(name));
  }
  const nlohmann::json report = ParseReport(verbose);
  EXPECT_EQ(report["isListing"], true);
  EXPECT_EQ(report["leftOut"], 4);
  EXPECT_THAT(report["leftOutEntries"], testing::Contains(nlohmann::json({"shortened", "a-long-name.iso"})));
  EXPECT_THAT(report["leftOutEntries"], testing::Contains(nlohmann::json({"folder", "sub"})));
  EXPECT_EQ(RunCorvane({"mirror", server.Url("/d/"), folder / "dir", "--quiet"}).err, "");
}

TEST(MirrorListing, OfOnlyWhatIsNotTakenIsNoFailureAndNoEmptyDirectory) {
  ScriptedFtpServer server;
  server.SetListing("/d", "drwxr-xr-x   2 0        0            4096 Jan 01 00:00 sub\r\n");
  const TempDir folder;
  const ProgramResult result = RunCorvane({"mirror", server.Url("/d"), folder.Path()});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_THAT(OnlyErrorLine(result),
              AllOf(HasSubstr("1 entry is left out"), HasSubstr("1 folder"), Not(HasSubstr("empty"))));
}

TEST(MirrorListing, IsNotLookedForWithAListOfSizes) {
  const ScriptedServer server(KeepAlive(Directory({{"a", Content("a")}})));
  const TempDir folder;
  WriteFile(folder / "sizes", "a\t1\n");
  const ProgramResult result =
      RunCorvane({"mirror", server.Url("/d/"), folder / "dir", "--sizes", folder / "sizes", "--json"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_EQ(ParseReport(result)["isListing"], nullptr);
}

}  // namespace
}  // namespace CorvaneTest
