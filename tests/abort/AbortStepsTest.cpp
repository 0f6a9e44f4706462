#include <gmock/gmock.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/abort/AbortTesting.h"
#include "tests/abort/Steps.h"
#include "tests/support/Pki.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"

// The library sets the limits of a request itself, when it sets the request up and after every block. An abort that
// comes just then must not be undone. The server stays silent afterwards, so that nothing but the limit can end the
// operation.
namespace CorvaneTest {
namespace {

using namespace Corvane;

// Aborts on another thread, and returns when that is done.
void AbortElsewhere(ZTransfer& transfer) {
  std::thread([&] { transfer.Abort(); }).join();
}

// --- the set-up

struct Operation {
  std::string name;
  std::function<ZResult(ZTransfer&)> run;
  ZResult code;  // when it is aborted before any answer
};

// Runs an operation on a thread of its own and aborts it from another one at one of its steps.
class AbortAtStep {
 public:
  AbortAtStep(const Operation& operation, std::size_t step, bool isAfter)
      : m_operation(operation), m_step(step), m_isAfter(isAfter), m_running(m_transfer, [this] { return Run(); }) {}

  void ExpectEnd() {
    const auto code = m_running.Result(After(kAbortLimit));
    EXPECT_TRUE(m_wasThere) << Where();
    ASSERT_TRUE(code) << Where() << ": the operation runs on";
    EXPECT_THAT(*code, IsCode(m_operation.code)) << Where();
  }

 private:
  ZResult Run() {
    std::size_t count = 0;
    const ScopedStepHook hook([&](const std::string& step, bool isAfter) {
      if (step == "reset" || isAfter != m_isAfter || count++ != m_step) return;
      m_wasThere = true;
      AbortElsewhere(m_transfer);
    });
    return m_operation.run(m_transfer);
  }

  std::string Where() const {
    return m_operation.name + (m_isAfter ? ", after " : ", before ") + "step " + std::to_string(m_step);
  }

  Operation m_operation;
  std::size_t m_step;
  bool m_isAfter;
  std::atomic<bool> m_wasThere{false};
  ZTransfer m_transfer;
  RunningOperation m_running;
};

class AbortSteps : public testing::Test {
 protected:
  AbortSteps() { WriteFile(m_folder / "input", "data"); }

  // The file names differ because the operations of one kind run side by side.
  Operation MakeDownload() {
    return {"Download",
            [this](ZTransfer& transfer) {
              ZString result;
              return transfer.Download(Wide(m_server.Url()), result);
            },
            TRANSFER_E_ABORTED};
  }
  Operation MakeDownloadFile() {
    return {"DownloadFile",
            [this](ZTransfer& transfer) {
              const ZString file = WidePath(m_folder / std::to_string(m_nextFile++));
              return transfer.DownloadFile(Wide(m_server.Url()), file, true);
            },
            TRANSFER_E_CONNECT};
  }
  Operation MakePostData() {
    return {"PostData",
            [this](ZTransfer& transfer) {
              ZString result;
              return transfer.PostData(Wide(m_server.Url()), L"data", result);
            },
            TRANSFER_E_ABORTED};
  }
  Operation MakePostFile() {
    return {
        "PostFile",
        [this](ZTransfer& transfer) { return transfer.PostFile(Wide(m_server.Url()), WidePath(m_folder / "input")); },
        TRANSFER_E_ABORTED};
  }
  // The options of every kind of setting. The file of authorities is a small one: with a directory libcurl reads the
  // system's large file as well, which takes the processor's time for each operation and cannot be interrupted.
  Operation MakeTlsDownload() {
    return {"Download over TLS with a password",
            [this](ZTransfer& transfer) {
              EXPECT_EQ(transfer.SetCredentials(L"user", L"password"), 0u);
              EXPECT_EQ(transfer.SetSSL(true, true, WidePath(m_pki.caFile), L""), 0u);
              ZString result;
              const std::string url = "https://127.0.0.1:" + std::to_string(m_server.Port()) + "/";
              return transfer.Download(Wide(url), result);
            },
            TRANSFER_E_ABORTED};
  }

