#include <gmock/gmock.h>
#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <regex>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/mirror/LineRecorder.h"
#include "tests/mirror/MirrorTesting.h"
#include "tests/support/Pki.h"
#include "tests/support/ScriptedFtpServer.h"
#include "tests/support/TempDir.h"

// A whole run on the calling thread: how it is set up, where its list of files comes from, what it leaves behind.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace fs = std::filesystem;

static_assert(!std::is_copy_constructible_v<ZMultiDownload> && !std::is_copy_assignable_v<ZMultiDownload>);

class ZMultiDownloadTest : public MirrorFixture {
 protected:
  static long TimeOf(const fs::path& file) {
    struct stat status {};
    EXPECT_EQ(stat(file.c_str(), &status), 0);
    return status.st_mtim.tv_sec;
  }
};

// --- the object

TEST_F(ZMultiDownloadTest, IsIdleAndNotStartedAtFirst) {
  EXPECT_TRUE(m_mirror.Wait(0));
  EXPECT_THAT(m_mirror.GetStatus(), IsCode(TRANSFER_E_NOT_STARTED));
  EXPECT_EQ(ErrorOf(m_mirror), "Download not started yet");
  EXPECT_EQ(m_mirror.GetDownloadTime(), 0);
  EXPECT_EQ(m_mirror.GetDownloadSize(), 0u);
  EXPECT_EQ(m_mirror.GetTransferSize(), 0u);
  EXPECT_EQ(m_mirror.GetTransferRate(), 0u);
}

