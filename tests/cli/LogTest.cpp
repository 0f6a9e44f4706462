// -v and --log-file.

#include <gmock/gmock.h>

#include <string>

#include "tests/cli/CliTesting.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

TEST(Verbose, TellsWhatTheLibraryDoes) {
  const ScriptedServer server(KeepAlive(Content("x")));
  const ProgramResult result = RunCorvane({"get", server.Url("/a"), "--verbose"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.out, "x");
  EXPECT_THAT(result.err, AllOf(StartsWith("corvane 1."), HasSubstr(": get " + server.Url("/a") + "\n"),
                                HasSubstr("CurlGlobalInit: "), HasSubstr("ended with 0x00010000, 1 bytes")));
}

std::size_t CountOf(const std::string& part, const std::string& text) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

TEST(Verbose, TellsAFailureAndWhatIsKeptOnce) {
  const ScriptedServer server([](Connection& peer) {
    if (peer.ReadRequest()) peer.Send(FormatHead(200, {{"Content-Length", "500"}}) + MakePattern(200));
  });
  const TempDir folder;
  const ProgramResult result =
      RunCorvane({"get", server.Url("/a"), "-o", folder / "f", "-v", "--log-file", folder / "log"});
  EXPECT_EQ(result.exitCode, 1) << result.Describe();
  for (const std::string& text : {result.err, ReadFile(folder / "log")}) {
    EXPECT_EQ(CountOf("cannot get " + server.Url("/a"), text), 1U) << text;
    EXPECT_EQ(CountOf("200 B are kept in ", text), 1U) << text;
  }
  const ProgramResult unknown = RunCorvane({"resolve", std::string(64, 'x') + ".invalid", "-v"});
  EXPECT_EQ(CountOf("cannot resolve", unknown.err), 1U) << unknown.err;
}

TEST(LogFile, GetsEveryLineWithItsTime) {
  const ScriptedServer server(KeepAlive(Content("x")));
  const TempDir folder;
  const ProgramResult result = RunCorvane({"get", server.Url("/a"), "--log-file", folder / "log"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.err, "");
  const std::string log = ReadFile(folder / "log");
  EXPECT_THAT(log,
              AllOf(HasSubstr("[info] corvane 1."), HasSubstr("CurlGlobalInit: "), HasSubstr("(Corvane/Transfer:")));
  for (std::size_t begin = 0; begin < log.size(); begin = log.find('\n', begin) + 1) {
    const std::string line = log.substr(begin, log.find('\n', begin) - begin);
    EXPECT_THAT(line,
                testing::MatchesRegex("[0-9]+-[0-9]+-[0-9]+ [0-9]+:[0-9]+:[0-9]+\\.[0-9]+ [0-9]+ \\[[a-z]+\\] .+"));
  }
}

TEST(LogFile, IsAppendedTo) {
  const ScriptedServer server(KeepAlive(Status(404)));
  const TempDir folder;
  WriteFile(folder / "log", "earlier\n");
  EXPECT_EQ(RunCorvane({"get", server.Url("/a"), "--log-file", folder / "log"}).exitCode, 1);
  EXPECT_THAT(ReadFile(folder / "log"),
              AllOf(StartsWith("earlier\n"), HasSubstr("[error] cannot get "), HasSubstr("404")));
}

TEST(LogFile, ThatCannotBeOpenedIsRefusedBeforeAnyRequest) {
  const ScriptedServer server(KeepAlive(Content("x")));
  const TempDir folder;
  for (const std::string& path : {folder.Path().string(), (folder / "missing/log").string()}) {
    const ProgramResult result = RunCorvane({"get", server.Url("/a"), "--log-file", path});
    EXPECT_EQ(result.exitCode, 3) << result.Describe();
    EXPECT_THAT(OnlyErrorLine(result), AllOf(HasSubstr("cannot write the log file " + path), HasSubstr("; ")));
  }
  EXPECT_THAT(server.Requests(), testing::IsEmpty());
}

TEST(LogFile, FullDeviceCostsLinesButNotTheTransfer) {
  const ScriptedServer server(KeepAlive(Content("x")));
  const ProgramResult result = RunCorvane({"get", server.Url("/a"), "--log-file", "/dev/full"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_EQ(result.out, "x");
  EXPECT_THAT(OnlyErrorLine(result), HasSubstr("cannot write to the log"));
}

TEST(LogFile, NamesCannotForgeLines) {
  const ScriptedServer server(OncePerConnection(
      [](Connection& peer, const Request&) { peer.Send("HTTP/1.1 404 \x1b[2J\r\nContent-Length: 0\r\n\r\n"); }));
  const TempDir folder;
  const std::string name = folder / "a\n2026-01-01 forged";
  WriteFile(name + ".part", MakePattern(100));
  WriteFile(name + ".part.json",
            R"({"corvane": 1, "url": ")" + server.Url() + R"(", "validator": "\"v1\"", "size": null})");
  const ProgramResult result =
      RunCorvane({"get", server.Url(), "-o", name, "--resume", "--log-file", folder / "log", "-v"});
  EXPECT_EQ(result.exitCode, 1) << result.Describe();
  EXPECT_THAT(ReadFile(folder / "log"), AllOf(HasSubstr("> Range: bytes=68-"), HasSubstr("404"),
                                              Not(HasSubstr("\n2026-01-01 forged")), Not(HasSubstr("\x1b"))));
  EXPECT_THAT(result.err, AllOf(Not(HasSubstr("\n2026-01-01 forged")), Not(HasSubstr("\x1b"))));
}

}  // namespace
}  // namespace CorvaneTest
