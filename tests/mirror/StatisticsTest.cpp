#include <gmock/gmock.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tests/mirror/MirrorTesting.h"
#include "tests/support/Gate.h"
#include "tests/support/ScriptedFtpServer.h"
#include "tests/support/TempDir.h"

// What a mirror tells beside the bytes: its files, and what ended it.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using Statistics = ZMultiDownload::Statistics;

class AMirror : public MirrorFixture {};

void ExpectCounts(const Statistics& statistics, const std::vector<std::size_t>& counts) {
  EXPECT_EQ((std::vector<std::size_t>{statistics.filesKnown, statistics.filesFetched, statistics.filesResumed,
                                      statistics.filesSkipped, statistics.filesMismatched}),
            counts)
      << "known, fetched, resumed, skipped, mismatched";
}

struct Cause {
  ZResult code = 0;
  std::string text;
  std::string header;
};

Cause CauseOf(const ZMultiDownload& mirror) {
  ZString text(L"not touched");
  ZString header(L"not touched");
  const ZResult code = mirror.GetCause(text, header);
  return {code, Narrow(text), Narrow(header)};
}

TEST_F(AMirror, HasNothingToTellAtFirst) {
  const Statistics statistics = m_mirror.GetStatistics();
  ExpectCounts(statistics, {0, 0, 0, 0, 0});
  EXPECT_FALSE(statistics.totalBytes.has_value());
  EXPECT_EQ(statistics.receivedBytes, 0u);
  EXPECT_TRUE(statistics.fileName.IsEmpty());
  EXPECT_EQ(statistics.presentBytes, 0u);
  EXPECT_FALSE(statistics.isListing.has_value());
  EXPECT_EQ(statistics.leftOut, 0u);
  EXPECT_TRUE(m_mirror.GetLeftOut().empty());
  const Cause cause = CauseOf(m_mirror);
  EXPECT_EQ(cause.code, TRANSFER_E_NOT_STARTED);
  EXPECT_EQ(cause.text + cause.header, "");
}

TEST_F(AMirror, CountsWhatItDidWithEachFile) {
  const std::string content = MakePattern(1000);
  const ScriptedServer server(KeepAlive(Directory(
      {{"complete", content}, {"fetched", content}, {"ignored", "x"}, {"partial", content}, {"wrong", "12"}})));
  WriteFile(m_folder / "complete", content);
  WriteFile(m_folder / "partial", content.substr(0, 300));
  m_mirror.SetIgnoreList({L"ignored", L"unheard of"});
  m_mirror.SetFileSizeList(
      Sizes{{L"complete", 1000}, {L"fetched", 1000}, {L"ignored", 1}, {L"partial", 1000}, {L"wrong", 3}});
  EXPECT_EQ(m_mirror.Download(Wide(server.Url("/dir")), Folder(), true), TRANSFER_E_SIZE_MISMATCH);
  Statistics statistics = m_mirror.GetStatistics();
  ExpectCounts(statistics, {4, 2, 1, 1, 1});
  EXPECT_EQ(statistics.totalBytes, 3003u);
  EXPECT_EQ(statistics.receivedBytes, 1000u + 700u + 2u) << "not what was there, nor the bytes fetched to check it";
  EXPECT_EQ(statistics.presentBytes, 1000u + 300u) << "of the files that are kept or continued";
  EXPECT_FALSE(statistics.isListing.has_value()) << "none was asked for";
  EXPECT_TRUE(statistics.fileName.IsEmpty()) << "no file ended the run";
  EXPECT_EQ(CauseOf(m_mirror).code, TRANSFER_E_NOT_STARTED) << "nor did a transfer";

  m_mirror.SetIgnoreList({L"wrong"});
  EXPECT_EQ(m_mirror.Download(Wide(server.Url("/dir")), Folder(), true), TRANSFER_S_FINISHED);
  statistics = m_mirror.GetStatistics();
  ExpectCounts(statistics, {4, 1, 0, 3, 0});
  EXPECT_EQ(statistics.receivedBytes, 1u) << "each run counts for itself";
}

