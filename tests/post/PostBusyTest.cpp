#include <gmock/gmock.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/Gate.h"
#include "tests/support/HttpResponders.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"

// Posts on an object that is busy with another operation.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::ElementsAre;

using Fields = ZMap<ZString, ZString, ZLtstr>;

// Whether a thread of this process is asleep, as it is when it waits for another one.
bool IsAsleep(pid_t thread) {
  std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
  const std::string stat{std::istreambuf_iterator<char>(file), {}};
  const std::size_t name = stat.rfind(") ");
  return name != std::string::npos && stat[name + 2] == 'S';
}

class ZTransferBusyPost : public testing::Test {
 protected:
  ZTransferBusyPost() { WriteFile(m_folder / "input", "posted"); }

  // GET stops in the middle of its answer until m_goOn is open; a post is answered with its own body.
  void Serve(Connection& peer) {
    while (const std::optional<Request> request = peer.ReadRequest()) {
      if (request->method == "POST") {
        if (!m_downloadDone) m_postCameEarly = true;
        Status(200, request->body)(peer, *request);
        continue;
      }
      peer.Send(FormatHead(200, {{"Content-Length", "8"}}) + "down");
      if (!peer.WaitFor(m_goOn)) return;
      m_downloadDone = true;
      peer.Send("load");
    }
  }

  ZString Url() const { return Wide(m_server.Url()); }

  TempDir m_folder;
  Gate m_goOn;
  std::atomic<bool> m_downloadDone{false};
  std::atomic<bool> m_postCameEarly{false};
  ScriptedServer m_server{[this](Connection& peer) { Serve(peer); }};
  RecordingObserver m_observer;
  ZTransfer m_transfer;
};

