// The list of observers, and what the object allows while an operation runs.

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/frame/BlockedCall.h"
#include "tests/recorder/Scenarios.h"
#include "tests/recorder/TransferTest.h"
#include "tests/support/Gate.h"

namespace CorvaneTest {
namespace {

// --- The list. ---

class Observers : public TransferTest {
 protected:
  Observers() {
    for (std::size_t i = 0; i < 4; ++i) {
      all.push_back(std::make_unique<RecordingObserver>([this, i] { order += static_cast<char>('a' + i); }));
    }
  }

  // Who is told of an event, in order.
  std::string Notified() {
    order.clear();
    transfer.Notify(7, 1);
    return order;
  }

  std::vector<std::unique_ptr<RecordingObserver>> all;
  std::string order;
  ZTransfer transfer;
};

TEST_F(Observers, AreCalledInTheOrderOfTheirAttachment) {
  for (const std::size_t i : {2u, 0u, 3u, 1u}) EXPECT_EQ(transfer.Attach(all[i].get()), 0u);
  EXPECT_EQ(Notified(), "cadb");
  order.clear();
  curl.Respond(200, {.blocks = {"x"}});
  ZString result;
  transfer.Download(L"http://h/", result);
  EXPECT_EQ(order, "cadb");
}

TEST_F(Observers, AttachedTwiceAreThereOnce) {
  for (const std::size_t i : {0u, 1u, 0u, 1u, 0u}) EXPECT_EQ(transfer.Attach(all[i].get()), 0u);
  EXPECT_EQ(Notified(), "ab");
  EXPECT_EQ(transfer.Detach(all[0].get()), 0u);
  EXPECT_EQ(Notified(), "b");
}

TEST_F(Observers, AreNeverNull) {
  EXPECT_EQ(transfer.Attach(nullptr), Corvane::BASE_E_BUSY);
  EXPECT_EQ(Notified(), "");
  EXPECT_EQ(transfer.Detach(nullptr), 0u);
}

TEST_F(Observers, AreDetachedWithoutDisturbingTheOthers) {
  for (const auto& observer : all) transfer.Attach(observer.get());
  EXPECT_EQ(transfer.Detach(all[1].get()), 0u);
  EXPECT_EQ(Notified(), "acd");
  EXPECT_EQ(transfer.Detach(all[1].get()), 0u) << "not attached any more";
  EXPECT_EQ(Notified(), "acd");
  EXPECT_EQ(transfer.Attach(all[1].get()), 0u);
  EXPECT_EQ(Notified(), "acdb");
  for (const auto& observer : all) EXPECT_EQ(transfer.Detach(observer.get()), 0u);
  EXPECT_EQ(Notified(), "");
}

TEST_F(Observers, GetAnyEventThatTheHostNotifies) {
  transfer.Attach(all[0].get());
  transfer.Notify(0, 0);
  transfer.Notify(-1, -1);
  transfer.Notify(2147483647, 0x123456789L);
  EXPECT_THAT(all[0]->events, ElementsAre("0 0", "-1 ffffffffffffffff", "2147483647 123456789"));
}

TEST_F(Observers, MayBeNotifiedByTheHostWhileAnOperationRuns) {
  transfer.Attach(all[0].get());
  curl.perform = [&](const EasyHandle& handle) {
    transfer.Notify(42, 5);
    handle.Write("x");
    return CURLE_OK;
  };
  ZString result;
  transfer.Download(L"http://h/", result);
  EXPECT_THAT(all[0]->events, ElementsAre("42 5", "1 80011002")) << "the host's event is not the library's";
}

TEST_F(Observers, MayDetachThemselvesAndOthersWhenTheHostNotifies) {
  for (const auto& observer : all) transfer.Attach(observer.get());
  all[1]->onUpdate = [&] {
    order += 'b';
    transfer.Detach(all[1].get());
    transfer.Detach(all[2].get());
  };
  EXPECT_EQ(Notified(), "abd") << "one that is not attached any more is not called";
  EXPECT_EQ(Notified(), "ad");
}

TEST_F(Observers, MayAttachOthersWhenTheHostNotifies) {
  transfer.Attach(all[0].get());
  all[0]->onUpdate = [&] {
    order += 'a';
    for (std::size_t i = 1; i < all.size(); ++i) transfer.Attach(all[i].get());
  };
  EXPECT_EQ(Notified(), "a");
  EXPECT_EQ(Notified(), "abcd");
}

// --- While an operation runs. ---

class ARunningOperation : public TransferTest {
 protected:
  // Runs `action` on the transferring thread, called by an observer.
  void During(std::function<void()> action) {
    RecordingObserver observer(std::move(action));
    transfer.Attach(&observer);
    curl.Respond(200, {.headers = {"line\r\n"}, .blocks = {"page"}});
    ZString result;
    EXPECT_EQ(transfer.Download(L"https://h/", result), kFinished);
    EXPECT_EQ(result, ZString(L"page"));
    EXPECT_EQ(observer.events.size(), 1u);
    EXPECT_EQ(transfer.Detach(&observer), 0u);
  }

