#include <gmock/gmock.h>

#include <filesystem>
#include <string>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/SmallFileSystem.h"
#include "tests/support/TempDir.h"

// Downloads onto a disk that is full, and on once it has room again.
namespace CorvaneTest {
namespace {

using namespace Corvane;

namespace fs = std::filesystem;

TEST(ZTransferFullDisk, FreedAgainLetsTheDownloadComplete) {
  const SmallFileSystem disk("1m");
  const std::string content = MakePattern(500000);
  ScriptedServer server(KeepAlive(Content(content)));
  WriteFile(disk / "filler", std::string(800000, 'x'));
  ZTransfer transfer;
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(disk / "a"), true), IsCode(CurlFailure(kWriteError)));
  const std::size_t fitted = FileSize(disk / "a");
  EXPECT_GT(fitted, 0u);
  EXPECT_LT(fitted, content.size());
  EXPECT_TRUE(FileHolds(disk / "a", content.substr(0, fitted)));
  EXPECT_EQ(transfer.GetDownloadSize(), fitted);

  // As long as the disk is full the file stays as it is.
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(disk / "a"), true), IsCode(CurlFailure(kWriteError)));
  EXPECT_TRUE(FileHolds(disk / "a", content.substr(0, fitted)));

  fs::remove(disk / "filler");
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(disk / "a"), true), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(disk / "a", content));
  EXPECT_EQ(server.Requests().back().Header("Range"), "bytes=" + std::to_string(fitted - 32) + "-");
}

TEST(ZTransferFullDisk, FailsADownloadOfAFewBytes) {
  const SmallFileSystem disk("64k");
  ScriptedServer server(KeepAlive(Status(200, "a few bytes")));
  WriteFile(disk / "a", "");  // a name needs room, too
  WriteFile(disk / "filler", std::string(65536, 'x'));
  ZTransfer transfer;
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(disk / "a"), false), IsCode(CurlFailure(kWriteError)));
  EXPECT_TRUE(FileHolds(disk / "a", ""));
}

}  // namespace
}  // namespace CorvaneTest
