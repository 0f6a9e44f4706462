// What people see on a terminal, and what stays away from everything else.

#include <gmock/gmock.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "tests/cli/CliTesting.h"
#include "tests/support/Gate.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

// Sends half, waits for the gate, sends the rest.
class HalvingServer {
 public:
  explicit HalvingServer(bool tellsLength = true)
      : m_server([this, tellsLength](Connection& peer) {
          peer.ReadRequest();
          const std::string content = MakePattern(1 << 20);
          const std::string length = std::to_string(content.size());
          peer.Send(FormatHead(
              200, tellsLength ? std::vector<HeaderField>{{"Content-Length", length}} : std::vector<HeaderField>{}));
          peer.Send(content.substr(0, content.size() / 2));
          if (peer.WaitFor(goOn)) peer.Send(content.substr(content.size() / 2));
        }) {}

  Gate goOn;
  std::string Url() const { return m_server.Url("/big.iso"); }

 private:
  ScriptedServer m_server;
};

TEST(Progress, ShowsOnATerminalAndEndsWithASummary) {
  HalvingServer server;
  const TempDir folder;
  ProgramOptions options;
  options.terminalError = true;
  const auto program = StartCorvane({"get", server.Url(), "-o", folder / "big.iso"}, options);
  EXPECT_TRUE(program->WaitForTerminalOutput("\r\x1b[Kbig.iso   50%  [=")) << program->TerminalOutput();
  EXPECT_TRUE(program->WaitForTerminalOutput("512.0 KiB of 1.0 MiB"));
  server.goOn.Open();
  const auto result = program->Wait();
  ASSERT_TRUE(result.has_value());
  EXPECT_EQ(result->exitCode, 0) << result->Describe();
  EXPECT_EQ(result->out, "");
  // The line is erased, and what stays is one line with a line feed.
  const std::size_t last = result->terminal.rfind("\r\x1b[K");
  EXPECT_THAT(result->terminal.substr(last), testing::MatchesRegex("\r.\\[Kbig.iso  1.0 MiB in [^\r\n]*/s\\)\r\n"));
}

TEST(Progress, SummaryOfAResumedDownloadCountsWhatCame) {
  const std::string content = MakePattern(300000);
  const ScriptedServer server(KeepAlive(Content(content, {.headers = {{"ETag", "\"v1\""}}})));
  const TempDir folder;
  WriteFile(folder / "f.part", content.substr(0, 250032));
  WriteFile(folder / "f.part.json",
            R"({"corvane": 1, "url": ")" + server.Url() + R"(", "validator": "\"v1\"", "size": null})");
  ProgramOptions options;
  options.terminalError = true;
  const ProgramResult result = RunCorvane({"get", server.Url(), "-o", folder / "f", "--resume"}, options);
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_THAT(result.terminal, HasSubstr("f  293.0 KiB; 48.8 KiB in "));
}

TEST(Progress, CopesWithAnUnknownLength) {
  HalvingServer server(false);
  const TempDir folder;
  ProgramOptions options;
  options.terminalError = true;
  const auto program = StartCorvane({"get", server.Url(), "-o", folder / "big.iso"}, options);
  EXPECT_TRUE(program->WaitForTerminalOutput("\r\x1b[Kbig.iso  512.0 KiB  ")) << program->TerminalOutput();
  server.goOn.Open();
  const auto result = program->Wait();
  ASSERT_TRUE(result.has_value());
  EXPECT_EQ(result->exitCode, 0) << result->Describe();
  EXPECT_THAT(result->terminal, AllOf(Not(HasSubstr("%")), Not(HasSubstr("left"))));
}

TEST(Progress, ShowsForAPipedTextAndIsErased) {
  HalvingServer server;
  ProgramOptions options;
  options.terminalError = true;
  const auto program = StartCorvane({"get", server.Url(), "--json"}, options);  // --json shows none
  const auto text = StartCorvane({"get", server.Url(), "--quiet"}, options);    // nor does --quiet
  const auto shown = StartCorvane({"get", server.Url()}, options);
  EXPECT_TRUE(shown->WaitForTerminalOutput("50%")) << shown->TerminalOutput();
  server.goOn.Open();
  EXPECT_THAT(program->Wait()->terminal, Not(HasSubstr("\x1b")));
  EXPECT_EQ(text->Wait()->terminal, "");
  const std::string terminal = shown->Wait()->terminal;
  EXPECT_THAT(terminal, testing::EndsWith("\r\x1b[K"));
}

