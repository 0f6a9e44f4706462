#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/servers/MirrorRuns.h"
#include "tests/support/ScriptedFtpServer.h"

// Servers that say a wrong size, or go away after the listing.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::AnyOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace fs = std::filesystem;

std::string UnixLine(const std::string& name, const std::string& size) {
  return "-rw-r--r--   1 ftp      ftp      " + size + " Jan 01  2020 " + name + "\r\n";
}

std::string DosLine(const std::string& name, const std::string& size) {
  return "01-01-20  10:00AM " + size + " " + name + "\r\n";
}

using LineFormat = std::string (*)(const std::string& name, const std::string& size);

std::string Mismatch(const fs::path& file, std::size_t actual, const std::string& expected) {
  return MessageOf(TRANSFER_E_SIZE_MISMATCH) + ", File: " + file.string() + " Size: " + std::to_string(actual) +
         " Expected size: " + expected;
}

std::vector<std::string> FilesAskedOf(const ScriptedFtpServer& server) {
  std::vector<std::string> files;
  for (const std::string& command : server.Commands()) {
    if (command.compare(0, 5, "RETR ") == 0) files.push_back(command.substr(5));
  }
  return files;
}

class ZMultiDownloadLies : public testing::TestWithParam<LineFormat> {
 protected:
  // Lists "a", "b" and "c", of which only "b" may have another size than it says.
  void ListB(const std::string& size) {
    m_server.SetListing("/pub", GetParam()("a", "1000") + GetParam()("b", size) + GetParam()("c", "1000"));
  }
  // Lists "z" alone.
  void ListZ(const std::string& size) { m_server.SetListing("/pub", GetParam()("z", size)); }

  Outcome Run(bool resume) const { return MirrorAfresh(m_relay.Url("/pub"), m_folder.Path(), resume); }

  const std::string m_content = MakePattern(1000);
  const Files m_files = {{"a", m_content}, {"b", m_content}, {"c", m_content}};
  ScriptedFtpServer m_server{
      {{"/pub/a", m_content}, {"/pub/b", m_content}, {"/pub/c", m_content}, {"/pub/z", m_content}}};
  FtpDelay m_relay{m_server.Port()};
  TempDir m_folder;
};

TEST_P(ZMultiDownloadLies, OfAnEarlierFileDoNotEndTheRun) {
  for (const char* const size : {"999", "1001", "5000", "0"}) {
    ListB(size);
    for (const bool resume : {false, true, true}) {
      const Outcome outcome = Run(resume);
      EXPECT_THAT(outcome.code, AnyOf(IsCode(TRANSFER_S_FINISHED), IsCode(TRANSFER_E_SIZE_MISMATCH))) << size;
      EXPECT_TRUE(HoldsExactly(m_folder.Path(), m_files)) << size;
    }
    fs::remove_all(m_folder.Path());
  }
}

