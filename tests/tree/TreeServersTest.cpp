#include <gmock/gmock.h>

#include <algorithm>

#include "tests/servers/MirrorTree.h"
#include "tests/support/Daemons.h"
#include "tests/support/Pki.h"
#include "tests/tree/TreeTesting.h"

// Whole trees from real servers.
namespace CorvaneTest {
namespace {

namespace fs = std::filesystem;

class TreeFrom : public testing::TestWithParam<ServerKind> {
 protected:
  TreeFrom() : m_server(GetParam()) {}

  TreeFiles Source() const {
    TreeFiles tree = MakeAwkwardTree();
    // nginx shows no name that begins with a dot.
    if (GetParam() == ServerKind::kNginx) {
      for (const char* const name : {".hidden", "..a"}) {
        tree.erase("odd/" + std::string(name));
        tree.erase("folders/" + std::string(name) + "/in it");
      }
    }
    // pyftpdlib cannot find again what it shows of a name that is no UTF-8.
    if (GetParam() == ServerKind::kPyftpdlib) {
      tree.erase("odd/latin \xFC");
      tree.erase("folders/latin \xFC/in it");
    }
    return tree;
  }

  RemoteServer m_server;
  TempDir m_folder;
};

TEST_P(TreeFrom, IsTheSourceAndIsKeptByASecondRun) {
  const TreeFiles source = Source();
  WriteTree(m_server.RootDir() / "pub", source);
  TreeClient client;

  const TreeResult first = client.Download(m_server.Url("/pub/"), m_folder / "target");
  EXPECT_THAT(first.code, IsCode(Corvane::TRANSFER_S_FINISHED)) << first << m_server.Log();
  EXPECT_TRUE(HoldsTree(m_folder / "target", source));
  const std::size_t files = source.size() - 1;  // one is an empty folder
  EXPECT_EQ(first.statistics.filesKnown, files);
  EXPECT_EQ(first.statistics.filesFetched, files);

  const TreeResult second = client.Download(m_server.Url("/pub/"), m_folder / "target");
  EXPECT_THAT(second.code, IsCode(Corvane::TRANSFER_S_FINISHED)) << second;
  EXPECT_EQ(second.statistics.filesKept, files);
  EXPECT_EQ(second.statistics.receivedBytes, 0U);
  EXPECT_TRUE(HoldsTree(m_folder / "target", source));
}

TEST_P(TreeFrom, FetchesWhatHasChangedAndNothingElse) {
  const fs::path root = m_server.RootDir() / "pub";
  WriteTree(root, {{"a", "old"}, {"b/c", "old"}, {"b/longer", "1"}, {"b/same", "same"}});
  TreeClient client;
  ASSERT_THAT(client.Download(m_server.Url("/pub"), m_folder / "target").code, IsCode(Corvane::TRANSFER_S_FINISHED));

  WriteFile(root / "b/c", "new");  // of the same length, and of another time
  WriteFile(root / "b/longer", "12");
  WriteFile(root / "d", "added");
  const TreeResult result = client.Download(m_server.Url("/pub"), m_folder / "target");

  EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_S_FINISHED)) << result;
  EXPECT_EQ(result.PathsWith(Action::Fetch), (std::set<std::string>{"b/c", "b/longer", "d"}));
  EXPECT_EQ(result.PathsWith(Action::Keep), (std::set<std::string>{"a", "b/same"}));
  EXPECT_TRUE(HoldsTree(m_folder / "target",
                        {{"a", "old"}, {"b/c", "new"}, {"b/longer", "12"}, {"b/same", "same"}, {"d", "added"}}));
}

TEST_P(TreeFrom, GivesFilesTheTimesThatTheServerTells) {
  WriteTree(m_server.RootDir() / "pub", {{"a", "1"}, {"b/c", "2"}});
  TreeClient client;
  ASSERT_THAT(client.Download(m_server.Url("/pub"), m_folder / "target").code, IsCode(Corvane::TRANSFER_S_FINISHED));
  for (const char* const path : {"a", "b/c"}) {
    EXPECT_EQ(StatusOf(m_folder / "target" / path).st_mtim.tv_sec,
              StatusOf(m_server.RootDir() / "pub" / path).st_mtim.tv_sec)
        << path;
  }
}

// One connection carries them all, many at once.
TEST(TreeOverHttp2, GoesOverOneConnection) {
  NginxOptions options;
  options.tls = ThePki().server;
  options.http2 = true;
  NginxServer server(options);
  TreeFiles source;
  for (int i = 0; i < 300; ++i) source["many/" + std::to_string(i)] = MakePattern(1000, static_cast<std::uint64_t>(i));
  WriteTree(server.RootDir(), source);
  TreeClient client;
  ASSERT_EQ(client.tree.SetSSL(true, true, WidePath(ThePki().caFile), L""), 0U);
  ZTreeDownload::Statistics most;
  client.onItem = [&](const ZTreeDownload::Item&) {
    const ZTreeDownload::Statistics now = client.tree.GetStatistics();
    most.inFlight = std::max(most.inFlight, now.inFlight);
    most.connections = std::max(most.connections, now.connections);
  };
  const TempDir folder;
  const TreeResult result = client.Download(server.HttpsUrl("/"), folder / "target");
  EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_S_FINISHED)) << result << server.Log();
  EXPECT_TRUE(HoldsTree(folder / "target", source));
  EXPECT_EQ(most.connections, 1U);
  EXPECT_EQ(most.inFlight, 100U);
  EXPECT_TRUE(server.WaitForAccess("\"GET /many/299 HTTP/2.0\" 200 "));
}

INSTANTIATE_TEST_SUITE_P(Server, TreeFrom,
                         testing::Values(ServerKind::kNginx, ServerKind::kApache, ServerKind::kVsftpd,
                                         ServerKind::kPyftpdlib),
                         [](const auto& kind) { return NameOf(kind.param); });

}  // namespace
}  // namespace CorvaneTest
