#include <gmock/gmock.h>

#include <array>
#include <future>
#include <stdexcept>
#include <thread>

#include "tests/support/Gate.h"
#include "tests/support/ScriptedFtpServer.h"
#include "tests/support/StalledListener.h"
#include "tests/tree/TreeTesting.h"

// Runs that other threads watch and end, and what a host's own code may do to one.
namespace CorvaneTest {
namespace {

using Corvane::ZTreeDownload;

// Generous for busy machines; a run that waits for its peer takes minutes.
constexpr std::chrono::seconds kSoon{20};

class TreeThreads : public testing::Test {
 protected:
  std::future<TreeResult> Start(const std::string& url) {
    return std::async(std::launch::async, [this, url] { return client.Download(url, folder / "target"); });
  }

  // Aborts as soon as the gate opens.
  void ExpectAbort(const std::string& url, const std::function<bool()>& isThere) {
    std::future<TreeResult> run = Start(url);
    ASSERT_TRUE(isThere());
    const auto begin = Clock::now();
    EXPECT_EQ(client.tree.Abort(), 0U);
    EXPECT_TRUE(client.tree.Wait(60000));
    EXPECT_LT(Clock::now() - begin, kSoon);
    const TreeResult result = run.get();
    EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_E_ABORTED));
    EXPECT_EQ(result.error, "Download aborted by user");
  }

  TreeSite site{{{"a", "1"}, {"b/c", "22"}}};
  ScriptedServer server{KeepAlive(site.Serve())};
  TreeClient client;
  TempDir folder;
};

Responder Stall(ContentOptions options = {}) {
  options.ending = ContentOptions::Ending::kStall;
  if (!options.stopAfter) options.stopAfter = 1;
  return Content(std::string(100000, 'x'), options);
}

TEST_F(TreeThreads, AnAbortEndsConnecting) {
  StalledListener listener;
  ExpectAbort("http://127.0.0.1:" + std::to_string(listener.Port()) + "/", [&] {
    while (client.tree.GetStatistics().inFlight == 0) std::this_thread::yield();
    return true;
  });
}

TEST_F(TreeThreads, AnAbortEndsWaitingForAnAnswer) {
  site.Answer("", [](Connection& peer, const Request&) { peer.WaitUntilStopped(); });
  ExpectAbort(server.Url("/"), [&] { return server.WaitForRequests(1); });
}

TEST_F(TreeThreads, AnAbortEndsAStalledPage) {
  site.Answer("b/", Stall());
  ExpectAbort(server.Url("/"), [&] { return server.WaitForRequests(2); });
}

TEST_F(TreeThreads, AnAbortEndsAStalledQuestion) {
  ASSERT_THAT(client.Download(server.Url("/"), folder / "target").code, IsCode(Corvane::TRANSFER_S_FINISHED));
  const std::size_t before = server.Requests().size();
  site.Answer("b/c", [](Connection& peer, const Request&) { peer.WaitUntilStopped(); });
  ExpectAbort(server.Url("/"), [&] { return server.WaitForRequests(before + 4); });
}

TEST_F(TreeThreads, AnAbortEndsAStalledFileAndLeavesWhatIsToBeContinued) {
  const std::string content = MakePattern(300000, 5);
  ContentOptions options;
  options.headers = {{"ETag", "\"one\""}};
  site.SetFile("large", content);
  ContentOptions stalled = options;
  stalled.stopAfter = 200000;
  stalled.ending = ContentOptions::Ending::kStall;
  site.Answer("large", Content(content, stalled));
  ExpectAbort(server.Url("/"), [&] {
    while (client.tree.GetStatistics().receivedBytes < 200003) std::this_thread::yield();
    return true;
  });
  site.Answer("large", Content(content, options));
  const TreeResult result = client.Download(server.Url("/"), folder / "target");
  EXPECT_EQ(result.ActionOf("large"), Action::Continue);
  EXPECT_TRUE(ReadFile(folder / "target/large") == content);
}

TEST_F(TreeThreads, AnAbortEndsAWaitBetweenTwoTries) {
  client.options.retryWaitMs = 60000;
  site.Answer("a", Status(503));
  ExpectAbort(server.Url("/"), [&] {
    while (client.tree.GetStatistics().filesFetched < 1) std::this_thread::yield();
    return server.WaitForRequests(4);
  });
}

TEST_F(TreeThreads, AnAbortEndsAnFtpServersSilence) {
  for (const char* const verb : {"USER", "EPSV", "LIST", "RETR", "SIZE"}) {
    ScriptedFtpServer ftp({{"/pub/file", "1"}});
    ftp.StallAt(verb);
    ExpectAbort(ftp.Url("/pub/"), [&] { return ftp.WaitForCommand(verb); });
  }
}

TEST_F(TreeThreads, AnAbortEndsTheWaitForAnFtpServersLastWord) {
  ScriptedFtpServer ftp({{"/pub/file", std::string(1000, 'x')}});
  ftp.StallDataAfter(500);
  ExpectAbort(ftp.Url("/pub/"), [&] {
    while (client.tree.GetStatistics().receivedBytes < 500) std::this_thread::yield();
    return true;
  });
}

TEST_F(TreeThreads, AnObserverMayAbort) {
  client.options.mostConnections = 1;
  client.onItem = [&](const ZTreeDownload::Item&) { client.tree.Abort(); };
  const TreeResult result = client.Download(server.Url("/"), folder / "target");
  EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_E_ABORTED));
  EXPECT_EQ(result.items.size(), 1U);
}

