// Which options libcurl gets, in which order and with which values.

#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "tests/recorder/Allocations.h"
#include "tests/recorder/Scenarios.h"
#include "tests/recorder/TransferTest.h"
#include "tests/support/Env.h"

namespace CorvaneTest {
namespace {

class ZTransferOptions : public TransferTest {};

TEST_F(ZTransferOptions, AreHandedToLibcurlInAFixedOrderAndNoOthers) {
  for (const Scenario& scenario : AllScenarios(folder)) {
    SCOPED_TRACE(scenario.name);
    ZTransfer transfer;
    if (scenario.configure) scenario.configure(transfer);
    if (scenario.prepare) scenario.prepare();
    curl.Respond(200, scenario.answer);
    curl.Clear();
    ZString result;
    EXPECT_EQ(scenario.run(transfer, result), kFinished);
    EXPECT_THAT(curl.OptionsBeforeRequest(), ElementsAreArray(Texts(scenario.options)));
  }
}

TEST_F(ZTransferOptions, AreAllSetBetweenTheResetOfTheHandleAndTheRequest) {
  for (const Scenario& scenario : AllScenarios(folder)) {
    SCOPED_TRACE(scenario.name);
    ZTransfer transfer;
    if (scenario.configure) scenario.configure(transfer);
    if (scenario.prepare) scenario.prepare();
    curl.Respond(200, scenario.answer);
    curl.Clear();
    ZString result;
    scenario.run(transfer, result);
    std::vector<std::string> expected = {"reset"};
    for (const std::string& option : Texts(scenario.options)) expected.push_back("setopt " + option);
    expected.emplace_back("perform");
    std::vector<std::string> calls = curl.Calls();
    ASSERT_GE(calls.size(), expected.size());
    calls.resize(expected.size());
    EXPECT_EQ(calls, expected);
    EXPECT_EQ(curl.Count("perform"), 1u) << "there is no retry";
  }
}

TEST_F(ZTransferOptions, TextsAndObjectsStayInPlaceDuringTheRequest) {
  ZTransfer transfer;
  EXPECT_EQ(transfer.SetCredentials(L"user", L"secret"), 0u);
  EXPECT_EQ(transfer.SetSSL(false, true, ZString(), Path("")), 0u);
  curl.perform = [](const EasyHandle& handle) {
    for (const CURLoption option : {CURLOPT_URL, CURLOPT_USERPWD, CURLOPT_CAPATH, CURLOPT_POSTFIELDS}) {
      const OptionCall call = handle.Get(option);
      EXPECT_EQ(static_cast<const char*>(call.pointer), call.text) << option;
    }
    EXPECT_EQ(handle.Get(CURLOPT_WRITEDATA).pointer, handle.Get(CURLOPT_HEADERDATA).pointer);
    return CURLE_OK;
  };
  EXPECT_EQ(transfer.PostData(L"https://host/", L"some data"), kFinished);
}

TEST_F(ZTransferOptions, TheResumePositionOfOneOperationIsNotThatOfTheNext) {
  WriteFile(folder / "out", MakePattern(100));
  ZTransfer transfer;
  transfer.DownloadFile(L"http://host/", Path("out"), true);
  EXPECT_EQ(curl.ValuesOf(CURLOPT_RESUME_FROM_LARGE).back(), "68");
  ZString result;
  for (const auto& operation : std::vector<std::function<void()>>{
           [&] { transfer.Download(L"http://host/", result); }, [&] { transfer.PostData(L"http://host/", L"x"); },
           [&] { transfer.PostFile(L"http://host/", Path("out")); },
           [&] { transfer.DownloadFile(L"http://host/", Path("out"), false); }}) {
    operation();
    EXPECT_EQ(curl.ValuesOf(CURLOPT_RESUME_FROM_LARGE).back(), "0");
  }
}

// --- Verification of HTTPS servers. ---

enum class Found { kUnset, kMissing, kThere };
constexpr Found kFound[] = {Found::kUnset, Found::kMissing, Found::kThere};

class HttpsVerification : public TransferTest {
 protected:
  HttpsVerification() {
    WriteFile(folder / "file", "no certificate");
    std::filesystem::create_directory(folder / "directory");
  }

