// The manual and the completions of the shells describe the options that there are.

#include <gmock/gmock.h>

#include <regex>
#include <set>
#include <string>
#include <vector>

#include "tests/cli/CliTesting.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

using Options = std::set<std::string>;

Options MatchesIn(const std::string& text, const char* pattern) {
  Options found;
  const std::regex expression(pattern);
  for (std::sregex_iterator match(text.begin(), text.end(), expression), end; match != end; ++match) {
    found.insert((*match)[1]);
  }
  return found;
}

// The long options in the help of a command, without their dashes.
Options OptionsOf(const std::string& command) {
  return MatchesIn(RunCorvane({command, "--help"}).out, "\n  (?:-[a-zA-Z], |    )--([a-z0-9-]+)");
}

Options AllOptions() {
  Options all;
  for (const char* const command : {"get", "post", "mirror", "sync", "resolve"}) all.merge(OptionsOf(command));
  return all;
}

std::string Completion(const std::string& name) {
  return ReadFile(std::filesystem::path(CORVANE_SOURCE_DIR) / "packaging/completions" / name);
}

TEST(Manual, NamesExactlyTheOptionsThatThereAre) {
  const std::string manual = ReadFile(CORVANE_SOURCE_DIR "/docs/man/corvane.1");
  EXPECT_EQ(MatchesIn(manual, "Fl Fl ([a-z0-9-]+)"), AllOptions());
  EXPECT_EQ(MatchesIn(manual, "\n\\.It [^\n]*Fl Fl ([a-z0-9-]+)"), AllOptions());
}

TEST(Manual, HasNoMistakesInItsForm) {
  const ProgramResult result =
      RunProgram({"mandoc", "-T", "lint", "-W", "style", CORVANE_SOURCE_DIR "/docs/man/corvane.1"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_EQ(result.out + result.err, "");
}

TEST(Completions, NameExactlyTheOptionsThatThereAre) {
  EXPECT_EQ(MatchesIn(Completion("corvane.bash"), "--([a-z0-9-]+)"), AllOptions());
  EXPECT_EQ(MatchesIn(Completion("_corvane"), "--([a-z0-9-]+)"), AllOptions());
  EXPECT_EQ(MatchesIn(Completion("corvane.fish"), "complete [^\n]*-l ([a-z0-9-]+)"), AllOptions());
}

// What bash offers behind these words, the last of which is being typed.
std::string Complete(const std::vector<std::string>& words) {
  std::string script = "source \"$1\"; compopt() { :; }; COMP_WORDS=(";
  for (const std::string& word : words) script += "'" + word + "' ";
  script += "); COMP_CWORD=" + std::to_string(words.size() - 1) + "; _corvane; echo \"${COMPREPLY[@]}\"";
  return RunShell(script, {CORVANE_SOURCE_DIR "/packaging/completions/corvane.bash"}).out;
}

TEST(BashCompletion, OffersWhatFits) {
  EXPECT_EQ(Complete({"corvane", "g"}), "get\n");
  EXPECT_EQ(Complete({"corvane", ""}), "get post mirror sync resolve --help --version\n");
  EXPECT_EQ(Complete({"corvane", "get", "--re"}),
            "--remote-name --resume --remote-time --redirects --retries --retry-wait\n");
  EXPECT_EQ(Complete({"corvane", "post", "--re"}), "--redirects\n");
  EXPECT_EQ(Complete({"corvane", "mirror", "--re"}), "--resume\n");
  EXPECT_EQ(Complete({"corvane", "sync", "--re"}), "--retries --retry-wait --redirects\n");
  EXPECT_EQ(Complete({"corvane", "sync", "--de"}), "--depth --delete\n");
  EXPECT_EQ(Complete({"corvane", "post", "http://h/", "--fi"}), "--field --file\n");
  for (const char* const option : {"--timeout", "--retries", "--header", "--sha256", "--depth", "--exclude"}) {
    EXPECT_EQ(Complete({"corvane", "get", option, ""}), "\n") << option;
  }
  EXPECT_EQ(Complete({"corvane", "post", "--type", "text"}), "text/plain\n");
  EXPECT_EQ(Complete({"corvane", "mirror", "--si"}), "--sizes\n");
  EXPECT_EQ(Complete({"corvane", "resolve", "--l"}), "--log-file\n");
  const TempDir folder;
  std::filesystem::create_directory(folder / "some directory");
  WriteFile(folder / "some file", "");
  const std::string directory = (folder / "some directory").string() + "\n";
  EXPECT_EQ(Complete({"corvane", "mirror", "http://h/", folder / "so"}), directory);
  EXPECT_EQ(Complete({"corvane", "sync", "http://h/", folder / "so"}), directory);
  EXPECT_EQ(Complete({"corvane", "get", "--into", folder / "so"}), directory);
  std::filesystem::remove(folder / "some directory");
  const std::string file = (folder / "some file").string() + "\n";
  EXPECT_EQ(Complete({"corvane", "get", "-o", folder / "so"}), file);
  EXPECT_EQ(Complete({"corvane", "get", "--header-file", folder / "so"}), file);
}

}  // namespace
}  // namespace CorvaneTest
