#include <Corvane/Transfer/OutcomeImpl.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include <Corvane/Base/ErrorDict.h>

#include "tests/unit/PrintTo.h"

namespace Corvane {
namespace {

TEST(Outcome, HasStartedNothingAtFirstAndAfterAReset) {
  Outcome outcome;
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(outcome.Code(), TRANSFER_E_NOT_STARTED);
    EXPECT_EQ(outcome.Snapshot()->text, ZString(L"Download not started yet"));
    EXPECT_EQ(outcome.Snapshot()->cause, TRANSFER_E_NOT_STARTED);
    EXPECT_EQ(outcome.Snapshot()->causeText, ZString());
    EXPECT_EQ(outcome.Snapshot()->header, "");
    outcome.Set(TRANSFER_E_POST, L"text");
    outcome.SetCause(TRANSFER_E_CURL_BASE | 7u, L"cause");
    outcome.SetHeader("header");
    outcome.Reset();
  }
}

TEST(Outcome, HasTheCodesOwnMessageUnlessThereIsATextOfItsOwn) {
  Outcome outcome;
  outcome.Set(TRANSFER_E_ABORTED);
  EXPECT_EQ(outcome.Snapshot()->text, ZString(L"Download aborted by user"));
  outcome.Set(TRANSFER_E_ABORTED, L"own");
  EXPECT_EQ(outcome.Snapshot()->text, ZString(L"own"));
  outcome.Set(TRANSFER_E_ABORTED, ZString());
  EXPECT_EQ(outcome.Snapshot()->text, ZString()) << "an empty text is a text";
  outcome.SetCode(TRANSFER_S_FINISHED);
  EXPECT_EQ(outcome.Snapshot()->code, TRANSFER_S_FINISHED);
  EXPECT_EQ(outcome.Snapshot()->text, ZString()) << "the text stays";
  outcome.Set(TRANSFER_E_NOT_STARTED);
  outcome.SetCode(TRANSFER_S_FINISHED);
  EXPECT_EQ(outcome.Snapshot()->text, ZString(L"Download not started yet"));
}

TEST(Outcome, MakesATextOnlyWhenSomebodyLooks) {
  Outcome outcome;
  int made = 0;
  const auto make = [&] { return ++made, ZString(L"made"); };
  outcome.SetLater(TRANSFER_E_DOWNLOAD, make);
  outcome.SetCode(TRANSFER_S_FINISHED);
  EXPECT_EQ(made, 0);
  EXPECT_EQ(outcome.Snapshot()->text, ZString(L"made")) << "the text stays";
  outcome.SetLater(TRANSFER_E_DOWNLOAD, make);
  outcome.Set(TRANSFER_S_FINISHED);
  EXPECT_EQ(outcome.Snapshot()->text, ZString(L"Transfer has finished successfully"));
  EXPECT_EQ(made, 1);
}

TEST(Outcome, IsTheSameSnapshotUntilSomethingChanges) {
  Outcome outcome;
  const auto first = outcome.Snapshot();
  EXPECT_EQ(outcome.Snapshot(), first);
  EXPECT_EQ(outcome.TextForThisThread(), first->text);
  EXPECT_EQ(outcome.Snapshot(), first);
  outcome.Set(TRANSFER_E_POST);
  EXPECT_NE(outcome.Snapshot(), first);
  EXPECT_EQ(first->code, TRANSFER_E_NOT_STARTED) << "what was published never changes";
}

TEST(Outcome, KeepsTheTextOfAThreadUntilItAsksAgain) {
  Outcome outcome;
  outcome.Set(TRANSFER_E_POST, L"first");
  const ZString& text = outcome.TextForThisThread();
  outcome.Set(TRANSFER_E_POST, L"second");
  EXPECT_EQ(text, ZString(L"first"));
  std::thread([&] { EXPECT_EQ(outcome.TextForThisThread(), ZString(L"second")); }).join();
  EXPECT_EQ(text, ZString(L"first"));
  EXPECT_EQ(&outcome.TextForThisThread(), &text);
  EXPECT_EQ(text, ZString(L"second"));
}

// Whoever looks never sees a code with another one's text.
TEST(Outcome, ShowsWatchersCodesAndTextsThatBelongTogether) {
  constexpr int kChanges = 20000;
  Outcome outcome;
  outcome.Set(TRANSFER_E_POST);
  std::atomic<bool> done{false};
  std::thread watcher([&] {
    while (!done) {
      const auto seen = outcome.Snapshot();
      ASSERT_EQ(seen->text, ZGetErrorMsg(seen->code));
    }
  });
  for (int i = 0; i < kChanges; ++i) {
    outcome.Set(TRANSFER_E_ABORTED, ZGetErrorMsg(TRANSFER_E_ABORTED));
    outcome.Set(TRANSFER_E_POST);
  }
  done = true;
  watcher.join();
}

}  // namespace
}  // namespace Corvane
