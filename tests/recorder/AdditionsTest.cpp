// What a transfer does only when it is asked to, and that it leaves everything else as it is.

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <Corvane/Base/ErrorDict.h>
#include <Corvane/Base/Result.h>
#include <Corvane/TransferOptions.h>

#include "tests/recorder/Allocations.h"
#include "tests/recorder/Scenarios.h"
#include "tests/recorder/ScriptedFiles.h"
#include "tests/recorder/TransferTest.h"

namespace CorvaneTest {
namespace {

using Corvane::ResultFromErrno;
using Corvane::ZTransferOptions;

class NoTrace : public Corvane::ZTransferTrace {
 public:
  void Line(Kind /*kind*/, const ZString& /*line*/) override { ++lines; }
  int lines = 0;
} s_trace;

ZTransferOptions Everything() {
  ZTransferOptions options;
  options.mostRedirects = 5;
  options.headers = {L"Accept: text/plain", L"X-Empty:"};
  options.userAgent = L"agent/1";
  options.checkResume = true;
  options.validator = L"\"v1\"";
  options.limitFollowsUpload = true;
  options.askModificationTime = true;
  options.handOnErrorPages = true;
  options.trace = &s_trace;
  options.receiveBufferBytes = 65536;
  return options;
}

class Additions : public TransferTest {
 protected:
  // All that the library asked libcurl for in a scenario, by an object on which `set` was called first.
  std::vector<std::string> CallsOf(const Scenario& scenario, const std::function<void(ZTransfer&)>& set) {
    ZTransfer transfer;
    if (scenario.configure) scenario.configure(transfer);
    set(transfer);
    if (scenario.prepare) scenario.prepare();
    curl.Respond(200, scenario.answer);
    curl.Clear();
    ZString result;
    EXPECT_EQ(scenario.run(transfer, result), kFinished) << scenario.name;
    outcome = Outcome(transfer);
    return curl.Calls();
  }

  // What a download gets between the limits, which come last without additions, and the request.
  std::vector<std::string> OptionsWith(const ZTransferOptions& options, const ZString& url = L"http://h/") {
    ZTransfer transfer;
    EXPECT_EQ(transfer.SetOptions(options), 0u);
    curl.Clear();
    ZString result;
    transfer.Download(url, result);
    std::vector<std::string> all = curl.OptionsBeforeRequest();
    while (!all.empty() && all.front() != "78=300") all.erase(all.begin());
    if (!all.empty()) all.erase(all.begin());
    return all;
  }

