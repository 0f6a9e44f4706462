#include <gmock/gmock.h>

#include <atomic>
#include <set>

#include "tests/tree/TreeTesting.h"

// What a host chooses: which files, how deep, what is verified, and a plan of it all.
namespace CorvaneTest {
namespace {

namespace fs = std::filesystem;
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

TEST_F(TreeChoice, AQuestionIsRepeatedLikeARequest) {
  Download();
  std::atomic<int> answers{0};
  site.Answer("b.iso", [&](Connection& peer, const Request& request) {
    if (answers++ == 0) return Status(503)(peer, request);
    Content("22", {.headers = {{"Last-Modified", "Mon, 06 Jan 2020 10:00:00 GMT"}}})(peer, request);
  });
  const TreeResult result = Download();
  EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_S_FINISHED)) << result;
  EXPECT_EQ(result.ReasonOf("b.iso"), Reason::SameAsAnswered);
  EXPECT_EQ(answers, 2);
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

TEST_F(TreeVerify, AsksForAListAgainThatMayStillCome) {
  site.SetFile("SHA256SUMS", std::string(kOf333) + "  a.txt\n");
  std::atomic<int> answers{0};
  site.Answer("SHA256SUMS", [&](Connection& peer, const Request& request) {
    (answers++ == 0 ? Status(503) : Content(std::string(kOf333) + "  a.txt\n"))(peer, request);
  });
  const TreeResult result = Download();
  EXPECT_EQ(result.error, "a.txt: The file has not the checksum that the server lists for it.");
}

TEST_F(TreeVerify, TakesNoFileWhoseListHasNoEnd) {
  site.SetFile("docs/SHA256SUMS", "");
  site.Answer("docs/SHA256SUMS", [](Connection& peer, const Request& request) {
    ContentOptions untilClose;
    untilClose.framing = ContentOptions::Framing::kUntilClose;
    Content(std::string((std::size_t{64} << 20) + 1, 'x'), untilClose)(peer, request);
  });
  const TreeResult result = Download();
  EXPECT_THAT(result.code, IsCode(CurlFailure(kWriteError)));
  EXPECT_EQ(Narrow(result.items.at("docs/a.txt").text), "The list of its checksum could not be fetched.");
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