TEST_F(AMirror, KnowsNoTotalWhileTheSizeOfAFileIsNotKnown) {
  const ScriptedServer server(KeepAlive(Directory({{"a", "1"}, {"b", "22"}})));
  EXPECT_EQ(m_mirror.Download(Wide(server.Url("/dir")), Folder(), false), TRANSFER_S_FINISHED);
  EXPECT_EQ(m_mirror.GetStatistics().filesKnown, 2u);
  EXPECT_FALSE(m_mirror.GetStatistics().totalBytes.has_value());
  EXPECT_EQ(m_mirror.GetStatistics().receivedBytes, 3u) << "the listing is no file";
  m_mirror.SetIgnoreList({L"b"});
  m_mirror.SetFileSizeList(Sizes{{L"a", 1}, {L"b", 0}});
  m_mirror.Download(Wide(server.Url("/dir")), Folder(), false);
  EXPECT_EQ(m_mirror.GetStatistics().totalBytes, 1u) << "an ignored file does not count";
}

TEST_F(AMirror, TakesASizeOf0ForThatOfAnEmptyFileOverFtp) {
  ScriptedFtpServer server({{"/pub/a", "12345"}, {"/pub/empty", ""}});
  EXPECT_EQ(m_mirror.Download(Wide(server.Url("/pub")), Folder(), false), TRANSFER_S_FINISHED);
  EXPECT_EQ(m_mirror.GetStatistics().totalBytes, 5u);
}

TEST_F(AMirror, KnowsATotalThatNoNumberHoldsAsTheLargest) {
  m_mirror.SetFileSizeList(Sizes{{L"a", 0xFFFFFFFFFFFFFFFFull}, {L"b", 2}});
  EXPECT_EQ(m_mirror.Download(L"http://127.0.0.1:1/", Folder(), false), TRANSFER_E_DISK_SPACE);
  EXPECT_EQ(m_mirror.GetStatistics().totalBytes, 0xFFFFFFFFFFFFFFFFull);
}

TEST_F(AMirror, ShowsTheFileThatIsBeingFetched) {
  Gate release;
  const std::string content = MakePattern(5000);
  const ScriptedServer server(KeepAlive([&](Connection& peer, const Request& request) {
    if (request.target != "/dir/b") return Directory({{"a", "1"}, {"b", content}})(peer, request);
    peer.Send(FormatHead(200, {{"Content-Length", "5000"}}) + content.substr(0, 2000));
    if (peer.WaitFor(release)) peer.Send(content.substr(2000));
  }));
  RunningMirror run(m_mirror, Wide(server.Url("/dir")), Folder());
  const Deadline deadline = After(kPatience);
  while (m_mirror.GetStatistics().receivedBytes < 2001) ASSERT_LT(Clock::now(), deadline);
  const Statistics statistics = m_mirror.GetStatistics();
  ExpectCounts(statistics, {2, 1, 0, 0, 0});
  EXPECT_EQ(Narrow(statistics.fileName), "b");
  release.Open();
  EXPECT_EQ(run.Result(), TRANSFER_S_FINISHED);
  ExpectCounts(m_mirror.GetStatistics(), {2, 2, 0, 0, 0});
  EXPECT_EQ(m_mirror.GetStatistics().receivedBytes, 5001u);
}

// GetDownloadSize counts a file that is being resumed twice until its transfer has caught up, which shows as more than
// all.
TEST_F(AMirror, TellsWhatIsHereOfTheWholeAtEveryMoment) {
  Gate asked, release;
  const std::string content = MakePattern(5000);
  const ScriptedServer server(KeepAlive([&](Connection& peer, const Request& request) {
    asked.Open();
    if (peer.WaitFor(release)) Directory({{"a", content}, {"b", content}})(peer, request);
  }));
  WriteFile(m_folder / "a", content.substr(0, 4000));
  WriteFile(m_folder / "b", content);
  m_mirror.SetFileSizeList(Sizes{{L"a", 5000}, {L"b", 5000}});
  RunningMirror run(m_mirror, Wide(server.Url("/dir")), Folder(), true);
  ASSERT_TRUE(asked.Wait());
  const Statistics statistics = m_mirror.GetStatistics();
  EXPECT_EQ(statistics.totalBytes, 10000u);
  EXPECT_EQ(statistics.presentBytes + statistics.receivedBytes, 9000u);
  EXPECT_GT(m_mirror.GetDownloadSize(), 10000u);
  release.Open();
  EXPECT_EQ(run.Result(), TRANSFER_S_FINISHED);
  EXPECT_EQ(m_mirror.GetStatistics().presentBytes, 9000u);
  EXPECT_EQ(m_mirror.GetStatistics().receivedBytes, 1000u);
}

