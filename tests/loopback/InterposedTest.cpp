#include <curl/curl.h>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"

// What happens when calls fail that never fail on a test machine: closing and truncating a file, getting a handle from
// libcurl. This program has functions of these names, which the libraries call in place of the real ones.
namespace {

std::atomic<ino_t> g_failingClose{0};     // the inode of the file whose closing fails
std::atomic<ino_t> g_failingTruncate{0};  // the inode of the file whose truncating fails
std::atomic<bool> g_failHandles{false};
constexpr int kCloseError = EIO;  // as a network file system reports a write that it had only promised
constexpr int kTruncateError = EDQUOT;

template <class Function>
Function* RealFunction(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

ino_t InodeOf(int descriptor) {
  struct stat status {};
  return fstat(descriptor, &status) == 0 ? status.st_ino : 0;
}

}  // namespace

#define CORVANE_INTERPOSE extern "C" __attribute__((visibility("default")))

CORVANE_INTERPOSE int fclose(FILE* file) {
  const ino_t failing = g_failingClose;
  const bool fails = failing != 0 && InodeOf(fileno(file)) == failing;
  const int result = RealFunction<int(FILE*)>("fclose")(file);
  if (!fails) return result;
  errno = kCloseError;
  return EOF;
}

CORVANE_INTERPOSE int ftruncate(int descriptor, off_t length) noexcept {
  if (g_failingTruncate != 0 && InodeOf(descriptor) == g_failingTruncate) {
    errno = kTruncateError;
    return -1;
  }
  return RealFunction<int(int, off_t)>("ftruncate")(descriptor, length);
}

CORVANE_INTERPOSE CURL* curl_easy_init() { return g_failHandles ? nullptr : RealFunction<CURL*()>("curl_easy_init")(); }

namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::ElementsAre;
using testing::IsEmpty;

namespace fs = std::filesystem;

ino_t InodeOfFile(const fs::path& file) {
  struct stat status {};
  return stat(file.c_str(), &status) == 0 ? status.st_ino : 0;
}

// While it lives, closing the file (or a file opened over it) fails.
class FailingClose {
 public:
  explicit FailingClose(const fs::path& file) { g_failingClose = InodeOfFile(file); }
  ~FailingClose() { g_failingClose = 0; }
  FailingClose(const FailingClose&) = delete;
  FailingClose& operator=(const FailingClose&) = delete;
};

const std::string kCloseFailed = "Download failed: " + MessageOf(ResultFromErrno(kCloseError));

TEST(ZTransferFailingClose, IsNoSuccessOfAFreshDownload) {
  ScriptedServer server(KeepAlive(Status(200, "content")));
  const TempDir folder;
  WriteFile(folder / "a", "");
  const FailingClose failing(folder / "a");
  ZTransfer transfer;
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(folder / "a"), false), IsCode(TRANSFER_E_DOWNLOAD));
  EXPECT_THAT(transfer.GetStatus(), IsCode(TRANSFER_E_DOWNLOAD));
  EXPECT_EQ(ErrorOf(transfer), kCloseFailed);
}

TEST(ZTransferFailingClose, IsNoSuccessOfAResume) {
  const std::string content = MakePattern(1000);
  ScriptedServer server(KeepAlive(Content(content)));
  const TempDir folder;
  WriteFile(folder / "a", content.substr(0, 500));
  ZTransfer transfer;
  {
    const FailingClose failing(folder / "a");
    EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(folder / "a"), true), IsCode(TRANSFER_E_DOWNLOAD));
    EXPECT_EQ(ErrorOf(transfer), kCloseFailed);
  }
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(folder / "a"), true), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(folder / "a", content));
}

TEST(ZTransferFailingClose, DoesNotHideWhyTheTransferFailed) {
  ContentOptions options;
  options.stopAfter = 5;
  ScriptedServer server(OncePerConnection(Routes({{"/cut", Content("content", options)}})));
  const TempDir folder;
  ZTransfer transfer;
  WriteFile(folder / "a", "");
  {
    const FailingClose failing(folder / "a");
    EXPECT_THAT(transfer.DownloadFile(Wide(server.Url("/cut")), WidePath(folder / "a"), false),
                IsCode(CurlFailure(kPartialFile)));
    EXPECT_THAT(transfer.DownloadFile(Wide(server.Url("/missing")), WidePath(folder / "a"), false),
                IsCode(TRANSFER_E_CONNECT));
  }
  EXPECT_THAT(NamesIn(folder.Path()), IsEmpty());
}

