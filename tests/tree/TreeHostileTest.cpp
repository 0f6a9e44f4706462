#include <gmock/gmock.h>

#include "tests/servers/MirrorTree.h"
#include "tests/tree/TreeTesting.h"

// Servers that mean harm: nothing outside the directory is touched, and every run ends.
namespace CorvaneTest {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class TreeHostile : public testing::Test {
 protected:
  TreeHostile() {
    WriteFile(m_folder / "canary", "alive");
    WriteFile(m_folder / "outside/canary", "alive");
    m_before = TracesOf(m_folder.Path(), Target());
  }

  // What is beside the directory is as it was, whatever happened in it.
  void TearDown() override {
    Traces after = TracesOf(m_folder.Path(), Target());
    // The folder that holds the directory changes when that is made.
    after.erase(m_folder.Path().string());
    m_before.erase(m_folder.Path().string());
    EXPECT_EQ(after, m_before);
  }

  fs::path Target() const { return m_folder / "target"; }
  TreeResult Download() { return client.Download(server.Url("/pub/"), Target()); }

  TreeSite site;
  ScriptedServer server{KeepAlive(site.Serve())};
  TreeClient client;
  TempDir m_folder;
  Traces m_before;
};

TEST_F(TreeHostile, NamesLeadNowhereElse) {
  site.Answer("pub/", Content(IndexPage({"../canary", "..%2fcanary", "%2e%2e/canary", "/canary", "//127.0.0.1/canary",
                                         ".", "..", "./", "a/../../canary", "%2e", "%2e%2e", "good", "nul%00byte",
                                         ".corvane", ".corvane/", "http://[", "file:///etc/passwd"})));
  site.SetFile("pub/good", "good");
  const TreeResult result = Download();
  EXPECT_TRUE(HoldsTree(Target(), {{"good", "good"}})) << result;
}

TEST_F(TreeHostile, AFolderThatIsALinkIsNotEntered) {
  site.SetFile("pub/sub/file", "bad");
  site.SetFile("pub/sub/deeper/file", "bad");
  site.SetFile("pub/other", "good");
  fs::create_directories(Target());
  fs::create_directory_symlink(m_folder / "outside", Target() / "sub");
  const TreeResult result = Download();
  EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_E_DOWNLOAD));
  EXPECT_THAT(result.error, HasSubstr("sub/: Something that is no folder stands in its place."));
  EXPECT_EQ(ReadFile(Target() / "other"), "good");
}

TEST_F(TreeHostile, AFileThatIsALinkStays) {
  site.SetFile("pub/file", "bad");
  fs::create_directories(Target());
  fs::create_symlink(m_folder / "canary", Target() / "file");
  const TreeResult result = Download();
  EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_E_DOWNLOAD));
  EXPECT_EQ(result.ReasonOf("file"), Reason::InTheWay);
  EXPECT_TRUE(fs::is_symlink(Target() / "file"));
}

TEST_F(TreeHostile, TheFolderOfWhatIsUnderWayIsNoLink) {
  site.SetFile("pub/file", "bad");
  fs::create_directories(Target());
  fs::create_directory_symlink(m_folder / "outside", Target() / ".corvane");
  EXPECT_THAT(Download().code, IsCode(Corvane::TRANSFER_E_DOWNLOAD));
  EXPECT_TRUE(server.Requests().empty());
}

TEST_F(TreeHostile, ATreeWithoutEndIsAFailure) {
  client.options.mostConnections = 1;
  // Every folder holds itself.
  for (int depth = 0; depth <= 70; ++depth) {
    std::string path = "pub/";
    for (int i = 0; i < depth; ++i) path += "x/";
    site.Answer(path, Content(IndexPage({"x/", "file"})));
  }
  const TreeResult result = Download();
  EXPECT_THAT(result.error, HasSubstr("The tree is more than 64 folders deep."));
  EXPECT_LE(result.statistics.folders, 65U);
}

TEST_F(TreeHostile, TooManyFoldersAreAFailure) {
  client.options.mostFolders = 100;
  std::vector<std::string> folders;
  for (int i = 0; i < 1000; ++i) folders.push_back("f" + std::to_string(i) + '/');
  site.Answer("pub/", Content(IndexPage(folders)));
  EXPECT_THAT(Download().error, HasSubstr("The tree has more than 100 folders."));
  EXPECT_LE(server.Requests().size(), 20U);
}