TEST_F(AMirror, CountsNothingAsPresentThatItFetchesAfresh) {
  const ScriptedServer server(KeepAlive(Directory({{"complete", "12345"}, {"partial", "12345"}, {"large", "12345"}})));
  WriteFile(m_folder / "complete", "54321");
  WriteFile(m_folder / "partial", "54");
  WriteFile(m_folder / "large", "54321more");
  m_mirror.SetFileSizeList(Sizes{{L"complete", 5}, {L"partial", 5}, {L"large", 5}});
  EXPECT_EQ(m_mirror.Download(Wide(server.Url("/dir")), Folder(), false), TRANSFER_S_FINISHED);
  EXPECT_EQ(m_mirror.GetStatistics().presentBytes, 0u);
  EXPECT_EQ(m_mirror.GetStatistics().receivedBytes, 15u);
}

// --- what the listing was

std::vector<std::pair<std::string, LeftOutReason>> LeftOutOf(const ZMultiDownload& mirror) {
  std::vector<std::pair<std::string, LeftOutReason>> names;
  for (const auto& [name, reason] : mirror.GetLeftOut()) names.emplace_back(Narrow(name), reason);
  return names;
}

TEST_F(AMirror, TellsAnEmptyListingFromAPageThatIsNone) {
  const struct {
    std::string page;
    bool isListing;
  } cases[] = {
      {"<title>Index of /dir/</title><pre><a href=\"../\">../</a></pre>", true},
      {"<title>Index of /dir/</title><table><a href=\"a\">a</a></table>", false},
      {"<html>Welcome</html>", false},
  };
  for (const auto& c : cases) {
    const ScriptedServer server(KeepAlive(Status(200, c.page)));
    m_mirror.SetFileSizeList(Sizes());
    EXPECT_EQ(m_mirror.Download(Wide(server.Url("/dir")), Folder(), false), TRANSFER_S_FINISHED) << c.page;
    EXPECT_EQ(m_mirror.GetStatistics().isListing, c.isListing) << c.page;
    EXPECT_EQ(m_mirror.GetStatistics().leftOut, 0u) << c.page;
  }
  m_mirror.SetFileSizeList(Sizes());
  m_mirror.Download(L"http://127.0.0.1:1/", Folder(), false);
  EXPECT_FALSE(m_mirror.GetStatistics().isListing.has_value()) << "none came";
}

TEST_F(AMirror, NamesWhatItLeavesOutOfAPage) {
  const std::string page = R"(<pre><a href="sub/">sub/</a><a href="a">a</a>)"
                           R"(<a href="long-name">long-..&gt;</a><a href="b&c">b&amp;c</a></pre>)";
  const ScriptedServer server(KeepAlive(Routes({{"/dir/", Status(200, page)}, {"/dir/a", Content("1")}})));
  EXPECT_EQ(m_mirror.Download(Wide(server.Url("/dir")), Folder(), false), TRANSFER_S_FINISHED);
  EXPECT_EQ(m_mirror.GetStatistics().filesKnown, 1u);
  EXPECT_EQ(m_mirror.GetStatistics().leftOut, 3u);
  EXPECT_THAT(LeftOutOf(m_mirror), testing::ElementsAre(testing::Pair("long-name", LeftOutReason::NameShortened),
                                                        testing::Pair("b&c", LeftOutReason::NameDiffers),
                                                        testing::Pair("sub", LeftOutReason::Folder)));
  m_mirror.SetFileSizeList(Sizes{{L"a", 1}});
  EXPECT_EQ(m_mirror.Download(Wide(server.Url("/dir")), Folder(), false), TRANSFER_S_FINISHED);
  EXPECT_EQ(m_mirror.GetStatistics().leftOut, 0u) << "each run tells of itself";
  EXPECT_TRUE(m_mirror.GetLeftOut().empty());
}

