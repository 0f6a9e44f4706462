// corvane mirror interrupted by its user, and watched on a terminal.

#include <gmock/gmock.h>
#include <signal.h>

#include <atomic>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/cli/CliTesting.h"
#include "tests/cli/MirrorPages.h"
#include "tests/support/Gate.h"
#include "tests/support/ScriptedFtpServer.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

TEST(MirrorInterrupt, KeepsWhatCameAndTellsHowToGoOn) {
  Gate sent;
  const Responder stalled = [&](Connection& peer, const Request&) {
    peer.Send(FormatHead(200, {{"Content-Length", "5000"}}) + std::string(1000, 'x'));
    sent.Open();
    peer.WaitUntilStopped();
  };
  const ScriptedServer server(KeepAlive(Directory({{"a", Content("12345")}, {"b", stalled}, {"c", Content("c")}})));
  const TempDir folder;
  const auto program = StartCorvane({"mirror", server.Url("/d/"), folder.Path(), "--json"});
  ASSERT_TRUE(sent.Wait());
  const Deadline deadline = After(kPatience);
  while (NamesIn(folder.Path()).size() < 2 || FileSize(folder / "b") < 1000) ASSERT_LT(Clock::now(), deadline);
  program->Kill(SIGINT);
  const auto result = program->Wait();
  ASSERT_TRUE(result.has_value());
  EXPECT_EQ(result->exitCode, 130) << result->Describe();
  EXPECT_THAT(result->err, AllOf(HasSubstr("corvane: interrupted\n"),
                                 HasSubstr("1 file and the beginning of b are kept in " + folder.Path().string()),
                                 HasSubstr("list the sizes with --sizes FILE"), Not(HasSubstr("continue with"))));
  EXPECT_EQ(ParseReport(*result)["status"], "0x80011003");
  EXPECT_EQ(ParseReport(*result)["file"], "b");
  EXPECT_EQ(ParseReport(*result)["receivedSize"], 1005);
  EXPECT_EQ(ReadFile(folder / "a"), "12345");
  EXPECT_EQ(FileSize(folder / "b"), 1000U);
  EXPECT_FALSE(fs::exists(folder / "c"));
}

TEST(MirrorInterrupt, IsContinuedByTheSameCommandWithResume) {
  Gate sent;
  const std::string content = MakePattern(5000);
  std::atomic<bool> stalls{true};
  const Responder stalledOnce = [&](Connection& peer, const Request& request) {
    if (!stalls.exchange(false)) return Content(content)(peer, request);
    peer.Send(FormatHead(200, {{"Content-Length", "5000"}}) + content.substr(0, 1000));
    sent.Open();
    peer.WaitUntilStopped();
  };
  const ScriptedServer server(KeepAlive(Directory({{"a", Content("12345")}, {"b", stalledOnce}, {"c", Content("c")}})));
  const TempDir folder;
  WriteFile(folder / "sizes", "a\t5\nb\t5000\nc\t1\n");
  std::vector<std::string> command = {"mirror", server.Url("/d/"), folder / "dir", "--sizes", folder / "sizes"};
  const auto program = StartCorvane(command);
  ASSERT_TRUE(sent.Wait());
  const Deadline deadline = After(kPatience);
  while (!fs::exists(folder / "dir/b") || FileSize(folder / "dir/b") < 1000) ASSERT_LT(Clock::now(), deadline);
  program->Kill(SIGINT);
  const auto interrupted = program->Wait();
  ASSERT_TRUE(interrupted.has_value());
  ASSERT_EQ(interrupted->exitCode, 130) << interrupted->Describe();

  command.insert(command.end(), {"--resume", "--json"});
  const ProgramResult result = RunCorvane(command);
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_TRUE(ReadFile(folder / "dir/b") == content);
  EXPECT_EQ(ReadFile(folder / "dir/c"), "c");
  EXPECT_EQ(ParseReport(result)["files"],
            nlohmann::json({{"known", 3}, {"fetched", 1}, {"resumed", 1}, {"skipped", 1}, {"mismatched", 0}}));
  EXPECT_EQ(ParseReport(result)["receivedSize"], 4001);
  EXPECT_THAT(PathsAskedOf(server), ElementsAre("/d/a", "/d/b", "/d/b", "/d/c")) << "what is complete is not asked for";
}

TEST(MirrorInterrupt, StopsAStalledListing) {
  Gate asked;
  const ScriptedServer server([&](Connection& peer) {
    peer.ReadRequest();
    asked.Open();
    peer.WaitUntilStopped();
  });
  const TempDir folder;
  const auto program = StartCorvane({"mirror", server.Url("/d/"), folder.Path()});
  ASSERT_TRUE(asked.Wait());
  program->Kill(SIGINT);
  const auto result = program->Wait();
  ASSERT_TRUE(result.has_value());
  EXPECT_EQ(result->exitCode, 130) << result->Describe();
  EXPECT_EQ(OnlyErrorLine(*result), "corvane: interrupted");
}

