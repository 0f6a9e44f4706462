#include <gmock/gmock.h>

#include <chrono>
#include <string>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"

// Sizes, times and rate, during a transfer and after it.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using std::chrono::duration_cast;
using std::chrono::milliseconds;
using testing::AllOf;
using testing::Ge;
using testing::Le;

TEST(ZTransferSizes, CountBothDirectionsAndTheHeaders) {
  constexpr std::size_t kBody = 100000;
  ScriptedServer server(KeepAlive(Content(MakePattern(kBody))));
  ZTransfer transfer;
  ZString result;
  for (int i = 0; i < 2; ++i) {  // each operation counts for itself
    ASSERT_THAT(transfer.Download(Wide(server.Url()), result), IsCode(TRANSFER_S_FINISHED));
    const std::size_t request = server.Requests().back().raw.size();
    const std::size_t header = HeaderOf(transfer).size();
    EXPECT_EQ(transfer.GetContentSize(), kBody);
    EXPECT_EQ(transfer.GetDownloadSize(), kBody);
    EXPECT_EQ(transfer.GetTransferSize(), kBody + header + request);
  }
}

TEST(ZTransferSizes, TimesEncloseTheOperation) {
  constexpr milliseconds kPause(300);
  ScriptedServer server(KeepAlive([&](Connection& peer, const Request& request) {
    const Gate never;
    peer.WaitFor(never, After(kPause));
    Status(200, "x")(peer, request);
  }));
  ZTransfer transfer;
  ZString result;
  const ZDateTime earlier = ZDateTime::Now();
  const auto start = Clock::now();
  ASSERT_THAT(transfer.Download(Wide(server.Url()), result), IsCode(TRANSFER_S_FINISHED));
  const long long around = duration_cast<milliseconds>(Clock::now() - start).count() + 1;
  // The clocks of the library and of the test may disagree by a little.
  EXPECT_THAT(transfer.GetTransferTime(), AllOf(Ge(kPause.count() - 1), Le(around)));
  EXPECT_GE(transfer.GetTransferStartTime().Compare(earlier), 0);
  EXPECT_LE(transfer.GetTransferStartTime().Compare(ZDateTime::Now()), 0);
}

// The rate is the size over libcurl's time for the request, which is at least as long as the server's pause and no
// longer than the whole operation.
TEST(ZTransferSizes, RateIsTheMeanOverTheRequest) {
  constexpr milliseconds kPause(500);
  const std::string body(4 << 20, 'x');
  ScriptedServer server(KeepAlive([&](Connection& peer, const Request& request) {
    const Gate never;
    peer.WaitFor(never, After(kPause));
    Content(body)(peer, request);
  }));
  ZTransfer transfer;
  ZString result;
  ASSERT_THAT(transfer.Download(Wide(server.Url()), result), IsCode(TRANSFER_S_FINISHED));
  const double kibibytes = static_cast<double>(transfer.GetTransferSize()) / 1024;
  const double longest = static_cast<double>(transfer.GetTransferTime() + 2) / 1000;
  EXPECT_THAT(transfer.GetTransferRate(), AllOf(Ge(static_cast<unsigned int>(kibibytes / longest)),
                                                Le(static_cast<unsigned int>(kibibytes / 0.499))));
}

TEST(ZTransferSizes, OfAnAnswerWithoutABodyAreItsHeadersOnly) {
  ScriptedServer server(KeepAlive(Status(204)));
  ZTransfer transfer;
  ZString result;
  ASSERT_THAT(transfer.Download(Wide(server.Url()), result), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(transfer.GetDownloadSize(), 0u);
  EXPECT_EQ(transfer.GetTransferSize(), HeaderOf(transfer).size() + server.Requests().at(0).raw.size());
}

TEST(ZTransferSizes, OfAFailedDownloadTellHowFarItGot) {
  ContentOptions options;
  options.stopAfter = 70000;
  ScriptedServer server(OncePerConnection(Content(std::string(100000, 'x'), options)));
  ZTransfer transfer;
  ZString result;
  ASSERT_THAT(transfer.Download(Wide(server.Url()), result), IsCode(CurlFailure(kPartialFile)));
  EXPECT_EQ(transfer.GetContentSize(), 100000u);
  EXPECT_EQ(transfer.GetDownloadSize(), 70000u);
  EXPECT_GT(transfer.GetTransferSize(), 70000u);
}

// What other threads see while a transfer runs.
TEST(ZTransferSizes, AreCurrentDuringATransfer) {
  constexpr unsigned long long kContent = 6ULL << 30;  // more than 32 bits hold
  constexpr std::size_t kBlock = 5000;
  Gate goOn;
  ScriptedServer server(KeepAlive([&](Connection& peer, const Request&) {
    peer.Send(FormatHead(200, {{"Content-Length", std::to_string(kContent)}}) + std::string(kBlock, 'x'));
    if (peer.WaitFor(goOn)) peer.Send(std::string(kBlock, 'y'));
    peer.WaitUntilStopped();
  }));
  ZTransfer transfer;
  ZString result;
  RunningOperation download(transfer, [&] { return transfer.Download(Wide(server.Url()), result); });
  ASSERT_TRUE(WaitUntil([&] { return transfer.GetDownloadSize() == kBlock; }));
  EXPECT_EQ(transfer.GetContentSize(), kContent);
  EXPECT_THAT(transfer.GetStatus(), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(transfer.GetTransferTime(), 0);
  EXPECT_TRUE(WaitUntil([&] { return transfer.GetTransferSize() > kBlock; }));
  goOn.Open();
  EXPECT_TRUE(WaitUntil([&] { return transfer.GetDownloadSize() == 2 * kBlock; }));
  transfer.Abort();
  ASSERT_TRUE(download.Result());
  EXPECT_THAT(*download.Result(), IsCode(TRANSFER_E_ABORTED));
  EXPECT_EQ(transfer.GetContentSize(), kContent);
  EXPECT_EQ(transfer.GetDownloadSize(), 2 * kBlock);
}

// libcurl tells lengths as floating point numbers; 2^53 + 1 and more are no longer exact there, but must not overflow.
TEST(ZTransferSizes, OfAnAbsurdLengthDoNotOverflow) {
  const std::string longest = "9223372036854775807";
  ScriptedServer server(OncePerConnection([&](Connection& peer, const Request&) {
    peer.Send("HTTP/1.1 200 OK\r\nContent-Length: " + longest + "\r\n\r\nabc");
  }));
  ZTransfer transfer;
  ZString result;
  EXPECT_THAT(transfer.Download(Wide(server.Url()), result), IsCode(CurlFailure(kPartialFile)));
  EXPECT_EQ(Narrow(result), "abc");
  EXPECT_THAT(transfer.GetContentSize(), testing::AnyOf(kUnknownSize, Ge(1ULL << 62)));
}

}  // namespace
}  // namespace CorvaneTest