  // The number of options that the operation sets before its request, counted by a run that is aborted right before it.
  static std::size_t CountOptions(const Operation& operation) {
    ZTransfer transfer;
    std::size_t count = 0;
    const ScopedStepHook hook([&](const std::string& step, bool isAfter) {
      if (step == "perform") transfer.Abort();
      if (!isAfter && step.rfind("setopt", 0) == 0) ++count;
    });
    EXPECT_THAT(operation.run(transfer), IsCode(operation.code)) << operation.name << ", before its request";
    return count;
  }

  // All cases run side by side, so that together they take little longer than one.
  void AbortAtEveryStep(const Operation& operation) {
    const std::size_t options = CountOptions(operation);
    ASSERT_GE(options, 10U);
    std::vector<std::unique_ptr<AbortAtStep>> cases;
    for (std::size_t step = 0; step < options; ++step) {
      for (const bool isAfter : {false, true}) cases.push_back(std::make_unique<AbortAtStep>(operation, step, isAfter));
    }
    cases.push_back(std::make_unique<AbortAtStep>(operation, options, false));  // before the request
    for (const auto& one : cases) one->ExpectEnd();
  }

  const TempDir m_folder;
  const Pki m_pki = MakePki(m_folder.Path());
  std::atomic<int> m_nextFile{0};
  ScriptedServer m_server{[](Connection& peer) { peer.WaitUntilStopped(); }};
};

TEST_F(AbortSteps, OfADownload) { AbortAtEveryStep(MakeDownload()); }
TEST_F(AbortSteps, OfADownloadIntoAFile) { AbortAtEveryStep(MakeDownloadFile()); }
TEST_F(AbortSteps, OfADownloadOverTlsWithAPassword) { AbortAtEveryStep(MakeTlsDownload()); }
TEST_F(AbortSteps, OfAPost) { AbortAtEveryStep(MakePostData()); }
TEST_F(AbortSteps, OfAPostedFile) { AbortAtEveryStep(MakePostFile()); }

// An abort that waits for the object while the operation begins comes after the beginning, which would clear its flag.
TEST_F(AbortSteps, OfTheBeginningWhereTheAbortWaitsForIt) {
  ZTransfer transfer;
  std::future<ZResult> abort;
  RunningOperation download(transfer, [&] {
    const ScopedStepHook hook([&](const std::string& step, bool) {
      if (step == "reset") abort = std::async(std::launch::async, [&] { return transfer.Abort(); });
    });
    return MakeDownload().run(transfer);
  });
  const auto code = download.Result(After(kAbortLimit));
  ASSERT_TRUE(code) << "the operation runs on";
  EXPECT_THAT(*code, IsCode(TRANSFER_E_ABORTED));
  ASSERT_TRUE(abort.valid());
  EXPECT_THAT(abort.get(), IsCode(BASE_S_OK));
}

// --- a block

constexpr std::size_t kBlock = 15000;  // bytes; what libcurl hands on at once

// Sends one block, the next when it is told to, and then nothing more.
class TwoBlocks {
 public:
  std::string Url() const { return m_server.Url(); }
  void SendSecond() { m_second.Open(); }

 private:
  Gate m_second;
  ScriptedServer m_server{[this](Connection& peer) {
    peer.ReadRequest();
    peer.Send(FormatHead(200, {{"Content-Length", "1000000"}}) + std::string(kBlock, 'x'));
    if (!peer.WaitFor(m_second)) return;
    peer.Send(std::string(kBlock, 'x'));
    peer.WaitUntilStopped();
  }};
};

// A download that is aborted while it deals with its second block.
class AbortInABlock {
 public:
  ZTransfer& Transfer() { return m_transfer; }