TEST_F(TreeHostile, TooManyEntriesAreAFailure) {
  client.options.mostEntries = 100;
  std::vector<std::string> files;
  for (int i = 0; i < 101; ++i) files.push_back("f" + std::to_string(i));
  site.Answer("pub/", Content(IndexPage(files)));
  EXPECT_THAT(Download().error, HasSubstr("The tree has more than 100 entries."));
  EXPECT_TRUE(HoldsTree(Target(), {}));
}

TEST_F(TreeHostile, APageWithoutEndIsAFailure) {
  client.options.mostPageBytes = 100000;
  site.Answer("pub/", [](Connection& peer, const Request&) {
    peer.Send(FormatHead(200));
    while (peer.Send("<a href=\"x\">x</a>\n")) continue;
  });
  EXPECT_THAT(Download().error, HasSubstr("The page is longer than 100000 bytes."));
}

TEST_F(TreeHostile, ARefusalWithoutEndIsReadToItsStatusOnly) {
  site.SetFile("pub/file", "");
  site.Answer("pub/file", [](Connection& peer, const Request&) {
    peer.Send(FormatHead(404));
    while (peer.Send(std::string(10000, 'x'))) continue;
  });
  EXPECT_EQ(Download().error, "file: The server answered 404.");
}

TEST_F(TreeHostile, HeaderLinesWithoutEndAreAFailure) {
  client.options.mostRetries = 0;
  site.SetFile("pub/file", "");
  site.Answer("pub/file", [](Connection& peer, const Request&) {
    peer.Send("HTTP/1.1 200 OK\r\n");
    while (peer.Send("X: " + std::string(1000, 'x') + "\r\n")) continue;
  });
  EXPECT_TRUE(Corvane::IsFailure(Download().ResultOf("file")));
}

TEST_F(TreeHostile, ThousandsOfEntriesArriveOrFailButEnd) {
  std::vector<std::string> names;
  for (int i = 0; i < 200000; ++i) names.push_back("n" + std::to_string(i));
  site.Answer("pub/", Content(IndexPage(names)));
  client.options.include = {L"n1999*"};
  const TreeResult result = Download();
  EXPECT_EQ(result.statistics.filesKnown, 111U);
  EXPECT_EQ(result.statistics.filesFailed, 111U);  // the server has none of them
}

TEST_F(TreeHostile, AFolderIsNotRedirectedToElsewhere) {
  ScriptedServer elsewhere(KeepAlive(Content(IndexPage({"stolen"}))));
  site.SetFile("pub/sub/file", "good");
  for (const std::string& target :
       {elsewhere.Url("/"), server.Url("/private/"), server.Url("/pub/../private/"), std::string("file:///etc/")}) {
    site.Answer("pub/sub/", Redirect(target));
    const TreeResult result = Download();
    EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_E_CONNECT)) << target;
    EXPECT_THAT(result.error, HasSubstr("which is not followed")) << target;
  }
  EXPECT_TRUE(elsewhere.Requests().empty());
}

TEST_F(TreeHostile, ARedirectBelowTheDirectoryIsFollowedAndLeadsNotAround) {
  site.SetFile("pub/b/file", "good");
  site.Answer("pub/", Content(IndexPage({"a/", "b/"})));
  site.Answer("pub/a/", Redirect("/pub/b/"));
  EXPECT_THAT(Download().code, IsCode(Corvane::TRANSFER_S_FINISHED));
  EXPECT_TRUE(HoldsTree(Target(), {{"a/file", "good"}, {"b/file", "good"}}));
}

TEST_F(TreeHostile, RedirectsThatGoRoundAreAFailure) {
  site.SetFile("pub/file", "");
  site.Answer("pub/file", Redirect("/pub/file"));
  client.options.mostRedirects = 3;
  EXPECT_THAT(Download().error, HasSubstr("which is not followed"));
  EXPECT_EQ(server.Requests().size(), 5U);
}

}  // namespace
}  // namespace CorvaneTest
