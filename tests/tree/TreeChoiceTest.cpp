#include <gmock/gmock.h>

#include <set>

#include "tests/support/ScriptedFtpServer.h"
#include "tests/tree/TreeTesting.h"

// What a host chooses: which files, how deep, what is deleted, what is verified, and a plan of it all.
namespace CorvaneTest {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;
using Paths = std::set<std::string>;

class TreeChoice : public testing::Test {
 protected:
  fs::path Target() const { return folder / "target"; }
  TreeResult Download() { return client.Download(server.Url("/"), Target()); }
  TreeResult Plan() { return client.Plan(server.Url("/"), Target()); }
  Paths Fetched() {
    fs::remove_all(Target());
    const TreeResult result = Download();
    EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_S_FINISHED)) << result;
    return result.PathsWith(Action::Fetch);
  }

  TreeSite site{{{"a.txt", "1"}, {"b.iso", "22"}, {"docs/a.txt", "333"}, {"docs/deep/c.txt", "4"}, {"iso/x", "5"}}};
  ScriptedServer server{KeepAlive(site.Serve())};
  TreeClient client;
  TempDir folder;
};

TEST_F(TreeChoice, PatternsWithoutASlashMatchNamesAtAnyDepth) {
  client.options.exclude = {L"*.txt"};
  EXPECT_EQ(Fetched(), (Paths{"b.iso", "iso/x"}));
  client.options.exclude = {L"docs"};
  EXPECT_EQ(Fetched(), (Paths{"a.txt", "b.iso", "iso/x"}));
}

TEST_F(TreeChoice, PatternsWithASlashMatchThePath) {
  client.options.exclude = {L"docs/*.txt"};
  EXPECT_EQ(Fetched(), (Paths{"a.txt", "b.iso", "docs/deep/c.txt", "iso/x"}));
  client.options.exclude = {L"/a.txt"};
  EXPECT_EQ(Fetched(), (Paths{"b.iso", "docs/a.txt", "docs/deep/c.txt", "iso/x"}));
}

TEST_F(TreeChoice, WhatIsIncludedIsAllThatIsFetched) {
  client.options.include = {L"*.iso", L"iso"};
  EXPECT_EQ(Fetched(), (Paths{"b.iso", "iso/x"}));
  EXPECT_FALSE(fs::exists(Target() / "docs"));
  client.options.include = {L"docs/deep/"};
  EXPECT_EQ(Fetched(), (Paths{"docs/deep/c.txt"}));
}

TEST_F(TreeChoice, WhatIsExcludedIsNotAskedFor) {
  client.options.exclude = {L"docs"};
  Fetched();
  EXPECT_THAT(RequestLines(server), testing::Not(testing::Contains("GET docs/")));
}

TEST_F(TreeChoice, DepthCountsFolders) {
  client.options.mostDepth = 0;
  EXPECT_EQ(Fetched(), (Paths{"a.txt", "b.iso"}));
  client.options.mostDepth = 1;
  EXPECT_EQ(Fetched(), (Paths{"a.txt", "b.iso", "docs/a.txt", "iso/x"}));
}

TEST_F(TreeChoice, NothingIsDeletedUnasked) {
  WriteFile(Target() / "other", "mine");
  WriteFile(Target() / "docs/other", "mine");
  const TreeResult result = Download();
  EXPECT_THAT(result.PathsWith(Action::Delete), IsEmpty());
  EXPECT_EQ(ReadFile(Target() / "other"), "mine");
}