TEST(MirrorProgress, CountsTheFiles) {
  Gate goOn;
  const Responder halved = [&](Connection& peer, const Request&) {
    peer.Send(FormatHead(200, {{"Content-Length", "5000"}}) + std::string(2500, 'x'));
    if (peer.WaitFor(goOn)) peer.Send(std::string(2500, 'x'));
  };
  const ScriptedServer server(KeepAlive(Directory({{"a", Content(std::string(5000, 'a'))}, {"b", halved}})));
  const TempDir folder;
  WriteFile(folder / "sizes", "a\t5000\nb\t5000\nz\t50\n");
  ProgramOptions options;
  options.terminalError = true;
  options.workingDirectory = folder.Path();
  const auto program = StartCorvane({"mirror", server.Url("/d/"), "dir", "--sizes", "sizes", "--ignore", "z"}, options);
  EXPECT_TRUE(program->WaitForTerminalOutput("\r\x1b[Kdir  1 of 2 files   75%  [")) << program->TerminalOutput();
  goOn.Open();
  const auto result = program->Wait();
  ASSERT_TRUE(result.has_value());
  EXPECT_EQ(result->exitCode, 0) << result->Describe();
  EXPECT_THAT(result->terminal,
              testing::ContainsRegex("\r.\\[Kdir  2 fetched, 0 skipped, 0 resumed; 9.8 KiB in .*/s\\)\r\n$"));
}

TEST(MirrorProgress, NeverShowsMoreThanTheTotal) {
  Gate goOn;
  const std::string content = MakePattern(5000);
  const Responder late = [&](Connection& peer, const Request& request) {
    if (peer.WaitFor(goOn)) Content(content)(peer, request);
  };
  const ScriptedServer server(KeepAlive(Directory({{"a", late}})));
  const TempDir folder;
  WriteFile(folder / "sizes", "a\t5000\n");
  WriteFile(folder / "dir/a", content.substr(0, 4000));
  ProgramOptions options;
  options.terminalError = true;
  options.workingDirectory = folder.Path();
  const auto program = StartCorvane({"mirror", server.Url("/d/"), "dir", "--sizes", "sizes", "--resume"}, options);
  EXPECT_TRUE(program->WaitForTerminalOutput("  80%  [")) << program->TerminalOutput();
  EXPECT_TRUE(program->WaitForTerminalOutput("3.9 KiB of 4.9 KiB"));
  goOn.Open();
  const auto result = program->Wait();
  ASSERT_TRUE(result.has_value());
  EXPECT_EQ(result->exitCode, 0) << result->Describe();
  EXPECT_THAT(result->terminal, Not(HasSubstr("7.8 KiB"))) << "the old bytes were counted twice";
}

TEST(MirrorProgress, CountsFilesWhereSizesAreNotKnown) {
  Gate goOn;
  const Responder held = [&](Connection& peer, const Request&) {
    if (peer.WaitFor(goOn)) peer.Send(FormatHead(200, {{"Content-Length", "2"}}) + "bb");
  };
  const ScriptedServer server(KeepAlive(Directory({{"a", Content("a")}, {"b", held}})));
  const TempDir folder;
  ProgramOptions options;
  options.terminalError = true;
  options.workingDirectory = folder.Path();
  const auto program = StartCorvane({"mirror", server.Url("/d/"), "dir"}, options);
  EXPECT_TRUE(program->WaitForTerminalOutput("\r\x1b[Kdir  1 of 2 files   50%  [")) << program->TerminalOutput();
  goOn.Open();
  const auto result = program->Wait();
  ASSERT_TRUE(result.has_value());
  EXPECT_EQ(result->exitCode, 0) << result->Describe();
}

TEST(MirrorProgress, TellsOfASecondRunThatNothingWasFetched) {
  ScriptedFtpServer server({{"/pub/a", "12345"}, {"/pub/b", "67"}});
  const TempDir folder;
  ProgramOptions options;
  options.terminalError = true;
  for (const char* const summary :
       {"2 fetched, 0 skipped, 0 resumed; 7 B in ", "0 fetched, 2 skipped, 0 resumed; 0 B in "}) {
    const auto program = StartCorvane({"mirror", server.Url("/pub"), folder.Path(), "--resume"}, options);
    const auto result = program->Wait();
    ASSERT_TRUE(result.has_value());
    EXPECT_EQ(result->exitCode, 0) << result->Describe();
    EXPECT_THAT(result->terminal, HasSubstr(summary));
  }
}

}  // namespace
}  // namespace CorvaneTest
