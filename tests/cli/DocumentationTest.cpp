// The manual describes the options and the functions that there are.

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "tests/cli/CliTesting.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

using Names = std::set<std::string>;

constexpr const char* kCommands[] = {"get", "post", "mirror", "sync", "resolve"};

// The options in the help of a command as they are shown there: "-q, --quiet", "    --json".
Names OptionsOf(const std::string& command) {
  return MatchesIn(RunCorvane({command, "--help-all"}).out, "\n  ((?:-[a-zA-Z], |    )--[a-z0-9-]+)");
}

const std::filesystem::path kManual = CORVANE_SOURCE_DIR "/docs/man";

std::string Page(const std::string& name) { return ReadFile(kManual / name); }

// Those that have an entry in a page, in the same form.
Names EntriesOf(const std::string& page) {
  Names entries;
  const std::regex expression("\n\\.It (?:Fl ([a-zA-Z])[^\n]* , )?Fl Fl ([a-z0-9-]+)");
  for (std::sregex_iterator match(page.begin(), page.end(), expression), end; match != end; ++match) {
    const std::string letter = (*match)[1];
    entries.insert((letter.empty() ? "    " : "-" + letter + ", ") + "--" + (*match)[2].str());
  }
  return entries;
}

Names WithoutLetters(const Names& options) {
  Names names;
  for (const std::string& option : options) names.insert(option.substr(option.find("--") + 2));
  return names;
}

TEST(Manual, HasExactlyTheOptionsOfACommandInItsPage) {
  for (const std::string command : kCommands) {
    const std::string page = Page("corvane-" + command + ".1");
    const Names options = OptionsOf(command);
    EXPECT_GT(options.size(), 5U) << command;
    EXPECT_EQ(EntriesOf(page), options) << command;
    EXPECT_EQ(MatchesIn(page, "Fl Fl ([a-z0-9-]+)"), WithoutLetters(options)) << command;
  }
}

TEST(Manual, TellsInTheOverviewMoreOfWhatThreeCommandsShare) {
  std::map<std::string, int> commands;
  Names all;
  for (const char* const command : kCommands) {
    for (const std::string& option : OptionsOf(command)) {
      ++commands[option];
      all.insert(option);
    }
  }
  Names shared;
  for (const auto& [option, count] : commands) {
    if (count >= 3) shared.insert(option);
  }
  const std::string page = Page("corvane.1");
  EXPECT_EQ(EntriesOf(page), shared);
  const Names named = MatchesIn(page, "Fl Fl ([a-z0-9-]+)");
  EXPECT_THAT(WithoutLetters(all), testing::IsSupersetOf(named));
  for (const std::string command : kCommands) EXPECT_THAT(page, testing::HasSubstr(".Xr corvane-" + command + " 1"));
}

// --- the form

std::vector<std::string> AllPages() {
  std::vector<std::string> pages;
  for (const auto& entry : std::filesystem::directory_iterator(kManual)) pages.push_back(entry.path().filename());
  std::sort(pages.begin(), pages.end());
  return pages;
}

TEST(Manual, HasNoMistakesInItsForm) {
  std::vector<std::string> command = {"mandoc", "-T", "lint", "-W", "style"};
  const std::vector<std::string> pages = AllPages();
  ASSERT_EQ(pages.size(), 12U);
  command.insert(command.end(), pages.begin(), pages.end());
  ProgramOptions options;
  options.workingDirectory = kManual;  // pages name each other
  const ProgramResult result = RunProgram(command, options);
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_EQ(result.out + result.err, "");
}

