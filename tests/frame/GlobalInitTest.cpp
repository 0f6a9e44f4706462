// The process-wide set-up that the first transfer object makes and the last one undoes, watched through the program's
// own curl_global_init and curl_global_cleanup.

#include <Corvane/Transfer.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/frame/Allocations.h"
#include "tests/frame/CurlGlobals.h"
#include "tests/frame/LineRecorder.h"
#include "tests/support/NextFunction.h"
#include "tests/support/Sockets.h"

namespace CorvaneTest {
namespace {

std::atomic<int> messagesBuilt{0};

}  // namespace
}  // namespace CorvaneTest

namespace Corvane {

// Every log line is built with Arg, so that the calls tell whether one was built.
CORVANE_TEST_REPLACES ZString ZString::Arg(const ZString& value) const {
  ++CorvaneTest::messagesBuilt;
  // A member function takes its object as its first argument.
  return CorvaneTest::NextFunction<ZString(const ZString*, const ZString&)>("_ZNK7Corvane7ZString3ArgERKS0_")(this,
                                                                                                              value);
}

namespace {

using CorvaneTest::CurlGlobals;
using CorvaneTest::LineRecorder;
using CorvaneTest::LogLine;

using Calls = std::vector<std::string>;

constexpr const wchar_t* kInitLine = L"CurlGlobalInit: Curl and SSL global initiatization\n";
constexpr const wchar_t* kCleanupLine = L"CurlGlobalCleanup: Curl and SSL global cleanup";

class GlobalInit : public testing::Test {
 protected:
  GlobalInit() { CurlGlobals::Reset(); }

