// What happens when libcurl refuses an option.

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "tests/recorder/Scenarios.h"
#include "tests/recorder/TransferTest.h"

namespace CorvaneTest {
namespace {

// Refuses the option number `index` (from 0) that comes, and no other.
class Refusal {
 public:
  Refusal(CurlRecorder& curl, std::size_t index, CURLcode code) : m_curl(curl) {
    curl.onOption = [left = index, code](const OptionCall&) mutable { return left-- == 0 ? code : CURLE_OK; };
  }
  ~Refusal() { m_curl.onOption = nullptr; }
  Refusal(const Refusal&) = delete;
  Refusal& operator=(const Refusal&) = delete;

 private:
  CurlRecorder& m_curl;
};

std::string Line(const ExpectedOption& option, int code) {
  return "E " + option.who + ": CURL failure " + std::to_string(code) + " on option " +
         option.text.substr(0, option.text.find('=')) + "...";
}

std::vector<std::string> ErrorLines(const RecordingLogger& logger) {
  std::vector<std::string> lines = logger.Lines();
  std::erase_if(lines, [](const std::string& line) { return !line.starts_with("E "); });
  return lines;
}

class ARefusedOption : public TransferTest {
 protected:
  ARefusedOption() { curl.info[CURLINFO_RESPONSE_CODE] = 0L; }  // what libcurl tells when no request was made

  // Runs the scenario on a new object, with the option number `index` refused with `code`.
  void Run(const Scenario& scenario, std::size_t index, CURLcode code) {
    ZTransfer transfer;
    if (scenario.configure) scenario.configure(transfer);
    if (scenario.prepare) scenario.prepare();
    curl.Clear();
    logger.Clear();
    const Refusal refusal(curl, index, code);
    result = L"before";
    returned = scenario.run(transfer, result);
    options = curl.Options();
    EXPECT_EQ(transfer.GetStatus(), returned);
    EXPECT_TRUE(transfer.Wait(0));
    error = Narrow(transfer.GetError());
    cause = transfer.GetCause(causeText);
  }

