// What the shells offer behind the words that are typed: what is in the files for them, and what the shells make of it.

#include <gmock/gmock.h>

#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tests/cli/CliTesting.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

using testing::HasSubstr;
using testing::Not;
using Options = std::set<std::string>;

// The long options in the help of all commands, without their dashes.
Options AllOptions() {
  Options all;
  for (const char* const command : {"get", "post", "mirror", "sync", "resolve"}) {
    all.merge(MatchesIn(RunCorvane({command, "--help-all"}).out, "\n  (?:-[a-zA-Z], |    )--([a-z0-9-]+)"));
  }
  return all;
}

const std::filesystem::path kCompletions = CORVANE_SOURCE_DIR "/packaging/completions";

std::string Completion(const std::string& name) { return ReadFile(kCompletions / name); }

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

// --- the shells themselves

// A shell at a terminal, in a folder and with a home of its own. The program is a function that prints its words, so that the line
// tells by itself what became of it.
class Shell {
 public:
  Shell(const std::vector<std::string>& command, const std::string& setUp) {
    WriteFile(m_folder / "some file", "");
    ProgramOptions options;
    options.terminalInput = options.terminalOutput = options.terminalError = options.keepInputOpen = true;
    options.workingDirectory = m_folder.Path();
    const std::string home = m_folder.Path().string();
    options.environment = {
        {"HOME", home},  {"ZDOTDIR", home}, {"XDG_CONFIG_HOME", home}, {"INPUTRC", "/dev/null"}, {"TERM", "dumb"},
        {"LC_ALL", "C"}, {"PS1", "$ "},     {"ENV", std::nullopt},     {"HISTFILE", {}},         {"BASH_ENV", {}}};
    m_shell = std::make_unique<BackgroundProgram>(command, options);
    EXPECT_TRUE(m_shell->Send(setUp + "\ncorvane() { printf '<%s>' \"$@\"; echo; }\necho rea''dy\n"));
    EXPECT_TRUE(m_shell->WaitForTerminalOutput("ready")) << m_shell->TerminalOutput();
  }

  // What the terminal shows until `expected`, when `keys` are typed.
  [[nodiscard]] std::string Type(const std::string& keys, const std::string& expected) {
    const std::size_t before = m_shell->TerminalOutput().size();
    EXPECT_TRUE(m_shell->Send(keys));
    EXPECT_TRUE(m_shell->WaitForTerminalOutput(expected)) << m_shell->TerminalOutput();
    return m_shell->TerminalOutput().substr(before);
  }

 private:
  TempDir m_folder;
  std::unique_ptr<BackgroundProgram> m_shell;
};

void ExpectCompletions(Shell& shell) {
  static_cast<void>(shell.Type("corvane ge\t\n", "<get>"));
  static_cast<void>(shell.Type("corvane sync --inc\t*.iso\n", "<sync><--include><*.iso>"));
  static_cast<void>(shell.Type("corvane get -o so\t\n", "<get><-o><some file>"));
  static_cast<void>(shell.Type("corvane post --output so\t\n", "<post><--output><some file>"));
  static_cast<void>(shell.Type("corvane mirror --ign\tx\n", "<mirror><--ignore><x>"));
  // What is not unique is listed; \x15 forgets the line.
  const std::string list = shell.Type("corvane get --re\t\t", "--retry-wait");
  for (const char* const option : {"--remote-name", "--resume", "--redirects", "--retries"}) {
    EXPECT_THAT(list, HasSubstr(option));
  }
  EXPECT_THAT(list, Not(HasSubstr("--limit")));
}

TEST(Bash, CompletesAtATerminal) {
  Shell shell({"bash", "--norc", "--noprofile", "-i"},
              "source '" + (kCompletions / "corvane.bash").string() + "'; set +o history");
  ExpectCompletions(shell);
}

TEST(Zsh, CompletesAtATerminal) {
  Shell shell({"zsh", "-f", "-i"}, "fpath=('" + kCompletions.string() +
                                       "' $fpath); autoload -Uz compinit; compinit -u -D; setopt no_nomatch");
  ExpectCompletions(shell);
}

// Of a line for fish: what it would offer, each on a line, with a tab and the description behind it.
std::string FishOffers(const std::string& line, const TempDir& folder) {
  ProgramOptions options;
  options.workingDirectory = folder.Path();
  const std::string home = folder.Path().string();
  options.environment = {{"HOME", home}, {"XDG_CONFIG_HOME", home}, {"XDG_DATA_HOME", home}, {"LC_ALL", "C.UTF-8"}};
  const ProgramResult result =
      RunProgram({"fish", "--no-config", "-c", "source $argv[1]; complete --do-complete $argv[2]",
                  (kCompletions / "corvane.fish").string(), line},
                 options);
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_EQ(result.err, "");
  return result.out;
}

Options FishNames(const std::string& line, const TempDir& folder) {
  return MatchesIn("\n" + FishOffers(line, folder), "\n([^\t\n]+)");
}

TEST(Fish, OffersWhatFits) {
  const TempDir folder;
  WriteFile(folder / "some-file", "");
  EXPECT_EQ(FishNames("corvane ge", folder), Options{"get"});
  EXPECT_EQ(FishNames("corvane get --re", folder),
            (Options{"--remote-name", "--resume", "--remote-time", "--redirects", "--retries", "--retry-wait"}));
  EXPECT_EQ(FishNames("corvane sync --inc", folder), Options{"--include"});
  EXPECT_EQ(FishNames("corvane get -o so", folder), Options{"some-file"});
  EXPECT_EQ(FishNames("corvane post --type text", folder), Options{"text/plain"});
  EXPECT_EQ(FishNames("corvane resolve --lim", folder), Options{});
}

}  // namespace
}  // namespace CorvaneTest