  // That no call is owed: a transfer object made and destroyed now does the whole cycle.
  static void ExpectUninitialised() {
    CurlGlobals::Reset();
    { const ZTransfer transfer; }
    EXPECT_EQ(CurlGlobals::Calls(), (Calls{"init(3)", "cleanup"}));
  }
};

TEST_F(GlobalInit, ThreeObjectsInitialiseOnceWithAllFlags) {
  const ZTransfer first;
  const ZTransfer second;
  const ZTransfer third;
  EXPECT_EQ(CurlGlobals::Calls(), (Calls{"init(3)"}));
}

TEST_F(GlobalInit, OnlyTheLastDestructionCleansUp) {
  std::optional<ZTransfer> transfers[3];
  for (auto& transfer : transfers) transfer.emplace();
  transfers[1].reset();
  transfers[0].reset();
  EXPECT_EQ(CurlGlobals::Calls(), (Calls{"init(3)"}));
  transfers[2].reset();
  EXPECT_EQ(CurlGlobals::Calls(), (Calls{"init(3)", "cleanup"}));
}

TEST_F(GlobalInit, EachCycleInitialisesAgain) {
  Calls expected;
  for (int cycle = 0; cycle < 20; ++cycle) {
    const ZTransfer transfer;
    expected.insert(expected.end(), {"init(3)", "cleanup"});
  }
  EXPECT_EQ(CurlGlobals::Calls(), expected);
}

TEST_F(GlobalInit, StaysInitialisedWhileObjectsComeAndGo) {
  auto current = std::make_unique<ZTransfer>();
  for (int i = 0; i < 20; ++i) current = std::make_unique<ZTransfer>();
  EXPECT_EQ(CurlGlobals::Calls(), (Calls{"init(3)"}));
}

TEST_F(GlobalInit, SurroundsTheEasyHandle) {
  CurlGlobals::RecordHandles(true);
  { const ZTransfer transfer; }
  EXPECT_EQ(CurlGlobals::Calls(), (Calls{"init(3)", "easy_init", "easy_cleanup", "cleanup"}));
}

// The implementation behind an object holds a buffer of 4 KiB for libcurl's texts; no other block of the library is as
// large.
constexpr std::size_t kLargeBlock = 4096;
std::atomic<void*> implementation{nullptr};

void BlockMade(void* block, std::size_t size) {
  if (size >= kLargeBlock) implementation = block;
}

void BlockFreed(void* block) {
  if (block == implementation) CurlGlobals::Note("impl freed");  // too short to allocate
}

TEST_F(GlobalInit, CleansUpAfterEverythingElseOfTheLastObject) {
  CurlGlobals::RecordHandles(true);
  CorvaneTest::WatchAllocations({BlockMade, BlockFreed});
  { const ZTransfer transfer; }
  CorvaneTest::WatchAllocations({});
  EXPECT_EQ(CurlGlobals::Calls(), (Calls{"init(3)", "easy_init", "easy_cleanup", "impl freed", "cleanup"}));
}

TEST_F(GlobalInit, IsSerialisedAcrossThreads) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([] {
      for (int round = 0; round < 50; ++round) const ZTransfer transfer;
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(CurlGlobals::MostAtOnce(), 1);
  const Calls calls = CurlGlobals::Calls();
  ASSERT_GE(calls.size(), 2u);
  ASSERT_EQ(calls.size() % 2, 0u);
  for (std::size_t i = 0; i < calls.size(); ++i) ASSERT_EQ(calls[i], i % 2 == 0 ? "init(3)" : "cleanup") << i;
}

// --- log lines

TEST_F(GlobalInit, LogsBothLinesOnceForThreeObjects) {
  const LineRecorder recorder;
  {
    const ZTransfer first;
    const ZTransfer second;
    const ZTransfer third;
    EXPECT_EQ(recorder.Messages(), (std::vector<std::wstring>{kInitLine}));
  }
  EXPECT_EQ(recorder.Messages(), (std::vector<std::wstring>{kInitLine, kCleanupLine}));
}

TEST_F(GlobalInit, LogsAtTheInformationLevelWithFileAndLine) {
  const LineRecorder recorder;
  { const ZTransfer transfer; }
  const std::vector<LogLine> lines = recorder.Lines();
  ASSERT_EQ(lines.size(), 2u);
  for (const LogLine& line : lines) {
    EXPECT_EQ(line.level, ZLogLevel::Information);
    EXPECT_EQ(line.file, "Corvane/Transfer");
    EXPECT_GT(line.line, 0);
  }
  EXPECT_LT(lines[0].line, lines[1].line) << "two different places of the source";
}

TEST_F(GlobalInit, LogsEachLineBeforeItActs) {
  LineRecorder recorder;
  recorder.onWrite = [](const LogLine& line) {
    CurlGlobals::Note(line.message == kInitLine ? "init line" : "cleanup line");
  };
  { const ZTransfer transfer; }
  EXPECT_EQ(CurlGlobals::Calls(), (Calls{"init line", "init(3)", "cleanup line", "cleanup"}));
}

TEST_F(GlobalInit, LogsAgainInEachCycle) {
  const LineRecorder recorder;
  for (int cycle = 0; cycle < 3; ++cycle) const ZTransfer transfer;
  EXPECT_EQ(recorder.Messages(),
            (std::vector<std::wstring>{kInitLine, kCleanupLine, kInitLine, kCleanupLine, kInitLine, kCleanupLine}));
}

TEST_F(GlobalInit, BuildsAMessageOnlyWhenItsLevelIsEnabled) {
  LineRecorder recorder;
  CorvaneTest::messagesBuilt = 0;
  { const ZTransfer transfer; }
  EXPECT_EQ(CorvaneTest::messagesBuilt, 2);

  recorder.Forget();
  recorder.EnableUpTo(ZLogLevel::Warning);
  CorvaneTest::messagesBuilt = 0;
  { const ZTransfer transfer; }
  EXPECT_EQ(CorvaneTest::messagesBuilt, 0);
  EXPECT_TRUE(recorder.Lines().empty());
}

// --- failures

TEST_F(GlobalInit, FailureStillMakesTheObjectAndKeepsTheCount) {
  CurlGlobals::FailInit(2);
  {
    const ZTransfer first;
    const ZTransfer second;
    EXPECT_EQ(CurlGlobals::Calls(), (Calls{"init(3)"})) << "the failed call counts like any other";
    EXPECT_EQ(first.GetStatus(), TRANSFER_E_NOT_STARTED);
  }
  EXPECT_EQ(CurlGlobals::Calls(), (Calls{"init(3)", "cleanup"}));
  ExpectUninitialised();
}

// libcurl initialises itself once more for the handle when the explicit call has failed, so that operations go as
// usual.
TEST_F(GlobalInit, FailureLetsOperationsReportTheirOwnOutcome) {
  CurlGlobals::FailInit(2);
  ZTransfer transfer;
  const CorvaneTest::PortReservation nobody;  // bound, but not listening
  ZString page;
  EXPECT_EQ(transfer.Download(ZString("http://127.0.0.1:") + ZString().SetNum(unsigned{nobody.Port()}) + L"/", page),
            0x80010007u);
}

TEST_F(GlobalInit, RefusedHandleFailsEveryOperation) {
  CurlGlobals::FailInit(2);
  CurlGlobals::RefuseHandles();
  ZTransfer transfer;
  EXPECT_EQ(transfer.GetStatus(), TRANSFER_E_NOT_STARTED);
  ZString page;
  EXPECT_EQ(transfer.Download(L"http://127.0.0.1/", page), 0x80011000u);
  EXPECT_EQ(transfer.GetError(), L"System library initialization failure");
  EXPECT_EQ(transfer.PostData(L"http://127.0.0.1/", L"data"), 0x80011000u);
  EXPECT_EQ(transfer.DownloadFile(L"http://127.0.0.1/", L"", false), 0x80011000u);
}

// A logger of the host that fails on chosen lines.
class ThrowingLogger : public LineRecorder {
 public:
  explicit ThrowingLogger(std::vector<std::wstring> refused) {
    onWrite = [refused = std::move(refused)](const LogLine& line) {
      if (std::find(refused.begin(), refused.end(), line.message) != refused.end())
        throw std::runtime_error("log is full");
    };
  }
};

// Calls of libcurl's two functions that are owed: it counts them too, and a host may rely on its own count.
int Balance(const Calls& calls) {
  const auto count = [&](const char* what) { return static_cast<int>(std::count(calls.begin(), calls.end(), what)); };
  return count("init(3)") - count("cleanup");
}

TEST_F(GlobalInit, ExceptionOfTheLoggerLeavesTheConstructorBalanced) {
  const std::vector<std::wstring> refusals[] = {{kInitLine}, {kInitLine, kCleanupLine}};
  for (const std::vector<std::wstring>& refused : refusals) {
    CurlGlobals::Reset();
    {
      const ThrowingLogger logger(refused);
      EXPECT_THROW(ZTransfer(), std::runtime_error);
      EXPECT_THROW(ZTransfer(), std::runtime_error) << "the failed one must not count as the first";
    }
    EXPECT_EQ(Balance(CurlGlobals::Calls()), 0);
    ExpectUninitialised();
  }
}

TEST_F(GlobalInit, FailedAllocationLeavesTheConstructorBalanced) {
  int failures = 0;
  for (bool made = false; !made;) {
    CurlGlobals::Reset();
    const std::size_t before = CorvaneTest::LiveAllocations();
    std::size_t after = before;
    try {
      const CorvaneTest::FailingAllocations failing(static_cast<std::size_t>(failures));
      const ZTransfer transfer;
      made = true;
    } catch (const std::bad_alloc&) {
      ++failures;
      after = CorvaneTest::LiveAllocations();
    }
    // The global mutex and the throttle, once made, stay.
    ASSERT_LE(after, before + 2) << "after failure " << failures;
    ASSERT_EQ(Balance(CurlGlobals::Calls()), 0) << "after failure " << failures;
    ASSERT_LT(failures, 1000);
  }
  EXPECT_GT(failures, 2);
  ExpectUninitialised();
}

TEST_F(GlobalInit, ExceptionOfTheLoggerNeitherEscapesTheDestructorNorSkipsTheCleanup) {
  {
    const ThrowingLogger logger({kCleanupLine});
    EXPECT_NO_THROW({ const ZTransfer transfer; });
    EXPECT_EQ(logger.Messages(), (std::vector<std::wstring>{kInitLine, kCleanupLine}));
  }
  EXPECT_EQ(CurlGlobals::Calls(), (Calls{"init(3)", "cleanup"}));
  ExpectUninitialised();
}

TEST_F(GlobalInit, ExceptionOfTheLoggerReleasesTheGlobalMutex) {
  {
    const ThrowingLogger logger({kInitLine, kCleanupLine});
    EXPECT_THROW(ZTransfer(), std::runtime_error);
  }
  std::thread([] { const ZTransfer transfer; }).join();  // would wait for ever
  ExpectUninitialised();
}

}  // namespace
}  // namespace Corvane
