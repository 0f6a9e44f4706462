// An abort at every place of an operation.

#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/recorder/Scenarios.h"
#include "tests/recorder/TransferTest.h"
#include "tests/support/Gate.h"

namespace CorvaneTest {
namespace {

class AnAbort : public TransferTest {
 protected:
  ~AnAbort() override { ZTransfer::SetThrottling(0, 0, false); }

  // Where a request would look for its limits. What has been set last counts.
  void ExpectShortLimits(const std::string& when) {
    EXPECT_EQ(curl.ValuesOf(CURLOPT_TIMEOUT).back(), "1") << when;
    EXPECT_EQ(curl.ValuesOf(CURLOPT_CONNECTTIMEOUT).back(), "1") << when;
  }

  ZTransfer transfer;
  ZString result;
};

TEST_F(AnAbort, OfAnIdleObjectShortensTheLimitsAndIsForgottenByTheNextOperation) {
  curl.Clear();
  EXPECT_EQ(transfer.Abort(), 0u);
  EXPECT_THAT(curl.Calls(), ElementsAre("setopt 13=1", "setopt 78=1"));
  EXPECT_EQ(transfer.GetStatus(), 0x80011001u);
  curl.Respond(200, {.headers = {"line\r\n"}, .blocks = {"page"}});
  curl.Clear();
  EXPECT_EQ(transfer.Download(L"http://h/", result), kFinished);
  EXPECT_EQ(result, ZString(L"page"));
  EXPECT_EQ(curl.Calls().front(), "reset") << "which undoes the options";
  EXPECT_THAT(curl.ValuesOf(CURLOPT_TIMEOUT), ElementsAre("300", "310", "300"));
}

TEST_F(AnAbort, IsSeenByTheNextBlockWhichIsNotStoredAnyMore) {
  RecordingObserver observer;
  transfer.Attach(&observer);
  curl.perform = [&](const EasyHandle& handle) {
    EXPECT_EQ(handle.Write("first"), 5u);
    transfer.Abort();
    curl.Clear();
    EXPECT_EQ(handle.Write("second"), 0u);
    EXPECT_THAT(curl.Calls(), IsEmpty()) << "the limits are not moved";
    EXPECT_EQ(Outcome(transfer), "0x80011003 Download aborted by user");
    EXPECT_EQ(transfer.GetDownloadSize(), 5u);
    return CURLE_WRITE_ERROR;
  };
  EXPECT_EQ(transfer.Download(L"http://h/", result), Corvane::TRANSFER_E_ABORTED);
  EXPECT_EQ(Outcome(transfer), "0x80011003 Download aborted by user");
  EXPECT_EQ(result, ZString(L"first")) << "what had come is handed back";
}

TEST_F(AnAbort, BeforeTheFirstBlockLeavesNothingToTell) {
  RecordingObserver observer;
  transfer.Attach(&observer);
  curl.perform = [&](const EasyHandle& handle) {
    transfer.Abort();
    EXPECT_EQ(handle.Write("block"), 0u);
    return CURLE_WRITE_ERROR;
  };
  EXPECT_EQ(transfer.Download(L"http://h/", result), Corvane::TRANSFER_E_ABORTED);
  EXPECT_THAT(observer.events, IsEmpty());
  EXPECT_EQ(transfer.GetContentSize(), 0xFFFFFFFFFFFFFFFFu);
}

TEST_F(AnAbort, IsSeenByTheNextHeaderLine) {
  curl.perform = [&](const EasyHandle& handle) {
    EXPECT_EQ(handle.Header("first\r\n"), 7u);
    transfer.Abort();
    EXPECT_EQ(handle.Header("second\r\n"), 0u);
    EXPECT_EQ(Outcome(transfer), "0x80011003 Download aborted by user");
    return CURLE_WRITE_ERROR;
  };
  EXPECT_EQ(transfer.Download(L"http://h/", result), Corvane::TRANSFER_E_ABORTED);
  ZString header;
  transfer.GetHeader(header);
  EXPECT_EQ(header, ZString(L"first\r\n"));
}

TEST_F(AnAbort, ThatComesTooLateChangesNothing) {
  curl.perform = [&](const EasyHandle& handle) {
    handle.Write("page");
    transfer.Abort();
    return CURLE_OK;
  };
  EXPECT_EQ(transfer.Download(L"http://h/", result), kFinished);
  EXPECT_EQ(Outcome(transfer), "0x00010000 Transfer has finished successfully");
}

// Aborts while libcurl is given an option, before or after it takes it. The abort's limits must be those that hold.
class AnAbortAtAnOption : public AnAbort {
 protected:
  // Calls abort for each option that is set from now on.
  void CallAtOptions(bool before, std::function<void(const OptionCall&)> abort) {
    if (before) {
      curl.onOption = [abort = std::move(abort)](const OptionCall& call) { return abort(call), CURLE_OK; };
    } else {
      curl.afterOption = std::move(abort);
    }
  }

  void CallNoMore() {
    curl.onOption = nullptr;
    curl.afterOption = nullptr;
  }

  static CURLcode EndWithin(const EasyHandle& handle, const std::string& when) {
    EXPECT_EQ(handle.Number(CURLOPT_TIMEOUT), 1) << when;
    EXPECT_EQ(handle.Number(CURLOPT_CONNECTTIMEOUT), 1) << when;
    return CURLE_OPERATION_TIMEDOUT;
  }

