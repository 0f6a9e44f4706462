#include <gmock/gmock.h>
#include <pthread.h>
#include <signal.h>

#include <filesystem>
#include <optional>
#include <string>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/Pki.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"

// A peer that goes away while we send must not end the host's process, whose dispositions are its own. In these tests
// SIGPIPE has its default disposition, so that one signal would end the test.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::AnyOf;

bool IsSigpipeAtItsDefault() {
  struct sigaction action {};
  return sigaction(SIGPIPE, nullptr, &action) == 0 && action.sa_handler == SIG_DFL;
}

bool IsSigpipeBlockedHere() {
  sigset_t blocked;
  pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
  return sigismember(&blocked, SIGPIPE) == 1;
}

class ZTransferSigpipe : public testing::TestWithParam<bool> {
 protected:
  ZTransferSigpipe() {
    WriteFile(m_folder / "large", "");
    std::filesystem::resize_file(m_folder / "large", kLarge);
  }

  void SetUp() override {
    ASSERT_TRUE(IsSigpipeAtItsDefault());
    ASSERT_FALSE(IsSigpipeBlockedHere());
  }

  void TearDown() override {
    EXPECT_TRUE(IsSigpipeAtItsDefault());
    EXPECT_FALSE(IsSigpipeBlockedHere());
  }

  // With TLS when the parameter says so.
  ScriptedServer& Serve(ScriptedServer::Handler handler) {
    if (GetParam()) {
      const Pki pki = MakePki(m_folder.Path());
      return m_server.emplace(std::move(handler), pki.server);
    }
    return m_server.emplace(std::move(handler));
  }

  static constexpr std::size_t kLarge = 32 << 20;  // more than the socket buffers hold
  TempDir m_folder;
  std::optional<ScriptedServer> m_server;
};

TEST_P(ZTransferSigpipe, DoesNotComeWhenTheServerResetsDuringAPost) {
  std::atomic<bool> wasDefault{false};
  ScriptedServer& server = Serve([&](Connection& peer) {
    peer.ReadRequest(Body::kLeave);
    peer.Send("HTTP/1.1 100 Continue\r\n\r\n");
    peer.ReadExactly(100000);  // the upload is under way
    wasDefault = IsSigpipeAtItsDefault();
    peer.Reset();
  });
  ZTransfer transfer;
  const ZResult file = transfer.PostFile(Wide(server.Url()), WidePath(m_folder / "large"));
  EXPECT_TRUE(IsFailure(file)) << Hex(file);
  EXPECT_TRUE(wasDefault);
  const ZResult data = transfer.PostData(Wide(server.Url()), ZString(std::wstring(kLarge / 2, L'x')));
  EXPECT_TRUE(IsFailure(data)) << Hex(data);
}

TEST_P(ZTransferSigpipe, DoesNotComeWhenTheServerClosesDuringAPost) {
  ScriptedServer& server = Serve([](Connection& peer) {
    peer.ReadRequest(Body::kLeave);
    peer.Send("HTTP/1.1 100 Continue\r\n\r\n");
    peer.ReadExactly(1000);
    peer.CutOff();
  });
  ZTransfer transfer;
  for (int i = 0; i < 5; ++i) {
    const ZResult code = transfer.PostFile(Wide(server.Url()), WidePath(m_folder / "large"));
    EXPECT_TRUE(IsFailure(code)) << Hex(code);
  }
}

// The connection that is used again has been closed by the server meanwhile; with TLS, closing it sends something, too.
TEST_P(ZTransferSigpipe, DoesNotComeFromAConnectionThatIsKept) {
  ScriptedServer& server = Serve([](Connection& peer) {
    const std::optional<Request> request = peer.ReadRequest();
    if (request) Status(200, "x")(peer, *request);
    peer.Reset();
  });
  for (int i = 0; i < 5; ++i) {
    ZTransfer transfer;
    ZString result;
    for (int round = 0; round < 3; ++round) {
      const ZResult code = transfer.Download(Wide(server.Url()), result);
      // The reset may overtake the answer.
      EXPECT_THAT(code, AnyOf(IsCode(TRANSFER_S_FINISHED), IsCode(CurlFailure(kReceiveError)), IsCode(CurlFailure(52)),
                              IsCode(CurlFailure(35)), IsCode(CurlFailure(55))));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Schemes, ZTransferSigpipe, testing::Bool(),
                         [](const auto& scheme) { return scheme.param ? "Https" : "Http"; });

}  // namespace
}  // namespace CorvaneTest
