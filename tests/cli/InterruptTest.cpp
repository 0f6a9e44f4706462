// Ctrl-C and its kin.

#include <gmock/gmock.h>
#include <signal.h>

#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "tests/cli/CliTesting.h"
#include "tests/support/Gate.h"
#include "tests/support/StalledListener.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr int kInterrupted = 130;

// Sends the first thousand bytes of five thousand, and nothing more.
class StallingServer {
 public:
  StallingServer()
      : m_content(MakePattern(5000)), m_server([this](Connection& peer) {
          if (!peer.ReadRequest()) return;
          peer.Send(FormatHead(200, {{"Content-Length", "5000"}, {"ETag", "\"v1\""}}) + m_content.substr(0, 1000));
          peer.WaitUntilStopped();
        }) {}

  std::string Url() const { return m_server.Url("/f"); }
  const std::string& Content() const { return m_content; }

 private:
  std::string m_content;
  ScriptedServer m_server;
};

// Returns when the file holds what the server has sent.
testing::AssertionResult AwaitSize(const std::filesystem::path& file, std::uintmax_t size) {
  const Deadline deadline = After(kPatience);
  while (Clock::now() < deadline) {
    std::error_code error;
    if (std::filesystem::file_size(file, error) == size && !error) return testing::AssertionSuccess();
    std::this_thread::yield();
  }
  return testing::AssertionFailure() << file << " never got " << size << " bytes";
}

TEST(Interrupt, EveryEndingSignalStopsAStalledTransferAndKeepsWhatCame) {
  const StallingServer server;
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    const TempDir folder;
    const auto program = StartCorvane({"get", server.Url(), "-o", folder / "f", "--json"});
    ASSERT_TRUE(AwaitSize(folder / "f.part", 1000));
    program->Kill(signal);
    const auto result = program->Wait();
    ASSERT_TRUE(result.has_value());
    EXPECT_EQ(result->exitCode, kInterrupted) << result->Describe();
    EXPECT_EQ(ReadFile(folder / "f.part"), server.Content().substr(0, 1000));
    EXPECT_FALSE(std::filesystem::exists(folder / "f"));
    EXPECT_EQ(result->err, "corvane: interrupted\ncorvane: 1000 B are kept in " + (folder / "f.part").string() +
                               "; continue with: corvane get " + server.Url() + " --json -o " +
                               (folder / "f").string() + " --resume\n");
    const nlohmann::json report = ParseReport(*result);
    EXPECT_EQ(report["status"], "0x80011003");
    EXPECT_EQ(report["error"], "interrupted");
    EXPECT_EQ(report["partial"], (folder / "f.part").string());
  }
}

TEST(Interrupt, LeavesAnExistingFileAsItWas) {
  const StallingServer server;
  const TempDir folder;
  WriteFile(folder / "f", "old");
  const auto program = StartCorvane({"get", server.Url(), "-o", folder / "f"});
  ASSERT_TRUE(AwaitSize(folder / "f.part", 1000));
  program->Kill(SIGINT);
  const auto result = program->Wait();
  ASSERT_TRUE(result.has_value());
  EXPECT_EQ(result->exitCode, kInterrupted) << result->Describe();
  EXPECT_EQ(ReadFile(folder / "f"), "old");
  EXPECT_EQ(ReadFile(folder / "f.part").size(), 1000U);
  EXPECT_THAT(result->err, HasSubstr(" --resume\n"));
}

TEST(Interrupt, LeavesNothingBeforeTheFirstByte) {
  Gate asked;
  const ScriptedServer server([&](Connection& peer) {
    peer.ReadRequest();
    asked.Open();
    peer.WaitUntilStopped();
  });
  const TempDir folder;
  const auto program = StartCorvane({"get", server.Url(), "-o", folder / "f"});
  ASSERT_TRUE(asked.Wait());
  program->Kill(SIGINT);
  const auto result = program->Wait();
  ASSERT_TRUE(result.has_value());
  EXPECT_EQ(result->exitCode, kInterrupted) << result->Describe();
  EXPECT_EQ(OnlyErrorLine(*result), "corvane: interrupted; nothing was kept");
  EXPECT_THAT(NamesIn(folder.Path()), IsEmpty());
}

TEST(Interrupt, EndsAnAttemptToConnect) {
  const StalledListener listener;
  const TempDir folder;
  const auto program = StartCorvane({"get", listener.Url(), "-v"});
  ASSERT_TRUE(program->WaitForErrorOutput("CurlGlobalInit"));
  program->Kill(SIGINT);
  const auto result = program->Wait();
  ASSERT_TRUE(result.has_value());
  EXPECT_EQ(result->exitCode, kInterrupted) << result->Describe();
}