TEST(Progress, StaysAwayFromATextOnTheSameTerminal) {
  const ScriptedServer server(KeepAlive(Content("text\n")));
  ProgramOptions options;
  options.terminalOutput = options.terminalError = true;
  EXPECT_EQ(RunCorvane({"get", server.Url()}, options).terminal, "text\r\n");
}

TEST(Progress, IsErasedBeforeAnError) {
  const ScriptedServer server(KeepAlive(Status(404)));
  const TempDir folder;
  ProgramOptions options;
  options.terminalError = true;
  const std::string terminal = RunCorvane({"get", server.Url(), "-o", folder / "f"}, options).terminal;
  EXPECT_THAT(terminal, testing::EndsWith("the server answered 404 Not Found; check the path\r\n"));
  const std::size_t error = terminal.find("corvane: cannot get");
  EXPECT_TRUE(error == 0 || terminal.compare(error - 4, 4, "\r\x1b[K") == 0) << terminal;
}

TEST(Progress, LogLinesDoNotRunIntoIt) {
  HalvingServer server;
  const TempDir folder;
  ProgramOptions options;
  options.terminalError = true;
  const auto program = StartCorvane({"get", server.Url(), "-o", folder / "f", "-v"}, options);
  EXPECT_TRUE(program->WaitForTerminalOutput("50%"));
  server.goOn.Open();
  const std::string terminal = program->Wait()->terminal;
  EXPECT_THAT(terminal, HasSubstr("\r\x1b[Kended with 0x00010000, 1048576 bytes"));
}

// --- terminals of all kinds

// What is seen between the places where a line is erased or ended.
std::vector<std::string> DrawnLines(const std::string& terminal) {
  std::vector<std::string> lines(1);
  for (const char character : terminal) {
    if (character == '\r' || character == '\n') {
      lines.emplace_back();
    } else {
      lines.back() += character;
    }
  }
  for (std::string& line : lines) {
    if (line.rfind("\x1b[K", 0) == 0) line.erase(0, 3);
  }
  return lines;
}

struct TerminalKind {
  int columns = 80;
  std::string locale = "C.UTF-8";
  std::optional<std::string> noColour = {};
};

// All that is written to a terminal while a file of this name is fetched, whose progress is seen half way.
std::string TerminalOfADownload(const std::string& name, const TerminalKind& kind) {
  HalvingServer server;
  const TempDir folder;
  ProgramOptions options;
  options.terminalError = true;
  options.environment = {{"LC_ALL", kind.locale}, {"TERM", "xterm"}, {"NO_COLOR", kind.noColour}};
  BackgroundProgram program({"/bin/sh", "-c", "stty cols \"$1\" < /dev/tty && exec \"$0\" get \"$2\" -o \"$3\"",
                             CORVANE_PROGRAM, std::to_string(kind.columns), server.Url(), folder / name},
                            options);
  EXPECT_TRUE(program.WaitForTerminalOutput("50%")) << program.TerminalOutput();
  server.goOn.Open();
  const auto result = program.Wait();
  EXPECT_TRUE(result.has_value() && result->exitCode == 0) << program.TerminalOutput();
  return program.TerminalOutput();
}

TEST(Terminal, IsNeverWrittenToItsLastColumn) {
  for (const int columns : {40, 50, 64, 80, 100, 132, 200}) {
    for (const char* const name : {"f", "a-very-long-name-of-a-file-that-does-not-fit-anywhere.iso"}) {
      const std::string terminal = TerminalOfADownload(name, {.columns = columns});
      for (const std::string& line : DrawnLines(terminal)) EXPECT_LT(line.size(), std::size_t(columns)) << line;
      EXPECT_THAT(terminal, HasSubstr("  1.0 MiB in "));  // the summary
    }
  }
}

TEST(Terminal, HasNoColours) {
  for (const char* const value : {"", "1"}) {
    const std::string terminal = TerminalOfADownload("f", {.noColour = value});
    for (std::size_t at = terminal.find('\x1b'); at != std::string::npos; at = terminal.find('\x1b', at + 1)) {
      EXPECT_EQ(terminal.substr(at, 3), "\x1b[K");
    }
  }
}