  ZString PathOf(const std::string& name, Found found) {
    if (found == Found::kUnset) return {};
    return Path(found == Found::kThere ? name : "no-" + name);
  }

  // The options and the log lines of a download with these settings, without those that every download has.
  void Run(bool host, bool peer, const ZString& caFile, const ZString& caDirectory) {
    ZTransfer transfer;
    EXPECT_EQ(transfer.SetSSL(host, peer, caFile, caDirectory), 0u);
    curl.Clear();
    logger.Clear();
    ZString result;
    EXPECT_EQ(transfer.Download(L"https://host/", result), kFinished);
    std::vector<std::string> all = curl.Options();
    const std::size_t before = Texts(Basics("https://host/") + HeaderCollection()).size();
    ASSERT_GE(all.size(), before + 2);
    options.assign(all.begin() + static_cast<std::ptrdiff_t>(before), all.end() - 2);
    lines = logger.Lines();
  }

  std::vector<std::string> options;
  std::vector<std::string> lines;
};

TEST_F(HttpsVerification, PrefersAnExistingDirectoryToAnExistingFileInEveryCombination) {
  const std::string file = (folder / "file").string();
  const std::string directory = (folder / "directory").string();
  for (const bool host : {false, true}) {
    for (const bool peer : {false, true}) {
      for (const Found fileFound : kFound) {
        for (const Found directoryFound : kFound) {
          SCOPED_TRACE(testing::Message() << "host " << host << ", peer " << peer << ", file " << int(fileFound)
                                          << ", directory " << int(directoryFound));
          Run(host, peer, PathOf("file", fileFound), PathOf("directory", directoryFound));
          std::vector<std::string> expected;
          if (host) expected = {"81=2"};
          if (peer && directoryFound == Found::kThere) {
            expected.insert(expected.end(), {"64=1", "10097='" + directory + "'"});
          } else if (peer && fileFound == Found::kThere) {
            expected.insert(expected.end(), {"64=1", "10065='" + file + "'"});
          }
          EXPECT_EQ(options, expected);
        }
      }
    }
  }
}

TEST_F(HttpsVerification, BothFlagsFalseSetsAndLogsNothing) {
  Run(false, false, Path("file"), Path("directory"));
  EXPECT_THAT(options, IsEmpty());
  EXPECT_THAT(lines, IsEmpty());
}

TEST_F(HttpsVerification, HostAloneIsLoggedAndLeavesThePeerUnverified) {
  Run(true, false, Path("file"), Path("directory"));
  EXPECT_THAT(options, ElementsAre("81=2"));
  EXPECT_THAT(lines, ElementsAre("I ApplyExtraHttpsSettings: Verify Host was specified"));
}

TEST_F(HttpsVerification, ThePeerCheckIsLoggedWithTheDirectory) {
  Run(true, true, Path("file"), Path("directory"));
  EXPECT_THAT(lines, ElementsAre("I ApplyExtraHttpsSettings: Verify Host was specified",
                                 "I ApplyExtraHttpsSettings: Verify Peer specified and CADir was supplied. CADir=" +
                                     (folder / "directory").string()));
}

TEST_F(HttpsVerification, ThePeerCheckIsLoggedWithTheFile) {
  Run(false, true, Path("file"), Path("no-directory"));
  EXPECT_THAT(lines, ElementsAre("I ApplyExtraHttpsSettings: Verify Peer specified and CAFile was supplied. CAFile=" +
                                 (folder / "file").string()));
}

TEST_F(HttpsVerification, WarnsThatThePeerIsNotVerifiedAndNamesWhatIsMissing) {
  struct Case {
    Found file, directory;
  };
  for (const Case& c : {Case{Found::kMissing, Found::kUnset}, Case{Found::kMissing, Found::kMissing},
                        Case{Found::kUnset, Found::kMissing}, Case{Found::kUnset, Found::kUnset}}) {
    Run(false, true, PathOf("file", c.file), PathOf("directory", c.directory));
    EXPECT_THAT(options, IsEmpty());
    EXPECT_THAT(lines,
                ElementsAre("W ApplyExtraHttpsSettings: Verify Peer specified, but neither CAFile or CADir "
                            "supplied. CAFile=" +
                            Narrow(PathOf("file", c.file)) + " CADir=" + Narrow(PathOf("directory", c.directory))));
  }
}

TEST_F(HttpsVerification, AFileIsNoDirectory) {
  Run(false, true, ZString(), Path("file"));
  EXPECT_THAT(options, IsEmpty());
  Run(false, true, Path("file"), Path("file"));
  EXPECT_THAT(options, ElementsAre("64=1", "10065='" + (folder / "file").string() + "'"));
}

TEST_F(HttpsVerification, PathsGoOutInTheLocalEncoding) {
  const ZString path = Path("c\xC3\xA9.pem");  // the test's own locale is UTF-8
  WriteFile(folder / "c\xC3\xA9.pem", "no certificate");
  Run(false, true, path, ZString());
  EXPECT_THAT(options, ElementsAre("64=1", "10065='" + (folder / "c\xC3\xA9.pem").string() + "'"));
}

TEST_F(HttpsVerification, EmptyPathsClearTheStoredOnes) {
  ZTransfer transfer;
  EXPECT_EQ(transfer.SetSSL(false, true, Path("file"), Path("directory")), 0u);
  EXPECT_EQ(transfer.SetSSL(false, true, ZString(), ZString()), 0u);
  curl.Clear();
  ZString result;
  transfer.Download(L"https://host/", result);
  EXPECT_THAT(curl.ValuesOf(CURLOPT_SSL_VERIFYPEER), ElementsAre("0"));
  EXPECT_THAT(curl.ValuesOf(CURLOPT_CAPATH), IsEmpty());
  EXPECT_THAT(curl.ValuesOf(CURLOPT_CAINFO), IsEmpty());
}

TEST_F(HttpsVerification, IsSwitchedOnAgainForEveryHttpsTransferAndForNoOther) {
  ZTransfer transfer;
  EXPECT_EQ(transfer.SetSSL(true, true, Path("file"), Path("directory")), 0u);
  struct Case {
    const wchar_t* url;
    std::vector<std::string> host, peer;
  };
  const Case cases[] = {{L"https://a/", {"0", "2"}, {"0", "1"}},
                        {L"http://a/", {"0"}, {"0"}},
                        {L"HTTPS://a/", {"0", "2"}, {"0", "1"}},
                        {L"ftp://a/", {"0"}, {"0"}},
                        {L"hTTpS://a/", {"0", "2"}, {"0", "1"}}};
  for (const Case& c : cases) {
    curl.Clear();
    logger.Clear();
    ZString result;
    EXPECT_EQ(transfer.Download(c.url, result), kFinished);
    EXPECT_EQ(curl.ValuesOf(CURLOPT_SSL_VERIFYHOST), c.host) << Narrow(c.url);
    EXPECT_EQ(curl.ValuesOf(CURLOPT_SSL_VERIFYPEER), c.peer) << Narrow(c.url);
    EXPECT_EQ(logger.Lines().empty(), c.host.size() == 1) << Narrow(c.url);
  }
}

// --- Credentials. ---

class Credentials : public TransferTest {
 protected:
  // What a download over plain HTTP tells libcurl.
  std::vector<std::string> Sent(ZTransfer& transfer) {
    curl.Clear();
    ZString result;
    EXPECT_EQ(transfer.Download(L"http://host/", result), kFinished);
    return curl.ValuesOf(CURLOPT_USERPWD);
  }
};

TEST_F(Credentials, AnEmptyUserClearsTheStoredOnesWhateverThePassword) {
  ZTransfer transfer;
  EXPECT_EQ(transfer.SetCredentials(L"user", L"secret"), 0u);
  EXPECT_THAT(Sent(transfer), ElementsAre("'user:secret'"));
  EXPECT_EQ(transfer.SetCredentials(ZString(), L"secret"), 0u);
  EXPECT_THAT(Sent(transfer), IsEmpty());
  EXPECT_THAT(curl.ValuesOf(CURLOPT_HTTPAUTH), IsEmpty());
  EXPECT_THAT(curl.ValuesOf(CURLOPT_MAXREDIRS), IsEmpty());
}

TEST_F(Credentials, AnEmptyPasswordStillHasItsColon) {
  ZTransfer transfer;
  EXPECT_EQ(transfer.SetCredentials(L"user", ZString()), 0u);
  EXPECT_THAT(Sent(transfer), ElementsAre("'user:'"));
}

TEST_F(Credentials, AreUtf8InEveryLocale) {
  const ScopedLocale ascii("C");
  ZTransfer transfer;
  EXPECT_EQ(transfer.SetCredentials(L"\u00FC", L"\u20AC"), 0u);
  EXPECT_THAT(Sent(transfer), ElementsAre("'\xC3\xBC:\xE2\x82\xAC'"));
}

TEST_F(Credentials, BasicIsAllowedOverTlsOnly) {
  struct Case {
    const wchar_t* url;
    const char* methods;
  };
  ZTransfer transfer;
  EXPECT_EQ(transfer.SetCredentials(L"user", L"secret"), 0u);
  for (const Case& c : {Case{L"http://host/", "8"}, Case{L"https://host/", "9"}, Case{L"HTTPS://host/", "9"},
                        Case{L"ftp://host/", "8"}, Case{L"ftps://host/", "8"}}) {
    curl.Clear();
    ZString result;
    transfer.Download(c.url, result);
    EXPECT_THAT(curl.ValuesOf(CURLOPT_HTTPAUTH), ElementsAre(c.methods)) << Narrow(c.url);
  }
}

// --- Settings that fail never weaken what they were called to protect.

class ASettingThatFails : public TransferTest {
 protected:
  ASettingThatFails() {
    WriteFile(folder / "ca", "");
    EXPECT_EQ(transfer.SetSSL(true, true, Path("ca"), ZString()), 0u);
    EXPECT_EQ(transfer.SetCredentials(L"ada", L"old"), 0u);
  }

