#include <gmock/gmock.h>
#include <signal.h>

#include <atomic>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "tests/cli/CliTesting.h"
#include "tests/servers/MirrorTree.h"
#include "tests/support/ScriptedFtpServer.h"
#include "tests/support/Sockets.h"

// corvane mirror against servers that fail it, and run again.
namespace CorvaneTest {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

// What the program says of its failure; it must say something after the URL.
void ExpectFailure(const ProgramResult& result, int exitCode, const std::string& beginning) {
  EXPECT_EQ(result.exitCode, exitCode) << result.Describe();
  EXPECT_THAT(result.err, StartsWith("corvane: " + beginning));
  EXPECT_GT(result.err.find('\n'), beginning.size() + 20) << "no reason: " << result.err;
}

// --- servers that vanish

bool IsListening(std::uint16_t port) {
  try {
    ConnectToLoopback(port);
    return true;
  } catch (const std::system_error&) {
    return false;
  }
}

// The page ends with its connection, which is closed when nobody listens any more.
TEST(CorvaneMirrorVanishingServer, AfterThePageIsAFailureThatKeepsWhatIsThere) {
  Gate isSent;
  std::atomic<std::uint16_t> port{0};
  ScriptedServer server([&](Connection& peer) {
    if (!peer.ReadRequest()) return;
    peer.Send(FormatHead(200, {{"Connection", "close"}}) + "<pre><a href=\"a\">a</a>\r\n<a href=\"b\">b</a>\r\n</pre>");
    isSent.Open();
    peer.WaitUntilStopped();
    while (IsListening(port)) std::this_thread::yield();  // until the acceptor has seen it, too
  });
  port = server.Port();
  const TempDir folder;
  WriteFile(folder / "other", "kept");
  const auto program = StartCorvane({"mirror", server.Url("/dir"), folder.Path(), "--resume"});
  ASSERT_TRUE(isSent.Wait());
  server.Stop();
  const std::optional<ProgramResult> result = program->Wait();
  ASSERT_TRUE(result.has_value());
  ExpectFailure(*result, 1, "cannot mirror " + server.Url("/dir") + ": ");
  EXPECT_THAT(result->err, HasSubstr("connection failed"));
  EXPECT_TRUE(HoldsExactly(folder.Path(), {{"other", "kept"}}));
}

TEST(CorvaneMirrorVanishingServer, AfterTheListingOverFtpIsAFailureThatKeepsWhatIsThere) {
  const Files files = {{"a", MakePattern(1000)}, {"b", MakePattern(2000)}, {"c", MakePattern(3000)}};
  Gate listed;
  ScriptedFtpServer server({{"/dir/a", files.at("a")}, {"/dir/b", files.at("b")}, {"/dir/c", files.at("c")}});
  StallAfterTheListing(server, listed);
  const TempDir folder;
  WriteFile(folder / "a", files.at("a"));
  WriteFile(folder / "b", files.at("b").substr(0, 1500));
  const auto program = StartCorvane({"mirror", server.Url("/dir"), folder.Path(), "--resume"});
  ASSERT_TRUE(listed.Wait());
  server.Stop();
  const std::optional<ProgramResult> result = program->Wait();
  ASSERT_TRUE(result.has_value());
  ExpectFailure(*result, 1, "cannot mirror " + server.Url("/dir") + ": ");
  EXPECT_TRUE(HoldsExactly(folder.Path(), {{"a", files.at("a")}, {"b", files.at("b").substr(0, 1500)}}));
}

// --- sizes

TEST(CorvaneMirrorSizes, ThatTheServerLiesAboutAreAFailureForAnyFile) {
  const std::string content = MakePattern(1000);
  ScriptedFtpServer server({{"/dir/a", content}, {"/dir/b", content}, {"/dir/c", content}});
  const FtpDelay relay(server.Port());
  for (const char* const size : {"999", "1001"}) {
    const std::string line = "-rw-r--r-- 1 0 0 1000 Jan 01 2020 ";
    std::string listing = line + "a\r\n-rw-r--r-- 1 0 0 ";
    listing.append(size).append(" Jan 01 2020 b\r\n").append(line).append("c\r\n");
    server.SetListing("/dir", listing);
    const TempDir folder;
    for (const char* const resume : {"--resume", "--no-throttle"}) {
      const ProgramResult result = RunCorvane({"mirror", relay.Url("/dir"), folder.Path(), resume});
      ExpectFailure(result, 1, "cannot mirror " + relay.Url("/dir") + ": ");
      EXPECT_THAT(result.err, AllOf(HasSubstr((folder / "b").string()), HasSubstr(size)));
      EXPECT_TRUE(HoldsExactly(folder.Path(), {{"a", content}, {"b", content}, {"c", content}}));
    }
  }
}

TEST(CorvaneMirrorSizes, ThatNoDiskHoldsAreRefused) {
  ScriptedFtpServer server;
  server.SetListing("/dir", "-rw-r--r-- 1 0 0 18446744073709551615 Jan 01 2020 a\r\n");
  const TempDir folder;
  const ProgramResult result = RunCorvane({"mirror", server.Url("/dir"), folder.Path()});
  ExpectFailure(result, 3, "Insufficient disk space");
  EXPECT_THAT(server.Commands(), Not(testing::Contains(StartsWith("RETR"))));
}

// --- a second run

const Files kFiles = {{"a", MakePattern(300000, 1)}, {"b", MakePattern(900000, 2)}, {"c", MakePattern(1000, 3)}};

TEST(CorvaneMirrorSecondRun, FetchesTheListingOnly) {
  WatchedVsftpd vsftpd;
  WriteFiles(vsftpd.RootDir() / "pub", kFiles);
  const TempDir folder;
  for (int run = 1; run <= 3; ++run) {
    const ProgramResult result = RunCorvane({"mirror", vsftpd.Url("/pub"), folder.Path(), "--resume"});
    EXPECT_EQ(result.exitCode, 0) << result.Describe();
    EXPECT_EQ(vsftpd.CountCommands("LIST"), static_cast<std::size_t>(run));
    EXPECT_EQ(vsftpd.CountCommands("RETR"), kFiles.size());
  }
  EXPECT_TRUE(HoldsExactly(folder.Path(), kFiles));
}

// Times are set when a run ends, and a file that is complete is not looked at again. So the files that a run had
// completed before it was killed keep the time of their download.
TEST(CorvaneMirrorTimes, OfFilesFromAKilledRunStayAsTheyWere) {
  const Files files = {{"a", "12345"}, {"b", MakePattern(5000)}};
  Gate isHalfSent;
  std::atomic<bool> isSecondRun{false};
  const Responder whole = Routes({{"/dir/a", Content(files.at("a"))}, {"/dir/b", Content(files.at("b"))}});
  const ScriptedServer server(KeepAlive([&](Connection& peer, const Request& request) {
    if (request.target != "/dir/b" || isSecondRun) return whole(peer, request);
    peer.Send(FormatHead(200, {{"Content-Length", "5000"}}) + files.at("b").substr(0, 2500));
    isHalfSent.Open();
    peer.WaitUntilPeerCloses();
  }));
  const TempDir folder, lists;
  WriteNumberList(lists / "sizes", SizesOf(files));
  WriteNumberList(lists / "times", {{"a", 1000000000}, {"b", 1000000000}});
  const std::vector<std::string> arguments = {"mirror",  server.Url("/dir"), folder.Path(), "--resume",
                                              "--sizes", lists / "sizes",    "--times",     lists / "times"};
  {
    const auto program = StartCorvane(arguments);
    ASSERT_TRUE(isHalfSent.Wait());
    program->Kill(SIGKILL);
    ASSERT_TRUE(program->Wait().has_value());
  }
  isSecondRun = true;
  const ProgramResult result = RunCorvane(arguments);
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_TRUE(HoldsExactly(folder.Path(), files));
  EXPECT_GT(StatusOf(folder / "a").st_mtime, 1000000000);
  EXPECT_EQ(StatusOf(folder / "b").st_mtime, 1000000000);
}

}  // namespace
}  // namespace CorvaneTest
