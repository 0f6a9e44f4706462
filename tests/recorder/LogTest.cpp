// The lines that transfers write to the log, and what never stands in one.

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

class TheLog : public TransferTest {
 protected:
  // The lines of one operation on a new object.
  std::vector<std::string> LinesOf(const std::function<void(ZTransfer&)>& run) {
    ZTransfer transfer;
    logger.Clear();
    run(transfer);
    return logger.Lines();
  }

  ZString result;
};

TEST_F(TheLog, IsEmptyForPlainTransfers) {
  WriteFile(folder / "in", "x");
  EXPECT_THAT(LinesOf([&](ZTransfer& t) {
                t.Download(L"http://h/", result);
                t.Download(L"https://h/", result);
                t.Download(L"ftp://h/", result);
                t.DownloadFile(L"http://h/", Path("out"), true);
                t.Post(L"http://h/", L"a", L"b");
                t.PostFile(L"http://h/", Path("in"));
                t.Abort();
                t.Reset();
              }),
              IsEmpty());
}

TEST_F(TheLog, TellsTheUserAndTheAuthenticationButNotThePassword) {
  struct Case {
    const wchar_t* url;
    const char* methods;
  };
  for (const Case& c : {Case{L"http://h/", "NTLM"}, Case{L"https://h/", "NTLM,BASIC"},
                        Case{L"HTTPS://h/", "NTLM,BASIC"}, Case{L"ftp://h/", "NTLM"}}) {
    EXPECT_THAT(LinesOf([&](ZTransfer& t) {
                  EXPECT_EQ(t.SetCredentials(L"j\u00F6rg", L"s\u00E9cret"), 0u);
                  t.Download(c.url, result);
                }),
                ElementsAre("I Transfer: Setting curl Authentication set to \"j\xC3\xB6rg:*\"",
                            std::string("I Transfer: Curl Authentication Type is ") + c.methods));
  }
}

TEST_F(TheLog, CutsTheUserAtItsFirstColon) {
  EXPECT_THAT(LinesOf([&](ZTransfer& t) {
                EXPECT_EQ(t.SetCredentials(L"us%2er:name", L"%2secret"), 0u);
                t.Download(L"http://h/", result);
              })[0],
              "I Transfer: Setting curl Authentication set to \"us%2er:*\"");
}

TEST_F(TheLog, TellsWhereAFileIsResumed) {
  WriteFile(folder / "100%2.txt", MakePattern(1032));
  EXPECT_THAT(
      LinesOf([&](ZTransfer& t) { t.DownloadFile(L"ftp://h/", Path("100%2.txt"), true); }),
      ElementsAre("I DownloadFile: Resuming file \"" + (folder / "100%2.txt").string() + "\" at position 1000"));
}

TEST_F(TheLog, TellsOfNoResumeWhereThereIsNone) {
  WriteFile(folder / "short", MakePattern(64));
  EXPECT_THAT(LinesOf([&](ZTransfer& t) {
                t.DownloadFile(L"ftp://h/", Path("short"), true);
                t.DownloadFile(L"ftp://h/", Path("missing"), true);
                t.DownloadFile(L"ftp://h/", Path("long"), false);
              }),
              IsEmpty());
}

TEST_F(TheLog, NamesTheFileThatCannotBeOpenedForAPost) {
  WriteFile(folder / "in", "x");
  const std::string line = "E PostFile: Unable to open file for posting file:";
  EXPECT_THAT(LinesOf([&](ZTransfer& t) { t.PostFile(L"http://h/", Path("missing"), Path("out")); }),
              ElementsAre(line + (folder / "missing").string()));
  EXPECT_FALSE(std::filesystem::exists(folder / "out"));
  EXPECT_THAT(LinesOf([&](ZTransfer& t) { t.PostFile(L"http://h/", Path("in"), Path("no/out")); }),
              ElementsAre(line + (folder / "no/out").string()));
  EXPECT_THAT(LinesOf([&](ZTransfer& t) { t.PostFile(L"http://h/", ZString(), Path("out")); }), ElementsAre(line));
  EXPECT_FALSE(IsOpen(folder / "in"));
}

TEST_F(TheLog, GetsTheLinesOfEnabledLevelsOnly) {
  const ZTransfer keep;
  const auto everything = [&](ZTransfer& t) {
    EXPECT_EQ(t.SetCredentials(L"user", L"secret"), 0u);
    EXPECT_EQ(t.SetSSL(true, true, Path("no-file"), ZString()), 0u);
    t.Download(L"https://h/", result);
    t.PostFile(L"http://h/", Path("missing"));
  };
  const std::vector<std::pair<ZLogLevel, std::string>> cases = {{ZLogLevel::Critical, ""},
                                                                {ZLogLevel::Error, "E"},
                                                                {ZLogLevel::Warning, "WE"},
                                                                {ZLogLevel::Information, "IWIIE"}};
  for (const auto& [level, expected] : cases) {
    logger.EnableUpTo(level);
    std::string levels;
    for (const std::string& line : LinesOf(everything)) levels += line[0];
    EXPECT_EQ(levels, expected);
  }
}

// A name that would make a conspicuously long line shows whether the line was built.
TEST_F(TheLog, BuildsNoLineOfADisabledLevel) {
  constexpr std::size_t kLength = 100000;
  const ZString longName(std::wstring(kLength, L'u'));
  const auto largest = [&](bool enabled) {
    ZTransfer transfer;
    EXPECT_EQ(transfer.SetCredentials(longName, L"p"), 0u);
    transfer.Download(L"http://h/", result);  // first, so that what is kept for ever is there
    logger.EnableUpTo(enabled ? ZLogLevel::Information : ZLogLevel::Warning);
    const Allocations allocations;
    transfer.Download(L"http://h/", result);
    return allocations.Largest();
  };
  EXPECT_GE(largest(true), kLength * sizeof(wchar_t));
  EXPECT_LT(largest(false), kLength);
}

TEST_F(TheLog, HasNoPasswordInAnyLineTextOrHeader) {
  const std::string secret = "Swordfish7";
  for (const Scenario& scenario : AllScenarios(folder)) {
    for (std::size_t refused = 0; refused <= scenario.options.size() + 3; ++refused) {
      ZTransfer transfer;
      EXPECT_EQ(transfer.SetCredentials(L"user", ZString(secret.c_str())), 0u);
      if (scenario.prepare) scenario.prepare();
      curl.Respond(200, scenario.answer);
      curl.onOption = [left = refused](const OptionCall&) mutable {
        return left-- == 0 ? CURLE_UNKNOWN_OPTION : CURLE_OK;
      };
      scenario.run(transfer, result);
      curl.onOption = nullptr;
      ZString header;
      transfer.GetHeader(header);
      ZString cause;
      transfer.GetCause(cause);
      for (const ZString& text : {header, cause, transfer.GetError(), result}) {
        EXPECT_EQ(Narrow(text).find(secret), std::string::npos) << scenario.name;
      }
    }
  }
  ASSERT_FALSE(logger.Lines().empty());
  for (const std::string& line : logger.Lines()) EXPECT_EQ(line.find(secret), std::string::npos) << line;
}

}  // namespace
}  // namespace CorvaneTest
