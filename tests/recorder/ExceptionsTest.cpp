// Exceptions of the host's code, and memory that runs out.

#include <atomic>
#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/recorder/Allocations.h"
#include "tests/recorder/Scenarios.h"
#include "tests/recorder/TransferTest.h"

namespace CorvaneTest {
namespace {

struct NoStandardException {
  int number;
};

// What escapes from `action`: "runtime_error x", "int 5", "other 7", "bad_alloc", or "nothing".
std::string EscapesFrom(const std::function<void()>& action) {
  try {
    action();
  } catch (const std::runtime_error& error) {
    return std::string("runtime_error ") + error.what();
  } catch (const std::bad_alloc&) {
    return "bad_alloc";
  } catch (int number) {
    return "int " + std::to_string(number);
  } catch (const NoStandardException& other) {
    return "other " + std::to_string(other.number);
  }
  return "nothing";
}

struct Throw {
  std::string name;
  std::function<void()> action;
};
const std::vector<Throw>& Throws() {
  static const std::vector<Throw> all = {{"runtime_error oops", [] { throw std::runtime_error("oops"); }},
                                         {"int 5", [] { throw 5; }},
                                         {"other 7", [] { throw NoStandardException{7}; }}};
  return all;
}

struct Operation {
  std::string name;
  std::function<void(ZTransfer&)> run;
};

class AThrowingHost : public TransferTest {
 protected:
  AThrowingHost() {
    WriteFile(folder / "in", "posted");
    WriteFile(folder / "old", MakePattern(100));
    curl.Respond(206, {.headers = {"HTTP/1.1 206 Partial Content\r\n", "Content-Range: bytes 68-71/72\r\n"},
                       .blocks = {"page"}});
  }
  ~AThrowingHost() override { ZTransfer::SetThrottling(0, 0, false); }

  std::vector<Operation> Operations() {
    return {{"Download", [&](ZTransfer& t) { t.Download(L"http://h/", result); }},
            {"DownloadFile", [&](ZTransfer& t) { t.DownloadFile(L"http://h/", Path("out"), false); }},
            {"DownloadFile with resume", [&](ZTransfer& t) { t.DownloadFile(L"http://h/", Path("old"), true); }},
            {"Post", [&](ZTransfer& t) { t.Post(L"http://h/", L"a", L"b", result); }},
            {"PostData", [&](ZTransfer& t) { t.PostData(L"http://h/", L"x", result); }},
            {"PostFile", [&](ZTransfer& t) { t.PostFile(L"http://h/", Path("in"), Path("out")); }}};
  }

  // The object is idle, nothing is left open, and it serves the next operation, also on another thread.
  void ExpectFit(ZTransfer& transfer, const std::string& name) {
    EXPECT_TRUE(transfer.Wait(0)) << name;
    for (const char* file : {"in", "out", "old"}) EXPECT_FALSE(IsOpen(folder / file)) << name << ", " << file;
    std::thread([&] {
      ZString next;
      EXPECT_EQ(transfer.Download(L"http://h/", next), kFinished) << name;
      EXPECT_EQ(next, ZString(L"page")) << name;
    }).join();
  }