TEST(Terminal, ThatIsDumbGetsTheSummaryOnly) {
  const ScriptedServer server(KeepAlive(Content(MakePattern(1 << 20))));
  const TempDir folder;
  ProgramOptions options;
  options.terminalError = true;
  options.environment["TERM"] = "dumb";
  const ProgramResult result = RunCorvane({"get", server.Url(), "-o", folder / "f"}, options);
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_THAT(result.terminal, testing::MatchesRegex("f  1.0 MiB in [^\r\n\x1b]*\r\n"));
}

bool IsAscii(const std::string& text) {
  return std::all_of(text.begin(), text.end(),
                     [](char character) { return static_cast<unsigned char>(character) < 0x80; });
}

TEST(Terminal, WithoutUtf8GetsAscii) {
  const std::string terminal = TerminalOfADownload("f", {.columns = 60, .locale = "C"});
  EXPECT_THAT(terminal, HasSubstr("50%"));
  EXPECT_TRUE(IsAscii(terminal)) << terminal;
  // A name that the locale does not have is refused, and told byte by byte.
  ProgramOptions options;
  options.terminalError = true;
  options.environment["LC_ALL"] = "C";
  const ProgramResult refused = RunCorvane({"get", RefusedUrl(), "-o", "gr\xC3\xBC\xC3\x9F"}, options);
  EXPECT_EQ(refused.exitCode, 3) << refused.Describe();
  EXPECT_THAT(refused.terminal, HasSubstr("gr\\xC3\\xBC\\xC3\\x9F"));
  EXPECT_TRUE(IsAscii(refused.terminal)) << refused.terminal;
}

TEST(Pipe, GetsNoProgressAndNoControlCharacters) {
  const ScriptedServer server(KeepAlive(Content(MakePattern(1 << 20))));
  const TempDir folder;
  EXPECT_EQ(RunCorvane({"get", server.Url(), "-o", folder / "f"}).err, "");
}

// --- the question for the password

ProgramOptions AtATerminal() {
  ProgramOptions options;
  options.terminalInput = options.keepInputOpen = true;
  return options;
}

TEST(PasswordPrompt, ReadsWithoutEchoAndGoesOn) {
  const ScriptedServer server(KeepAlive(Content("x")));
  const auto program = StartCorvane({"get", server.Url(), "--user", "ada"}, AtATerminal());
  ASSERT_TRUE(program->WaitForTerminalOutput("Password for ada: "));
  ASSERT_TRUE(program->Send("s3cret\n"));
  const auto result = program->Wait();
  ASSERT_TRUE(result.has_value());
  EXPECT_EQ(result->exitCode, 0) << result->Describe();
  EXPECT_EQ(result->out, "x");
  EXPECT_THAT(result->terminal, Not(HasSubstr("s3cret")));
}

TEST(PasswordPrompt, CtrlCRestoresTheTerminalAndBeginsNothing) {
  const ScriptedServer server(KeepAlive(Content("x")));
  ProgramOptions options = AtATerminal();
  BackgroundProgram program({"/bin/sh", "-c", "trap : INT; \"$0\" get \"$1\" --user ada; echo $?; stty -a < /dev/tty",
                             CORVANE_PROGRAM, server.Url()},
                            options);
  ASSERT_TRUE(program.WaitForTerminalOutput("Password for ada: "));
  ASSERT_TRUE(program.Send("\x03"));
  const auto result = program.Wait();
  ASSERT_TRUE(result.has_value());
  EXPECT_THAT(result->out, AllOf(testing::StartsWith("130\n"), HasSubstr(" echo "), HasSubstr("susp = ^Z")));
  EXPECT_EQ(result->err, "corvane: interrupted; nothing was begun\n");
  EXPECT_THAT(server.Requests(), testing::IsEmpty());
}

TEST(PasswordPrompt, NeedsATerminalAndNamesTheAlternatives) {
  const ProgramResult result = RunCorvane({"get", RefusedUrl(), "--user", "ada"});
  EXPECT_EQ(result.exitCode, 2);
  EXPECT_THAT(OnlyErrorLine(result),
              AllOf(HasSubstr("no terminal"), HasSubstr("CORVANE_PASSWORD"), HasSubstr("--password-file FILE")));
}

}  // namespace
}  // namespace CorvaneTest
