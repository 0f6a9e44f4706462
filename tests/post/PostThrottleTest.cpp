#include <gmock/gmock.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/HttpResponders.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/Sockets.h"
#include "tests/support/TempDir.h"
#include "tests/throttle/ScriptedClock.h"
#include "tests/throttle/ThrottleScript.h"

// With how many bytes real posts charge the throttle. The program has a clock of its own, on which the throttle's sleep tells
// the number exactly: limited to 1024 bytes a second from the first byte on, D bytes in the first second cost D - 1000
// milliseconds (in select's odd fields: the rest below a second stands in the microseconds).
namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::ElementsAre;
using testing::IsEmpty;

using Fields = ZMap<ZString, ZString, ZLtstr>;

constexpr std::size_t kBytes = 4321;

class ZTransferPostThrottle : public testing::Test {
 protected:
  ZTransferPostThrottle() { WriteFile(m_folder / "input", std::string(kBytes, 'x')); }
  ~ZTransferPostThrottle() override { ZTransfer::SetThrottling(0, 0, false); }

  // Begins a measure period, a second before now. The bytes of the call that begins it are not counted.
  void BeginPeriod() {
    ZTransfer::SetThrottling(kUnmeasured, 1, false);
    ZTransfer transfer;
    transfer.PostData(m_refused, ZString());
    m_clock.Advance(1000);
    m_clock.TakeSleeps();
  }

  // The sleep that so many bytes cost.
  static Sleep SleepFor(std::size_t bytes) {
    const auto wait = static_cast<long long>(bytes) - 1000;
    return {wait / 1000, wait % 1000};
  }

  struct Form {
    std::string name;
    std::function<ZResult(ZTransfer&, const ZString& url)> post;  // of kBytes bytes
  };

  std::vector<Form> Forms() const {
    const ZString field(std::wstring(kBytes - 2, L'x'));
    const ZString half(std::wstring(kBytes / 2 - 2, L'x'));
    const Fields fields{{L"a", half}, {L"b", half}};  // "a=...&b=..."
    const ZString data(std::wstring(kBytes / 2, L'\u00E9') + L'x');
    const ZString cut(std::wstring(kBytes, L'x') + std::wstring(1, L'\0') + std::wstring(500, L'y'));
    const ZString input = WidePath(m_folder / "input");
    return {
        {"field", [=](ZTransfer& t, const ZString& url) { return t.Post(url, L"a", field); }},
        {"fields", [=](ZTransfer& t, const ZString& url) { return t.Post(url, fields); }},
        {"data", [=](ZTransfer& t, const ZString& url) { return t.PostData(url, data); }},
        {"data up to its zero", [=](ZTransfer& t, const ZString& url) { return t.PostData(url, cut); }},
        {"file", [=](ZTransfer& t, const ZString& url) { return t.PostFile(url, input); }},
    };
  }

  TempDir m_folder;
  ScriptedClock m_clock;
  PortReservation m_nobody;  // bound, but not listening
  ZString m_refused = Wide("http://127.0.0.1:" + std::to_string(m_nobody.Port()) + "/");
};

TEST_F(ZTransferPostThrottle, IsChargedOnceWithThePostedBytes) {
  ScriptedServer server(KeepAlive(Status(200)));
  for (const Form& form : Forms()) {
    ZTransfer transfer;
    BeginPeriod();
    EXPECT_THAT(form.post(transfer, Wide(server.Url())), IsCode(TRANSFER_S_FINISHED)) << form.name;
    EXPECT_EQ(server.Requests().back().bodySize, kBytes) << form.name;
    EXPECT_THAT(m_clock.TakeSleeps(), ElementsAre(SleepFor(kBytes))) << form.name;
  }
}

TEST_F(ZTransferPostThrottle, IsChargedWithTheAnswerBesides) {
  ScriptedServer server(KeepAlive(Status(200, std::string(100, 'a'))));
  for (const Form& form : Forms()) {
    ZTransfer transfer;
    BeginPeriod();
    EXPECT_THAT(form.post(transfer, Wide(server.Url())), IsCode(TRANSFER_S_FINISHED)) << form.name;
    EXPECT_THAT(m_clock.TakeSleeps(), ElementsAre(SleepFor(kBytes + 100))) << form.name;
  }
}

TEST_F(ZTransferPostThrottle, IsChargedAlsoAfterAPostThatWasRefusedOrFailed) {
  ScriptedServer broken(KeepAlive(Status(500)));
  ScriptedServer silent([](Connection& peer) { peer.ReadRequest(); });
  for (const ZString& url : {Wide(broken.Url()), Wide(silent.Url()), m_refused}) {
    for (const Form& form : Forms()) {
      ZTransfer transfer;
      BeginPeriod();
      EXPECT_TRUE(IsFailure(form.post(transfer, url))) << form.name;
      EXPECT_THAT(m_clock.TakeSleeps(), ElementsAre(SleepFor(kBytes))) << Narrow(url) << ", " << form.name;
    }
  }
}

TEST_F(ZTransferPostThrottle, IsNotChargedByAnObjectThatDoesNotUseIt) {
  ScriptedServer server(KeepAlive(Status(200, std::string(3000, 'a'))));
  for (const Form& form : Forms()) {
    ZTransfer free;
    ZTransfer charged;
    ASSERT_THAT(free.UseThrottling(false), IsCode(BASE_S_OK));
    BeginPeriod();
    EXPECT_THAT(form.post(free, Wide(server.Url())), IsCode(TRANSFER_S_FINISHED)) << form.name;
    EXPECT_THAT(m_clock.TakeSleeps(), IsEmpty()) << form.name;
    charged.PostData(m_refused, ZString(std::wstring(2000, L'x')));
    EXPECT_THAT(m_clock.TakeSleeps(), ElementsAre(SleepFor(2000))) << form.name << ": the others were not counted";
  }
}

TEST_F(ZTransferPostThrottle, IsNotChargedForAFileThatCannotBeOpened) {
  ZTransfer transfer;
  BeginPeriod();
  transfer.PostFile(m_refused, WidePath(m_folder / "missing"));
  transfer.PostFile(m_refused, WidePath(m_folder / "input"), WidePath(m_folder / "no/output"));
  EXPECT_THAT(m_clock.TakeSleeps(), IsEmpty());
  transfer.PostData(m_refused, ZString(std::wstring(2000, L'x')));
  EXPECT_THAT(m_clock.TakeSleeps(), ElementsAre(SleepFor(2000)));
}

// The throttle counts in 32 bits.
TEST_F(ZTransferPostThrottle, IsChargedWithTheSizeOfAHugeFileModulo32Bits) {
  std::filesystem::resize_file(m_folder / "input", (std::uintmax_t{1} << 32) + kBytes);
  ZTransfer transfer;
  BeginPeriod();
  EXPECT_THAT(transfer.PostFile(m_refused, WidePath(m_folder / "input")), IsCode(CurlFailure(kRefusedConnection)));
  EXPECT_THAT(m_clock.TakeSleeps(), ElementsAre(SleepFor(kBytes)));
}

}  // namespace
}  // namespace CorvaneTest
