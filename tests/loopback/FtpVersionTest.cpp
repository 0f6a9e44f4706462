#include <gmock/gmock.h>

#include <string>

#include "tests/loopback/AdditionsTesting.h"
#include "tests/support/ScriptedFtpServer.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"

// What proves over FTP that a file is still the same: its size and its time.
namespace CorvaneTest {
namespace {

using namespace Corvane;

constexpr const char* kVersion = "SIZE 1000 MDTM 1795255200";

class AnFtpVersion : public testing::Test {
 protected:
  AnFtpVersion() {
    server.SetModificationTime("/f", "20261121100000");
    WriteFile(folder / "f", old);
  }

  void Set(const std::string& validator, bool askTime, bool check = true) {
    ZTransferOptions options;
    options.checkResume = check;
    options.validator = Wide(validator);
    options.askModificationTime = askTime;
    EXPECT_THAT(transfer.SetOptions(options), IsCode(BASE_S_OK));
  }

  std::string Validator() {
    ZString validator(L"untouched");
    EXPECT_THAT(transfer.GetValidator(validator), IsCode(BASE_S_OK));
    return Narrow(validator);
  }

  ZResult Resume(const std::string& url) { return transfer.DownloadFile(Wide(url), WidePath(folder / "f"), true); }

  void ExpectChanged(const std::string& why) {
    EXPECT_THAT(Resume(server.Url("/f")), IsCode(CurlFailure(kRangeError))) << why;
    EXPECT_EQ(ErrorOf(transfer), "The file on the server has changed. Cannot resume.") << why;
    EXPECT_THAT(CauseOf(transfer), IsCode(CurlFailure(kRangeError))) << why;
    EXPECT_TRUE(FileHolds(folder / "f", old)) << why;
  }

  const std::string content = MakePattern(1000);
  const std::string old = content.substr(0, 500);
  ScriptedFtpServer server{{"/f", content}};
  TempDir folder;
  ZTransfer transfer;
  ZString result;
};

TEST_F(AnFtpVersion, IsToldWhereTheServerTellsBoth) {
  EXPECT_THAT(transfer.Download(Wide(server.Url("/f")), result), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(Validator(), "") << "unasked";
  Set("", true);
  transfer.Download(Wide(server.Url("/f")), result);
  EXPECT_EQ(Validator(), kVersion);
  EXPECT_THAT(Resume(server.Url("/f")), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(Validator(), kVersion) << "of the whole, also after a resume";
  server.SetReply("MDTM", "502 What?");
  transfer.Download(Wide(server.Url("/f")), result);
  EXPECT_EQ(Validator(), "") << "no time";
  server.SetReply("MDTM", "213 20261121100000");
  server.SetReply("SIZE", "502 What?");
  transfer.Download(Wide(server.Url("/f")), result);
  EXPECT_EQ(Validator(), "") << "no size";
}

TEST_F(AnFtpVersion, IsToldOfAFileThatWasCutOffAndOfAnEmptyOne) {
  Set("", true);
  server.CutDataAfter(300);
  EXPECT_THAT(transfer.Download(Wide(server.Url("/f")), result), IsCode(CurlFailure(kPartialFile)));
  EXPECT_EQ(Validator(), kVersion);
  server.CutDataAfter(std::nullopt);
  server.SetFile("/empty", "");
  server.SetModificationTime("/empty", "19700101000000");
  EXPECT_THAT(transfer.Download(Wide(server.Url("/empty")), result), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(Validator(), "SIZE 0 MDTM 0");
}

TEST_F(AnFtpVersion, IsToldToASinkBeforeTheFirstByte) {
  Set("", true);
  CollectingSink sink;
  std::string told;
  sink.onWrite = [&] {
    if (told.empty()) told = Validator();
  };
  EXPECT_THAT(transfer.Download(Wide(server.Url("/f")), sink, 300), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(told, kVersion);
}

TEST_F(AnFtpVersion, IsNotToldOfTheOperationAfterIt) {
  Set("", true);
  transfer.Download(Wide(server.Url("/f")), result);
  EXPECT_EQ(Validator(), kVersion);
  ScriptedServer http(KeepAlive(Content(content)));
  transfer.Download(Wide(http.Url()), result);
  EXPECT_EQ(Validator(), "");
}

TEST_F(AnFtpVersion, ThatIsTheSameContinuesTheFile) {
  Set(kVersion, true);
  EXPECT_THAT(Resume(server.Url("/f")), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(folder / "f", content));
}

TEST_F(AnFtpVersion, ThatDiffersLeavesTheFileAlone) {
  Set("SIZE 1000 MDTM 1795255199", true);
  ExpectChanged("another time");
  Set("SIZE 999 MDTM 1795255200", true);
  ExpectChanged("another size");
  Set("\"v1\"", true);
  ExpectChanged("a validator of HTTP");
  Set(kVersion, false);
  ExpectChanged("nobody asked for the time");
}

TEST_F(AnFtpVersion, ThatTheServerTellsNoMoreLeavesTheFileAlone) {
  Set(kVersion, true);
  server.SetReply("MDTM", "502 What?");
  ExpectChanged("no time");
  server.SetReply("MDTM", "213 20261121100000");
  server.SetReply("SIZE", "502 What?");
  ExpectChanged("no size");
}

TEST_F(AnFtpVersion, OfAFileThatHasBecomeShorterLeavesTheLocalOneAlone) {
  for (const std::size_t size : {100u, 467u, 468u, 480u, 500u}) {
    server.SetFile("/f", content.substr(0, size));
    Set(kVersion, true);
    ExpectChanged(std::to_string(size));
    if (size == 500) continue;
    Set("", false);
    ExpectChanged(std::to_string(size) + " without a validator");
  }
}

TEST_F(AnFtpVersion, IsNotLookedAtUnlessAResumeIsChecked) {
  Set("SIZE 1 MDTM 1", true, false);
  EXPECT_THAT(Resume(server.Url("/f")), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(folder / "f", content));
}

TEST_F(AnFtpVersion, ProvesNothingOverHttp) {
  ScriptedServer http(OncePerConnection(Content(content)));
  Set(kVersion, true);
  EXPECT_THAT(Resume(http.Url()), IsCode(CurlFailure(kRangeError)));
  EXPECT_EQ(ErrorOf(transfer), "The file on the server has changed. Cannot resume.");
  EXPECT_TRUE(FileHolds(folder / "f", old));
  EXPECT_FALSE(http.Requests()[0].Header("If-Range"));
}

}  // namespace
}  // namespace CorvaneTest