TEST(Interrupt, EndsAStreamAndSaysThatItIsNotTheWhole) {
  const ScriptedServer server([](Connection& peer) {
    peer.ReadRequest();
    peer.Send(FormatHead(200, {{"Content-Length", "10"}}) + "01234");
    peer.WaitUntilStopped();
  });
  const auto program = StartCorvane({"get", server.Url()});
  ASSERT_TRUE(program->WaitForOutput("01234"));
  program->Kill(SIGINT);
  const auto result = program->Wait();
  ASSERT_TRUE(result.has_value());
  EXPECT_EQ(result->exitCode, kInterrupted) << result->Describe();
  EXPECT_EQ(result->out, "01234");
  EXPECT_EQ(result->err,
            "corvane: interrupted\ncorvane: 5 B went to the standard output before; that is not the whole\n");
}

TEST(Interrupt, CtrlCOnATerminalErasesTheProgressLine) {
  const StallingServer server;
  const TempDir folder;
  ProgramOptions options;
  options.terminalInput = options.terminalError = options.keepInputOpen = true;
  const auto program = StartCorvane({"get", server.Url(), "-o", folder / "f"}, options);
  ASSERT_TRUE(program->WaitForTerminalOutput("1000 B of 4.9 KiB"));
  ASSERT_TRUE(program->Send("\x03"));
  const auto result = program->Wait();
  ASSERT_TRUE(result.has_value());
  EXPECT_EQ(result->exitCode, kInterrupted) << result->Describe();
  EXPECT_THAT(result->terminal, AllOf(HasSubstr("corvane: stopping; once more ends at once\r\n"),
                                      HasSubstr("\r\x1b[Kcorvane: interrupted\r\n"), HasSubstr("continue with: ")));
}

// The throttle sleeps for up to ten seconds, during which an abort has to wait.
TEST(Interrupt, SecondSignalEndsAtOnce) {
  Gate sent;
  const ScriptedServer server([&](Connection& peer) {
    peer.ReadRequest();
    peer.Send(FormatHead(200, {{"Content-Length", "9000000"}, {"ETag", "\"v1\""}}) + MakePattern(100000));
    sent.Open();
    peer.WaitUntilStopped();
  });
  const TempDir folder;
  ProgramOptions options;
  options.terminalError = true;
  const auto program = StartCorvane({"get", server.Url(), "-o", folder / "f", "--limit", "1k"}, options);
  ASSERT_TRUE(sent.Wait());
  ASSERT_TRUE(program->WaitForTerminalOutput(" of 8.6 MiB"));
  program->Kill(SIGINT);
  ASSERT_TRUE(program->WaitForTerminalOutput("once more ends at once"));
  const auto first = Clock::now();
  while (program->IsRunning() && Clock::now() < first + kPatience) program->Kill(SIGINT);
  const auto result = program->Wait();
  EXPECT_GE(Clock::now() - first, std::chrono::milliseconds(400)) << "those within half a second belong to the first";
  EXPECT_LT(Clock::now() - first, std::chrono::seconds(5)) << "it did not wait for the throttle";
  ASSERT_TRUE(result.has_value());
  EXPECT_EQ(result->exitCode, kInterrupted) << result->Describe();
  EXPECT_THAT(result->terminal, testing::Not(HasSubstr("corvane: interrupted")));  // it did not wait for the transfer
  EXPECT_GT(FileSize(folder / "f.part"), 0U);
}

// timeout(1) sends its signal to the program and then to the program's group.
TEST(Interrupt, SignalsWithinHalfASecondAreOne) {
  const StallingServer server;
  for (const auto& [first, second] : {std::pair(SIGINT, SIGTERM), std::pair(SIGTERM, SIGHUP)}) {
    const TempDir folder;
    const auto program = StartCorvane({"get", server.Url(), "-o", folder / "f", "--json"});
    ASSERT_TRUE(AwaitSize(folder / "f.part", 1000));
    program->Kill(first);
    program->Kill(second);
    const auto result = program->Wait();
    ASSERT_TRUE(result.has_value());
    EXPECT_EQ(result->exitCode, kInterrupted) << result->Describe();
    EXPECT_THAT(result->err, AllOf(HasSubstr("corvane: interrupted\n"), HasSubstr("continue with: ")));
    EXPECT_EQ(ParseReport(*result)["error"], "interrupted");
  }
}

// As nohup and shells starting a program in the background do.
TEST(Interrupt, SignalIgnoredFromTheStartStaysIgnored) {
  Gate sent, goOn;
  const ScriptedServer server([&](Connection& peer) {
    peer.ReadRequest();
    peer.Send(FormatHead(200, {{"Content-Length", "10"}}) + "01234");
    sent.Open();
    if (peer.WaitFor(goOn)) peer.Send("56789");
  });
  BackgroundProgram program(
      {"/bin/sh", "-c", "trap '' HUP INT; exec \"$0\" get \"$1\"", CORVANE_PROGRAM, server.Url()});
  ASSERT_TRUE(sent.Wait());
  program.Kill(SIGHUP);
  program.Kill(SIGINT);
  goOn.Open();
  const auto result = program.Wait();
  ASSERT_TRUE(result.has_value());
  EXPECT_EQ(result->exitCode, 0) << result->Describe();
  EXPECT_EQ(result->out, "0123456789");
}

}  // namespace
}  // namespace CorvaneTest
