// An object from its construction to its end: what is new, what persists, what an operation resets.

#include <chrono>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <Corvane/Transfer/TransferImpl.h>

#include "tests/recorder/Scenarios.h"
#include "tests/recorder/TransferTest.h"
#include "tests/support/Gate.h"

namespace CorvaneTest {
namespace {

// --- Construction and destruction. ---

class AnObject : public TransferTest {};

TEST_F(AnObject, IsIdleAndHasDoneNothingWhenNew) {
  ScriptedTime time;
  ZTransfer transfer;
  EXPECT_EQ(transfer.GetStatus(), 0x80011001u);
  EXPECT_EQ(Narrow(transfer.GetError()), "Download not started yet");
  EXPECT_EQ(transfer.GetContentSize(), kUnknown);
  EXPECT_EQ(transfer.GetDownloadSize(), 0u);
  EXPECT_EQ(transfer.GetTransferSize(), 0u);
  EXPECT_EQ(transfer.GetTransferRate(), 0u);
  EXPECT_EQ(transfer.GetTransferTime(), 0);
  EXPECT_EQ(transfer.GetTransferStartTime().GetMicroSecondsSinceEpoch(), time.Now());
  ZString header = L"before";
  EXPECT_EQ(transfer.GetHeader(header), 0u);
  EXPECT_EQ(header, ZString());
  EXPECT_TRUE(transfer.Wait(0));
  EXPECT_TRUE(transfer.Wait(0)) << "as often as one likes";
  EXPECT_TRUE(transfer.Wait(0xFFFFFFFF));
}

TEST_F(AnObject, GetsItsHandleAfterTheGlobalInitialisationAndGivesItBackBefore) {
  curl.Clear();
  {
    const ZTransfer transfer;
    EXPECT_THAT(curl.Calls(), ElementsAre("global_init 3", "init"));
    curl.Clear();
    { const ZTransfer second; }
    EXPECT_THAT(curl.Calls(), ElementsAre("init", "setopt 13=1", "setopt 78=1", "cleanup"));
    curl.Clear();
  }
  EXPECT_THAT(curl.Calls(), ElementsAre("setopt 13=1", "setopt 78=1", "cleanup", "global_cleanup"));
}

TEST_F(AnObject, UsesOneHandleForAllItsOperations) {
  std::set<CURL*> handles;
  ZTransfer transfer;
  curl.onOption = [&](const OptionCall& call) {
    handles.insert(call.handle);
    return CURLE_OK;
  };
  for (const Scenario& scenario : AllScenarios(folder)) {
    ZString result;
    if (scenario.prepare) scenario.prepare();
    scenario.run(transfer, result);
  }
  EXPECT_EQ(handles.size(), 1u);
  EXPECT_EQ(curl.Count("init"), 1u);
}

TEST_F(AnObject, IsDestroyedOnlyAfterItsOperationHasEnded) {
  Gate performing;
  Gate destroying;
  auto* const transfer = new ZTransfer;
  curl.afterOption = [&](const OptionCall& call) {
    if (performing.IsOpen() && call.option == CURLOPT_CONNECTTIMEOUT && call.number == 1) destroying.Open();
  };
  curl.perform = [&](const EasyHandle& handle) {
    performing.Open();
    EXPECT_TRUE(destroying.Wait()) << "libcurl sees the new limit";
    EXPECT_EQ(handle.Number(CURLOPT_TIMEOUT), 1);
    curl.Note("end of the request");
    return CURLE_OPERATION_TIMEDOUT;
  };
  ZResult code = 0;
  std::thread operation([&] {
    ZString result;
    code = transfer->Download(L"http://h/", result);
  });
  ASSERT_TRUE(performing.Wait());
  delete transfer;
  curl.Note("destroyed");
  operation.join();
  EXPECT_EQ(code, Corvane::TRANSFER_E_ABORTED);
  const std::vector<std::string> calls = curl.Calls();
  const auto end = std::find(calls.begin(), calls.end(), "end of the request");
  EXPECT_NE(std::find(end, calls.end(), "cleanup"), calls.end()) << "the handle is in use until then";
}

// --- Without a handle. ---

class WithoutAHandle : public TransferTest {
 protected:
  WithoutAHandle() {
    curl.refuseHandles = true;
    WriteFile(folder / "in", "x");
    WriteFile(folder / "old", MakePattern(100));
  }
};

TEST_F(WithoutAHandle, EveryOperationFailsAndTouchesNoFile) {
  ZTransfer transfer;
  curl.Clear();
  ZString result;
  const Fields fields = {{L"a", L"b"}};
  const std::function<ZResult()> operations[] = {
      [&] { return transfer.Download(L"http://h/", result); },
      [&] { return transfer.DownloadFile(L"http://h/", Path("new/out"), false); },
      [&] { return transfer.DownloadFile(L"http://h/", Path("old"), false); },
      [&] { return transfer.DownloadFile(L"http://h/", Path("old"), true); },
      [&] { return transfer.Post(L"http://h/", L"a", L"b"); },
      [&] { return transfer.Post(L"http://h/", L"a", L"b", result); },
      [&] { return transfer.Post(L"http://h/", fields); },
      [&] { return transfer.Post(L"http://h/", fields, result); },
      [&] { return transfer.PostData(L"http://h/", L"x"); },
      [&] { return transfer.PostData(L"http://h/", L"x", result); },
      [&] { return transfer.PostFile(L"http://h/", Path("in")); },
      [&] { return transfer.PostFile(L"http://h/", Path("in"), Path("out")); },
      [&] { return transfer.PostFile(L"http://h/", Path("missing")); }};
  for (const auto& operation : operations) {
    EXPECT_EQ(operation(), 0x80011000u);
    EXPECT_EQ(Outcome(transfer), "0x80011000 System library initialization failure");
    EXPECT_TRUE(transfer.Wait(0));
  }
  EXPECT_THAT(curl.Calls(), IsEmpty()) << "libcurl has nothing to work on";
  EXPECT_FALSE(std::filesystem::exists(folder / "new"));
  EXPECT_FALSE(std::filesystem::exists(folder / "out"));
  EXPECT_EQ(ReadFile(folder / "old"), MakePattern(100));
}

TEST_F(WithoutAHandle, AbortLeavesTheCodeOfTheRefusedOption) {
  ZTransfer transfer;
  logger.Clear();
  EXPECT_EQ(transfer.Abort(), 0u);
  EXPECT_EQ(Outcome(transfer), "0x8001002B Download failed");
  EXPECT_THAT(logger.Lines(), ElementsAre("E Abort: CURL failure 43 on option 13..."));
  EXPECT_EQ(transfer.Reset(), 0u);
  EXPECT_EQ(Outcome(transfer), "0x80011001 Download not started yet");
}

TEST_F(WithoutAHandle, NoneIsGivenBack) {
  { const ZTransfer transfer; }
  EXPECT_EQ(curl.Count("cleanup"), 0u);
  EXPECT_EQ(curl.Count("global_cleanup"), 1u);
}

// --- Reset. ---

class TheReset : public TransferTest {
 protected:
  TheReset() {
    curl.info[CURLINFO_TOTAL_TIME] = 1.0;
    curl.info[CURLINFO_SIZE_DOWNLOAD] = 2048.0;
    curl.info[CURLINFO_CONTENT_LENGTH_DOWNLOAD] = 4.0;
  }