TEST_F(TreeThreads, TheDestructorAbortsARun) {
  site.Answer("", [](Connection& peer, const Request&) { peer.WaitUntilStopped(); });
  auto tree = std::make_unique<ZTreeDownload>();
  std::future<Corvane::ZResult> run = std::async(
      std::launch::async, [&] { return tree->Download(Wide(server.Url("/")), WidePath(folder / "target")); });
  ASSERT_TRUE(server.WaitForRequests(1));
  const auto begin = Clock::now();
  tree.reset();
  EXPECT_LT(Clock::now() - begin, kSoon);
  EXPECT_THAT(run.get(), IsCode(Corvane::TRANSFER_E_ABORTED));
}

TEST_F(TreeThreads, SettingsAreRefusedWhileARunIsOn) {
  site.Answer("", [](Connection& peer, const Request&) { peer.WaitUntilStopped(); });
  std::future<TreeResult> run = Start(server.Url("/"));
  ASSERT_TRUE(server.WaitForRequests(1));
  ZTreeDownload& tree = client.tree;
  EXPECT_THAT(tree.SetTimeout(1), IsCode(Corvane::BASE_E_BUSY));
  EXPECT_THAT(tree.SetSSL(false, false, L"", L""), IsCode(Corvane::BASE_E_BUSY));
  EXPECT_THAT(tree.SetCredentials(L"ada", L"x"), IsCode(Corvane::BASE_E_BUSY));
  EXPECT_THAT(tree.UseThrottling(false), IsCode(Corvane::BASE_E_BUSY));
  EXPECT_THAT(tree.SetOptions(ZTreeOptions()), IsCode(Corvane::BASE_E_BUSY));
  EXPECT_THAT(tree.Attach(nullptr), IsCode(Corvane::BASE_E_BUSY));
  EXPECT_THAT(tree.Detach(nullptr), IsCode(Corvane::BASE_E_BUSY));
  EXPECT_THAT(tree.Download(L"http://127.0.0.1/", L"x"), IsCode(Corvane::BASE_E_IN_USE));
  EXPECT_THAT(tree.GetStatus(), IsCode(Corvane::TRANSFER_E_IN_PROGRESS));
  EXPECT_FALSE(tree.Wait(0));
  tree.Abort();
  run.get();
  EXPECT_TRUE(tree.Wait(0));
}

TEST_F(TreeThreads, AnExceptionOfAnObserverEndsTheRunAndReachesItsCaller) {
  client.onItem = [](const ZTreeDownload::Item&) { throw std::runtime_error("the host's"); };
  EXPECT_THROW(client.tree.Download(Wide(server.Url("/")), WidePath(folder / "target")), std::runtime_error);
  EXPECT_TRUE(client.tree.Wait(0));
  EXPECT_TRUE(Corvane::IsFailure(client.tree.GetStatus()));
  client.onItem = nullptr;
  EXPECT_THAT(client.Download(server.Url("/"), folder / "target").code, IsCode(Corvane::TRANSFER_S_FINISHED));
}

TEST_F(TreeThreads, WatchersSeeNumbersThatBelongTogether) {
  for (int i = 0; i < 200; ++i) site.SetFile("many/" + std::to_string(i), std::string(1000, 'x'));
  std::atomic<bool> isOver{false};
  std::array<std::thread, 3> watchers;
  for (std::thread& watcher : watchers) {
    watcher = std::thread([&] {
      while (!isOver) {
        const ZTreeDownload::Statistics now = client.tree.GetStatistics();
        EXPECT_LE(now.filesFetched + now.filesKept + now.filesFailed, now.filesKnown);
        EXPECT_LE(now.inFlight, 8U);
        static_cast<void>(client.tree.GetError().Length());
        static_cast<void>(client.tree.GetStatus());
        static_cast<void>(client.tree.Wait(0));
      }
    });
  }
  for (int round = 0; round < 5; ++round) {
    std::filesystem::remove_all(folder / "target");
    EXPECT_THAT(client.Download(server.Url("/"), folder / "target").code, IsCode(Corvane::TRANSFER_S_FINISHED));
  }
  isOver = true;
  for (std::thread& watcher : watchers) watcher.join();
}

TEST_F(TreeThreads, AbortsAtAnyMomentLeaveAnObjectThatWorks) {
  for (int i = 0; i < 50; ++i) site.SetFile("many/" + std::to_string(i), std::string(100, 'x'));
  for (int round = 0; round < 30; ++round) {
    std::filesystem::remove_all(folder / "target");
    std::future<TreeResult> run = Start(server.Url("/"));
    const std::size_t enough = server.Requests().size() + static_cast<std::size_t>(round) * 2;
    while (server.Requests().size() < enough && !client.tree.Wait(0)) std::this_thread::yield();
    client.tree.Abort();
    const TreeResult result = run.get();
    EXPECT_TRUE(result.code == Corvane::TRANSFER_E_ABORTED || result.code == Corvane::TRANSFER_S_FINISHED) << result;
  }
  EXPECT_THAT(client.Download(server.Url("/"), folder / "target").code, IsCode(Corvane::TRANSFER_S_FINISHED));
}

TEST_F(TreeThreads, ObjectsAreIndependent) {
  std::vector<std::future<Corvane::ZResult>> runs;
  for (int i = 0; i < 6; ++i) {
    runs.push_back(std::async(std::launch::async, [&, i] {
      TreeClient own;
      return own.Download(server.Url("/"), folder / std::to_string(i)).code;
    }));
  }
  for (auto& run : runs) EXPECT_THAT(run.get(), IsCode(Corvane::TRANSFER_S_FINISHED));
}

}  // namespace
}  // namespace CorvaneTest