  void ExpectAbortOf(const Scenario& scenario, std::size_t index, bool before) {
    const std::string when = scenario.name + (before ? ", before " : ", after ") + scenario.options[index].text;
    ZTransfer object;
    if (scenario.configure) scenario.configure(object);
    if (scenario.prepare) scenario.prepare();
    std::size_t left = index + 1;
    CallAtOptions(before, [&](const OptionCall&) {
      if (left > 0 && --left == 0) object.Abort();
    });
    curl.perform = [&](const EasyHandle& handle) { return EndWithin(handle, when); };
    const ZResult code = scenario.run(object, result);
    CallNoMore();
    EXPECT_EQ(left, 0u) << when;
    EXPECT_EQ(code, Corvane::TRANSFER_E_ABORTED) << when;
  }

  void ExpectAbortOfABlock(bool throttle, bool before, int move) {
    const std::string when = std::string(throttle ? "throttled" : "not throttled") +
                             (before ? ", before " : ", after ") + std::to_string(move);
    transfer.UseThrottling(throttle);
    curl.perform = [&](const EasyHandle& handle) {
      int left = move;
      CallAtOptions(before, [&](const OptionCall& call) {
        if (call.number != 1 && --left == 0) transfer.Abort();
      });
      EXPECT_EQ(handle.Write("block"), 5u) << when;
      CallNoMore();
      EXPECT_LE(left, 0) << when;
      return EndWithin(handle, when);
    };
    EXPECT_EQ(transfer.Download(L"http://h/", result), Corvane::TRANSFER_E_ABORTED) << when;
  }
};

// The set-up writes the limits itself. Whatever the order, the abort's must be the last.
TEST_F(AnAbortAtAnOption, OfTheSetUpIsNotUndoneByIt) {
  for (const Scenario& scenario : AllScenarios(folder)) {
    for (std::size_t index = 0; index < scenario.options.size(); ++index) {
      ExpectAbortOf(scenario, index, true);
      ExpectAbortOf(scenario, index, false);
    }
  }
}

TEST_F(AnAbortAtAnOption, ThatMovesTheLimitIsTheLastToSetIt) {
  for (const bool before : {true, false}) {
    ExpectAbortOfABlock(false, before, 1);
    ExpectAbortOfABlock(true, before, 1);
    ExpectAbortOfABlock(true, before, 2);
  }
}

TEST_F(AnAbort, DuringASleepOfTheThrottleIsNotUndoneAfterIt) {
  ScriptedTime time;
  ZTransfer::SetThrottling(1000000000, 1, false);
  time.onSleep = [&] { transfer.Abort(); };
  curl.perform = [&](const EasyHandle& handle) {
    handle.Write("begins the period");
    curl.Clear();
    EXPECT_EQ(handle.Write(std::string(5000, 'x')), 5000u);
    EXPECT_EQ(time.sleeps.size(), 1u);
    EXPECT_THAT(curl.Options(), ElementsAre("13=310", "13=1", "78=1", "13=300", "13=1"));
    EXPECT_EQ(handle.Write("more"), 0u);
    return CURLE_WRITE_ERROR;
  };
  EXPECT_EQ(transfer.Download(L"http://h/", result), Corvane::TRANSFER_E_ABORTED);
}

TEST_F(AnAbort, ByAnObserverIsNotUndoneByTheSameBlock) {
  RecordingObserver observer([&] { transfer.Abort(); });
  transfer.Attach(&observer);
  for (const bool throttle : {true, false}) {
    transfer.UseThrottling(throttle);
    curl.perform = [&](const EasyHandle& handle) {
      EXPECT_EQ(handle.Write("block"), 5u);
      ExpectShortLimits(throttle ? "throttled" : "not throttled");
      EXPECT_EQ(handle.Write("block"), 0u);
      return CURLE_WRITE_ERROR;
    };
    EXPECT_EQ(transfer.Download(L"http://h/", result), Corvane::TRANSFER_E_ABORTED);
    EXPECT_EQ(result, ZString(L"block"));
  }
}

TEST_F(AnAbort, NeverSetsTheLimitsOfATransferThatNobodyAborted) {
  curl.Respond(200, {.blocks = {"a", "b"}});
  transfer.Download(L"http://h/", result);
  EXPECT_THAT(curl.ValuesOf(CURLOPT_TIMEOUT), ElementsAre("300", "310", "300", "310", "300"));
  EXPECT_THAT(curl.ValuesOf(CURLOPT_CONNECTTIMEOUT), ElementsAre("300"));
}

TEST_F(AnAbort, FromAnotherThreadDoesNotWaitForTheTransfer) {
  Gate performing;
  Gate aborted;
  curl.perform = [&](const EasyHandle& handle) {
    performing.Open();
    EXPECT_TRUE(aborted.Wait());
    EXPECT_EQ(handle.Number(CURLOPT_TIMEOUT), 1);
    return CURLE_OPERATION_TIMEDOUT;
  };
  std::thread other([&] {
    EXPECT_TRUE(performing.Wait());
    EXPECT_EQ(transfer.Abort(), 0u);  // returns while the request goes on
    aborted.Open();
    EXPECT_TRUE(transfer.Wait(0xFFFFFFFF));
    EXPECT_EQ(transfer.GetStatus(), Corvane::TRANSFER_E_ABORTED);
  });
  EXPECT_EQ(transfer.Download(L"http://h/", result), Corvane::TRANSFER_E_ABORTED);
  other.join();
}

}  // namespace
}  // namespace CorvaneTest
