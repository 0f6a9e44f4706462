#include <gmock/gmock.h>

#include <string>

#include "tests/mirror/FetchLoopTesting.h"

// What the getters tell of a run.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::ElementsAre;

namespace fs = std::filesystem;

// --- counters

constexpr long long kStart = 1600000000000000;

TEST_F(FetchLoop, TimeAndRateAreThoseOfTheWholeRun) {
  Serve(Files{{"a", MakePattern(300000)}, {"b", MakePattern(100000)}});
  m_system.now = kStart;
  m_system.onCall = [this](const std::string& call) {
    if (call == "chmod a 755") m_system.now = kStart + 1500000;
    if (call == "chmod b 755") m_system.now = kStart + 2000999;
  };
  EXPECT_THAT(Run(false), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(m_mirror.GetDownloadTime(), 2000);
  const unsigned long long moved = m_mirror.GetTransferSize();
  EXPECT_GT(moved, 400000u);
  EXPECT_EQ(m_mirror.GetTransferRate(), static_cast<unsigned int>(static_cast<long double>(moved) / 2.000999L / 1024));
  EXPECT_EQ(m_mirror.GetDownloadSize(), 400000u) << "the listing is no file";
}

// Files without a transfer bring the counters up to date like the others.
TEST_F(FetchLoop, TimeGoesOnOverFilesThatAreNotFetched) {
  Serve(Status(200, "new"));
  for (const bool complete : {false, true}) {
    if (complete) WriteLocal("a", "old");
    m_mirror.SetIgnoreList(complete ? Container::ZStringList{} : Container::ZStringList{L"a"});
    m_system.now = kStart;
    m_system.onCall = [this](const std::string& call) {
      if (call == "space") m_system.now = kStart + 7000;
    };
    long long time = -1;
    AtFirstData observer([&] { time = m_mirror.GetDownloadTime(); });
    m_mirror.Attach(&observer);
    EXPECT_THAT(Run({{L"a", 3}, {L"b", 3}}, true), IsCode(TRANSFER_S_FINISHED));
    EXPECT_EQ(time, 7) << (complete ? "complete" : "ignored");
    m_mirror.Detach(&observer);
    fs::remove(Local("b"));
  }
  EXPECT_THAT(Targets(), ElementsAre("/dir/b", "/dir/b"));
}

TEST_F(FetchLoop, AFailureIsCountedAfterTheTimesAreSet) {
  Serve(Files{{"a", "1"}});
  m_mirror.SetFileTimeList(Times{{L"a", kTime}});
  m_system.now = kStart;
  long long atTimes = -1;
  m_system.onCall = [&](const std::string& call) {
    if (call == "chmod a 755") m_system.now = kStart + 3000;
    if (call.rfind("times", 0) == 0) atTimes = m_mirror.GetDownloadTime();
  };
  AtFirstData observer([&] {
    if (m_mirror.GetDownloadTime() != 0) m_system.now = kStart + 8000;  // the second file
  });
  m_mirror.Attach(&observer);
  EXPECT_THAT(Run({{L"a", 1}, {L"b", 1}}), IsCode(TRANSFER_E_CONNECT));
  EXPECT_EQ(atTimes, 3);
  EXPECT_EQ(m_mirror.GetDownloadTime(), 8);
}

TEST_F(FetchLoop, AListingThatFailsIsCounted) {
  Serve(Status(404, "nothing here"));
  m_system.now = kStart;
  AtFirstData observer([&] { m_system.now = kStart + 1000; });
  m_mirror.Attach(&observer);
  EXPECT_THAT(Run(false), IsCode(TRANSFER_E_CONNECT));
  EXPECT_EQ(m_mirror.GetDownloadTime(), 1);
  EXPECT_GT(m_mirror.GetTransferRate(), 0u);
  EXPECT_EQ(m_mirror.GetDownloadSize(), 0u);
}

TEST_F(FetchLoop, NoTimeMakesNoRate) {
  Serve(Files{{"a", "1"}});
  m_system.now = kStart;
  EXPECT_THAT(Run({{L"a", 1}}), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(m_mirror.GetDownloadTime(), 0);
  EXPECT_EQ(m_mirror.GetTransferRate(), 0u);
  EXPECT_GT(m_mirror.GetTransferSize(), 0u);
}

TEST_F(FetchLoop, AClockSetBackMakesNoTime) {
  Serve(Files{{"a", "1"}});
  m_system.now = kStart;
  m_system.onCall = [this](const std::string&) { m_system.now = kStart - 1000000; };
  EXPECT_THAT(Run({{L"a", 1}}), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(m_mirror.GetDownloadTime(), 0);
  EXPECT_EQ(m_mirror.GetTransferRate(), 0u);
}

TEST_F(FetchLoop, OfARateBeyond32BitsTheLowHalfIsKept) {
  Serve(Files{{"a", std::string(5000000, 'x')}});
  m_system.now = kStart;
  m_system.onCall = [this](const std::string&) { m_system.now = kStart + 1; };
  EXPECT_THAT(Run({{L"a", 5000000}}), IsCode(TRANSFER_S_FINISHED));
  const long double rate = static_cast<long double>(m_mirror.GetTransferSize()) / 1024 * 1000 * 1000;
  ASSERT_GT(rate, 4294967296.0L);
  EXPECT_EQ(m_mirror.GetTransferRate(), static_cast<unsigned int>(static_cast<long long>(rate)));
}

TEST_F(FetchLoop, TransferSizeIsEveryByteInBothDirections) {
  std::size_t sent = 0;
  const auto answer = [&sent](Connection& peer, const Request& request) {
    const std::string body = request.target == "/dir/" ? PageOf({"a", "b"}) : "content of " + request.target;
    const std::string bytes = FormatHead(200, {{"Content-Length", std::to_string(body.size())}}) + body;
    sent += bytes.size();
    peer.Send(bytes);
  };
  Serve(answer);
  EXPECT_THAT(Run(false), IsCode(TRANSFER_S_FINISHED));
  std::size_t received = 0;
  for (const Request& request : m_server->Requests()) received += request.raw.size();
  m_server->Stop();
  EXPECT_EQ(m_mirror.GetTransferSize(), sent + received);
}

TEST_F(FetchLoop, CountersBeginAnewWithEachRun) {
  Serve(Files{{"a", "1"}});
  m_system.now = kStart;
  m_system.onCall = [this](const std::string&) { *m_system.now += 1000; };
  EXPECT_THAT(Run({{L"a", 1}}), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(m_mirror.GetDownloadTime(), 2) << "space and mode";
  const unsigned long long moved = m_mirror.GetTransferSize();
  EXPECT_THAT(Run({{L"a", 1}}), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(m_mirror.GetTransferSize(), moved);
  EXPECT_EQ(m_mirror.GetDownloadSize(), 1u);
  EXPECT_EQ(m_mirror.GetDownloadTime(), 2);
  m_mirror.Download(L"http://", L"/", false);
  EXPECT_EQ(m_mirror.GetDownloadTime(), 0);
  EXPECT_EQ(m_mirror.GetTransferSize(), 0u);
  EXPECT_EQ(m_mirror.GetDownloadSize(), 0u);
  EXPECT_EQ(m_mirror.GetTransferRate(), 0u);
}

}  // namespace
}  // namespace CorvaneTest