TEST_F(ZMultiDownloadTest, FetchesTheListedFiles) {
  const std::map<std::string, std::string> files{{"b", MakePattern(5000)}, {"a.txt", "text"}, {"empty", ""}};
  ScriptedServer server(KeepAlive(Directory(files)));
  EXPECT_THAT(Run(server.Url("/dir/")), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(m_mirror.GetStatus(), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(ErrorOf(m_mirror), MessageOf(TRANSFER_S_FINISHED));
  EXPECT_TRUE(m_mirror.Wait(0));
  EXPECT_THAT(Names(), ElementsAre("a.txt", "b", "empty"));
  for (const auto& [name, content] : files) EXPECT_TRUE(FileHolds(Local(name), content));
  EXPECT_THAT(TargetsOf(server), ElementsAre("/dir/", "/dir/a.txt", "/dir/b", "/dir/empty"));
  EXPECT_EQ(server.AcceptedConnections(), 1u);
  EXPECT_EQ(m_mirror.GetDownloadSize(), 5004u);
  EXPECT_GT(m_mirror.GetTransferSize(), 5004u);
}

TEST_F(ZMultiDownloadTest, MakesTheFolderWithItsParents) {
  ScriptedServer server(KeepAlive(Directory({{"a", "1"}})));
  EXPECT_THAT(m_mirror.Download(Wide(server.Url("/dir/")), WidePath(Local("x") / "y"), false),
              IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(Local("x") / "y" / "a", "1"));
}

TEST_F(ZMultiDownloadTest, AbortWhileIdleHasNoEffectOnTheNextRun) {
  ScriptedServer server(KeepAlive(Directory({{"a", "1"}})));
  EXPECT_THAT(m_mirror.Abort(), IsCode(BASE_S_OK));
  EXPECT_THAT(m_mirror.GetStatus(), IsCode(TRANSFER_E_NOT_STARTED));
  EXPECT_THAT(Run(server.Url("/dir/")), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(m_mirror.Abort(), IsCode(BASE_S_OK));
  EXPECT_THAT(m_mirror.GetStatus(), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(Run(server.Url("/dir/")), IsCode(TRANSFER_S_FINISHED));
}

// --- the list of files

TEST_F(ZMultiDownloadTest, AListOfTheHostReplacesTheServers) {
  ScriptedServer server(KeepAlive(Directory({{"a", "1"}, {"b", "2"}})));
  m_mirror.SetFileSizeList(Sizes{{L"b", 1}});
  EXPECT_THAT(Run(server.Url("/dir/")), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(TargetsOf(server), ElementsAre("/dir/b"));
}

TEST_F(ZMultiDownloadTest, AnEmptyListingIsASuccessWithoutFiles) {
  for (const std::string& page : {PageOf({}), std::string(), std::string("<table><a href=\"a\">a</a></table>")}) {
    ScriptedServer server(KeepAlive(Status(200, page)));
    EXPECT_THAT(Run(server.Url("/dir/")), IsCode(TRANSFER_S_FINISHED));
    EXPECT_EQ(ErrorOf(m_mirror), MessageOf(TRANSFER_S_FINISHED));
    EXPECT_THAT(TargetsOf(server), ElementsAre("/dir/"));
  }
  EXPECT_THAT(Names(), IsEmpty());
}

TEST_F(ZMultiDownloadTest, ASecondRunFetchesTheNamesOfTheFirstUntilTheListIsEmptied) {
  ScriptedServer first(KeepAlive(Directory({{"a", "1"}, {"b", "2"}})));
  ScriptedServer second(KeepAlive(Directory({{"a", "one"}, {"b", "two"}, {"c", "three"}})));
  EXPECT_THAT(Run(first.Url("/dir/")), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(Run(second.Url("/dir/")), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(TargetsOf(second), ElementsAre("/dir/a", "/dir/b"));
  EXPECT_TRUE(FileHolds(Local("b"), "two"));

  EXPECT_THAT(m_mirror.SetFileSizeList(Sizes()), IsCode(BASE_S_OK));
  EXPECT_THAT(Run(second.Url("/dir/")), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(TargetsOf(second), ElementsAre("/dir/a", "/dir/b", "/dir/", "/dir/a", "/dir/b", "/dir/c"));
}

TEST_F(ZMultiDownloadTest, TellsWhyTheListingFailed) {
  ScriptedServer server(OncePerConnection(Status(404, PageOf({"a"}))));
  ZTransfer transfer;
  transfer.DetectHttpError(true);
  ZString body;
  EXPECT_THAT(transfer.Download(Wide(server.Url("/dir/")), body), IsCode(TRANSFER_E_CONNECT));
  EXPECT_THAT(Run(server.Url("/dir/")), IsCode(TRANSFER_E_CONNECT));
  EXPECT_THAT(m_mirror.GetStatus(), IsCode(TRANSFER_E_CONNECT));
  EXPECT_EQ(ErrorOf(m_mirror), "Failed to obtain the list of files to download: " + ErrorOf(transfer));
  EXPECT_THAT(Names(), IsEmpty());

  server.Stop();
  EXPECT_THAT(Run(server.Url("/dir/")), IsCode(CurlFailure(kRefusedConnection)));
  transfer.Reset();
  transfer.Download(Wide(server.Url("/dir/")), body);
  // libcurl tells the milliseconds of the attempt, too.
  const auto withoutTime = [](const std::string& text) {
    return std::regex_replace(text, std::regex("after [0-9]+ ms"), "after N ms");
  };
  EXPECT_EQ(withoutTime(ErrorOf(m_mirror)),
            withoutTime("Failed to obtain the list of files to download: " + ErrorOf(transfer)));
}

TEST_F(ZMultiDownloadTest, LooksForTheServersNameInTheHeader) {
  ScriptedServer server(
      KeepAlive(Routes({{"/dir/", Status(200, "<pre>11/20/2026 10:00 AM            4 <A HREF=\"/dir/a\">a</A></pre>",
                                         {{"Server", "Microsoft-IIS/10.0"}})},
                        {"/dir/a", Content("new!")}})));
  WriteFile(Local("a"), "old!");
  EXPECT_THAT(Run(server.Url("/dir/"), true), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(Local("a"), "old!")) << "its size is known, so it is complete";
  EXPECT_THAT(TargetsOf(server), ElementsAre("/dir/"));
}

// What stands in the header, too, counts as the page's beginning.
TEST_F(ZMultiDownloadTest, ReadsTheHeaderBeforeThePage) {
  ScriptedServer server(KeepAlive(Routes(
      {{"/dir/", Status(200, R"(<a href="a">a</a></pre>)", {{"X-Begin", "<pre>"}})}, {"/dir/a", Content("1")}})));
  EXPECT_THAT(Run(server.Url("/dir/")), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(Names(), ElementsAre("a"));
}

TEST_F(ZMultiDownloadTest, ReadsAPageOverHttpAndAListingOverFtp) {
  const std::string listing = "-rw-r--r-- 1 0 0 4 Nov 20 10:00 listed\r\n";
  ScriptedServer http(KeepAlive(Status(200, listing)));
  EXPECT_THAT(Run(http.Url("/dir/")), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(TargetsOf(http), ElementsAre("/dir/"));

  ScriptedFtpServer ftp({{"/dir/listed", "text"}, {"/dir/linked", "text"}});
  ftp.SetListing("/dir", PageOf({"linked"}) + "\r\n" + listing);
  EXPECT_THAT(Run(ftp.Url("/dir/")), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(Names(), ElementsAre("listed"));
  EXPECT_TRUE(FileHolds(Local("listed"), "text"));
}

TEST_F(ZMultiDownloadTest, KeepsHostileNamesInsideTheFolder) {
  const std::string line = "-rw-r--r-- 1 0 0 4 Nov 20 10:00 ";
  ScriptedFtpServer server({{"/dir/x", "text"}, {"/dir/%2e%2e%2fy", "text"}, {"/dir/..\\z", "text"}});
  server.SetListing("/dir", line + "../../x\r\n" + line + "..\r\n" + line + ".\r\n" + line + "../\r\n" + line +
                                "%2e%2e%2fy\r\n" + line + "..\\z\r\n");
  const fs::path inner = Local("1") / "2" / "3";
  EXPECT_THAT(m_mirror.Download(Wide(server.Url("/dir/")), WidePath(inner), false), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(NamesIn(inner), ElementsAre("%2e%2e%2fy", "..\\z", "x"));
  EXPECT_THAT(Names(), ElementsAre("1"));
  EXPECT_THAT(NamesIn(Local("1")), ElementsAre("2"));
  EXPECT_THAT(NamesIn(Local("1") / "2"), ElementsAre("3"));
}

// --- settings

TEST_F(ZMultiDownloadTest, IgnoresTheNamesOfTheListThatWasSetLast) {
  ScriptedServer server(KeepAlive(Directory({{"a", "1"}, {"b", "2"}, {"B", "3"}, {"bb", "4"}})));
  EXPECT_THAT(m_mirror.SetIgnoreList({L"a"}), IsCode(BASE_S_OK));
  EXPECT_THAT(m_mirror.SetIgnoreList({L"none", L"b"}), IsCode(BASE_S_OK));
  EXPECT_THAT(Run(server.Url("/dir/")), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(Names(), ElementsAre("B", "a", "bb"));
}

TEST_F(ZMultiDownloadTest, ReplacesTheSizeListInBothForms) {
  ScriptedServer server(KeepAlive(Directory({{"a", "1"}, {"b", "2"}, {"c", "3"}})));
  EXPECT_THAT(m_mirror.SetFileSizeList(Sizes{{L"a", 1}}), IsCode(BASE_S_OK));
  EXPECT_THAT(m_mirror.SetFileSizeList(Texts{{L"b", L"1"}}), IsCode(BASE_S_OK));
  Run(server.Url("/dir/"));
  EXPECT_THAT(m_mirror.SetFileSizeList(Sizes{{L"c", 1}}), IsCode(BASE_S_OK));
  Run(server.Url("/dir/"));
  EXPECT_THAT(TargetsOf(server), ElementsAre("/dir/b", "/dir/c"));
  EXPECT_THAT(m_mirror.SetFileSizeList(Texts()), IsCode(BASE_S_OK));
  Run(server.Url("/dir/"));
  EXPECT_THAT(TargetsOf(server), ElementsAre("/dir/b", "/dir/c", "/dir/", "/dir/a", "/dir/b", "/dir/c"));
}

// A file that is as large as expected is not fetched when resuming; one of unknown size always is.
TEST_F(ZMultiDownloadTest, ReadsSizesFromText) {
  ScriptedServer server(KeepAlive(Status(200, "new")));
  const Texts sizes{
      {L"decimal", L"3"}, {L"empty", L""}, {L"hexadecimal", L"0x3"}, {L"word", L"three"}, {L"zero", L"0"}};
  for (const auto& [name, size] : sizes) WriteFile(Local(Narrow(name)), "old");
  WriteFile(Local("no octal"), "old content");
  m_mirror.SetFileSizeList(sizes);
  EXPECT_THAT(Run(server.Url("/dir"), true), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(TargetsOf(server), ElementsAre("/dir/empty", "/dir/hexadecimal", "/dir/word", "/dir/zero"));
  m_mirror.SetFileSizeList(Texts{{L"no octal", L"011"}});
  EXPECT_THAT(Run(server.Url("/dir"), true), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(TargetsOf(server).size(), 4u) << "11 bytes are here";
}

TEST_F(ZMultiDownloadTest, ReplacesTheTimeListInBothForms) {
  ScriptedServer server(KeepAlive(Directory({{"a", "1"}, {"b", "2"}, {"c", "3"}})));
  EXPECT_THAT(m_mirror.SetFileTimeList(Times{{L"a", 1000000000}}), IsCode(BASE_S_OK));
  EXPECT_THAT(m_mirror.SetFileTimeList(Texts{{L"b", L"01100000000"}, {L"c", L"no digits"}}), IsCode(BASE_S_OK));
  Run(server.Url("/dir/"));
  EXPECT_GT(TimeOf(Local("a")), 1200000000);
  EXPECT_EQ(TimeOf(Local("b")), 1100000000);
  EXPECT_GT(TimeOf(Local("c")), 1200000000) << "its time is unknown";
  EXPECT_THAT(m_mirror.SetFileTimeList(Times{{L"a", 1000000000}}), IsCode(BASE_S_OK));
  Run(server.Url("/dir/"));
  EXPECT_EQ(TimeOf(Local("a")), 1000000000);
  EXPECT_GT(TimeOf(Local("b")), 1200000000);
}

TEST_F(ZMultiDownloadTest, LogsInWithItsCredentials) {
  ScriptedFtpServer server({{"/dir/a", "text"}});
  server.SetLogin("user", "secret");
  EXPECT_THAT(Run(server.Url("/dir/")), IsCode(CurlFailure(kLoginDenied)));
  EXPECT_THAT(m_mirror.SetCredentials(L"user", L"secret"), IsCode(BASE_S_OK));
  EXPECT_THAT(Run(server.Url("/dir/")), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(Local("a"), "text"));
}

TEST_F(ZMultiDownloadTest, EndsAStalledTransferAtTheTimeout) {
  ScriptedServer server([](Connection& peer) { peer.WaitUntilStopped(); });
  EXPECT_THAT(m_mirror.SetTimeout(1), IsCode(BASE_S_OK));
  EXPECT_THAT(Run(server.Url("/dir/")), IsCode(CurlFailure(kTimedOut)));
}

TEST_F(ZMultiDownloadTest, VerifiesTheServersCertificate) {
  const TempDir certificates;
  const Pki pki = MakePki(certificates.Path());
  ScriptedServer server(KeepAlive(Directory({{"a", "1"}})), pki.selfSigned);
  EXPECT_THAT(m_mirror.SetSSL(true, true, WidePath(pki.caFile), L""), IsCode(BASE_S_OK));
  EXPECT_THAT(Run(server.Url("/dir/")), IsCode(CurlFailure(kPeerNotVerified)));
  EXPECT_THAT(m_mirror.SetSSL(false, false, L"", L""), IsCode(BASE_S_OK));
  EXPECT_THAT(Run(server.Url("/dir/")), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(Local("a"), "1"));
}

TEST_F(ZMultiDownloadTest, VerifiesWhatItIsAskedToAndNoMore) {
  const TempDir certificates;
  const Pki pki = MakePki(certificates.Path());
  const Responder page = Status(200, PageOf({}));
  ScriptedServer selfSigned(KeepAlive(page), pki.selfSigned);
  ScriptedServer wrongHost(KeepAlive(page), pki.wrongHost);
  const ZString caDirectory = WidePath(pki.caDirectory);
  EXPECT_EQ(m_mirror.SetSSL(true, false, L"", caDirectory), 0u);
  EXPECT_THAT(Run(selfSigned.Url("/")), IsCode(TRANSFER_S_FINISHED)) << "the host alone";
  EXPECT_THAT(Run(wrongHost.Url("/")), IsCode(CurlFailure(kPeerNotVerified)));
  EXPECT_EQ(m_mirror.SetSSL(false, true, L"", caDirectory), 0u);
  EXPECT_THAT(Run(selfSigned.Url("/")), IsCode(CurlFailure(kPeerNotVerified)));
  EXPECT_THAT(Run(wrongHost.Url("/")), IsCode(TRANSFER_S_FINISHED)) << "the peer alone";
}

// The throttle tells that it needs no measuring when data is reported to it in a new period. The limit is out of reach.
TEST_F(ZMultiDownloadTest, UsesTheThrottleOrNotAsAsked) {
  constexpr unsigned int kUnmeasured = 1000000000;
  ScriptedServer server(KeepAlive(Directory({{"a", "1"}, {"b", "2"}})));
  const LineRecorder log;
  for (const bool use : {false, true}) {
    ZTransfer::SetThrottling(kUnmeasured, 4000000, false);
    const std::size_t before = log.LinesOf("Corvane/Transfer").size();
    EXPECT_THAT(m_mirror.UseThrottling(use), IsCode(BASE_S_OK));
    EXPECT_THAT(Run(server.Url("/dir/")), IsCode(TRANSFER_S_FINISHED));
    const std::vector<LogLine> lines = log.LinesOf("Corvane/Transfer");
    const auto told =
        std::count_if(lines.begin() + static_cast<std::ptrdiff_t>(before), lines.end(),
                      [](const LogLine& line) { return line.message.rfind("Measure period not needed", 0) == 0; });
    EXPECT_EQ(told, use ? 1 : 0);
  }
  ZTransfer::SetThrottling(0, 0, false);
}

TEST_F(ZMultiDownloadTest, ObserversSeeTheListingAndEveryFileUntilDetached) {
  ScriptedServer server(KeepAlive(Directory({{"a", "1"}, {"b", "2"}, {"empty", ""}})));
  RecordingObserver observer;
  EXPECT_THAT(m_mirror.Attach(nullptr), IsCode(BASE_E_BUSY));
  EXPECT_THAT(m_mirror.Attach(&observer), IsCode(BASE_S_OK));
  EXPECT_THAT(m_mirror.Attach(&observer), IsCode(BASE_S_OK));
  Run(server.Url("/dir/"));
  const auto data = Pair(1, IsCode(TRANSFER_E_IN_PROGRESS));
  EXPECT_THAT(observer.Events(), ElementsAre(data, data, data));
  m_mirror.Notify(7, 42);
  EXPECT_THAT(observer.Events(), ElementsAre(data, data, data, Pair(7, 42u)));
  EXPECT_THAT(m_mirror.Detach(&observer), IsCode(BASE_S_OK));
  Run(server.Url("/dir/"));
  m_mirror.Notify(8, 42);
  EXPECT_EQ(observer.Events().size(), 4u);
}

class ThrowingObserver : public ZTransfer::Observer {
 public:
  void Update(int /*event*/, long /*value*/) override { throw std::runtime_error("thrown by an observer"); }
};

TEST_F(ZMultiDownloadTest, PassesAnObserversExceptionAndIsIdleThen) {
  ScriptedServer server(KeepAlive(Directory({{"a", "1"}})));
  ThrowingObserver observer;
  m_mirror.Attach(&observer);
  EXPECT_THROW(Run(server.Url("/dir/")), std::runtime_error);
  EXPECT_TRUE(m_mirror.Wait(0));
  EXPECT_THAT(m_mirror.Detach(&observer), IsCode(BASE_S_OK));
  EXPECT_THAT(Run(server.Url("/dir/")), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(Local("a"), "1"));
}

}  // namespace
}  // namespace CorvaneTest