class TreeDelete : public TreeChoice {
 protected:
  TreeDelete() {
    Download();
    client.options.deleteOthers = true;
    before = ReadTree(Target());
  }
  bool IsAsBefore() const { return HoldsTree(Target(), before); }

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

TEST_F(TreeChoice, APlanChangesNothingAndAsksForNoContent) {
  const TreeResult result = Plan();
  EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_S_FINISHED)) << result;
  EXPECT_FALSE(fs::exists(Target()));
  EXPECT_EQ(result.PathsWith(Action::Fetch), (Paths{"a.txt", "b.iso", "docs/a.txt", "docs/deep/c.txt", "iso/x"}));
  EXPECT_EQ(result.ReasonOf("docs/a.txt"), Reason::Missing);
  EXPECT_EQ(result.items.at("docs/a.txt").size, 3U);
  EXPECT_EQ(result.statistics.totalBytes, 8U);
  for (const std::string& line : RequestLines(server))
    EXPECT_TRUE(line.ends_with('/') || line.ends_with(' ') || line.starts_with("HEAD")) << line;
}

TEST_F(TreeChoice, APlanTellsWhatTheRunThenDoes) {
  Download();
  site.SetFile("a.txt", "longer");
  site.SetFile("new", "new");
  WriteFile(Target() / "b.iso", "xx");  // of the same length, and of another time
  const TreeResult plan = Plan();
  const TreeResult run = Download();
  for (const Action action : {Action::Keep, Action::Fetch, Action::Delete, Action::Refuse}) {
    EXPECT_EQ(plan.PathsWith(action), run.PathsWith(action));
  }
  EXPECT_EQ(plan.ReasonOf("a.txt"), Reason::SizeDiffers);
  EXPECT_EQ(plan.ReasonOf("b.iso"), Reason::TimeDiffers);
  EXPECT_EQ(plan.ReasonOf("new"), Reason::Missing);
  EXPECT_EQ(plan.ReasonOf("iso/x"), Reason::SameAsAnswered);
}

TEST_F(TreeChoice, AServerThatRefusesQuestionsIsAskedForWhatIsModified) {
  Download();
  site.Answer("a.txt", [](Connection& peer, const Request& request) {
    if (request.method == "HEAD") return Status(405)(peer, request);
    EXPECT_EQ(request.Header("If-Modified-Since"), "Mon, 06 Jan 2020 10:00:00 GMT");
    peer.Send(FormatHead(304));
  });
  const TreeResult result = Download();
  EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_S_FINISHED)) << result;
  EXPECT_EQ(result.ActionOf("a.txt"), Action::Keep);
  EXPECT_EQ(result.ReasonOf("a.txt"), Reason::NotModified);
}

TEST_F(TreeChoice, AFileWithoutATimeIsFetchedEachTime) {
  site.Answer("a.txt", Content("1"));
  Download();
  EXPECT_EQ(Download().ReasonOf("a.txt"), Reason::NotComparable);
}

class TreeVerify : public TreeChoice {
 protected:
  TreeVerify() { client.options.verify = true; }
  static constexpr const char* kOf1 = "6b86b273ff34fce19d6b804eff5a3f5747ada4eaa22f1d49c01e52ddb7875b4b";
  static constexpr const char* kOf333 = "556d7dc3a115356350f1f9910b1af1ab0e312d4b3e4fc788d2da63668f36d017";
};

TEST_F(TreeVerify, TakesFilesWithTheirChecksum) {
  site.SetFile("SHA256SUMS", std::string(kOf1) + "  a.txt\n" + kOf333 + " *docs/a.txt\n");
  const TreeResult result = Download();
  EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_S_FINISHED)) << result;
  EXPECT_EQ(result.statistics.filesWithoutChecksum, 4U);  // the list itself among them
}

TEST_F(TreeVerify, RefusesAFileWithAnotherChecksum) {
  WriteFile(Target() / "a.txt", "the old one");
  site.SetFile("SHA256SUMS", std::string(kOf333) + "  a.txt\n");
  const TreeResult result = Download();
  EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_E_SIZE_MISMATCH));
  EXPECT_EQ(result.error, "a.txt: The file has not the checksum that the server lists for it.");
  EXPECT_EQ(ReadFile(Target() / "a.txt"), "the old one");
}