  // Runs a download that leaves something in everything that can be read.
  void Fill() {
    curl.Respond(404, {.headers = {"line\r\n"}, .blocks = {"page"}, .result = CURLE_RECV_ERROR, .errorText = "why"});
    curl.perform = [&, deliver = curl.perform](const EasyHandle& handle) {
      time.Advance(std::chrono::seconds(2));
      return deliver(handle);
    };
    ZString result;
    EXPECT_EQ(transfer.Download(L"http://h/", result), kCurl | CURLE_RECV_ERROR);
    EXPECT_EQ(transfer.GetContentSize(), 4u);
    EXPECT_EQ(transfer.GetDownloadSize(), 4u);
    EXPECT_EQ(transfer.GetTransferSize(), 2048u);
    EXPECT_EQ(transfer.GetTransferRate(), 2u);
    EXPECT_EQ(transfer.GetTransferTime(), 2000);
  }

  void ExpectAsNew() {
    EXPECT_EQ(Outcome(transfer), "0x80011001 Download not started yet");
    EXPECT_EQ(transfer.GetContentSize(), kUnknown);
    EXPECT_EQ(transfer.GetDownloadSize(), 0u);
    EXPECT_EQ(transfer.GetTransferSize(), 0u);
    EXPECT_EQ(transfer.GetTransferRate(), 0u);
    EXPECT_EQ(transfer.GetTransferTime(), 0);
    EXPECT_EQ(transfer.GetTransferStartTime().GetMicroSecondsSinceEpoch(), time.Now());
  }

