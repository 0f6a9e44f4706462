#include <gmock/gmock.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"

// Other threads look at an object while operations begin and end on it. ThreadSanitizer is the real judge here; without
// it these tests check that every value seen is one that there can be.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::AnyOf;
using testing::HasSubstr;

// Keeps reading everything that an object tells, on a thread of its own.
class Watcher {
 public:
  explicit Watcher(ZTransfer& transfer) : m_transfer(transfer), m_thread([this] { Run(); }) {}
  ~Watcher() {
    m_done = true;
    m_thread.join();
  }
  Watcher(const Watcher&) = delete;
  Watcher& operator=(const Watcher&) = delete;

  unsigned long Rounds() const { return m_rounds; }

 private:
  void Run() {
    for (; !m_done; ++m_rounds) {
      LookAtTexts();
      LookAtNumbers();
    }
  }

  void LookAtTexts() {
    // The reference stays good while the text behind it is replaced by another.
    const ZString& error = m_transfer.GetError();
    const std::string before = Narrow(error);
    // For a moment it is what libcurl left, which may be nothing.
    EXPECT_THAT(before, AnyOf("", "Download not started yet", "Transfer has finished successfully",
                              "Download aborted by user", HasSubstr("Failed to "), HasSubstr("end of response"),
                              HasSubstr("transfer closed"), HasSubstr("Empty reply")));
    ZString header, cause;
    if (m_transfer.GetHeader(header) == BASE_S_OK && !header.IsEmpty()) {
      EXPECT_EQ(Narrow(header).substr(0, 9), "HTTP/1.1 ");
    }
    m_transfer.GetCause(cause);
    EXPECT_EQ(Narrow(error), before);
  }

  void LookAtNumbers() {
    EXPECT_THAT(m_transfer.GetStatus(),
                AnyOf(IsCode(TRANSFER_E_NOT_STARTED), IsCode(TRANSFER_S_FINISHED), IsCode(TRANSFER_E_ABORTED),
                      IsCode(TRANSFER_E_CONNECT), IsCode(TRANSFER_E_DOWNLOAD), IsCode(CurlFailure(kPartialFile))));
    const unsigned long long contentSize = m_transfer.GetContentSize();
    EXPECT_TRUE(contentSize == kUnknownSize || contentSize <= 200000) << contentSize;
    EXPECT_LE(m_transfer.GetDownloadSize(), 200000u);
    EXPECT_LE(m_transfer.GetTransferSize(), 300000u);
    static_cast<void>(m_transfer.GetTransferRate());  // may be anything
    EXPECT_GE(m_transfer.GetTransferTime(), 0);
    const long long start = m_transfer.GetTransferStartTime().GetMicroSecondsSinceEpoch();
    EXPECT_GE(start, m_lastStart);
    m_lastStart = start;
    m_transfer.Wait(0);
    m_transfer.SetTimeout(300);
  }

  ZTransfer& m_transfer;
  long long m_lastStart = 0;
  std::atomic<bool> m_done{false};
  std::atomic<unsigned long> m_rounds{0};
  std::thread m_thread;
};

class ZTransferWatched : public testing::Test {
 protected:
  static ContentOptions Cut() {
    ContentOptions options;
    options.stopAfter = 50000;
    return options;
  }

  // Operations of every kind and outcome, each on a resource that exists only here.
  void RunOperations(ZTransfer& transfer, const TempDir& folder) {
    ZString result;
    const ZString file = WidePath(folder / "a");
    EXPECT_THAT(transfer.Download(Wide(m_server.Url("/text")), result), IsCode(TRANSFER_S_FINISHED));
    EXPECT_THAT(transfer.Download(Wide(m_server.Url("/cut")), result), IsCode(CurlFailure(kPartialFile)));
    EXPECT_THAT(transfer.DownloadFile(Wide(m_server.Url("/text")), file, false), IsCode(TRANSFER_S_FINISHED));
    EXPECT_THAT(transfer.DownloadFile(Wide(m_server.Url("/text")), file, true), IsCode(TRANSFER_S_FINISHED));
    EXPECT_THAT(transfer.DownloadFile(Wide(m_server.Url("/missing")), file, false), IsCode(TRANSFER_E_CONNECT));
    EXPECT_THAT(transfer.DownloadFile(Wide(m_server.Url("/text")), L"", false), IsCode(TRANSFER_E_DOWNLOAD));
    EXPECT_THAT(transfer.PostData(Wide(m_server.Url("/text")), L"data", result), IsCode(TRANSFER_S_FINISHED));
  }

  ScriptedServer m_server{
      KeepAlive(Routes({{"/text", Content(MakePattern(100000))}, {"/cut", Content(MakePattern(100000), Cut())}}))};
};

TEST_F(ZTransferWatched, TellsOnlyWhatThereCanBe) {
  const TempDir folder;
  ZTransfer transfer;
  RecordingObserver observer;
  transfer.Attach(&observer);
  const Watcher first(transfer), second(transfer);
  for (int i = 0; i < 40; ++i) RunOperations(transfer, folder);
  EXPECT_GT(first.Rounds(), 0u);
  EXPECT_GT(second.Rounds(), 0u);
}

TEST_F(ZTransferWatched, MayBeResetInBetween) {
  const TempDir folder;
  ZTransfer transfer;
  const Watcher watcher(transfer);
  for (int i = 0; i < 20; ++i) {
    RunOperations(transfer, folder);
    EXPECT_THAT(transfer.Reset(), IsCode(BASE_S_OK));
    EXPECT_THAT(transfer.GetStatus(), IsCode(TRANSFER_E_NOT_STARTED));
  }
}

// Threads that get in each other's way are told so; nobody's operation is disturbed.
TEST_F(ZTransferWatched, LetsOnlyOneOperationRun) {
  const std::string url = m_server.Url("/text");
  const std::string content = MakePattern(100000);
  ZTransfer transfer;
  const Watcher watcher(transfer);
  std::atomic<int> successes{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 30; ++round) {
        ZString result(L"untouched");
        const ZResult code = transfer.Download(Wide(url), result);
        EXPECT_THAT(code, AnyOf(IsCode(TRANSFER_S_FINISHED), IsCode(BASE_E_IN_USE)));
        EXPECT_EQ(result, code == BASE_E_IN_USE ? ZString(L"untouched") : Wide(content));
        if (code == TRANSFER_S_FINISHED) ++successes;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_GT(successes, 0);
}

// Each thread's reference stays its own, also when other threads ask and the text changes.
TEST_F(ZTransferWatched, KeepsTheErrorTextOfEachThread) {
  ZTransfer transfer;
  const ZString& mine = transfer.GetError();
  ASSERT_EQ(Narrow(mine), "Download not started yet");
  std::thread([&] {
    ZString result;
    transfer.Download(Wide(m_server.Url("/text")), result);
    EXPECT_EQ(ErrorOf(transfer), "Transfer has finished successfully");
  }).join();
  EXPECT_EQ(Narrow(mine), "Download not started yet");
  EXPECT_EQ(&transfer.GetError(), &mine);
  EXPECT_EQ(Narrow(mine), "Transfer has finished successfully");
}

TEST_F(ZTransferWatched, ManyObjectsRunOnManyThreads) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      const TempDir folder;
      for (int round = 0; round < 3; ++round) {
        ZTransfer transfer;  // the process-wide state is set up and torn down meanwhile
        const Watcher watcher(transfer);
        RunOperations(transfer, folder);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace CorvaneTest