TEST_F(TreeVerify, RefusesALargeFileWithAnotherChecksum) {
  site.SetFile("large", MakePattern(300000, 1));
  site.SetFile("SHA256SUMS", std::string(kOf333) + "  large\n");
  EXPECT_THAT(Download().ResultOf("large"), IsCode(Corvane::TRANSFER_E_SIZE_MISMATCH));
  EXPECT_FALSE(fs::exists(Target() / "large"));
  EXPECT_FALSE(fs::exists(Target() / ".corvane"));
}

TEST_F(TreeVerify, PrefersTheNearestListAndTheLongerSums) {
  site.SetFile("SHA256SUMS", std::string(kOf1) + "  docs/a.txt\n");
  site.SetFile("docs/SHA256SUMS", std::string(kOf333) + "  a.txt\n");
  EXPECT_THAT(Download().code, IsCode(Corvane::TRANSFER_S_FINISHED));
  fs::remove_all(Target());
  site.SetFile("docs/SHA512SUMS", std::string(128, '0') + "  a.txt\n");
  EXPECT_THAT(Download().ResultOf("docs/a.txt"), IsCode(Corvane::TRANSFER_E_SIZE_MISMATCH));
}

TEST_F(TreeVerify, TakesNoFileWhoseListDoesNotCome) {
  site.SetFile("docs/SHA256SUMS", "");
  site.Answer("docs/SHA256SUMS", Status(404));
  const TreeResult result = Download();
  EXPECT_TRUE(Corvane::IsFailure(result.code));
  EXPECT_FALSE(fs::exists(Target() / "docs/a.txt"));
  EXPECT_TRUE(fs::exists(Target() / "a.txt"));
}

TEST_F(TreeChoice, TheDirectoryItselfMayBeRedirected) {
  TreeSite movedSite(TreeFiles{{"pub/file", "moved"}, {"pub/sub/file", "moved, too"}});
  ScriptedServer moved(KeepAlive(movedSite.Serve()));
  site.Answer("", Redirect(moved.Url("/pub/")));
  const TreeResult result = Download();
  EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_S_FINISHED)) << result;
  EXPECT_TRUE(HoldsTree(Target(), {{"file", "moved"}, {"sub/file", "moved, too"}}));
}

TEST_F(TreeChoice, SecretsGoToTheFirstServerOnly) {
  TreeSite movedSite(TreeFiles{{"file", "moved"}});
  ScriptedServer moved(KeepAlive(movedSite.Serve()));
  site.Answer("a.txt", Redirect(moved.Url("/file")));
  client.options.headers = {L"Authorization: Bearer secret", L"Cookie: secret", L"X-Other: shown"};
  ASSERT_THAT(Download().code, IsCode(Corvane::TRANSFER_S_FINISHED));
  EXPECT_EQ(server.Requests()[0].Header("Authorization"), "Bearer secret");
  ASSERT_EQ(moved.Requests().size(), 1U);
  EXPECT_EQ(moved.Requests()[0].Header("Authorization"), std::nullopt);
  EXPECT_EQ(moved.Requests()[0].Header("Cookie"), std::nullopt);
  EXPECT_EQ(moved.Requests()[0].Header("X-Other"), "shown");
}

TEST_F(TreeChoice, NoMoreConnectionsAreOpenThanAllowed) {
  for (int i = 0; i < 100; ++i) site.SetFile("many/" + std::to_string(i), "x");
  for (const unsigned int connections : {1U, 3U}) {
    fs::remove_all(Target());
    const std::size_t before = server.AcceptedConnections();
    client.options.mostConnections = connections;
    std::size_t most = 0;
    client.onItem = [&](const ZTreeDownload::Item&) { most = std::max(most, client.tree.GetStatistics().connections); };
    ASSERT_THAT(Download().code, IsCode(Corvane::TRANSFER_S_FINISHED));
    EXPECT_LE(server.AcceptedConnections() - before, connections);
    EXPECT_LE(most, connections);
  }
}

}  // namespace
}  // namespace CorvaneTest