  // The next transfer verifies with the old file and logs in as before.
  void ExpectUnchanged() {
    curl.Clear();
    ZString result;
    EXPECT_EQ(transfer.Download(L"https://h/", result), kFinished);
    EXPECT_THAT(curl.ValuesOf(CURLOPT_SSL_VERIFYHOST), ElementsAre("0", "2"));
    EXPECT_THAT(curl.ValuesOf(CURLOPT_SSL_VERIFYPEER), ElementsAre("0", "1"));
    EXPECT_THAT(curl.ValuesOf(CURLOPT_CAINFO), ElementsAre("'" + (folder / "ca").string() + "'"));
    EXPECT_THAT(curl.ValuesOf(CURLOPT_USERPWD), ElementsAre("'ada:old'"));
  }

  ZTransfer transfer;
};

TEST_F(ASettingThatFails, ForAPathThatTheLocaleCannotExpressChangesNothing) {
  const ScopedLocale ascii("C");
  const ZString path = L"/ca\u20ac.pem";
  EXPECT_EQ(transfer.SetSSL(false, false, path, ZString()), Corvane::BASE_E_INVALID_NAME);
  ExpectUnchanged();
  EXPECT_EQ(transfer.SetSSL(false, false, Path("ca"), path), Corvane::BASE_E_INVALID_NAME);
  EXPECT_EQ(transfer.SetSSL(false, false, ZString(L"/ca\0.pem", 8), ZString()), Corvane::BASE_E_INVALID_NAME);
  ExpectUnchanged();
}

TEST_F(ASettingThatFails, ForWantOfMemoryChangesNothing) {
  const ZResult noMemory = Corvane::ResultFromErrno(ENOMEM);
  const ZString file = Path("other-file");
  const ZString directory = Path("other-folder");
  const ZString user = L"eve";
  const ZString password = L"new";
  const std::vector<std::function<ZResult()>> settings = {
      [&] { return transfer.SetSSL(false, false, file, directory); },
      [&] { return transfer.SetCredentials(user, password); },
  };
  for (const auto& set : settings) {
    std::size_t spared = 0;
    for (;; ++spared) {
      ZResult result = 0;
      std::size_t failed = 0;
      {
        const Allocations allocations(spared, Allocations::kAll);
        result = set();
        failed = allocations.Failed();
      }
      if (failed == 0) break;
      EXPECT_EQ(result, noMemory) << spared;
      ExpectUnchanged();
    }
    EXPECT_GT(spared, 1u) << "the test failed nothing";
    EXPECT_EQ(transfer.SetSSL(true, true, Path("ca"), ZString()), 0u);
    EXPECT_EQ(transfer.SetCredentials(L"ada", L"old"), 0u);
  }
}

}  // namespace
}  // namespace CorvaneTest