  // `hook` runs on the download's thread, and calls AwaitAbort at the place where the abort is to come.
  void ExpectEnd(const StepHook& hook) {
    ZString result;
    RunningOperation download(m_transfer, [&] {
      const ScopedStepHook scope(hook);
      return m_transfer.Download(Wide(m_server.Url()), result);
    });
    ASSERT_TRUE(WaitUntil([&] { return m_transfer.GetDownloadSize() == kBlock; }));
    m_server.SendSecond();
    ASSERT_TRUE(m_reached.Wait());
    m_transfer.Abort();
    m_aborted.Open();
    const auto code = download.Result(After(kAbortLimit));
    ASSERT_TRUE(code) << "the operation runs on";
    EXPECT_THAT(*code, IsCode(TRANSFER_E_ABORTED));
    EXPECT_EQ(ErrorOf(m_transfer), "Download aborted by user");
    EXPECT_EQ(result.Length(), 2 * kBlock) << "the block itself is kept";
  }

  void AwaitAbort() {
    m_reached.Open();
    EXPECT_TRUE(m_aborted.Wait());
  }

 private:
  Gate m_reached;
  Gate m_aborted;
  TwoBlocks m_server;
  ZTransfer m_transfer;
};

// One KiB a second from the first block on, so that the second one is far ahead of its time.
TEST(AbortWithinABlock, WhileTheThrottleSleeps) {
  ZTransfer::SetThrottling(1000000000, 1, false);
  AbortInABlock block;
  int sleeps = 0;  // on the download's thread until it has ended
  block.ExpectEnd([&](const std::string& step, bool) {
    if (step != "sleep") return;
    ++sleeps;
    block.AwaitAbort();
  });
  EXPECT_EQ(sleeps, 1);
  ZTransfer::SetThrottling(0, 0, false);
}

// The set-up writes the limit once, and each block twice when the throttle is used, once when it is not.
TEST(AbortWithinABlock, WhileTheLimitIsMoved) {
  const std::string kLimit = "setopt 13";
  for (const bool throttling : {true, false}) {
    const int moves = throttling ? 2 : 1;
    for (int move = 1; move <= moves; ++move) {
      for (const bool after : {false, true}) {
        SCOPED_TRACE(testing::Message() << "throttling " << throttling << ", move " << move << ", after " << after);
        AbortInABlock block;
        block.Transfer().UseThrottling(throttling);
        int left = 1 + moves + move;
        block.ExpectEnd([&](const std::string& step, bool isAfter) {
          if (step == kLimit && isAfter == after && --left == 0) block.AwaitAbort();
        });
      }
    }
  }
}

// A block that comes while the abort writes its limits would move them again. It has to see the abort by then.
TEST(AbortWithinABlock, WhichComesBetweenTheLimitsOfTheAbort) {
  for (const std::string limit : {"setopt 13", "setopt 78"}) {
    for (const bool after : {false, true}) {
      SCOPED_TRACE(limit + (after ? ", after" : ", before"));
      TwoBlocks server;
      ZTransfer transfer;
      ZString result;
      RunningOperation download(transfer, [&] { return transfer.Download(Wide(server.Url()), result); });
      ASSERT_TRUE(WaitUntil([&] { return transfer.GetDownloadSize() == kBlock; }));
      std::thread([&] {
        const ScopedStepHook hook([&](const std::string& step, bool isAfter) {
          if (step != limit || isAfter != after) return;
          server.SendSecond();
          // The operation cannot end yet: its end needs the lock that the abort holds.
          EXPECT_TRUE(WaitUntil([&] { return transfer.GetStatus() == TRANSFER_E_ABORTED; }, After(kAbortLimit)));
        });
        transfer.Abort();
      }).join();
      const auto code = download.Result(After(kAbortLimit));
      ASSERT_TRUE(code) << "the operation runs on";
      EXPECT_THAT(*code, IsCode(TRANSFER_E_ABORTED));
      EXPECT_EQ(result.Length(), kBlock);
    }
  }
}

}  // namespace
}  // namespace CorvaneTest
