#include <gmock/gmock.h>
#include <sys/stat.h>

#include <set>

#include "tests/support/ScriptedFtpServer.h"
#include "tests/tree/TreeTesting.h"

// What is here and not on the server: what of it is deleted, and when all of it stays.
namespace CorvaneTest {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;
using Paths = std::set<std::string>;

class TreeDelete : public testing::Test {
 protected:
  TreeDelete() {
    Download();
    client.options.deleteOthers = true;
    before = ReadTree(Target());
  }
  fs::path Target() const { return folder / "target"; }
  TreeResult Download() { return client.Download(server.Url("/"), Target()); }
  TreeResult Plan() { return client.Plan(server.Url("/"), Target()); }
  bool IsAsBefore() const { return HoldsTree(Target(), before); }

  TreeSite site{{{"a.txt", "1"}, {"b.iso", "22"}, {"docs/a.txt", "333"}, {"docs/deep/c.txt", "4"}, {"iso/x", "5"}}};
  ScriptedServer server{KeepAlive(site.Serve())};
  TreeClient client;
  TempDir folder;
  TreeFiles before;
};

TEST_F(TreeDelete, TakesWhatTheServerDoesNotList) {
  WriteFile(Target() / "other", "x");
  WriteFile(Target() / "gone/deep/file", "x");
  const TreeResult result = Download();
  EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_S_FINISHED)) << result;
  EXPECT_EQ(result.PathsWith(Action::Delete), (Paths{"other", "gone/deep/file"}));
  EXPECT_EQ(result.statistics.filesDeleted, 2U);
  EXPECT_TRUE(IsAsBefore());
}

TEST_F(TreeDelete, IsShownByThePlanAndNotDone) {
  WriteFile(Target() / "other", "x");
  const TreeResult result = Plan();
  EXPECT_EQ(result.PathsWith(Action::Delete), (Paths{"other"}));
  EXPECT_TRUE(fs::exists(Target() / "other"));
}

TEST_F(TreeDelete, LeavesAllWhenAPageFailed) {
  WriteFile(Target() / "other", "x");
  for (const char* const page : {"docs/", "docs/deep/", "iso/", ""}) {
    site.Answer(page, Status(403));
    EXPECT_TRUE(Corvane::IsFailure(Download().code)) << page;
    EXPECT_TRUE(fs::exists(Target() / "other")) << page;
    site.Answer(page, Content("<html>Welcome</html>"));
    EXPECT_TRUE(Corvane::IsFailure(Download().code)) << page;
    EXPECT_TRUE(fs::exists(Target() / "other")) << page;
    ContentOptions cut;
    cut.stopAfter = 40;
    site.Answer(page, Content(IndexPage({"a.txt"}), cut));
    EXPECT_TRUE(Corvane::IsFailure(Download().code)) << page;
    EXPECT_TRUE(fs::exists(Target() / "other")) << page;
    site.Answer(page, nullptr);
  }
}

TEST_F(TreeDelete, LeavesAllWhenTheServerListsNoFile) {
  site.Answer("", Content(IndexPage({})));
  const TreeResult result = Download();
  EXPECT_THAT(result.error, HasSubstr("Nothing is deleted: the server lists no file at all."));
  EXPECT_TRUE(IsAsBefore());
}

TEST_F(TreeDelete, LeavesAllWhenMoreThanHalfWouldGo) {
  for (int i = 0; i < 6; ++i) WriteFile(Target() / ("other" + std::to_string(i)), "x");
  const TreeResult result = Download();
  EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_E_DOWNLOAD));
  EXPECT_THAT(result.error, HasSubstr("Nothing is deleted: 6 of 11 files would go, and at most 5 may."));
  EXPECT_TRUE(fs::exists(Target() / "other0"));

  client.options.mostDeletes = 6;
  EXPECT_THAT(Download().code, IsCode(Corvane::TRANSFER_S_FINISHED));
  EXPECT_TRUE(IsAsBefore());
}

TEST_F(TreeDelete, TakesHalf) {
  for (int i = 0; i < 5; ++i) WriteFile(Target() / ("other" + std::to_string(i)), "x");
  EXPECT_THAT(Download().code, IsCode(Corvane::TRANSFER_S_FINISHED));
  EXPECT_TRUE(IsAsBefore());
}

