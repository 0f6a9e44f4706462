#include <gmock/gmock.h>

#include <filesystem>
#include <memory>
#include <string>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/Daemons.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::HasSubstr;
using testing::Not;

namespace fs = std::filesystem;

enum class FtpDaemon { kVsftpd, kPyftpdlib };

std::unique_ptr<Daemon> StartFtpDaemon(FtpDaemon kind) {
  if (kind == FtpDaemon::kVsftpd) return std::make_unique<VsftpdServer>();
  return std::make_unique<PyftpdServer>();
}

class ZTransferOnFtp : public testing::TestWithParam<FtpDaemon> {
 protected:
  std::string Url(const std::string& path) const { return m_server->Url(path); }
  fs::path Root() const { return m_server->RootDir(); }

  std::unique_ptr<Daemon> m_server = StartFtpDaemon(GetParam());
  TempDir m_folder;
  ZTransfer m_transfer;
};

TEST_P(ZTransferOnFtp, DownloadsAText) {
  WriteFile(Root() / "pub" / "a b.txt",
            "Gr\xC3\xBC\xC3\x9F"
            "e\n");
  RecordingObserver observer;
  m_transfer.Attach(&observer);
  m_transfer.DetectHttpError(true);  // there is no status to check
  ZString result;
  EXPECT_THAT(m_transfer.Download(Wide(Url("/pub/a%20b.txt")), result), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(Narrow(result),
            "Gr\xC3\xBC\xC3\x9F"
            "e\n");
  EXPECT_EQ(HeaderOf(m_transfer), "");
  EXPECT_EQ(m_transfer.GetContentSize(), 8u);
  EXPECT_EQ(m_transfer.GetDownloadSize(), 8u);
  EXPECT_THAT(observer.Events(), testing::ElementsAre(RecordingObserver::Event(1, TRANSFER_E_IN_PROGRESS)));
}

TEST_P(ZTransferOnFtp, DownloadsALargeFileExactly) {
  const std::string content = MakePattern(10000000);
  WriteFile(Root() / "large", content);
  EXPECT_THAT(m_transfer.DownloadFile(Wide(Url("/large")), WidePath(m_folder / "new" / "a"), false),
              IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(m_folder / "new" / "a", content));
  EXPECT_EQ(m_transfer.GetContentSize(), content.size());
  EXPECT_TRUE(m_server->WaitForAccess("/large")) << m_server->Log();
}

TEST_P(ZTransferOnFtp, ResumesAFile) {
  const std::string content = MakePattern(100000);
  WriteFile(Root() / "a", content);
  for (const std::size_t localSize : {64u, 65u, 50000u, 99999u, 100000u, 100031u, 100032u}) {
    WriteFile(m_folder / "a", (content + MakePattern(100, 2)).substr(0, localSize));
    EXPECT_THAT(m_transfer.DownloadFile(Wide(Url("/a")), WidePath(m_folder / "a"), true), IsCode(TRANSFER_S_FINISHED))
        << localSize;
    EXPECT_TRUE(FileHolds(m_folder / "a", content)) << localSize;
  }
}

TEST_P(ZTransferOnFtp, ResumesOnlyTheRest) {
  const std::string content = MakePattern(100000);
  WriteFile(Root() / "a", content);
  const std::string old = MakePattern(50000, 2);
  WriteFile(m_folder / "a", old);
  EXPECT_THAT(m_transfer.DownloadFile(Wide(Url("/a")), WidePath(m_folder / "a"), true), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(m_folder / "a", old.substr(0, 49968) + content.substr(49968)));
}

TEST_P(ZTransferOnFtp, BehindTheEndOfTheRemoteFileKeepsTheLocalOne) {
  WriteFile(Root() / "a", MakePattern(1000));
  const std::string old = MakePattern(2000, 2);
  WriteFile(m_folder / "a", old);
  EXPECT_THAT(m_transfer.DownloadFile(Wide(Url("/a")), WidePath(m_folder / "a"), true),
              IsCode(CurlFailure(kBadResume)));
  EXPECT_TRUE(FileHolds(m_folder / "a", old));
}

TEST_P(ZTransferOnFtp, ReportsAMissingFile) {
  ZString result;
  EXPECT_THAT(m_transfer.Download(Wide(Url("/missing")), result), IsCode(CurlFailure(kRemoteFileNotFound)));
  EXPECT_EQ(Narrow(result), "");
  // Nobody can tell whether there will be a file one day, so what was opened stays, as an empty file.
  EXPECT_THAT(m_transfer.DownloadFile(Wide(Url("/missing")), WidePath(m_folder / "a"), false),
              IsCode(CurlFailure(kRemoteFileNotFound)));
  EXPECT_TRUE(FileHolds(m_folder / "a", ""));
  EXPECT_THAT(CauseOf(m_transfer), IsCode(CurlFailure(kRemoteFileNotFound)));
}

TEST_P(ZTransferOnFtp, ReportsAWrongPassword) {
  EXPECT_EQ(m_transfer.SetCredentials(L"nobody-of-this-name", L"secret"), 0u);
  ZString result;
  EXPECT_THAT(m_transfer.Download(Wide(Url("/")), result), IsCode(CurlFailure(kLoginDenied)));
  EXPECT_THAT(ErrorOf(m_transfer), Not(HasSubstr("secret")));
}

TEST_P(ZTransferOnFtp, ListsAFolder) {
  WriteFile(Root() / "pub" / "a.bin", MakePattern(1234));
  fs::create_directory(Root() / "pub" / "folder");
  ZString listing;  // in text mode, so that libcurl turns CR LF into LF
  EXPECT_THAT(m_transfer.Download(Wide(Url("/pub/")), listing), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(Narrow(listing), HasSubstr(" a.bin\n"));
  EXPECT_THAT(Narrow(listing), HasSubstr(" 1234 "));
  EXPECT_THAT(Narrow(listing), HasSubstr(" folder\n"));
}

// The remote file is so large that the transfer takes longer than any test.
TEST_P(ZTransferOnFtp, EndsOnAnAbort) {
  WriteFile(Root() / "huge", "");
  fs::resize_file(Root() / "huge", 1ULL << 40);
  RecordingObserver observer;
  m_transfer.Attach(&observer);
  RunningOperation download(m_transfer,
                            [&] { return m_transfer.DownloadFile(Wide(Url("/huge")), L"/dev/null", false); });
  ASSERT_TRUE(observer.FirstEvent().Wait());
  EXPECT_EQ(m_transfer.GetContentSize(), 1ULL << 40);
  m_transfer.Abort();
  const auto code = download.Result(After(kAbortLimit));
  ASSERT_TRUE(code) << "the operation runs on";
  EXPECT_THAT(*code, IsCode(TRANSFER_E_ABORTED));
  EXPECT_EQ(ErrorOf(m_transfer), "Download aborted by user");
}

INSTANTIATE_TEST_SUITE_P(Daemons, ZTransferOnFtp, testing::Values(FtpDaemon::kVsftpd, FtpDaemon::kPyftpdlib),
                         [](const auto& daemon) {
                           return daemon.param == FtpDaemon::kVsftpd ? "Vsftpd" : "Pyftpdlib";
                         });

// --- accounts

class ZTransferFtpAccount : public testing::Test {
 protected:
  ZTransferFtpAccount() { WriteFile(m_server.RootDir() / "a", MakePattern(1000)); }

  static PyftpdOptions Options() {
    PyftpdOptions options;
    options.anonymous = false;
    options.user = "user name";
    options.password = "p:ss w\xC3\xB6rd@";
    return options;
  }

  PyftpdServer m_server{Options()};
  TempDir m_folder;
  ZTransfer m_transfer;
};

TEST_F(ZTransferFtpAccount, GetsInWithItsPassword) {
  RecordingLogger logger;
  EXPECT_EQ(m_transfer.SetCredentials(L"user name", Wide("p:ss w\xC3\xB6rd@")), 0u);
  EXPECT_THAT(m_transfer.DownloadFile(Wide(m_server.Url("/a")), WidePath(m_folder / "a"), false),
              IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(m_folder / "a", MakePattern(1000)));
  EXPECT_THAT(logger.Messages(ZLogLevel::Information),
              testing::Contains("Transfer: Setting curl Authentication set to \"user name:*\""));
  EXPECT_THAT(logger.Messages(), Not(testing::Contains(HasSubstr("p:ss"))));
}

TEST_F(ZTransferFtpAccount, IsDeniedOtherwise) {
  ZString result;
  EXPECT_THAT(m_transfer.Download(Wide(m_server.Url("/a")), result), IsCode(CurlFailure(kLoginDenied)));  // anonymous
  EXPECT_EQ(m_transfer.SetCredentials(L"user name", L"p:ss word@"), 0u);
  EXPECT_THAT(m_transfer.Download(Wide(m_server.Url("/a")), result), IsCode(CurlFailure(kLoginDenied)));
  EXPECT_EQ(m_transfer.SetCredentials(L"user name", Wide("p:ss w\xC3\xB6rd@")), 0u);
  EXPECT_THAT(m_transfer.Download(Wide(m_server.Url("/a")), result), IsCode(TRANSFER_S_FINISHED));
}

}  // namespace
}  // namespace CorvaneTest