  ZString result;
};

TEST_F(AThrowingHost, ReachesTheCallerOfTheOperationFromAnObserver) {
  for (const Throw& thrown : Throws()) {
    for (const Operation& operation : Operations()) {
      SCOPED_TRACE(operation.name + ", " + thrown.name);
      ZTransfer transfer;
      RecordingObserver observer(thrown.action);
      transfer.Attach(&observer);
      EXPECT_EQ(EscapesFrom([&] { operation.run(transfer); }), thrown.name);
      EXPECT_EQ(transfer.GetStatus(), kCurl | CURLE_WRITE_ERROR);
      EXPECT_EQ(transfer.GetDownloadSize() % 68, 0u) << "the block is not stored";
      observer.onUpdate = nullptr;
      ExpectFit(transfer, operation.name);
    }
  }
}

// The same through libcurl itself, whose frames must not be unwound.
TEST_F(AThrowingHost, ReachesTheCallerThroughLibcurl) {
  curl.perform = nullptr;
  curl.info.clear();
  const ZString url = L"file://" + Path("in");
  for (const Throw& thrown : Throws()) {
    ZTransfer transfer;
    RecordingObserver observer(thrown.action);
    transfer.Attach(&observer);
    EXPECT_EQ(EscapesFrom([&] { transfer.Download(url, result); }), thrown.name);
    EXPECT_EQ(transfer.GetStatus(), kCurl | CURLE_WRITE_ERROR);
    EXPECT_EQ(EscapesFrom([&] { transfer.DownloadFile(url, Path("out"), false); }), thrown.name);
    EXPECT_FALSE(IsOpen(folder / "out"));
    EXPECT_TRUE(transfer.Wait(0));
    observer.onUpdate = nullptr;
    EXPECT_EQ(transfer.Download(url, result), kFinished);
    EXPECT_EQ(result, ZString(L"posted"));
  }
}

TEST_F(AThrowingHost, ThatAbortsInAnObserverStillGetsItsException) {
  ZTransfer transfer;
  RecordingObserver observer([&] {
    transfer.Abort();
    throw 5;
  });
  transfer.Attach(&observer);
  EXPECT_EQ(EscapesFrom([&] { transfer.Download(L"http://h/", result); }), "int 5");
  EXPECT_EQ(transfer.GetStatus(), Corvane::TRANSFER_E_ABORTED);
  observer.onUpdate = nullptr;
  ExpectFit(transfer, "abort");
}

TEST_F(AThrowingHost, WhoseMemoryRanOutFailsTheTransferInstead) {
  ZTransfer transfer;
  RecordingObserver observer([] { throw std::bad_alloc(); });
  transfer.Attach(&observer);
  EXPECT_EQ(transfer.Download(L"http://h/", result), kCurl | CURLE_WRITE_ERROR);
  observer.onUpdate = nullptr;
  ExpectFit(transfer, "bad_alloc");
}

TEST_F(AThrowingHost, StopsTheOtherObserversAndIsCalledAgainNextTime) {
  ZTransfer transfer;
  RecordingObserver first([] { throw 5; });
  RecordingObserver second;
  transfer.Attach(&first);
  transfer.Attach(&second);
  EXPECT_EQ(EscapesFrom([&] { transfer.Download(L"http://h/", result); }), "int 5");
  EXPECT_THAT(second.events, IsEmpty());
  EXPECT_EQ(EscapesFrom([&] { transfer.Notify(2, 3); }), "int 5") << "the caller of Notify gets it as well";
}

TEST_F(AThrowingHost, ReachesTheCallerFromEveryLineOfTheLog) {
  for (const Scenario& scenario : AllScenarios(folder)) {
    bool wrote = true;
    for (int line = 0; wrote; ++line) {  // throws at the line of that number
      SCOPED_TRACE(scenario.name + ", line " + std::to_string(line));
      ZTransfer transfer;
      if (scenario.configure) scenario.configure(transfer);
      if (scenario.prepare) scenario.prepare();
      curl.Respond(200, scenario.answer);
      int left = line;
      wrote = false;
      logger.onWrite = [&] {
        if (left-- != 0) return;
        wrote = true;
        throw std::runtime_error("log");
      };
      const std::string escaped = EscapesFrom([&] { scenario.run(transfer, result); });
      logger.onWrite = nullptr;
      EXPECT_EQ(escaped, wrote ? "runtime_error log" : "nothing");
      curl.Respond(200, {.blocks = {"page"}});
      ExpectFit(transfer, scenario.name);
    }
  }
}

TEST_F(AThrowingHost, ReachesTheCallerFromTheLineOfARefusedOption) {
  for (const Operation& operation : Operations()) {
    ZTransfer transfer;
    curl.onOption = [](const OptionCall&) { return CURLE_UNKNOWN_OPTION; };
    logger.onWrite = [] { throw 5; };
    EXPECT_EQ(EscapesFrom([&] { operation.run(transfer); }), "int 5") << operation.name;
    EXPECT_EQ(EscapesFrom([&] { transfer.Abort(); }), "int 5") << operation.name;
    curl.onOption = nullptr;
    logger.onWrite = nullptr;
    ExpectFit(transfer, operation.name);
  }
}

TEST_F(AThrowingHost, ReachesTheCallerFromTheThrottleAndLeavesItUnlocked) {
  for (const Operation& operation : Operations()) {
    ZTransfer transfer;
    ZTransfer::SetThrottling(1000000000, 1, false);  // its first line comes with the first block
    logger.onWrite = [&] {
      if (logger.Lines().back().find("Measure period not needed") != std::string::npos) throw 5;
    };
    EXPECT_EQ(EscapesFrom([&] { operation.run(transfer); }), "int 5") << operation.name;
    logger.onWrite = nullptr;
    ExpectFit(transfer, operation.name);
  }
}

// libcurl goes on when the callback returns what it was given, so that "nothing" does not stop it at an empty block.
TEST_F(AThrowingHost, StopsTheTransferAtAnEmptyBlockToo) {
  ZTransfer transfer;
  ZTransfer::SetThrottling(1000000000, 1, false);
  logger.onWrite = [] { throw 5; };
  curl.perform = [](const EasyHandle& handle) {
    EXPECT_NE(handle.Write(""), 0u);
    return CURLE_WRITE_ERROR;
  };
  EXPECT_EQ(EscapesFrom([&] { transfer.Download(L"http://h/", result); }), "int 5");
}

TEST_F(AThrowingHost, LeavesTheProcessWideSetUpInOrderWhenAnObjectCannotBeMade) {
  curl.Clear();
  logger.onWrite = [] { throw 5; };
  EXPECT_EQ(EscapesFrom([] { const ZTransfer transfer; }), "int 5");
  logger.onWrite = nullptr;
  curl.Clear();
  { const ZTransfer transfer; }
  EXPECT_EQ(curl.Count("global_init 3"), 1u);
  EXPECT_EQ(curl.Count("global_cleanup"), 1u) << "it is not counted any more";
}

TEST_F(AThrowingHost, DoesNotDisturbTheEndOfAnObject) {
  {
    const ZTransfer transfer;
    curl.onOption = [](const OptionCall&) { return CURLE_UNKNOWN_OPTION; };
    logger.onWrite = [] { throw 5; };
    curl.Clear();
  }
  logger.onWrite = nullptr;
  curl.onOption = nullptr;
  EXPECT_EQ(curl.Count("cleanup"), 1u);
  EXPECT_EQ(curl.Count("global_cleanup"), 1u);
}

// --- Memory. ---

class MemoryThatRunsOut : public AThrowingHost {
 protected:
  // Sends the answer with `spared` allocations inside the callbacks that succeed, and then `count` that fail.
  // Returns whether one failed.
  bool DeliverShort(const EasyHandle& handle, std::size_t spared, std::size_t count) {
    curl.info[CURLINFO_RESPONSE_CODE] = 206L;
    const Allocations allocations(spared, count);
    const AllocationsCount uncounted(false);
    accepted = handle.Header("HTTP/1.1 206 Partial Content\r\n") != 0;
    accepted = accepted && handle.Header("Content-Range: bytes 68-5067/5068\r\n" + std::string(500, 'x')) != 0;
    accepted = accepted && handle.Write(std::string(5000, 'x')) != 0;
    return allocations.Failed() != 0;
  }

