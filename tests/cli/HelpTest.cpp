// What the program says about itself.

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/cli/CliTesting.h"

namespace CorvaneTest {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

TEST(Help, ListsCommandsExitCodesAndExamples) {
  const ProgramResult result = RunCorvane({"--help"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(result.out, AllOf(StartsWith("Usage: corvane "), HasSubstr("\n  get "), HasSubstr("\n  post "),
                                HasSubstr("\n  mirror "), HasSubstr("\n  sync "), HasSubstr("\n  resolve "),
                                HasSubstr("130 interrupted"), HasSubstr("Examples:")));
}

TEST(Help, ListsTheOptionsOfEachCommand) {
  const std::vector<std::string> common = {"--timeout S",
                                           "--user NAME",
                                           "--password-file FILE",
                                           "--cacert FILE",
                                           "--capath DIR",
                                           "--insecure",
                                           "--limit RATE",
                                           "--limit-percent N",
                                           "--low-water RATE",
                                           "--no-throttle",
                                           "--json",
                                           "-q, --quiet",
                                           "-v, --verbose",
                                           "--log-file FILE",
                                           "--accept-http-errors",
                                           "-o, --output FILE",
                                           "-h, --help",
                                           "--help-all",
                                           "--version",
                                           "Examples:",
                                           "--redirects N",
                                           "--header 'NAME: VALUE'",
                                           "--header-file FILE",
                                           "--user-agent TEXT",
                                           "--text"};
  for (const char* const command : {"get", "post"}) {
    const ProgramResult result = RunCorvane({command, "--help-all"});
    EXPECT_EQ(result.exitCode, 0);
    for (const std::string& option : common) EXPECT_THAT(result.out, HasSubstr(option)) << command;
  }
  EXPECT_THAT(RunCorvane({"get", "-h"}).out, HasSubstr("--resume"));
  EXPECT_THAT(RunCorvane({"post", "-h"}).out,
              AllOf(HasSubstr("--field NAME=VALUE"), HasSubstr("--data TEXT"), HasSubstr("--file PATH")));
}

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    lines.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return lines;
}

const std::vector<std::vector<std::string>>& CommandsAndNone() {
  static const std::vector<std::vector<std::string>> commands = {{},         {"get"},  {"post"},
                                                                 {"mirror"}, {"sync"}, {"resolve"}};
  return commands;
}

std::string HelpOf(std::vector<std::string> command, const std::string& option) {
  command.push_back(option);
  const ProgramResult result = RunCorvane(command);
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_EQ(result.err, "");
  return result.out;
}

TEST(Help, FitsIntoEightyColumns) {
  for (const std::vector<std::string>& command : CommandsAndNone()) {
    for (const char* const option : {"--help", "--help-all"}) {
      const std::string help = HelpOf(command, option);
      EXPECT_THAT(help, StartsWith("Usage: corvane "));
      for (const std::string& line : LinesOf(help)) EXPECT_LE(line.size(), 80U) << line;
    }
  }
}

// With the line of the shell below it.
TEST(Help, FitsOnOneScreen) {
  for (const std::vector<std::string>& command : CommandsAndNone()) {
    const std::string help = HelpOf(command, "--help");
    EXPECT_LE(LinesOf(help).size(), 23U) << help;
    EXPECT_EQ(HelpOf(command, "-h"), help);
  }
}

TEST(Help, ShowsTheMostUsedOptionsAsTheyAreAndWhereTheOthersAre) {
  for (const char* const command : {"get", "post", "mirror", "sync"}) {
    const std::string help = HelpOf({command}, "--help");
    const std::string all = HelpOf({command}, "--help-all");
    int shown = 0;
    for (const std::string& line : LinesOf(help)) {
      if (line.rfind("  -", 0) != 0 && line.rfind("      --", 0) != 0) continue;
      ++shown;
      EXPECT_THAT(all, HasSubstr('\n' + line.substr(0, std::min(line.find("  ", 8), line.size())))) << command;
    }
    EXPECT_GE(shown, 9) << help;
    EXPECT_THAT(help, HasSubstr(std::string("All options: corvane ") + command + " --help-all"));
  }
}

TEST(Help, ReportsAnOutputThatTakesNothing) {
  const ProgramResult result = RunShell("exec \"$0\" --help > /dev/full");
  EXPECT_EQ(result.exitCode, 3);
  EXPECT_THAT(OnlyErrorLine(result), HasSubstr("No space left on device"));
}

TEST(Version, NamesProgramAndLibrary) {
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{"--version"}, {"get", "--version"}}) {
    const ProgramResult result = RunCorvane(arguments);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.out, StartsWith("corvane 1."));
    EXPECT_THAT(result.out, HasSubstr("\nlibrary com.corvane.network 6.2.1591\n"));
  }
}

}  // namespace
}  // namespace CorvaneTest