  ScriptedTime time;
  ZTransfer transfer;
};

TEST_F(TheReset, OfAnIdleObjectMakesItAsNew) {
  Fill();
  time.Advance(std::chrono::seconds(5));
  EXPECT_EQ(transfer.Reset(), 0u);
  ExpectAsNew();
  ZString header = L"before";
  EXPECT_EQ(transfer.GetHeader(header), 0u);
  EXPECT_EQ(header, ZString());
  EXPECT_TRUE(transfer.Wait(0));
}

TEST_F(TheReset, AbortsThenResetsTheHandle) {
  curl.Clear();
  EXPECT_EQ(transfer.Reset(), 0u);
  EXPECT_THAT(curl.Calls(), ElementsAre("setopt 13=1", "setopt 78=1", "reset"));
}

TEST_F(TheReset, ComesBeforeEveryOperation) {
  Fill();
  time.Advance(std::chrono::seconds(5));
  bool checked = false;
  curl.onOption = [&](const OptionCall& call) {
    if (call.option != CURLOPT_POSTFIELDS) return CURLE_OK;
    checked = true;
    ExpectAsNew();  // a post sets its body before anything else
    return CURLE_OK;
  };
  transfer.PostData(L"http://h/", L"x");
  EXPECT_TRUE(checked);
}

TEST_F(TheReset, KeepsEverySetting) {
  WriteFile(folder / "ca", "x");
  RecordingObserver observer;
  EXPECT_EQ(transfer.SetTimeout(42), 0u);
  EXPECT_EQ(transfer.SetSSL(true, true, Path("ca"), ZString()), 0u);
  EXPECT_EQ(transfer.SetCredentials(L"user", L"secret"), 0u);
  EXPECT_EQ(transfer.DetectHttpError(true), 0u);
  EXPECT_EQ(transfer.UseThrottling(false), 0u);
  EXPECT_EQ(transfer.Attach(&observer), 0u);
  curl.Respond(404, {.blocks = {"page"}});
  const auto run = [&] {
    curl.Clear();
    ZString result;
    EXPECT_EQ(transfer.Download(L"https://h/", result), Corvane::TRANSFER_E_CONNECT) << "HTTP errors are detected";
    return curl.Options();
  };
  const std::vector<std::string> first = run();
  EXPECT_EQ(first.back(), "13=52") << "not throttled";
  EXPECT_THAT(first, testing::IsSupersetOf({"13=42", "78=42", "81=2", "64=1", "10005='user:secret'"}));
  EXPECT_EQ(run(), first);
  EXPECT_EQ(transfer.Reset(), 0u);
  EXPECT_EQ(run(), first);
  EXPECT_EQ(observer.events.size(), 3u);
}

TEST_F(TheReset, EndsARunningOperationFirst) {
  Gate performing;
  Gate aborted;
  curl.afterOption = [&](const OptionCall& call) {
    if (performing.IsOpen() && call.option == CURLOPT_CONNECTTIMEOUT && call.number == 1) aborted.Open();
  };
  curl.perform = [&](const EasyHandle&) {
    performing.Open();
    EXPECT_TRUE(aborted.Wait());
    return CURLE_OPERATION_TIMEDOUT;
  };
  ZResult code = 0;
  std::thread operation([&] {
    ZString result;
    code = transfer.Download(L"http://h/", result);
  });
  ASSERT_TRUE(performing.Wait());
  EXPECT_EQ(transfer.Reset(), 0u);
  EXPECT_EQ(transfer.GetStatus(), 0x80011001u);
  EXPECT_EQ(Narrow(transfer.GetError()), "Download not started yet");
  operation.join();
  EXPECT_EQ(code, Corvane::TRANSFER_E_ABORTED) << "the operation's caller still learns its outcome";
}

TEST_F(TheReset, LeavesNothingOfAPostForADownload) {
  transfer.PostData(L"http://h/", L"x");
  curl.perform = [](const EasyHandle& handle) {
    const auto* const object = static_cast<const ZTransfer::ZTransferImpl*>(handle.Get(CURLOPT_WRITEDATA).pointer);
    EXPECT_EQ(object->m_request.postData, nullptr) << "a large body would stay in memory";
    for (const CURLoption option : {CURLOPT_POST, CURLOPT_POSTFIELDS})
      EXPECT_ANY_THROW(static_cast<void>(handle.Get(option)));
    return CURLE_OK;
  };
  ZString result;
  EXPECT_EQ(transfer.Download(L"http://h/", result), kFinished);
}

// --- What getters refer to. ---

class References : public TransferTest {
 protected:
  void Fail(const std::string& text) {
    curl.Respond(200, {.result = CURLE_RECV_ERROR, .errorText = text});
    ZString result;
    transfer.Download(L"http://h/", result);
  }