TEST_P(ZMultiDownloadLies, MoreThanThereIsIsAMismatchOfTheLastFileAgainAndAgain) {
  ListZ("5000");
  for (const bool resume : {false, true, true}) {
    const Outcome outcome = Run(resume);
    EXPECT_THAT(outcome.code, IsCode(TRANSFER_E_SIZE_MISMATCH));
    EXPECT_EQ(outcome.error, Mismatch(m_folder / "z", 1000, "5000"));
    EXPECT_TRUE(HoldsExactly(m_folder.Path(), {{"z", m_content}}));
  }
  EXPECT_THAT(FilesAskedOf(m_server), ElementsAre("z", "z", "z")) << "once in each run";
  EXPECT_TRUE(m_server.HasCommand("REST 968"));
  ListZ("1000");
  EXPECT_THAT(Run(true).code, IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(FilesAskedOf(m_server).size(), 3U) << "it was complete all the time";
}

TEST_P(ZMultiDownloadLies, LessThanThereIsIsAMismatchAndAFreshStart) {
  ListZ("500");
  for (const bool resume : {false, true, true}) {
    const Outcome outcome = Run(resume);
    EXPECT_THAT(outcome.code, IsCode(TRANSFER_E_SIZE_MISMATCH));
    EXPECT_EQ(outcome.error, Mismatch(m_folder / "z", 1000, "500"));
    EXPECT_TRUE(HoldsExactly(m_folder.Path(), {{"z", m_content}}));
  }
  EXPECT_THAT(FilesAskedOf(m_server), ElementsAre("z", "z", "z"));
  EXPECT_THAT(m_server.Commands(), Not(Contains(StartsWith("REST"))));
}

// A local file of exactly the size that the server says is complete, whatever the server would send.
TEST_P(ZMultiDownloadLies, AboutALocalFileAreBelieved) {
  ListZ("500");
  WriteFile(m_folder / "z", m_content.substr(0, 500));
  EXPECT_THAT(Run(true).code, IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(FilesAskedOf(m_server), IsEmpty());
}

TEST_P(ZMultiDownloadLies, NothingMeansThatTheSizeIsNotKnown) {
  ListZ("0");
  for (const bool resume : {false, true}) {
    EXPECT_THAT(Run(resume).code, IsCode(TRANSFER_S_FINISHED));
    EXPECT_TRUE(HoldsExactly(m_folder.Path(), {{"z", m_content}}));
  }
}

TEST_P(ZMultiDownloadLies, MoreThanAnyDiskHoldsIsRefusedBeforeAnythingIsFetched) {
  for (const char* const size : {"1152921504606846976", "9223372036854775807", "9223372036854775808",
                                 "18446744073709550591", "18446744073709551614", "18446744073709551615"}) {
    ListB(size);
    WriteFile(m_folder / "a", m_content.substr(0, 100));
    WriteFile(m_folder / "b", m_content.substr(0, 100));
    for (int run = 0; run < 2; ++run) {
      const Outcome outcome = Run(true);
      EXPECT_THAT(outcome.code, IsCode(TRANSFER_E_DISK_SPACE)) << size;
      EXPECT_THAT(outcome.error, StartsWith("Insufficient disk space to download " + m_relay.Url("/pub/") + " to " +
                                            m_folder.Path().string() + ". Required: "));
      EXPECT_TRUE(HoldsExactly(m_folder.Path(), {{"a", m_content.substr(0, 100)}, {"b", m_content.substr(0, 100)}}))
          << "what was there can still be continued";
    }
    EXPECT_THAT(FilesAskedOf(m_server), IsEmpty());
  }
  ListB("1000");
  EXPECT_THAT(Run(true).code, IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(HoldsExactly(m_folder.Path(), m_files));
}

// Sizes whose sum would wrap around to a small one.
TEST_P(ZMultiDownloadLies, CannotTalkTheSpaceCheckOutByTheirSum) {
  const std::vector<std::vector<std::string>> rows = {
      {"9223372036854775808", "9223372036854775808", "1000"},
      {"1000", "18446744073709551615", "1"},
      {"12297829382473034411", "12297829382473034411", "12297829382473034410"},
  };
  for (const std::vector<std::string>& sizes : rows) {
    m_server.SetListing("/pub", GetParam()("a", sizes[0]) + GetParam()("b", sizes[1]) + GetParam()("c", sizes[2]));
    EXPECT_THAT(Run(false).code, IsCode(TRANSFER_E_DISK_SPACE)) << sizes[0];
    EXPECT_THAT(FilesAskedOf(m_server), IsEmpty());
    EXPECT_TRUE(HoldsExactly(m_folder.Path(), {}));
  }
}

// Text that is no size is refused or taken for the number that it begins with. Each run ends, and nothing wrong is
// left.
TEST_P(ZMultiDownloadLies, ThatAreNoNumbersEndWell) {
  for (const char* const size : {"18446744073709551616", "99999999999999999999999999", "-5", "1e3", "0x3E8", "1,000"}) {
    ListB(size);
    for (const bool resume : {false, true}) {
      const Outcome outcome = Run(resume);
      EXPECT_THAT(outcome.code,
                  AnyOf(IsCode(TRANSFER_S_FINISHED), IsCode(TRANSFER_E_DISK_SPACE), IsCode(TRANSFER_E_SIZE_MISMATCH)))
          << size;
      EXPECT_TRUE(HoldsBeginningsOf(m_folder.Path(), m_files)) << size;
    }
    fs::remove_all(m_folder.Path());
  }
}

INSTANTIATE_TEST_SUITE_P(Listings, ZMultiDownloadLies, testing::Values(&UnixLine, &DosLine),
                         [](const auto& format) { return format.index == 0 ? "InUnixLines" : "InDosLines"; });

// --- over HTTP

std::string IisLine(const std::string& name, const std::string& size) {
  return " 1/1/2026 10:00 AM " + std::string(12 - std::min<std::size_t>(size.size(), 12), ' ') + size +
         " <A HREF=\"/pub/" + name + "\">" + name + "</A><br>";
}

Responder IisPage(const std::string& lines) {
  return Status(200,
                "<html><body><pre><A HREF=\"/\">[To Parent Directory]</A><br><br>" + lines + "</pre></body></html>",
                {{"Server", "Microsoft-IIS/10.0"}});
}

TEST(ZMultiDownloadLiesOfPages, AreMismatchesAndEndEachRunCleanly) {
  const std::string content = MakePattern(1000);
  for (const char* const size : {"999", "1001", "70000"}) {
    const ScriptedServer server(KeepAlive(Routes({{"/pub/", IisPage(IisLine("a", size) + IisLine("z", size))},
                                                  {"/pub/a", Content(content)},
                                                  {"/pub/z", Content(content)}})));
    const TempDir folder;
    for (const bool resume : {false, true, true}) {
      const Outcome outcome = MirrorAfresh(server.Url("/pub"), folder.Path(), resume);
      EXPECT_THAT(outcome.code, IsCode(TRANSFER_E_SIZE_MISMATCH));
      EXPECT_EQ(outcome.error, Mismatch(folder / "z", 1000, size));
      EXPECT_TRUE(HoldsExactly(folder.Path(), {{"a", content}, {"z", content}}));
    }
    EXPECT_EQ(server.Requests().size(), 9U) << "the page and two files in each run";
  }
}

// A column holds 12 digits at most and the mark before them, so it takes many files to exceed any disk.
TEST(ZMultiDownloadLiesOfPages, AboutHugeFilesAreRefused) {
  std::string lines;
  for (int i = 0; i < 20000; ++i) lines += IisLine("file" + std::to_string(i), "999999999999");
  const ScriptedServer server(KeepAlive(Routes({{"/pub/", IisPage(lines)}})));
  const TempDir folder;
  const Outcome outcome = MirrorAfresh(server.Url("/pub"), folder / "dir", true);
  EXPECT_THAT(outcome.code, IsCode(TRANSFER_E_DISK_SPACE));
  EXPECT_THAT(outcome.error, HasSubstr(". Required: 19531249999980 Kb. "));
  EXPECT_THAT(NamesIn(folder / "dir"), IsEmpty());
}

// As many digits as fill the column may be the end of a larger number: the size counts as unknown.
TEST(ZMultiDownloadLiesOfPages, BeyondTheColumnAreNoSizes) {
  for (const char* const size : {"1000000000000", "10000000000000", "18446744073709551615"}) {
    const ScriptedServer server(KeepAlive(Routes({{"/pub/", IisPage(IisLine("a", size))}, {"/pub/a", Content("1")}})));
    const TempDir folder;
    EXPECT_THAT(MirrorAfresh(server.Url("/pub"), folder.Path(), true).code, IsCode(TRANSFER_S_FINISHED));
    EXPECT_TRUE(HoldsExactly(folder.Path(), {{"a", "1"}}));
  }
}

// A server whose file "b" announces another length than it sends on the same connection.
ScriptedServer::Handler Announcing(const std::string& content, std::size_t length, bool close) {
  const Responder others = Directory({{"a", "1"}, {"b", ""}, {"c", "33"}, {"d", "444"}});
  return KeepAlive([=](Connection& peer, const Request& request) {
    if (request.target != "/dir/b") return others(peer, request);
    peer.Send(FormatHead(200, {{"Content-Length", std::to_string(length)}}) + content);
    if (close) peer.Close();
  });
}

TEST(ZMultiDownloadLiesOfAnswers, LongerThanTheirContentEndTheRunAndCanBeResumed) {
  const std::string content = MakePattern(5000);
  const TempDir folder;
  {
    const ScriptedServer server(Announcing(content, 9000, true));
    const Outcome outcome = MirrorAfresh(server.Url("/dir"), folder.Path(), false);
    EXPECT_THAT(outcome.code, IsCode(CurlFailure(kPartialFile)));
    EXPECT_THAT(outcome.error, Not(IsEmpty()));
    EXPECT_TRUE(HoldsExactly(folder.Path(), {{"a", "1"}, {"b", content}}));
  }
  // The next run tells the sizes and meets an honest server.
  const Files files = {{"a", "1"}, {"b", MakePattern(9000)}, {"c", "33"}, {"d", "444"}};
  const ScriptedServer server(KeepAlive(Directory(files)));
  const Outcome outcome = MirrorAfresh(server.Url("/dir"), folder.Path(), true, SizeListOf(files));
  EXPECT_THAT(outcome.code, IsCode(TRANSFER_S_FINISHED)) << outcome.error;
  EXPECT_TRUE(HoldsExactly(folder.Path(), files));
  EXPECT_THAT(TargetsOf(server), ElementsAre("/dir/b", "/dir/c", "/dir/d"));
  EXPECT_EQ(server.Requests()[0].Header("Range"), "bytes=4968-");
}

// What comes too much belongs to no file; least of all to the next one on the same connection.
TEST(ZMultiDownloadLiesOfAnswers, ShorterThanTheirContentDoNotSpillIntoTheNextFile) {
  const std::string content = "beginHTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nsmuggled!";
  const ScriptedServer server(Announcing(content, 5, false));
  for (const bool resume : {false, true}) {
    const TempDir folder;
    const Outcome outcome = MirrorAfresh(server.Url("/dir"), folder.Path(), resume);
    EXPECT_THAT(outcome.code, IsCode(TRANSFER_S_FINISHED)) << outcome.error;
    EXPECT_TRUE(HoldsExactly(folder.Path(), {{"a", "1"}, {"b", "begin"}, {"c", "33"}, {"d", "444"}}));
  }
}

// --- servers that vanish

// Stops the server from inside the client, when the listing has begun to arrive. It is so short that all of it is on
// its way.
TEST(ZMultiDownloadVanishingServer, AfterThePageIsAFailure) {
  const Files files = {{"a", MakePattern(1000)}, {"b", MakePattern(2000)}};
  ScriptedServer server(KeepAlive(Directory(files)));
  const TempDir folder;
  WriteFile(folder / "other", "not of the server");
  ZMultiDownload mirror;
  AtTransfer stop(1, [&] { server.Stop(); });
  mirror.Attach(&stop);
  EXPECT_THAT(mirror.Download(Wide(server.Url("/dir")), WidePath(folder.Path()), true), IsCode(TRANSFER_E_CONNECT));
  EXPECT_THAT(ErrorOf(mirror), StartsWith(MessageOf(TRANSFER_E_CONNECT) + ", " + server.Url("/dir/a")));
  EXPECT_TRUE(HoldsExactly(folder.Path(), {{"other", "not of the server"}}));
}

TEST(ZMultiDownloadVanishingServer, KeepsWhatIsCompleteWhenTheSizesAreKnown) {
  const Files files = {{"a", MakePattern(1000)}, {"b", MakePattern(2000)}, {"c", MakePattern(3000)}};
  ScriptedServer server(KeepAlive(Directory(files)));
  const TempDir folder;
  WriteFile(folder / "a", files.at("a"));
  WriteFile(folder / "b", files.at("b").substr(0, 1500));
  WriteFile(folder / "c", files.at("c"));
  server.Stop();
  const Outcome outcome = MirrorAfresh(server.Url("/dir"), folder.Path(), true, SizeListOf(files));
  EXPECT_THAT(outcome.code, IsCode(TRANSFER_E_CONNECT));
  EXPECT_TRUE(
      HoldsExactly(folder.Path(), {{"a", files.at("a")}, {"b", files.at("b").substr(0, 1500)}, {"c", files.at("c")}}));
}

TEST(ZMultiDownloadVanishingServer, AfterTheListingOverFtpIsAFailure) {
  const Files files = {{"a", MakePattern(1000)}, {"b", MakePattern(2000)}, {"c", MakePattern(3000)}};
  Gate listed;
  ScriptedFtpServer server({{"/dir/a", files.at("a")}, {"/dir/b", files.at("b")}, {"/dir/c", files.at("c")}});
  StallAfterTheListing(server, listed);
  const TempDir folder;
  WriteFile(folder / "a", files.at("a"));
  WriteFile(folder / "b", files.at("b").substr(0, 1500));
  ZMultiDownload mirror;
  RunningMirror run(mirror, Wide(server.Url("/dir")), WidePath(folder.Path()), true);
  ASSERT_TRUE(listed.Wait());
  server.Stop();
  const std::optional<ZResult> result = run.Result();
  ASSERT_TRUE(result.has_value());
  EXPECT_TRUE(IsFailure(*result)) << Hex(*result);
  EXPECT_THAT(ErrorOf(mirror), Not(IsEmpty()));
  EXPECT_TRUE(HoldsExactly(folder.Path(), {{"a", files.at("a")}, {"b", files.at("b").substr(0, 1500)}}));
}

class ZMultiDownloadVanishingDaemon : public testing::TestWithParam<ServerKind> {};

TEST_P(ZMultiDownloadVanishingDaemon, LeavesFilesThatAnotherOneCompletes) {
  const Files files = MakeFiles(40);
  const Times times = {{Wide(files.begin()->first), 1000000000}};
  const TempDir folder;
  {
    RemoteServer server(GetParam());
    WriteFiles(server.RootDir() / "pub", files);
    ZMultiDownload mirror;
    AtTransfer stop(20, [&] { server.Stop(); });
    mirror.Attach(&stop);
    mirror.SetFileTimeList(times);
    EXPECT_TRUE(IsFailure(mirror.Download(Wide(server.Url("/pub")), WidePath(folder.Path()), true)));
    EXPECT_THAT(ErrorOf(mirror), Not(IsEmpty()));
    EXPECT_GE(NamesIn(folder.Path()).size(), 19U);
    EXPECT_LT(NamesIn(folder.Path()).size(), files.size());
    EXPECT_TRUE(HoldsBeginningsOf(folder.Path(), files));
    EXPECT_EQ(StatusOf(folder / files.begin()->first).st_mtime, 1000000000);
  }
  RemoteServer server(GetParam());
  WriteFiles(server.RootDir() / "pub", files);
  const Outcome outcome = MirrorAfresh(server.Url("/pub"), folder.Path(), true, {}, times);
  EXPECT_THAT(outcome.code, IsCode(TRANSFER_S_FINISHED)) << outcome.error;
  EXPECT_TRUE(HoldsExactly(folder.Path(), files));
}

INSTANTIATE_TEST_SUITE_P(Daemons, ZMultiDownloadVanishingDaemon,
                         testing::Values(ServerKind::kNginx, ServerKind::kApache, ServerKind::kVsftpd,
                                         ServerKind::kPyftpdlib),
                         [](const auto& server) { return NameOf(server.param); });

}  // namespace
}  // namespace CorvaneTest
