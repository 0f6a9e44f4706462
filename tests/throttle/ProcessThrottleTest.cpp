// The one throttle of the process, reached through transfer objects. No network is needed: a post charges the throttle with its
// body also when nobody listens.

#include <Corvane/Transfer.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/Sockets.h"
#include "tests/throttle/ThrottleScript.h"

namespace Corvane {
namespace {

using CorvaneTest::kUnmeasured;
using CorvaneTest::LineRecorder;
using CorvaneTest::PortReservation;
using CorvaneTest::ScriptedClock;
using CorvaneTest::Sleep;
using CorvaneTest::UnmeasuredLine;

using Lines = std::vector<std::wstring>;
using Sleeps = std::vector<Sleep>;

class ProcessThrottle : public testing::Test {
 protected:
  ProcessThrottle() { EXPECT_EQ(ZTransfer::SetThrottling(kUnmeasured, 10, false), 0u); }
  ~ProcessThrottle() override { ZTransfer::SetThrottling(0, 0, false); }

  // Charges the throttle with `bytes` through `transfer`.
  void Charge(ZTransfer& transfer, std::size_t bytes = 0) {
    EXPECT_EQ(transfer.PostData(m_url, ZString(std::wstring(bytes, L'x'))), 0x80010007u) << "refused";
  }

  // The throttle's lines, without those of the objects' own making and end.
  Lines TakeLines() {
    Lines lines;
    for (const std::wstring& message : m_log.Messages()) {
      if (message.find(L"easure period") != std::wstring::npos) lines.push_back(message);
    }
    m_log.Forget();
    return lines;
  }

  // Whether the throttle begins a new period with the next call.
  bool HasRestarted(ZTransfer& transfer) {
    Charge(transfer);
    return !TakeLines().empty();
  }

  ScriptedClock m_clock;
  LineRecorder m_log;
  PortReservation m_nobody;  // bound, but not listening
  ZString m_url = ZString("http://127.0.0.1:") + ZString().SetNum(unsigned{m_nobody.Port()}) + L"/";
};

TEST_F(ProcessThrottle, IsConfiguredByTheStaticSetter) {
  ZTransfer transfer;
  Charge(transfer);
  EXPECT_EQ(TakeLines(), (Lines{UnmeasuredLine(10'240)}));
  EXPECT_EQ(ZTransfer::SetThrottling(kUnmeasured, 3, false), 0u);
  Charge(transfer);
  EXPECT_EQ(TakeLines(), (Lines{UnmeasuredLine(3'072)}));
}

TEST_F(ProcessThrottle, IsSharedByAllObjects) {
  ZTransfer first;
  ZTransfer second;
  Charge(first);
  EXPECT_EQ(TakeLines().size(), 1u);
  m_clock.Advance(1000);
  Charge(first, 10'240);
  EXPECT_EQ(m_clock.TakeSleeps(), Sleeps()) << "10240 b/s";
  Charge(second, 10'240);
  EXPECT_EQ(m_clock.TakeSleeps(), (Sleeps{{1, 48}})) << "20480 b/s together";
  EXPECT_EQ(TakeLines(), Lines()) << "one period for both";
}

TEST_F(ProcessThrottle, IsLeftAloneByAnObjectThatDoesNotUseIt) {
  ZTransfer transfer;
  Charge(transfer);
  m_clock.Advance(1000);
  EXPECT_EQ(transfer.UseThrottling(false), 0u);
  Charge(transfer, 100'000);
  EXPECT_EQ(m_clock.TakeSleeps(), Sleeps());
  EXPECT_EQ(transfer.UseThrottling(true), 0u);
  Charge(transfer, 20'480);
  EXPECT_EQ(m_clock.TakeSleeps(), (Sleeps{{1, 48}})) << "without the 100,000 bytes";
}

TEST_F(ProcessThrottle, RestartsWithTheFirstObject) {
  {
    ZTransfer first;
    EXPECT_TRUE(HasRestarted(first));
    ZTransfer second;
    EXPECT_FALSE(HasRestarted(second));
  }
  ZTransfer next;
  EXPECT_TRUE(HasRestarted(next)) << "both destructors were counted";
}

TEST_F(ProcessThrottle, GoesOnWhileAnyObjectIsAlive) {
  auto current = std::make_unique<ZTransfer>();
  EXPECT_TRUE(HasRestarted(*current));
  for (int i = 0; i < 3; ++i) {
    auto next = std::make_unique<ZTransfer>();
    current = std::move(next);
    EXPECT_FALSE(HasRestarted(*current));
  }
}

TEST_F(ProcessThrottle, GoesOnFromObjectToObjectBetweenStartAndFinishMulti) {
  EXPECT_EQ(ZTransfer::StartMulti(), 0u);
  std::optional<ZTransfer> transfer(std::in_place);
  EXPECT_TRUE(HasRestarted(*transfer));
  transfer.reset();
  transfer.emplace();
  EXPECT_FALSE(HasRestarted(*transfer));
  transfer.reset();
  EXPECT_EQ(ZTransfer::FinishMulti(), 0u);
  transfer.emplace();
  EXPECT_TRUE(HasRestarted(*transfer));
}

TEST_F(ProcessThrottle, CountsNestedStartMulti) {
  ZTransfer::StartMulti();
  ZTransfer::StartMulti();
  ZTransfer::FinishMulti();
  std::optional<ZTransfer> transfer(std::in_place);
  EXPECT_TRUE(HasRestarted(*transfer));
  transfer.reset();
  transfer.emplace();
  EXPECT_FALSE(HasRestarted(*transfer)) << "one StartMulti is still open";
  transfer.reset();
  ZTransfer::FinishMulti();
}

TEST_F(ProcessThrottle, IgnoresAFinishMultiTooMany) {
  EXPECT_EQ(ZTransfer::FinishMulti(), 0u);
  EXPECT_EQ(ZTransfer::FinishMulti(), 0u);
  ZTransfer first;
  EXPECT_TRUE(HasRestarted(first));
  ZTransfer second;
  EXPECT_FALSE(HasRestarted(second)) << "the count had stayed at 0";
}

}  // namespace
}  // namespace Corvane