  std::string outcome;
};

TEST_F(Additions, ThatWereTakenBackLeaveNothing) {
  for (const Scenario& scenario : AllScenarios(folder)) {
    SCOPED_TRACE(scenario.name);
    const std::vector<std::string> never = CallsOf(scenario, [](ZTransfer&) {});
    const std::string neverOutcome = outcome;
    const std::vector<std::string> takenBack = CallsOf(scenario, [](ZTransfer& transfer) {
      EXPECT_EQ(transfer.SetOptions(Everything()), 0u);
      EXPECT_EQ(transfer.SetOptions(ZTransferOptions()), 0u);
    });
    EXPECT_EQ(takenBack, never);
    EXPECT_EQ(outcome, neverOutcome);
  }
}

TEST_F(Additions, ComeAfterAllOtherOptionsInAFixedOrder) {
  EXPECT_THAT(OptionsWith(ZTransferOptions()), IsEmpty());
  EXPECT_THAT(OptionsWith(Everything()),
              ElementsAre("52=1", "68=5", "182=3", "10018='agent/1'", "10023=pointer", "98=65536", "69=1",
                          "20219=function", "10057=pointer", "43=0", "20094=function", "10095=pointer", "41=1"));
}

TEST_F(Additions, FollowRedirectsFromHttpsToHttpsOnly) {
  ZTransferOptions options;
  options.mostRedirects = 1;
  EXPECT_THAT(OptionsWith(options), ElementsAre("52=1", "68=1", "182=3"));
  EXPECT_THAT(OptionsWith(options, L"HTTPS://h/"), ElementsAre("52=1", "68=1", "182=2"));
}

// Behind a redirect from http to https nobody else would switch the checks on.
TEST_F(Additions, VerifyTheServersThatARedirectMayLeadTo) {
  const std::string on = std::to_string(CURLOPT_SSL_VERIFYPEER) + "=1", host = std::to_string(CURLOPT_SSL_VERIFYHOST);
  WriteFile(folder / "ca.pem", "");
  ZTransfer transfer;
  EXPECT_EQ(transfer.SetSSL(true, true, Path("ca.pem"), L""), 0u);
  ZTransferOptions options;
  for (const char* url : {"http://h/", "HTTP://h/", "h/", "https://h/", "ftp://h/", "ftps://h/"}) {
    for (const unsigned int redirects : {0u, 1u}) {
      options.mostRedirects = redirects;
      EXPECT_EQ(transfer.SetOptions(options), 0u);
      curl.Clear();
      ZString result;
      transfer.Download(url, result);
      const std::string scheme = std::string(url).substr(0, 5);
      const std::size_t expected = scheme == "https" || (redirects == 1 && scheme.substr(0, 3) != "ftp") ? 1 : 0;
      EXPECT_EQ(curl.Count("setopt " + on), expected) << url << redirects;
      EXPECT_EQ(curl.Count("setopt " + host + "=2"), expected) << url << redirects;
      EXPECT_EQ(curl.ValuesOf(CURLOPT_CAINFO).size(), expected) << url << redirects;
    }
  }
}

struct RefusedCase {
  const char* name;
  std::function<void(ZTransferOptions&)> change;
};

const RefusedCase kRefused[] = {
    {"a header without a colon", [](ZTransferOptions& o) { o.headers = {L"Accept"}; }},
    {"a header without a name", [](ZTransferOptions& o) { o.headers = {L": x"}; }},
    {"an empty header", [](ZTransferOptions& o) { o.headers = {L""}; }},
    {"a blank in a name", [](ZTransferOptions& o) { o.headers = {L"Ac cept: x"}; }},
    {"a blank before the colon", [](ZTransferOptions& o) { o.headers = {L"Accept : x"}; }},
    {"a name that is not ASCII", [](ZTransferOptions& o) { o.headers = {L"Acc\u00E9pt: x"}; }},
    {"a CR in a value", [](ZTransferOptions& o) { o.headers = {L"Accept: x\ry"}; }},
    {"a LF in a value", [](ZTransferOptions& o) { o.headers = {L"Accept: x\nEvil: y"}; }},
    {"a NUL in a value", [](ZTransferOptions& o) { o.headers = {ZString(L"Accept: x\0y", 11)}; }},
    {"a DEL in a value", [](ZTransferOptions& o) { o.headers = {L"Accept: x\x7F"}; }},
    {"a name twice",
     [](ZTransferOptions& o) {
       o.headers = {L"Accept: x", L"ACCEPT: y"};
     }},
    {"Range", [](ZTransferOptions& o) { o.headers = {L"range: bytes=0-"}; }},
    {"If-Range", [](ZTransferOptions& o) { o.headers = {L"If-Range: x"}; }},
    {"User-Agent", [](ZTransferOptions& o) { o.headers = {L"User-agent: x"}; }},
    {"Content-Length", [](ZTransferOptions& o) { o.headers = {L"Content-Length: 1"}; }},
    {"Transfer-Encoding", [](ZTransferOptions& o) { o.headers = {L"Transfer-Encoding: chunked"}; }},
    {"Connection", [](ZTransferOptions& o) { o.headers = {L"Connection: close"}; }},
    {"a LF in the user agent", [](ZTransferOptions& o) { o.userAgent = L"x\ny"; }},
    {"a LF in the validator", [](ZTransferOptions& o) { o.validator = L"x\ny"; }},
    {"a buffer that is too small", [](ZTransferOptions& o) { o.receiveBufferBytes = 1023; }},
    {"a buffer that is too large", [](ZTransferOptions& o) { o.receiveBufferBytes = 10485761; }},
    {"too many redirects", [](ZTransferOptions& o) { o.mostRedirects = 10001; }},
};

TEST_F(Additions, ThatAreRefusedChangeNothing) {
  for (const RefusedCase& c : kRefused) {
    ZTransfer transfer;
    ZTransferOptions good;
    good.userAgent = L"kept";
    EXPECT_EQ(transfer.SetOptions(good), 0u);
    ZTransferOptions bad = Everything();
    c.change(bad);
    EXPECT_EQ(transfer.SetOptions(bad), ResultFromErrno(EINVAL)) << c.name;
    curl.Clear();
    ZString result;
    transfer.Download(L"http://h/", result);
    EXPECT_THAT(curl.ValuesOf(CURLOPT_USERAGENT), ElementsAre("'kept'")) << c.name;
    EXPECT_EQ(curl.ValuesOf(CURLOPT_BUFFERSIZE).size(), 0u) << c.name;
  }
}

TEST_F(Additions, TakeTheBoundsOfTheirValues) {
  ZTransfer transfer;
  ZTransferOptions options;
  for (const unsigned long bytes : {0UL, 1024UL, 10485760UL}) {
    options.receiveBufferBytes = bytes;
    EXPECT_EQ(transfer.SetOptions(options), 0u) << bytes;
  }
  options.mostRedirects = 10000;
  options.headers = {L"!#$%&'*+-.^_`|~aZ09: \t\u00E9 ~"};
  EXPECT_EQ(transfer.SetOptions(options), 0u);
}

TEST_F(Additions, ForWhichMemoryIsMissingChangeNothing) {
  ZTransfer transfer;
  const ZTransferOptions options = Everything();
  for (std::size_t spared = 0;; ++spared) {
    ASSERT_LT(spared, 1000u);
    ZResult result = 0;
    std::size_t failed = 0;
    {
      const Allocations allocations(spared, Allocations::kAll);
      result = transfer.SetOptions(options);
      failed = allocations.Failed();
    }
    if (failed == 0) break;
    EXPECT_EQ(result, ResultFromErrno(ENOMEM));
    curl.Clear();
    ZString text;
    transfer.Download(L"http://h/", text);
    EXPECT_EQ(curl.ValuesOf(CURLOPT_FOLLOWLOCATION).size(), 0u);
  }
  EXPECT_EQ(transfer.SetOptions(options), 0u);
}

TEST_F(Additions, AreRefusedWhileAnOperationRuns) {
  ZTransfer transfer;
  curl.perform = [&](const EasyHandle&) {
    EXPECT_EQ(transfer.SetOptions(Everything()), Corvane::BASE_E_BUSY);
    std::thread([&] {
      EXPECT_EQ(transfer.SetOptions(Everything()), Corvane::BASE_E_BUSY);
      ZString text;
      EXPECT_EQ(transfer.GetValidator(text), Corvane::BASE_E_BUSY);
      EXPECT_EQ(transfer.GetEffectiveUrl(text), Corvane::BASE_E_BUSY);
      EXPECT_EQ(transfer.GetHttpStatus(), 0);
      EXPECT_EQ(transfer.GetModificationTime(), -1);
    }).join();
    return CURLE_OK;
  };
  ZString result;
  transfer.Download(L"http://h/", result);
}

class NoSink : public Corvane::ZTransferSink {
 public:
  std::size_t Write(const void*, std::size_t bytes) override { return bytes; }
};

TEST_F(Additions, AskForAPartWithNoOtherOptionThanItsBeginning) {
  ZTransfer transfer;
  NoSink sink;
  const std::string resumeFrom = std::to_string(CURLOPT_RESUME_FROM_LARGE) + "=";
  curl.Clear();
  transfer.Download(L"http://h/", sink);
  std::vector<std::string> whole = curl.OptionsBeforeRequest();
  curl.Clear();
  transfer.Download(L"http://h/", sink, 5000000000);
  EXPECT_EQ(std::count(whole.begin(), whole.end(), resumeFrom + "0"), 1);
  std::replace(whole.begin(), whole.end(), resumeFrom + "0", resumeFrom + "5000000000");
  EXPECT_EQ(curl.OptionsBeforeRequest(), whole);
  EXPECT_EQ(transfer.GetDownloadSize(), 5000000000u);
}

// On a new object, which has made no request yet.
TEST_F(Additions, EndAResumeWhoseFileCannotBeCompared) {
  WriteFile(folder / "f", MakePattern(100));
  ScriptedFiles files;
  files.afterOpen = [&] { std::filesystem::resize_file(folder / "f", 10); };
  ZTransfer transfer;
  EXPECT_EQ(transfer.SetOptions(Everything()), 0u);
  EXPECT_EQ(transfer.DownloadFile(L"http://h/", Path("f"), true), Corvane::TRANSFER_E_DOWNLOAD);
  EXPECT_EQ(Outcome(transfer), "0x8001138A Download failed: " + Narrow(Corvane::ZGetErrorMsg(ResultFromErrno(EIO))));
  EXPECT_EQ(curl.Count("perform"), 0u);
  EXPECT_TRUE(std::filesystem::exists(folder / "f"));
}

// libcurl may call after its request, when it closes what it kept.
TEST_F(Additions, TellATraceOfItsRequestOnly) {
  using Debug = int (*)(CURL*, curl_infotype, char*, std::size_t, void*);
  ZTransfer transfer;
  ZTransferOptions options;
  options.trace = &s_trace;
  EXPECT_EQ(transfer.SetOptions(options), 0u);
  std::function<int(curl_infotype)> tell;
  curl.perform = [&](const EasyHandle& handle) {
    const auto debug = reinterpret_cast<Debug>(handle.Get(CURLOPT_DEBUGFUNCTION).function);
    void* const object = const_cast<void*>(handle.Get(CURLOPT_DEBUGDATA).pointer);
    tell = [=](curl_infotype type) {
      std::string line = "line\n";
      return debug(nullptr, type, line.data(), line.size(), object);
    };
    for (int type = CURLINFO_TEXT; type < CURLINFO_END; ++type) EXPECT_EQ(tell(static_cast<curl_infotype>(type)), 0);
    return CURLE_OK;
  };
  ZString result;
  s_trace.lines = 0;
  EXPECT_EQ(transfer.Download(L"http://h/", result), kFinished);
  EXPECT_EQ(s_trace.lines, 3) << "no bodies, no bytes of TLS";
  EXPECT_EQ(tell(CURLINFO_TEXT), 0);
  EXPECT_EQ(s_trace.lines, 3);
}

// An upload whose bytes go out is not idle.
TEST_F(Additions, MoveTheTimeLimitWithTheBytesSent) {
  ScriptedTime time;
  ZTransfer transfer;
  ZTransferOptions options;
  options.limitFollowsUpload = true;
  EXPECT_EQ(transfer.SetOptions(options), 0u);
  curl.info[CURLINFO_TOTAL_TIME] = 1.0;
  curl.perform = [&](const EasyHandle& handle) {
    using Progress = int (*)(void*, curl_off_t, curl_off_t, curl_off_t, curl_off_t);
    const auto progress = reinterpret_cast<Progress>(handle.Get(CURLOPT_XFERINFOFUNCTION).function);
    void* const object = const_cast<void*>(handle.Get(CURLOPT_XFERINFODATA).pointer);
    curl.Clear();
    EXPECT_EQ(progress(object, 0, 0, 9, 0), 0);
    EXPECT_THAT(curl.ValuesOf(CURLOPT_TIMEOUT), IsEmpty()) << "nothing was sent";
    time.Advance(std::chrono::seconds(100));
    curl.info[CURLINFO_SIZE_UPLOAD] = 5000.0;
    EXPECT_EQ(progress(object, 0, 0, 9, 4), 0);
    EXPECT_EQ(progress(object, 0, 0, 9, 4), 0);
    EXPECT_THAT(curl.ValuesOf(CURLOPT_TIMEOUT), ElementsAre("400")) << "once, for the same bytes";
    EXPECT_EQ(transfer.GetTransferSize(), 5000u);
    time.Advance(std::chrono::seconds(1));
    EXPECT_EQ(progress(object, 0, 0, 9, 9), 0);
    EXPECT_THAT(curl.ValuesOf(CURLOPT_TIMEOUT), ElementsAre("400", "401"));
    return CURLE_OK;
  };
  EXPECT_EQ(transfer.PostData(L"http://h/", L"123456789"), kFinished);
}

// What is not throttled has no sleep behind which the limit is set again.
TEST_F(Additions, MoveTheTimeLimitFurtherWithoutTheThrottle) {
  const ScriptedTime time;
  ZTransfer transfer;
  ZTransferOptions options;
  options.limitFollowsUpload = true;
  EXPECT_EQ(transfer.SetOptions(options), 0u);
  EXPECT_EQ(transfer.UseThrottling(false), 0u);
  curl.perform = [&](const EasyHandle& handle) {
    using Progress = int (*)(void*, curl_off_t, curl_off_t, curl_off_t, curl_off_t);
    const auto progress = reinterpret_cast<Progress>(handle.Get(CURLOPT_XFERINFOFUNCTION).function);
    void* const object = const_cast<void*>(handle.Get(CURLOPT_XFERINFODATA).pointer);
    curl.Clear();
    EXPECT_EQ(progress(object, 0, 0, 9, 4), 0);
    EXPECT_THAT(curl.ValuesOf(CURLOPT_TIMEOUT), ElementsAre("310"));
    return CURLE_OK;
  };
  EXPECT_EQ(transfer.PostData(L"http://h/", L"123456789"), kFinished);
}

TEST_F(Additions, ThatLibcurlRefusesFailTheOperation) {
  ZTransfer transfer;
  EXPECT_EQ(transfer.SetOptions(Everything()), 0u);
  for (const CURLoption refused :
       {CURLOPT_FOLLOWLOCATION, CURLOPT_MAXREDIRS, CURLOPT_REDIR_PROTOCOLS, CURLOPT_USERAGENT, CURLOPT_HTTPHEADER,
        CURLOPT_BUFFERSIZE, CURLOPT_FILETIME, CURLOPT_XFERINFOFUNCTION, CURLOPT_XFERINFODATA, CURLOPT_DEBUGFUNCTION,
        CURLOPT_DEBUGDATA, CURLOPT_VERBOSE}) {
    curl.onOption = [=](const OptionCall& call) { return call.option == refused ? CURLE_UNKNOWN_OPTION : CURLE_OK; };
    curl.Clear();
    ZString result;
    EXPECT_EQ(transfer.Download(L"http://h/", result), kCurl | CURLE_UNKNOWN_OPTION) << refused;
    EXPECT_EQ(curl.Count("perform"), 0u) << refused;
  }
  curl.onOption = nullptr;
}

}  // namespace
}  // namespace CorvaneTest
