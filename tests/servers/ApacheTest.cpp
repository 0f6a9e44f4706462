#include <gmock/gmock.h>

#include <string>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/Daemons.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

TEST(ZTransferOnApache, DownloadsIntoMemoryAndIntoAFile) {
  ApacheServer server;
  const std::string content = MakePattern(3000000);
  WriteFile(server.RootDir() / "a.bin", content);
  WriteFile(server.RootDir() / "a.txt", "text\n");
  const TempDir folder;
  ZTransfer transfer;
  ZString result;
  EXPECT_THAT(transfer.Download(Wide(server.Url("/a.txt")), result), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(Narrow(result), "text\n");
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url("/a.bin")), WidePath(folder / "a"), false),
              IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(folder / "a", content));
  EXPECT_THAT(HeaderOf(transfer), StartsWith("HTTP/1.1 200 OK\r\n"));
}

TEST(ZTransferOnApache, ResumesAFile) {
  ApacheServer server;
  const std::string content = MakePattern(3000000);
  WriteFile(server.RootDir() / "a.bin", content);
  const TempDir folder;
  ZTransfer transfer;
  for (const std::size_t localSize : {65u, 1000000u, 2999999u, 3000000u, 3000031u}) {
    WriteFile(folder / "a", (content + MakePattern(100, 2)).substr(0, localSize));
    EXPECT_THAT(transfer.DownloadFile(Wide(server.Url("/a.bin")), WidePath(folder / "a"), true),
                IsCode(TRANSFER_S_FINISHED))
        << localSize;
    EXPECT_THAT(HeaderOf(transfer), StartsWith("HTTP/1.1 206 Partial Content\r\n")) << localSize;
    EXPECT_TRUE(FileHolds(folder / "a", content)) << localSize;
    EXPECT_EQ(transfer.GetContentSize(), content.size()) << localSize;
  }
}

TEST(ZTransferOnApache, KeepsTheFileWhenTheRemoteOneIsShorter) {
  ApacheServer server;
  WriteFile(server.RootDir() / "a.bin", MakePattern(1000));
  WriteFile(server.RootDir() / "empty", "");
  const TempDir folder;
  const std::string old = MakePattern(2000, 2);
  ZTransfer transfer;
  for (const char* url : {"/a.bin", "/empty"}) {
    WriteFile(folder / "a", old);
    EXPECT_TRUE(IsFailure(transfer.DownloadFile(Wide(server.Url(url)), WidePath(folder / "a"), true))) << url;
    EXPECT_TRUE(FileHolds(folder / "a", old)) << url;
  }
}

TEST(ZTransferOnApache, ReportsAMissingFile) {
  ApacheServer server;
  const TempDir folder;
  ZTransfer transfer;
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url("/missing")), WidePath(folder / "a"), false),
              IsCode(TRANSFER_E_CONNECT));
  EXPECT_THAT(ErrorOf(transfer), HasSubstr("/missing\nHTTP/1.1 404 Not Found\r\n"));
  EXPECT_THAT(NamesIn(folder.Path()), IsEmpty());
}

}  // namespace
}  // namespace CorvaneTest
