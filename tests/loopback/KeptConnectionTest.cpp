#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/ScriptedFtpServer.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"

// Connections that libcurl keeps, whose server has gone away without a word when they are given up: libcurl says QUIT on each and
// waits two minutes for the answer.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using std::chrono::steady_clock;

constexpr std::chrono::seconds kNoTimeAtAll{60};  // half of what a single wait takes, and ages for the loopback

class AKeptFtpConnection : public testing::Test {
 protected:
  ScriptedFtpServer& SilentServer() {
    ScriptedFtpServer& server = servers.emplace_back(ScriptedFtpServer::Files{{"/a", "content"}});
    server.StallAt("QUIT");
    return server;
  }

  void Fetch(ZTransfer& transfer, const std::string& url) {
    ZString result;
    EXPECT_THAT(transfer.Download(Wide(url), result), IsCode(TRANSFER_S_FINISHED));
    EXPECT_EQ(result, ZString(L"content"));
  }

  std::list<ScriptedFtpServer> servers;
  steady_clock::time_point begin = steady_clock::now();
};

TEST_F(AKeptFtpConnection, ToASilentServerDoesNotHoldUpTheDestructor) {
  {
    ZTransfer transfer;
    Fetch(transfer, SilentServer().Url("/a"));
  }
  EXPECT_LT(steady_clock::now() - begin, kNoTimeAtAll);
}

// libcurl's pool keeps a few connections; the one that is too much is given up in the middle of the next request.
TEST_F(AKeptFtpConnection, ToSilentServersHoldsUpNoLaterRequest) {
  ZTransfer transfer;
  for (int i = 0; i < 12; ++i) Fetch(transfer, SilentServer().Url("/a"));
  EXPECT_LT(steady_clock::now() - begin, kNoTimeAtAll);
}

TEST_F(AKeptFtpConnection, OfAnotherLoginHoldsUpNoLaterRequest) {
  ScriptedFtpServer& server = SilentServer();
  ZTransfer transfer;
  for (int i = 0; i < 12; ++i) {
    EXPECT_EQ(transfer.SetCredentials(Wide("user" + std::to_string(i)), L"password"), 0u);
    Fetch(transfer, server.Url("/a"));
  }
  EXPECT_LT(steady_clock::now() - begin, kNoTimeAtAll);
}

TEST_F(AKeptFtpConnection, IsLetGoForARequestOfAnotherProtocol) {
  ScriptedServer web(KeepAlive(Status(200, "content")));
  {
    ZTransfer transfer;
    Fetch(transfer, SilentServer().Url("/a"));
    Fetch(transfer, web.Url());
    Fetch(transfer, servers.front().Url("/a"));
  }
  EXPECT_LT(steady_clock::now() - begin, kNoTimeAtAll);
}

TEST_F(AKeptFtpConnection, ServesTheNextRequestToTheSameServer) {
  ScriptedFtpServer& server = SilentServer();
  {
    ZTransfer transfer;
    for (int i = 0; i < 3; ++i) Fetch(transfer, server.Url("/a"));
    const std::vector<std::string> commands = server.Commands();
    EXPECT_EQ(std::count(commands.begin(), commands.end(), "RETR a"), 3);
    EXPECT_EQ(std::count(commands.begin(), commands.end(), "USER anonymous"), 1) << "one connection";
  }
  EXPECT_TRUE(server.WaitForCommand("QUIT")) << "a server that is there is still told";
}

// libcurl could not find the way back from the folder of the last file, and would look for the next one below it.
TEST(AKeptFtpConnectionInAnUnknownFolder, LeadsToNoOtherFile) {
  for (const char* reply : {"550 No", "257 here"}) {
    SCOPED_TRACE(reply);
    ScriptedFtpServer server({{"/a/one", "1"}, {"/a/b/two", "another file"}, {"/b/two", "2"}});
    server.SetReply("PWD", reply);
    ZTransfer transfer;
    ZString result;
    EXPECT_THAT(transfer.Download(Wide(server.Url("/a/one")), result), IsCode(TRANSFER_S_FINISHED));
    EXPECT_THAT(transfer.Download(Wide(server.Url("/b/two")), result), IsCode(TRANSFER_S_FINISHED));
    EXPECT_EQ(result, ZString(L"2"));
  }
}

}  // namespace
}  // namespace CorvaneTest