TEST_F(ZTransferBusyPost, OfFieldsOrAFileIsRefusedAndDisturbsNothing) {
  m_transfer.Attach(&m_observer);
  ZString page;
  RunningOperation download(m_transfer, [&] { return m_transfer.Download(Url(), page); });
  ASSERT_TRUE(m_observer.FirstEvent().Wait());
  const std::string text = ErrorOf(m_transfer);
  const ZString input = WidePath(m_folder / "input");
  ZString result = L"before";
  EXPECT_THAT(m_transfer.Post(Url(), L"a", L"1"), IsCode(BASE_E_IN_USE));
  EXPECT_THAT(m_transfer.Post(Url(), L"a", L"1", result), IsCode(BASE_E_IN_USE));
  EXPECT_THAT(m_transfer.Post(Url(), Fields()), IsCode(BASE_E_IN_USE));
  EXPECT_THAT(m_transfer.Post(Url(), Fields(), result), IsCode(BASE_E_IN_USE));
  EXPECT_THAT(m_transfer.PostFile(Url(), input), IsCode(BASE_E_IN_USE));
  EXPECT_THAT(m_transfer.PostFile(Url(), input, WidePath(m_folder / "output")), IsCode(BASE_E_IN_USE));
  EXPECT_THAT(m_transfer.PostFile(Url(), WidePath(m_folder / "missing")), IsCode(BASE_E_IN_USE));
  EXPECT_EQ(ErrorOf(m_transfer), text);
  EXPECT_THAT(m_transfer.GetStatus(), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(Narrow(result), "before");
  EXPECT_THAT(NamesIn(m_folder.Path()), ElementsAre("input"));
  m_goOn.Open();
  EXPECT_EQ(download.Result(), TRANSFER_S_FINISHED);
  EXPECT_EQ(Narrow(page), "download");
  EXPECT_EQ(m_server.Requests().size(), 1u);
}

TEST_F(ZTransferBusyPost, OfDataOnAnotherThreadTakesItsTurn) {
  m_transfer.Attach(&m_observer);
  ZString page;
  ZString answer;
  std::atomic<pid_t> poster{0};
  RunningOperation download(m_transfer, [&] { return m_transfer.Download(Url(), page); });
  ASSERT_TRUE(m_observer.FirstEvent().Wait());
  RunningOperation post(m_transfer, [&] {
    poster = gettid();
    return m_transfer.PostData(Url(), L"data", answer);
  });
  EXPECT_TRUE(WaitUntil([&] { return poster != 0 && IsAsleep(poster); }));
  EXPECT_EQ(post.Result(Clock::now()), std::nullopt);
  EXPECT_EQ(m_server.Requests().size(), 1u);
  m_goOn.Open();
  EXPECT_EQ(download.Result(), TRANSFER_S_FINISHED);
  EXPECT_EQ(post.Result(), TRANSFER_S_FINISHED);
  EXPECT_EQ(Narrow(page), "download") << "undisturbed";
  EXPECT_EQ(Narrow(answer), "data");
  EXPECT_FALSE(m_postCameEarly);
  ASSERT_EQ(m_server.Requests().size(), 2u);
}

TEST_F(ZTransferBusyPost, OfDataOnManyThreadsRunsEachOnce) {
  constexpr int kThreads = 8;
  constexpr int kRounds = 20;
  m_downloadDone = true;
  std::atomic<int> posting{0};
  ScriptedServer server(KeepAlive([&](Connection& peer, const Request& request) {
    EXPECT_EQ(++posting, 1) << "two at once";
    --posting;
    Status(200, request.body)(peer, request);
  }));
  std::vector<std::thread> threads;
  for (int number = 0; number < kThreads; ++number) {
    threads.emplace_back([&, number] {
      for (int round = 0; round < kRounds; ++round) {
        const std::string data = std::to_string(number) + "." + std::to_string(round);
        ZString answer;
        EXPECT_THAT(m_transfer.PostData(Wide(server.Url()), Wide(data), answer), IsCode(TRANSFER_S_FINISHED));
        EXPECT_EQ(Narrow(answer), data);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(server.Requests().size(), std::size_t{kThreads} * kRounds);
  EXPECT_EQ(server.AcceptedConnections(), 1u) << "all on the object's one connection";
}

// Calls every kind of post from inside a transfer of the same object.
class PostingObserver : public ZTransfer::Observer {
 public:
  PostingObserver(ZTransfer& transfer, ZString url, ZString input)
      : m_transfer(transfer), m_url(std::move(url)), m_input(std::move(input)) {}

  void Update(int /*event*/, long /*value*/) override {
    const std::string text = ErrorOf(m_transfer);
    ZString result = L"before";
    codes = {m_transfer.PostData(m_url, L"x"), m_transfer.PostData(m_url, L"x", result),
             m_transfer.Post(m_url, L"a", L"1", result), m_transfer.PostFile(m_url, m_input)};
    EXPECT_EQ(ErrorOf(m_transfer), text);
    EXPECT_EQ(Narrow(result), "before");
  }

  std::vector<ZResult> codes;

 private:
  ZTransfer& m_transfer;
  const ZString m_url;
  const ZString m_input;
};

TEST_F(ZTransferBusyPost, OfAnyKindIsRefusedToAnObserver) {
  m_goOn.Open();
  PostingObserver observer(m_transfer, Url(), WidePath(m_folder / "input"));
  m_transfer.Attach(&observer);
  ZString page;
  EXPECT_THAT(m_transfer.Download(Url(), page), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(observer.codes, testing::AllOf(testing::SizeIs(4), testing::Each(IsCode(BASE_E_IN_USE))));
  EXPECT_EQ(Narrow(page), "download");
  observer.codes.clear();
  ZString answer;
  EXPECT_THAT(m_transfer.PostData(Url(), L"data", answer), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(observer.codes, testing::AllOf(testing::SizeIs(4), testing::Each(IsCode(BASE_E_IN_USE))));
  EXPECT_EQ(Narrow(answer), "data");
  EXPECT_EQ(m_server.Requests().size(), 2u);
}

}  // namespace
}  // namespace CorvaneTest
