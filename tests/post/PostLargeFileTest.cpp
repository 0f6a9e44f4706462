#include <gmock/gmock.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <sstream>
#include <string>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/HttpResponders.h"
#include "tests/support/Process.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"

// Files that are too large for memory.
namespace CorvaneTest {
namespace {

using namespace Corvane;

namespace fs = std::filesystem;

class ZTransferPostLargeFile : public testing::Test {
 protected:
  // A file without blocks on the disk.
  fs::path MakeSparse(std::uintmax_t size) const {
    WriteFile(m_folder / "input", "");
    fs::resize_file(m_folder / "input", size);
    return m_folder / "input";
  }

  TempDir m_folder;
};

TEST_F(ZTransferPostLargeFile, TakesNoMoreMemoryThanASmallOne) {
  constexpr std::uintmax_t kSize = 1 << 30;
  const fs::path input = MakeSparse(kSize);
  ScriptedServer server(KeepAlive(Status(200, "stored"), Body::kCount));
  ProgramOptions options;
  options.timeout = std::chrono::minutes(9);
  const ProgramResult end = RunProgram(
      {CORVANE_POST_PROBE, "--plain", server.Url(), input.string(), (m_folder / "output").string()}, options);
  ASSERT_EQ(end.exitCode, 0) << end.Describe();
  std::istringstream lines(end.out);
  ZResult code = 0;
  unsigned long grownKilobytes = 0;
  lines >> std::hex >> code >> std::dec >> grownKilobytes;
  ASSERT_TRUE(lines) << end.Describe();
  EXPECT_THAT(code, IsCode(TRANSFER_S_FINISHED)) << end.Describe();
  EXPECT_LT(grownKilobytes, 16u * 1024);
  ASSERT_EQ(server.Requests().size(), 1u);
  EXPECT_EQ(server.Requests()[0].bodySize, kSize);
  EXPECT_EQ(server.Requests()[0].Header("Content-Length"), std::to_string(kSize));
}

// Beyond 32 bits.
TEST_F(ZTransferPostLargeFile, AnnouncesItsWholeSize) {
  const std::uintmax_t size = (std::uintmax_t{5} << 30) + 7;
  ScriptedServer server([](Connection& peer) {
    if (const auto request = peer.ReadRequest(Body::kLeave)) Status(413)(peer, *request);
    peer.WaitUntilPeerCloses();
  });
  ZTransfer transfer;
  EXPECT_THAT(transfer.PostFile(Wide(server.Url()), WidePath(MakeSparse(size))), IsCode(TRANSFER_E_POST));
  ASSERT_EQ(server.Requests().size(), 1u);
  EXPECT_EQ(server.Requests()[0].Header("Content-Length"), std::to_string(size));
}

}  // namespace
}  // namespace CorvaneTest