  std::vector<std::string> options;
  ZResult returned = 0;
  ZResult cause = 0;
  ZString causeText;
  ZString result;
  std::string error;
};

// Different codes at different places, so that no constant can pass for them.
CURLcode CodeFor(std::size_t index) { return static_cast<CURLcode>(index * 7 % 90 + 2); }

TEST_F(ARefusedOption, EndsTheOperationWithItsCodeBeforeTheRequest) {
  for (const Scenario& scenario : AllScenarios(folder)) {
    for (std::size_t index = 0; index < scenario.options.size(); ++index) {
      SCOPED_TRACE(scenario.name + ", " + scenario.options[index].text);
      const CURLcode code = CodeFor(index);
      Run(scenario, index, code);

      std::vector<std::string> set = Texts(scenario.options);
      set.resize(index + 1);
      EXPECT_THAT(options, ElementsAreArray(set)) << "no further option";
      EXPECT_EQ(curl.Count("perform"), 0u);
      EXPECT_THAT(ErrorLines(logger), ElementsAre(Line(scenario.options[index], code)));
      EXPECT_EQ(cause, Corvane::TRANSFER_E_NOT_STARTED);
      EXPECT_EQ(causeText, ZString());
      if (scenario.isFileOverHttp) continue;  // see below
      EXPECT_EQ(returned, 0x80010000u | static_cast<unsigned int>(code));
      EXPECT_EQ(error, "Download failed");
    }
  }
}

TEST_F(ARefusedOption, OfAFileOverHttpIsReportedAsNoConnection) {
  for (const Scenario& scenario : AllScenarios(folder)) {
    if (!scenario.isFileOverHttp) continue;
    const bool resumed = scenario.options[7].text != "30116=0";
    for (std::size_t index = 0; index < scenario.options.size(); ++index) {
      SCOPED_TRACE(scenario.name + ", " + scenario.options[index].text);
      Run(scenario, index, CodeFor(index));
      EXPECT_EQ(returned, Corvane::TRANSFER_E_CONNECT);
      EXPECT_EQ(error, "Failed to connect to the specified URL, http://host/file\n");
      EXPECT_EQ(std::filesystem::exists(folder / "out"), resumed) << "only a resumed file stays";
    }
  }
}

TEST_F(ARefusedOption, LeavesNoFileOpen) {
  for (const Scenario& scenario : AllScenarios(folder)) {
    for (std::size_t index = 0; index < scenario.options.size(); ++index) {
      Run(scenario, index, CURLE_UNKNOWN_OPTION);
      for (const char* name : {"in", "out", "empty"}) {
        EXPECT_FALSE(IsOpen(folder / name)) << scenario.name << ", " << scenario.options[index].text << ", " << name;
      }
    }
  }
}

TEST_F(ARefusedOption, LeavesTheObjectFitForTheNextOperation) {
  for (const Scenario& scenario : AllScenarios(folder)) {
    ZTransfer transfer;
    for (std::size_t index = 0; index < scenario.options.size(); ++index) {
      if (scenario.configure) scenario.configure(transfer);
      if (scenario.prepare) scenario.prepare();
      {
        const Refusal refusal(curl, index, CURLE_UNKNOWN_OPTION);
        EXPECT_TRUE(IsFailure(scenario.run(transfer, result)));
      }
      curl.Respond(200, scenario.answer);
      EXPECT_EQ(scenario.run(transfer, result), kFinished) << scenario.name << ", " << scenario.options[index].text;
      curl.info[CURLINFO_RESPONSE_CODE] = 0L;
    }
  }
}

TEST_F(ARefusedOption, IsNotLoggedWhileTheErrorLevelIsDisabled) {
  logger.Enable(ZLogLevel::Error, false);
  for (const Scenario& scenario : AllScenarios(folder)) {
    for (std::size_t index = 0; index < scenario.options.size(); ++index) {
      Run(scenario, index, CURLE_UNKNOWN_OPTION);
      EXPECT_THAT(ErrorLines(logger), IsEmpty());
    }
  }
}

TEST_F(ARefusedOption, ClearsTheResultOfADownload) {
  const Scenario download = {.run = [](ZTransfer& t, ZString& text) { return t.Download(L"https://host/", text); }};
  for (std::size_t index = 0; index < 13; ++index) {
    Run(download, index, CURLE_UNKNOWN_OPTION);
    EXPECT_EQ(returned, kCurl | CURLE_UNKNOWN_OPTION);
    EXPECT_EQ(result, ZString()) << index;
  }
}

TEST_F(ARefusedOption, ClearsTheResultOfAPostUnlessTheBodyItselfIsRefused) {
  const Scenario post = {.run = [](ZTransfer& t, ZString& text) { return t.PostData(L"http://host/", L"x", text); }};
  Run(post, 0, CURLE_UNKNOWN_OPTION);  // CURLOPT_POSTFIELDS
  EXPECT_EQ(result, ZString(L"before"));
  for (std::size_t index = 1; index < 15; ++index) {
    Run(post, index, CURLE_UNKNOWN_OPTION);
    EXPECT_EQ(returned, kCurl | CURLE_UNKNOWN_OPTION);
    EXPECT_EQ(result, ZString()) << index;
  }
}

TEST_F(ARefusedOption, ComesBeforeOrAfterTheResumePositionCounts) {
  ZTransfer transfer;
  struct Case {
    CURLoption option;
    unsigned long long size;
  };
  for (const Case& c : {Case{CURLOPT_WRITEDATA, 0}, Case{CURLOPT_RESUME_FROM_LARGE, 0}, Case{CURLOPT_ERRORBUFFER, 68},
                        Case{CURLOPT_TIMEOUT, 68}}) {
    WriteFile(folder / "out", MakePattern(100));
    curl.onOption = [option = c.option](const OptionCall& call) {
      return call.option == option ? CURLE_OUT_OF_MEMORY : CURLE_OK;
    };
    EXPECT_EQ(transfer.DownloadFile(L"ftp://h/", Path("out"), true), kCurl | CURLE_OUT_OF_MEMORY);
    EXPECT_EQ(transfer.GetDownloadSize(), c.size) << c.option;
  }
}

TEST_F(ARefusedOption, IsNotCoveredUpByTheHttpErrorDetection) {
  ZTransfer transfer;
  transfer.DetectHttpError(true);
  const Refusal refusal(curl, 0, CURLE_UNKNOWN_OPTION);
  EXPECT_EQ(transfer.Download(L"http://host/", result), kCurl | CURLE_UNKNOWN_OPTION);
  EXPECT_EQ(Outcome(transfer), "0x80010030 Download failed");
}

// The throttle is charged with a posted body whatever became of the request, but not when there was nothing to post.
TEST_F(ARefusedOption, OfTheRequestStillChargesAPostToTheThrottle) {
  ScriptedTime time;
  ZTransfer transfer;
  for (std::size_t index = 0; index < 15; ++index) {
    const Refusal refusal(curl, index, CURLE_UNKNOWN_OPTION);
    const int before = time.ThrottleCalls();
    transfer.PostData(L"http://host/", L"x");
    EXPECT_EQ(time.ThrottleCalls() - before, index < 2 ? 0 : 1) << index;
  }
}

// --- Abort. ---

class ARefusedAbort : public TransferTest {};

TEST_F(ARefusedAbort, IsKeptFromTheCallerButVisibleInTheStatus) {
  ZTransfer transfer;
  curl.Clear();
  const Refusal refusal(curl, 0, CURLE_OUT_OF_MEMORY);
  EXPECT_EQ(transfer.Abort(), 0u);
  EXPECT_EQ(Outcome(transfer), "0x8001001B Download failed");
  EXPECT_THAT(logger.Lines(), testing::Contains("E Abort: CURL failure 27 on option 13..."));
  EXPECT_THAT(curl.Options(), ElementsAre("13=1")) << "the connect limit is not tried";
}

TEST_F(ARefusedAbort, NamesTheConnectLimitWhenThatWasRefused) {
  ZTransfer transfer;
  curl.Clear();
  const Refusal refusal(curl, 1, CURLE_UNKNOWN_OPTION);
  EXPECT_EQ(transfer.Abort(), 0u);
  EXPECT_EQ(Outcome(transfer), "0x80010030 Download failed");
  EXPECT_THAT(logger.Lines(), testing::Contains("E Abort: CURL failure 48 on option 78..."));
  EXPECT_THAT(curl.Options(), ElementsAre("13=1", "78=1"));
}

TEST_F(ARefusedAbort, StillStopsTheTransferAtTheNextBlock) {
  ZTransfer transfer;
  curl.perform = [&](const EasyHandle& handle) {
    const Refusal refusal(curl, 0, CURLE_UNKNOWN_OPTION);
    transfer.Abort();
    EXPECT_EQ(transfer.GetStatus(), kCurl | CURLE_UNKNOWN_OPTION);
    EXPECT_EQ(handle.Write("data"), 0u);
    return CURLE_WRITE_ERROR;
  };
  ZString result;
  EXPECT_EQ(transfer.Download(L"http://host/", result), Corvane::TRANSFER_E_ABORTED);
  EXPECT_EQ(Outcome(transfer), "0x80011003 Download aborted by user");
}

TEST_F(ARefusedAbort, IsForgottenByTheNextOperation) {
  ZTransfer transfer;
  {
    const Refusal refusal(curl, 0, CURLE_UNKNOWN_OPTION);
    transfer.Abort();
  }
  ZString result;
  EXPECT_EQ(transfer.Download(L"http://host/", result), kFinished);
  EXPECT_EQ(Outcome(transfer), "0x00010000 Transfer has finished successfully");
}

}  // namespace
}  // namespace CorvaneTest