TEST_F(AMirror, NamesWhatItLeavesOutOverFtp) {
  ScriptedFtpServer server({{"/pub/a", "12345"}});
  server.SetListing("/pub",
                    "drwxr-xr-x 2 0 0 4096 Nov 20 10:00 sub\r\nlrwxrwxrwx 1 0 0 1 Nov 20 10:00 l -> a\r\n"
                    "prw-r--r-- 1 0 0 0 Nov 20 10:00 fifo\r\nWelcome\r\n");
  EXPECT_EQ(m_mirror.Download(Wide(server.Url("/pub")), Folder(), false), TRANSFER_S_FINISHED);
  EXPECT_EQ(m_mirror.GetStatistics().isListing, true);
  EXPECT_EQ(m_mirror.GetStatistics().leftOut, 4u);
  EXPECT_THAT(LeftOutOf(m_mirror),
              testing::ElementsAre(testing::Pair("Welcome", LeftOutReason::Unreadable),
                                   testing::Pair("sub", LeftOutReason::Folder), testing::Pair("l", LeftOutReason::Link),
                                   testing::Pair("fifo", LeftOutReason::Special)));
}

TEST_F(AMirror, NamesAHundredThingsAtMost) {
  std::string page = "<pre><a href=\"x\">y</a>";
  for (int i = 0; i < 200; ++i) page += "<a href=\"sub/\">sub/</a>";
  const ScriptedServer server(KeepAlive(Status(200, page + "</pre>")));
  EXPECT_EQ(m_mirror.Download(Wide(server.Url("/dir")), Folder(), false), TRANSFER_S_FINISHED);
  EXPECT_EQ(m_mirror.GetStatistics().leftOut, 201u);
  EXPECT_EQ(m_mirror.GetLeftOut().size(), 100u);
}

TEST_F(AMirror, TellsWhichFileEndedItAndWhatTheServerSaid) {
  const ScriptedServer server(KeepAlive(Directory({{"a", "1"}, {"c", "3"}})));
  m_mirror.SetFileSizeList(Sizes{{L"a", 1}, {L"b", 2}, {L"c", 1}});
  EXPECT_EQ(m_mirror.Download(Wide(server.Url("/dir")), Folder(), false), TRANSFER_E_CONNECT);
  ExpectCounts(m_mirror.GetStatistics(), {3, 1, 0, 0, 0});
  EXPECT_EQ(Narrow(m_mirror.GetStatistics().fileName), "b");
  EXPECT_THAT(CauseOf(m_mirror).header, testing::StartsWith("HTTP/1.1 404 "));
  EXPECT_EQ(CauseOf(m_mirror).code, TRANSFER_S_FINISHED) << "libcurl itself succeeded";
  m_mirror.SetFileSizeList(Sizes{{L"a", 1}});
  EXPECT_EQ(m_mirror.Download(Wide(server.Url("/dir")), Folder(), false), TRANSFER_S_FINISHED);
  EXPECT_EQ(CauseOf(m_mirror).code, TRANSFER_E_NOT_STARTED) << "a failure belongs to its run";
  EXPECT_EQ(CauseOf(m_mirror).header, "");
}

TEST_F(AMirror, TellsWhyTheListingDidNotCome) {
  const ScriptedServer server(KeepAlive(Status(403)));
  EXPECT_TRUE(IsFailure(m_mirror.Download(Wide(server.Url("/dir")), Folder(), false)));
  EXPECT_THAT(CauseOf(m_mirror).header, testing::StartsWith("HTTP/1.1 403 "));
  EXPECT_TRUE(m_mirror.GetStatistics().fileName.IsEmpty());
  EXPECT_EQ(m_mirror.Download(L"http://127.0.0.1:1/", Folder(), false), TRANSFER_E_CURL_BASE | 7u);
  EXPECT_EQ(CauseOf(m_mirror).code, TRANSFER_E_CURL_BASE | 7u);
  EXPECT_THAT(CauseOf(m_mirror).text, testing::HasSubstr("127.0.0.1"));
}

}  // namespace
}  // namespace CorvaneTest