TEST(ZTransferFailingClose, IsNoSuccessOfAPostWhoseAnswerIsWritten) {
  ScriptedServer server(KeepAlive(Status(200, "the answer")));
  const TempDir folder;
  WriteFile(folder / "input", "data");
  WriteFile(folder / "answer", "");
  const FailingClose failing(folder / "answer");
  ZTransfer transfer;
  EXPECT_THAT(transfer.PostFile(Wide(server.Url()), WidePath(folder / "input"), WidePath(folder / "answer")),
              IsCode(TRANSFER_E_DOWNLOAD));
  EXPECT_EQ(ErrorOf(transfer), kCloseFailed);
}

TEST(ZTransferFailingTruncate, OfAStaleTailIsNoSuccess) {
  const std::string content = MakePattern(1000);
  ScriptedServer server(KeepAlive(Content(content)));
  const TempDir folder;
  WriteFile(folder / "a", content + "tail");
  ZTransfer transfer;
  g_failingTruncate = InodeOfFile(folder / "a");
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(folder / "a"), true), IsCode(TRANSFER_E_DOWNLOAD));
  g_failingTruncate = 0;
  EXPECT_EQ(ErrorOf(transfer), "Download failed: " + MessageOf(ResultFromErrno(kTruncateError)));
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(folder / "a"), true), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(folder / "a", content));
}

// --- no handle

class ZTransferWithoutHandle : public testing::Test {
 protected:
  ZTransferWithoutHandle() {
    g_failHandles = true;
    m_transfer.emplace();
    g_failHandles = false;
  }

  void ExpectSystemInit(ZResult code) {
    EXPECT_THAT(code, IsCode(TRANSFER_E_SYSTEM_INIT));
    EXPECT_THAT(m_transfer->GetStatus(), IsCode(TRANSFER_E_SYSTEM_INIT));
    EXPECT_EQ(ErrorOf(*m_transfer), "System library initialization failure");
    EXPECT_THAT(CauseOf(*m_transfer), IsCode(TRANSFER_E_NOT_STARTED));
    EXPECT_TRUE(m_transfer->Wait(0));
  }

  std::optional<ZTransfer> m_transfer;
};

TEST_F(ZTransferWithoutHandle, FailsEveryOperation) {
  const TempDir folder;
  WriteFile(folder / "input", "data");
  const ZString url(L"http://127.0.0.1:1/");
  const ZString input = WidePath(folder / "input");
  ZString result;
  EXPECT_THAT(m_transfer->GetStatus(), IsCode(TRANSFER_E_NOT_STARTED));
  ExpectSystemInit(m_transfer->Download(url, result));
  ExpectSystemInit(m_transfer->DownloadFile(url, WidePath(folder / "new" / "a"), false));
  ExpectSystemInit(m_transfer->DownloadFile(url, input, false));
  ExpectSystemInit(m_transfer->Post(url, L"a", L"1"));
  ExpectSystemInit(m_transfer->PostData(url, L"data", result));
  ExpectSystemInit(m_transfer->PostFile(url, input, WidePath(folder / "answer")));
  EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("input"));
  EXPECT_TRUE(FileHolds(folder / "input", "data"));
}

TEST_F(ZTransferWithoutHandle, TellsAfterAnAbortThatLibcurlRefused) {
  RecordingLogger logger;
  EXPECT_THAT(m_transfer->Abort(), IsCode(BASE_S_OK));
  EXPECT_THAT(m_transfer->GetStatus(), IsCode(CurlFailure(kBadArgument)));
  EXPECT_EQ(ErrorOf(*m_transfer), "Download failed");
  EXPECT_THAT(logger.Messages(ZLogLevel::Error), ElementsAre("Abort: CURL failure 43 on option 13..."));
  EXPECT_THAT(m_transfer->Reset(), IsCode(BASE_S_OK));
  EXPECT_THAT(m_transfer->GetStatus(), IsCode(TRANSFER_E_NOT_STARTED));
}

}  // namespace
}  // namespace CorvaneTest