TEST_F(TreeDelete, TakesNoMoreThanAllowed) {
  client.options.mostDeletes = 0;
  WriteFile(Target() / "other", "x");
  EXPECT_THAT(Download().error, HasSubstr("1 of 6 files would go, and at most 0 may."));
}

TEST_F(TreeDelete, LeavesWhatThePatternsLeaveOut) {
  WriteFile(Target() / "keep.me", "x");
  WriteFile(Target() / "gone/keep.me", "x");
  WriteFile(Target() / "gone/other", "x");
  client.options.exclude = {L"keep.me"};
  EXPECT_EQ(Download().PathsWith(Action::Delete), (Paths{"gone/other"}));
  EXPECT_TRUE(fs::exists(Target() / "gone/keep.me"));
  client.options.exclude = {};
  client.options.include = {L"*.txt"};
  EXPECT_THAT(Download().PathsWith(Action::Delete), IsEmpty());
}

TEST_F(TreeDelete, LeavesWhatIsDeeperThanAskedFor) {
  client.options.mostDepth = 1;
  WriteFile(Target() / "docs/deep/other", "x");
  WriteFile(Target() / "docs/new/other", "x");
  WriteFile(Target() / "gone", "x");
  EXPECT_EQ(Download().PathsWith(Action::Delete), (Paths{"gone"}));
}

TEST_F(TreeDelete, TakesALinkAndNotWhatItPointsAt) {
  WriteFile(folder / "outside/file", "mine");
  fs::create_directory_symlink(folder / "outside", Target() / "link");
  fs::create_symlink(folder / "outside/file", Target() / "docs/link");
  EXPECT_EQ(Download().PathsWith(Action::Delete), (Paths{"link", "docs/link"}));
  EXPECT_EQ(ReadFile(folder / "outside/file"), "mine");
}

TEST_F(TreeDelete, LeavesWhatIsNoFile) {
  ASSERT_EQ(mkfifo((Target() / "pipe").c_str(), 0600), 0);
  EXPECT_THAT(Download().PathsWith(Action::Delete), IsEmpty());
  EXPECT_TRUE(fs::exists(Target() / "pipe"));
}

TEST_F(TreeDelete, LeavesAllWhenAPageLeavesOutTooMuchToTell) {
  WriteFile(Target() / "other", "x");
  std::vector<std::string> hrefs = {"a.txt"};
  for (int i = 0; i < 101; ++i) hrefs.push_back("no%2fname" + std::to_string(i));
  site.Answer("docs/", Content(IndexPage(hrefs)));
  const TreeResult result = Download();
  EXPECT_EQ(result.statistics.leftOut, 101U);
  EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_E_DOWNLOAD));
  EXPECT_EQ(result.error, "Nothing is deleted: the page of \"docs/\" shows too much that is left out.");
  EXPECT_TRUE(fs::exists(Target() / "other"));
}

TEST_F(TreeDelete, EndsWithAnAbort) {
  WriteFile(Target() / "other1", "x");
  WriteFile(Target() / "other2", "x");
  client.onItem = [&](const ZTreeDownload::Item& item) {
    if (item.action == Action::Delete) client.tree.Abort();
  };
  const TreeResult result = Download();
  EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_E_ABORTED));
  EXPECT_EQ(result.statistics.filesDeleted, 1U);
  EXPECT_NE(fs::exists(Target() / "other1"), fs::exists(Target() / "other2"));
}

TEST(TreeDeleteOverFtp, LeavesWhatTheListingShowsAndCannotBeFetched) {
  ScriptedFtpServer ftp({{"/pub/file", "1"}});
  ftp.SetListing("/pub",
                 "-rw-r--r-- 1 u g 1 Jan 6 2020 file\r\n"
                 "lrwxrwxrwx 1 u g 4 Jan 6 2020 link -> file\r\n"
                 "prw-r--r-- 1 u g 0 Jan 6 2020 fifo\r\n");
  TempDir folder;
  for (const char* const name : {"link", "fifo", "file"}) WriteFile(folder / name, "x");
  TreeClient client;
  client.options.deleteOthers = true;
  const TreeResult result = client.Download(ftp.Url("/pub/"), folder.Path());
  EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_S_FINISHED)) << result;
  EXPECT_EQ(result.PathsWith(Action::LeaveOut), (Paths{"link", "fifo"}));
  EXPECT_THAT(result.PathsWith(Action::Delete), IsEmpty());
}

}  // namespace
}  // namespace CorvaneTest