TEST(Manual, FitsIntoItsColumns) {
  for (const std::string& page : AllPages()) {
    for (const std::size_t columns : {std::size_t{78}, std::size_t{120}}) {
      const ProgramResult result = RunProgram(
          {"mandoc", "-T", "ascii", "-O", "width=" + std::to_string(columns), (kManual / page).string()}, {});
      EXPECT_EQ(result.exitCode, 0) << result.Describe();
      EXPECT_GT(result.out.size(), 1000U) << page;
      // Bold and underlined characters are printed twice.
      const std::string text = std::regex_replace(result.out, std::regex(".\b"), "");
      for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = text.find('\n', begin);
        EXPECT_LE(end - begin, columns) << page << ": " << text.substr(begin, end - begin);
        begin = end + 1;
      }
    }
  }
}

// --- the classes

// What a header makes public from its first type on, as declarations: without comments, bodies, and what is only declared to be there
// or not to be there.
std::string PublicPart(const std::string& header, const std::string& begin) {
  std::string text = ReadFile(std::filesystem::path(CORVANE_SOURCE_DIR) / "Corvane" / header);
  text = std::regex_replace(text, std::regex("//[^\n]*"), "");
  text.erase(0, text.find("\n" + begin));
  text.erase(std::min(text.size(), text.find("\n private:")));
  text = std::regex_replace(text, std::regex("\\)( const)? \\{[^{}]*\\}"), ");");
  return std::regex_replace(text, std::regex("[^\n;{]*= (delete|default);|\n *class [^;{]*;"), "");
}

struct ClassPage {
  const char* header;
  const char* begin;
  const char* page;
};

constexpr ClassPage kClassPages[] = {
    {"Transfer.h", "class CORVANE_ZN_API ZTransfer ", "corvane-ztransfer.3"},
    {"TransferOptions.h", "struct ZTransferOptions ", "corvane-ztransferoptions.3"},
    {"MultiDownload.h", "enum class LeftOutReason ", "corvane-zmultidownload.3"},
    {"TreeDownload.h", "struct ZTreeOptions ", "corvane-ztreedownload.3"},
    {"Throttle.h", "class CORVANE_ZN_API ZThrottle ", "corvane-zthrottle.3"},
    {"GetHostByName.h", "class CORVANE_ZN_API ZGetHostByName ", "corvane-zgethostbyname.3"},
};

TEST(Manual, HasExactlyTheFunctionsAndMembersOfAClassInItsPage) {
  for (const ClassPage& c : kClassPages) {
    const std::string header = PublicPart(c.header, c.begin);
    const std::string page = Page(c.page);
    const Names functions = MatchesIn(header, "(~?\\w+)\\([^;]*;");
    EXPECT_FALSE(functions.empty()) << c.page;
    EXPECT_EQ(MatchesIn(page, "\n\\.It [^\n]*\\bFn (~?\\w+)"), functions) << c.page;
    const Names members = MatchesIn(header, "\n +[\\w:<>*,]+(?: [\\w:<>*,]+)*\\s+(\\w+)(?: = [^;()\n]*)?;");
    EXPECT_EQ(MatchesIn(page, "\n\\.It Vt [^\n]* Va (\\w+)"), members) << c.page;
    Names values;
    for (const std::string& list : MatchesIn(header, "enum class \\w+ \\{([^}]*)\\}")) {
      values.merge(MatchesIn(list, "(\\w+)"));
    }
    for (const std::string& value : values) {
      EXPECT_THAT(page, testing::ContainsRegex("Dv " + value)) << c.page;
    }
  }
}

TEST(Manual, OfAClassTellsOfErrorsThreadsAndUse) {
  for (const ClassPage& c : kClassPages) {
    const std::string page = Page(c.page);
    for (const char* const section : {"SYNOPSIS", "DESCRIPTION", "MEMBERS", "THREADS", "EXAMPLES", "ERRORS"}) {
      EXPECT_THAT(page, testing::HasSubstr(std::string("\n.Sh ") + section + "\n")) << c.page;
    }
    EXPECT_THAT(page, testing::HasSubstr(std::string("\n.In Corvane/") + c.header + "\n")) << c.page;
  }
}

}  // namespace
}  // namespace CorvaneTest