  ZTransfer transfer;
};

// The end of one and the beginning of the next lie so close together that a waiter may not run between them.
TEST_F(ARunningOperation, WakesAtItsEndWhoWaitsAlsoWhenTheNextBeginsAtOnce) {
  for (int round = 0; round < 20; ++round) {
    Gate firstRuns;
    Gate firstMayEnd;
    Gate waiterIsBack;
    curl.perform = [&](const EasyHandle&) {
      const bool isFirst = !firstRuns.IsOpen();
      firstRuns.Open();
      EXPECT_TRUE((isFirst ? firstMayEnd : waiterIsBack).Wait()) << "the waiter slept through the first one's end";
      return CURLE_OK;
    };
    std::thread runner([&] {
      ZString result;
      for (int operation = 0; operation < 2; ++operation) EXPECT_EQ(transfer.Download(L"http://h/", result), kFinished);
    });
    EXPECT_TRUE(firstRuns.Wait());
    {
      BlockedCall waiter([&] {
        EXPECT_TRUE(transfer.Wait(0xFFFFFFFF));
        waiterIsBack.Open();
      });
      EXPECT_TRUE(waiter.IsBlocked());
      firstMayEnd.Open();
    }
    runner.join();
  }
}

TEST_F(ARunningOperation, ReportsSuccessSoFarAndNoTime) {
  ScriptedTime time;
  During([&] {
    time.Advance(std::chrono::milliseconds(1500));
    EXPECT_EQ(transfer.GetStatus(), 0x00010000u);
    EXPECT_EQ(transfer.GetTransferTime(), 0);
    EXPECT_EQ(transfer.GetTransferStartTime().GetMicroSecondsSinceEpoch(), time.Now() - 1500000);
    EXPECT_FALSE(transfer.Wait(0));
    EXPECT_FALSE(transfer.Wait(1));
  });
  EXPECT_EQ(transfer.GetTransferTime(), 1500);
  EXPECT_TRUE(transfer.Wait(0));
}

TEST_F(ARunningOperation, ReportsItsTimeInWholeMillisecondsWhenItHasEnded) {
  ScriptedTime time;
  During([&] { time.Advance(std::chrono::microseconds(1234999)); });
  EXPECT_EQ(transfer.GetTransferTime(), 1234);
  During([&] { time.SetClock(std::chrono::seconds(-1)); });
  EXPECT_EQ(transfer.GetTransferTime(), 0) << "the clock went back";
}

TEST_F(ARunningOperation, CountsTheTimeUpToItsVeryEnd) {
  ScriptedTime time;
  curl.info[CURLINFO_RESPONSE_CODE] = 404L;
  curl.perform = [](const EasyHandle&) { return CURLE_OK; };
  logger.onWrite = [&] { time.Advance(std::chrono::seconds(3)); };
  WriteFile(folder / "in", "x");
  curl.onOption = [&](const OptionCall&) {
    time.Advance(std::chrono::milliseconds(100));
    return CURLE_UNKNOWN_OPTION;
  };
  transfer.PostFile(L"http://h/", Path("in"));
  EXPECT_EQ(transfer.GetTransferTime(), 3100) << "of an operation that made no request, too";
}

TEST_F(ARunningOperation, RefusesTheHeader) {
  During([&] {
    ZString header = L"before";
    EXPECT_EQ(transfer.GetHeader(header), 0x8000005Eu);
    EXPECT_EQ(header, ZString(L"before"));
  });
  ZString header;
  EXPECT_EQ(transfer.GetHeader(header), 0u);
  EXPECT_EQ(header, ZString(L"line\r\n"));
}

TEST_F(ARunningOperation, RefusesSettingsAndChangesNothing) {
  WriteFile(folder / "ca", "x");
  EXPECT_EQ(transfer.SetSSL(true, true, Path("ca"), ZString()), 0u);
  EXPECT_EQ(transfer.SetCredentials(L"user", L"secret"), 0u);
  During([] {});
  const std::vector<std::string> before = curl.Options();
  curl.Clear();
  During([&] {
    EXPECT_EQ(transfer.SetSSL(false, false, ZString(), ZString()), 0x8000005Eu);
    EXPECT_EQ(transfer.SetCredentials(L"other", L"word"), 0x8000005Eu);
    EXPECT_EQ(transfer.SetCredentials(ZString(), ZString()), 0x8000005Eu);
    EXPECT_EQ(transfer.DetectHttpError(true), 0x8000005Eu);
    EXPECT_EQ(transfer.UseThrottling(false), 0x8000005Eu);
  });
  EXPECT_EQ(curl.Options(), before) << "the throttle moves the limit as before";
  curl.Clear();
  During([] {});
  EXPECT_EQ(curl.Options(), before);
  curl.info[CURLINFO_RESPONSE_CODE] = 404L;
  ZString result;
  EXPECT_EQ(transfer.Download(L"https://h/", result), kFinished) << "HTTP errors are still not detected";
}

TEST_F(ARunningOperation, RefusesObserversAndKeepsTheOthers) {
  RecordingObserver attached;
  RecordingObserver late;
  transfer.Attach(&attached);
  During([&] {
    EXPECT_EQ(transfer.Detach(&attached), 0x8000005Eu);
    EXPECT_EQ(transfer.Detach(&late), 0x8000005Eu);
    EXPECT_EQ(transfer.Attach(&late), 0x8000005Eu);
    EXPECT_EQ(transfer.Attach(&attached), 0x8000005Eu);
    EXPECT_EQ(transfer.Attach(nullptr), 0x8000005Eu);
  });
  During([] {});
  EXPECT_EQ(attached.events.size(), 2u) << "it keeps receiving events";
  EXPECT_THAT(late.events, IsEmpty());
}

TEST_F(ARunningOperation, AcceptsATimeout) {
  During([&] { EXPECT_EQ(transfer.SetTimeout(5), 0u); });
  EXPECT_THAT(curl.ValuesOf(CURLOPT_TIMEOUT), ElementsAre("300", "15", "5"));
}

TEST_F(ARunningOperation, RefusesASecondOneOfAnyKindAndIsNotDisturbed) {
  WriteFile(folder / "in", "x");
  ZString other = L"before";
  const Fields fields = {{L"a", L"b"}};
  const std::function<ZResult()> operations[] = {
      [&] { return transfer.Download(L"http://h/2", other); },
      [&] { return transfer.DownloadFile(L"http://h/2", Path("new/out"), false); },
      [&] { return transfer.Post(L"http://h/2", L"a", L"b"); },
      [&] { return transfer.Post(L"http://h/2", L"a", L"b", other); },
      [&] { return transfer.Post(L"http://h/2", fields); },
      [&] { return transfer.Post(L"http://h/2", fields, other); },
      [&] { return transfer.PostData(L"http://h/2", L"x"); },
      [&] { return transfer.PostData(L"http://h/2", L"x", other); },
      [&] { return transfer.PostFile(L"http://h/2", Path("in")); },
      [&] { return transfer.PostFile(L"http://h/2", Path("in"), Path("out")); }};
  During([&] {
    const std::string before = Outcome(transfer);
    for (const auto& operation : operations) {
      EXPECT_EQ(operation(), 0x80000008u);
      EXPECT_EQ(Outcome(transfer), before);
    }
  });
  EXPECT_EQ(other, ZString(L"before"));
  EXPECT_FALSE(std::filesystem::exists(folder / "new"));
  EXPECT_FALSE(std::filesystem::exists(folder / "out"));
  EXPECT_EQ(curl.Count("perform"), 1u);
  EXPECT_EQ(curl.Count("reset"), 1u);
  for (const auto& operation : operations) EXPECT_EQ(operation(), kFinished) << "afterwards each is welcome";
}

TEST_F(ARunningOperation, RefusesASecondOneOfAnotherThread) {
  During([&] {
    std::thread([&] {
      ZString other;
      EXPECT_EQ(transfer.Download(L"http://h/2", other), 0x80000008u);
      EXPECT_EQ(transfer.Post(L"http://h/2", L"a", L"x"), 0x80000008u);
      EXPECT_FALSE(transfer.Wait(0));
    }).join();
  });
}

TEST_F(ARunningOperation, IsWaitedForByAPostOfDataOnAnotherThread) {
  Gate posting;
  std::thread other;
  curl.perform = [&](const EasyHandle&) {
    if (other.joinable()) return CURLE_OK;  // this is the post
    other = std::thread([&] {
      posting.Open();
      EXPECT_EQ(transfer.PostData(L"http://h/2", L"x"), kFinished);
    });
    EXPECT_TRUE(posting.Wait());
    curl.Note("end of the first request");
    return CURLE_OK;
  };
  ZString result;
  EXPECT_EQ(transfer.Download(L"http://h/", result), kFinished);
  other.join();
  const std::vector<std::string> calls = curl.Calls();
  const auto end = std::find(calls.begin(), calls.end(), "end of the first request");
  EXPECT_EQ(std::count(calls.begin(), end, "perform"), 1);
  EXPECT_EQ(std::count(end, calls.end(), "perform"), 1);
}

TEST_F(ARunningOperation, IsRunningInEveryKindOfOperation) {
  for (const Scenario& scenario : AllScenarios(folder)) {
    if (scenario.prepare) scenario.prepare();
    curl.perform = [&](const EasyHandle& handle) {
      EXPECT_EQ(transfer.GetStatus(), 0x00010000u) << scenario.name;
      EXPECT_FALSE(transfer.Wait(0)) << scenario.name;
      EXPECT_EQ(transfer.DetectHttpError(true), 0x8000005Eu) << scenario.name;
      return Deliver(handle, scenario.answer);
    };
    ZString result;
    EXPECT_EQ(scenario.run(transfer, result), kFinished) << scenario.name;
    EXPECT_TRUE(transfer.Wait(0)) << scenario.name;
  }
}

}  // namespace
}  // namespace CorvaneTest