  // An operation that lost no more than a text may succeed; then everything has been done.
  void ExpectPlausible(ZResult code, bool failed) {
    const std::vector<ZResult> failures = {Corvane::TRANSFER_E_DOWNLOAD, kCurl | CURLE_WRITE_ERROR,
                                           Corvane::TRANSFER_E_CONNECT};
    if (!failed || code == kFinished) {
      EXPECT_EQ(code, kFinished);
      EXPECT_EQ(curl.Count("perform"), 1u);
      return;
    }
    EXPECT_THAT(failures, testing::Contains(code));
  }

  bool accepted = false;
};

TEST_F(MemoryThatRunsOut, InACallbackIsAWriteErrorWhicheverAllocationItIs) {
  for (const std::size_t count : {std::size_t{1}, Allocations::kAll}) {
    for (const Operation& operation : Operations()) {
      RecordingObserver observer;
      bool failed = true;
      std::size_t spared = 0;
      for (; failed; ++spared) {
        SCOPED_TRACE(operation.name + ", allocation " + std::to_string(spared));
        ZTransfer transfer;
        transfer.Attach(&observer);
        WriteFile(folder / "old", MakePattern(100));
        curl.perform = [&](const EasyHandle& handle) {
          failed = DeliverShort(handle, spared, count);
          return accepted ? CURLE_OK : CURLE_WRITE_ERROR;
        };
        EXPECT_EQ(EscapesFrom([&] { operation.run(transfer); }), "nothing");
        EXPECT_EQ(transfer.GetStatus(), accepted ? kFinished : kCurl | CURLE_WRITE_ERROR);
        EXPECT_NE(accepted, failed) << "no allocation of a callback is done without";
        curl.Respond(200, {.blocks = {"page"}});
        ExpectFit(transfer, operation.name);
      }
      EXPECT_GT(spared, 2u) << operation.name << ": the test failed nothing";
    }
  }
}

// The file was left behind, empty, as if it were a beginning of the resource.
TEST_F(MemoryThatRunsOut, BeforeARequestLeavesNoFile) {
  std::size_t withoutRequest = 0;
  bool failed = true;
  for (std::size_t spared = 0; failed; ++spared) {
    SCOPED_TRACE("allocation " + std::to_string(spared));
    ZTransfer transfer;
    curl.Respond(200, {.blocks = {"new"}});
    curl.info[CURLINFO_RESPONSE_CODE] = 0L;  // until there is an answer
    curl.perform = [this, deliver = curl.perform](const EasyHandle& handle) {
      const AllocationsCount uncounted(false);
      curl.info[CURLINFO_RESPONSE_CODE] = 200L;
      return deliver(handle);
    };
    curl.Clear();
    const ZString path = Path("fresh");
    const ZString url = L"http://h/a-name-that-needs-memory";
    {
      const Allocations allocations(spared);
      transfer.DownloadFile(url, path, false);
      failed = allocations.Failed() != 0;
    }
    if (curl.Count("perform") != 0) continue;
    ++withoutRequest;
    EXPECT_FALSE(std::filesystem::exists(folder / "fresh"));
  }
  EXPECT_GT(withoutRequest, 2u);
}

TEST_F(MemoryThatRunsOut, InACallbackOfAnAbortedTransferIsStillAnAbort) {
  bool failed = true;
  for (std::size_t spared = 0; failed; ++spared) {
    ZTransfer transfer;
    curl.perform = [&](const EasyHandle& handle) {
      transfer.Abort();
      failed = DeliverShort(handle, spared, Allocations::kAll);
      EXPECT_FALSE(accepted);
      return CURLE_WRITE_ERROR;
    };
    EXPECT_EQ(transfer.Download(L"http://h/", result), Corvane::TRANSFER_E_ABORTED);
    EXPECT_EQ(Outcome(transfer), "0x80011003 Download aborted by user");
  }
}

TEST_F(MemoryThatRunsOut, AnywhereInAnOperationIsAFailureAndNoException) {
  for (const std::size_t count : {std::size_t{1}, Allocations::kAll}) {
    for (const Scenario& scenario : AllScenarios(folder)) {
      bool failed = true;
      for (std::size_t spared = 0; failed; ++spared) {
        SCOPED_TRACE(scenario.name + ", allocation " + std::to_string(spared) +
                     (count == 1 ? "" : " and all after it"));
        ZTransfer transfer;
        if (scenario.configure) scenario.configure(transfer);
        if (scenario.prepare) scenario.prepare();
        curl.Respond(200, scenario.answer);
        curl.Clear();
        ZResult code = 0;
        const std::string escaped = EscapesFrom([&] {
          const Allocations allocations(spared, count);
          code = scenario.run(transfer, result);
          failed = allocations.Failed() != 0;
        });
        ASSERT_EQ(escaped, "nothing");
        EXPECT_EQ(transfer.GetStatus(), code);
        ExpectPlausible(code, failed);
        curl.Respond(200, {.blocks = {"page"}});
        ExpectFit(transfer, scenario.name);
      }
    }
  }
}

}  // namespace
}  // namespace CorvaneTest
