#include <gmock/gmock.h>

#include <exception>
#include <filesystem>
#include <string>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/Daemons.h"
#include "tests/support/Pki.h"
#include "tests/support/Sockets.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace fs = std::filesystem;

TEST(ZTransferOnNginx, DownloadsAText) {
  NginxServer server;
  WriteFile(server.RootDir() / "dir" / "a.txt",
            "Gr\xC3\xBC\xC3\x9F"
            "e\n");
  ZTransfer transfer;
  ZString result;
  EXPECT_THAT(transfer.Download(Wide(server.Url("/dir/a.txt")), result), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(Narrow(result),
            "Gr\xC3\xBC\xC3\x9F"
            "e\n");
  EXPECT_EQ(transfer.GetContentSize(), 8u);
  EXPECT_THAT(HeaderOf(transfer), StartsWith("HTTP/1.1 200 OK\r\n"));
}

// A server that is eager to compress sends plain text to a client that does not ask for anything else.
TEST(ZTransferOnNginx, GetsNothingCompressed) {
  NginxOptions options;
  options.httpLines = "gzip on; gzip_types *; gzip_min_length 1; gzip_http_version 1.0; gzip_proxied any;";
  NginxServer server(options);
  const std::string text(100000, 'x');
  WriteFile(server.RootDir() / "a.txt", text);
  ZTransfer transfer;
  ZString result;
  EXPECT_THAT(transfer.Download(Wide(server.Url("/a.txt")), result), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(result, Wide(text));
  EXPECT_THAT(HeaderOf(transfer), Not(HasSubstr("Content-Encoding")));
  EXPECT_EQ(transfer.GetContentSize(), text.size());
}

TEST(ZTransferOnNginx, DownloadsALargeFileExactly) {
  NginxServer server;
  const std::string content = MakePattern(64 << 20);
  WriteFile(server.RootDir() / "large", content);
  const TempDir folder;
  ZTransfer transfer;
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url("/large")), WidePath(folder / "a"), false),
              IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(folder / "a", content));
  EXPECT_EQ(transfer.GetContentSize(), content.size());
  EXPECT_EQ(transfer.GetDownloadSize(), content.size());
}

TEST(ZTransferOnNginx, ResumesALargeFileExactly) {
  NginxServer server;
  const std::string content = MakePattern(64 << 20);
  WriteFile(server.RootDir() / "large", content);
  const TempDir folder;
  WriteFile(folder / "a", content.substr(0, 40 << 20));
  ZTransfer transfer;
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url("/large")), WidePath(folder / "a"), true),
              IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(folder / "a", content));
  EXPECT_EQ(transfer.GetContentSize(), content.size());
  EXPECT_LT(transfer.GetTransferSize(), 25u << 20);  // only the rest was moved
  EXPECT_TRUE(server.WaitForAccess("\"GET /large HTTP/1.1\" 206 "));
}

TEST(ZTransferOnNginx, ResumesAtTheEndOfTheRemoteFile) {
  NginxServer server;
  const std::string content = MakePattern(1000);
  WriteFile(server.RootDir() / "a", content);
  WriteFile(server.RootDir() / "empty", "");
  const TempDir folder;
  ZTransfer transfer;
  for (const std::size_t localSize : {999u, 1000u, 1001u, 1031u}) {
    WriteFile(folder / "a", (content + MakePattern(100, 2)).substr(0, localSize));
    EXPECT_THAT(transfer.DownloadFile(Wide(server.Url("/a")), WidePath(folder / "a"), true),
                IsCode(TRANSFER_S_FINISHED))
        << localSize;
    EXPECT_TRUE(FileHolds(folder / "a", content)) << localSize;
  }
  const std::string longer = MakePattern(1032, 2);
  for (const char* url : {"/a", "/empty"}) {
    WriteFile(folder / "a", longer);
    EXPECT_TRUE(IsFailure(transfer.DownloadFile(Wide(server.Url(url)), WidePath(folder / "a"), true))) << url;
    EXPECT_TRUE(FileHolds(folder / "a", longer)) << url;
  }
}

TEST(ZTransferOnNginx, ReportsAMissingFile) {
  NginxServer server;
  const TempDir folder;
  ZTransfer transfer;
  transfer.DetectHttpError(true);
  ZString result;
  EXPECT_THAT(transfer.Download(Wide(server.Url("/missing")), result), IsCode(TRANSFER_E_CONNECT));
  EXPECT_THAT(Narrow(result), HasSubstr("404 Not Found"));
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url("/missing")), WidePath(folder / "a"), false),
              IsCode(TRANSFER_E_CONNECT));
  EXPECT_THAT(ErrorOf(transfer), HasSubstr("/missing\nHTTP/1.1 404 Not Found\r\n"));
  EXPECT_THAT(ErrorOf(transfer), EndsWith("\r\n\r\n"));
  EXPECT_THAT(NamesIn(folder.Path()), IsEmpty());
}

// An HTTPS port with HTTP/2, beside those of the server.
std::string Http2Block(const TlsIdentity& identity, std::uint16_t port) {
  return "server { listen 127.0.0.1:" + std::to_string(port) + " ssl http2; ssl_certificate " +
         identity.certificate.string() + "; ssl_certificate_key " + identity.key.string() +
         "; root root; location = /code { return 503 'later'; } }";  // the root is relative to the server's folder
}

bool Listens(std::uint16_t port) {
  try {
    ConnectToLoopback(port);
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

TEST(ZTransferOnNginx, SpeaksHttp2OverTls) {
  const TempDir pkiFolder;
  const Pki pki = MakePki(pkiFolder.Path());
  const PortReservation port;
  NginxOptions options;
  options.httpLines = Http2Block(pki.server, port.Port());
  NginxServer server(options);
  ASSERT_TRUE(WaitUntil([&] { return Listens(port.Port()); })) << server.Log();
  const std::string url = "https://localhost:" + std::to_string(port.Port());
  const std::string content = MakePattern(1000000);
  WriteFile(server.RootDir() / "a", content);

  const TempDir folder;
  ZTransfer transfer;
  EXPECT_EQ(transfer.SetSSL(true, true, WidePath(pki.caFile), L""), 0u);
  EXPECT_THAT(transfer.DownloadFile(Wide(url + "/a"), WidePath(folder / "a"), false), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(HeaderOf(transfer), StartsWith("HTTP/2 200 \r\n"));
  EXPECT_THAT(HeaderOf(transfer), HasSubstr("\r\ncontent-length: 1000000\r\n"));
  EXPECT_TRUE(FileHolds(folder / "a", content));
  EXPECT_EQ(transfer.GetContentSize(), content.size());

  fs::resize_file(folder / "a", 500000);
  EXPECT_THAT(transfer.DownloadFile(Wide(url + "/a"), WidePath(folder / "a"), true), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(HeaderOf(transfer), StartsWith("HTTP/2 206 \r\n"));
  EXPECT_TRUE(FileHolds(folder / "a", content));

  EXPECT_THAT(transfer.DownloadFile(Wide(url + "/code"), WidePath(folder / "b"), false), IsCode(TRANSFER_E_CONNECT));
  EXPECT_THAT(HeaderOf(transfer), StartsWith("HTTP/2 503 \r\n"));
  EXPECT_TRUE(server.WaitForAccess("\"GET /a HTTP/2.0\" 206 "));
}

}  // namespace
}  // namespace CorvaneTest
