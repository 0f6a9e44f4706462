#include <gmock/gmock.h>

#include <string>
#include <thread>

#include "tests/loopback/AdditionsTesting.h"
#include "tests/support/ScriptedFtpServer.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"

// What the getters tell of an answer that is just coming in, and to whom.
namespace CorvaneTest {
namespace {

using namespace Corvane;

struct Told {
  long status = -2;
  long long time = -2;
  ZResult urlCode = 0;
  ZResult validatorCode = 0;
  std::string url;
  std::string validator;
};

Told Ask(const ZTransfer& transfer) {
  Told told;
  ZString url(L"untouched"), validator(L"untouched");
  told.status = transfer.GetHttpStatus();
  told.time = transfer.GetModificationTime();
  told.urlCode = transfer.GetEffectiveUrl(url);
  told.validatorCode = transfer.GetValidator(validator);
  told.url = Narrow(url);
  told.validator = Narrow(validator);
  return told;
}

// Asks on the thread that it is told on, and on another one, at each event or block.
class Asking : public CollectingSink, public ZTransfer::Observer {
 public:
  explicit Asking(const ZTransfer& transfer) : m_transfer(transfer) {
    onWrite = [this] { Update(0, 0); };
  }
  void Update(int, long) override {
    here = Ask(m_transfer);
    std::thread([this] { elsewhere = Ask(m_transfer); }).join();
  }

  Told here, elsewhere;

 private:
  const ZTransfer& m_transfer;
};

void ExpectNothing(const Told& told) {
  EXPECT_EQ(told.status, 0);
  EXPECT_EQ(told.time, -1);
  EXPECT_THAT(told.urlCode, IsCode(BASE_E_BUSY));
  EXPECT_THAT(told.validatorCode, IsCode(BASE_E_BUSY));
  EXPECT_EQ(told.url, "untouched");
  EXPECT_EQ(told.validator, "untouched");
}

class AComingAnswer : public testing::Test {
 protected:
  static Responder Tagged(const std::string& tag) {
    ContentOptions options;
    options.headers = {{"ETag", tag}, {"Last-Modified", "Sat, 21 Nov 2026 10:00:00 GMT"}};
    return Content("content", options);
  }

  ZTransfer transfer;
  Asking asking{transfer};
  ZString text;
};

TEST_F(AComingAnswer, IsToldToASinkAndToNobodyElse) {
  ScriptedServer server(KeepAlive(Tagged("\"v1\"")));
  EXPECT_THAT(transfer.Download(Wide(server.Url("/a")), asking), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(asking.collected, "content");
  EXPECT_EQ(asking.here.status, 200);
  EXPECT_EQ(asking.here.time, 1795255200);
  EXPECT_THAT(asking.here.urlCode, IsCode(BASE_S_OK));
  EXPECT_EQ(asking.here.url, server.Url("/a"));
  EXPECT_THAT(asking.here.validatorCode, IsCode(BASE_S_OK));
  EXPECT_EQ(asking.here.validator, "\"v1\"");
  ExpectNothing(asking.elsewhere);
}

TEST_F(AComingAnswer, IsToldToAnObserverOfEachOperation) {
  ScriptedServer server(KeepAlive(Routes({{"/a", Tagged("\"v1\"")}, {"/b", Status(500, "page")}})));
  transfer.Attach(&asking);
  transfer.Download(Wide(server.Url("/a")), text);
  EXPECT_EQ(asking.here.validator, "\"v1\"");
  ExpectNothing(asking.elsewhere);
  transfer.Download(Wide(server.Url("/b")), text);
  EXPECT_EQ(asking.here.status, 500);
  EXPECT_EQ(asking.here.validator, "") << "nothing of the answer before";
  EXPECT_EQ(asking.here.time, -1);
  EXPECT_EQ(asking.here.url, server.Url("/b"));
  transfer.Detach(&asking);
}

TEST_F(AComingAnswer, IsTheOneBehindAllRedirectsWithoutItsPassword) {
  ScriptedServer server(KeepAlive(Routes({{"/a", Redirect("/b")}, {"/b", Tagged("\"v2\"")}})));
  ZTransferOptions options;
  options.mostRedirects = 1;
  EXPECT_EQ(transfer.SetOptions(options), 0u);
  const std::string host = "127.0.0.1:" + std::to_string(server.Port());
  EXPECT_THAT(transfer.Download(Wide("http://ada:s3cret@" + host + "/a"), asking), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(asking.here.status, 200);
  EXPECT_EQ(asking.here.validator, "\"v2\"");
  EXPECT_EQ(asking.here.url, "http://ada:***@" + host + "/b");
}

TEST_F(AComingAnswer, OfAnFtpServerHasATimeWhenAskedFor) {
  ScriptedFtpServer server({{"/f", "content"}});
  server.SetModificationTime("/f", "20261121100000");
  EXPECT_THAT(transfer.Download(Wide(server.Url("/f")), asking), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(asking.here.time, -1);
  ZTransferOptions options;
  options.askModificationTime = true;
  EXPECT_EQ(transfer.SetOptions(options), 0u);
  EXPECT_THAT(transfer.Download(Wide(server.Url("/f")), asking), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(asking.here.time, 1795255200);
  EXPECT_EQ(asking.here.status, 0);
  ExpectNothing(asking.elsewhere);
}

}  // namespace
}  // namespace CorvaneTest