  ZTransfer transfer;
};

TEST_F(References, ToTheErrorTextChangeOnlyWhenTheSameThreadAsksAgain) {
  Fail("first");
  const ZString& text = transfer.GetError();
  EXPECT_EQ(Narrow(text), "first");
  Fail("second");
  EXPECT_EQ(Narrow(text), "first");
  transfer.Reset();
  EXPECT_EQ(Narrow(text), "first");
  Fail("third");
  EXPECT_EQ(&transfer.GetError(), &text);
  EXPECT_EQ(Narrow(text), "third");
}

TEST_F(References, ToTheErrorTextBelongToTheirThreads) {
  Fail("first");
  const ZString& mine = transfer.GetError();
  const ZString* theirs = nullptr;
  Gate asked;
  Gate changed;
  std::thread other([&] {
    theirs = &transfer.GetError();
    asked.Open();
    EXPECT_TRUE(changed.Wait());
    EXPECT_EQ(Narrow(*theirs), "first") << "whatever other threads do";
  });
  EXPECT_TRUE(asked.Wait());
  Fail("second");
  EXPECT_EQ(Narrow(transfer.GetError()), "second");
  changed.Open();
  other.join();
  EXPECT_NE(theirs, &mine);
  EXPECT_EQ(Narrow(mine), "second");
  EXPECT_EQ(Narrow(*theirs), "first") << "it stays readable as long as the object";
}

TEST_F(References, ToTheErrorTextOfDifferentObjectsAreIndependent) {
  Fail("first");
  const ZString& text = transfer.GetError();
  const ZTransfer other;
  EXPECT_EQ(Narrow(other.GetError()), "Download not started yet");
  EXPECT_EQ(Narrow(text), "first");
}

TEST_F(References, ToTheStartTimeFollowTheOperations) {
  ScriptedTime time;
  transfer.Reset();
  const Corvane::ZDateTime& start = transfer.GetTransferStartTime();
  EXPECT_EQ(start.GetMicroSecondsSinceEpoch(), time.Now());
  time.Advance(std::chrono::seconds(3));
  Fail("why");
  EXPECT_EQ(start.GetMicroSecondsSinceEpoch(), time.Now());
  EXPECT_EQ(&transfer.GetTransferStartTime(), &start);
}

}  // namespace
}  // namespace CorvaneTest
