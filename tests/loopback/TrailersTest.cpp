#include <gmock/gmock.h>

#include <atomic>
#include <string>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"

// A server that never ends its header text: libcurl limits lines and interim answers, but takes any number of trailers.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::ContainsRegex;

constexpr std::size_t kMiB = std::size_t{1} << 20;

// Sends a small body and then trailers until the client goes. Counts what it could send.
ScriptedServer::Handler EndlessTrailers(std::atomic<std::size_t>& sent) {
  return OncePerConnection([&](Connection& peer, const Request&) {
    peer.Send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nbody\r\n0\r\n");
    const std::string lines = "X-Trailer: " + std::string(1000, 'x') + "\r\n";
    for (std::size_t i = 0; i < 64 * kMiB && peer.Send(lines); i += lines.size()) sent += lines.size();
  });
}

TEST(ZTransferTrailers, WithoutAnEndEndTheTransferBeforeTheyFillTheMemory) {
  std::atomic<std::size_t> sent{0};
  ScriptedServer server(EndlessTrailers(sent));
  const TempDir folder;
  ZTransfer transfer;
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(folder / "a"), false),
              IsCode(CurlFailure(kWriteError)));
  EXPECT_EQ(ErrorOf(transfer), "The server sent more than 16 MiB of header lines.");
  EXPECT_TRUE(FileHolds(folder / "a", "body")) << "kept, as after any transfer that breaks off";
  EXPECT_LT(sent, 40 * kMiB) << "what was taken, and what the sockets hold";
}

TEST(ZTransferTrailers, OfAGoodServerAreHeaderLinesLikeOthers) {
  ScriptedServer server(OncePerConnection([](Connection& peer, const Request&) {
    peer.Send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nbody\r\n0\r\nX-Sum: 7\r\n\r\n");
  }));
  ZTransfer transfer;
  ZString result;
  EXPECT_THAT(transfer.Download(Wide(server.Url()), result), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(result, ZString(L"body"));
  EXPECT_THAT(HeaderOf(transfer), ContainsRegex("X-Sum: 7\r\n"));
}

}  // namespace
}  // namespace CorvaneTest
