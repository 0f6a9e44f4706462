// What the object makes of the values that it asks libcurl for.

#include <cstdint>
#include <limits>
#include <string>
#include <variant>
#include <vector>

#include <Corvane/Transfer/TransferImpl.h>

#include "tests/recorder/TransferTest.h"

namespace CorvaneTest {
namespace {

// --- The response code. ---

class TheResponseCode : public TransferTest {
 protected:
  using Value = std::variant<long, double, CURLcode>;

  // The code of a download over `url` that is to detect HTTP errors, answered with `value`.
  ZResult Detect(const wchar_t* url, Value value) {
    ZTransfer transfer;
    transfer.DetectHttpError(true);
    curl.Respond(0, {.blocks = {"page"}});
    curl.info[CURLINFO_RESPONSE_CODE] = value;
    page.Clear();
    const ZResult code = transfer.Download(url, page);
    error = Narrow(transfer.GetError());
    return code;
  }

  ZString page;
  std::string error;
};

TEST_F(TheResponseCode, IsGoodFrom200To299) {
  for (const long good : {200L, 201L, 206L, 226L, 299L}) EXPECT_EQ(Detect(L"http://h/", good), kFinished) << good;
  for (const long bad : {-1L, 0L, 100L, 199L, 300L, 302L, 304L, 404L, 500L, 999L, 1200L}) {
    EXPECT_EQ(Detect(L"http://h/", bad), Corvane::TRANSFER_E_CONNECT) << bad;
    EXPECT_EQ(error, "Failed to connect to the specified URL, http://h/") << bad;
    EXPECT_EQ(page, ZString(L"page")) << "the error page is handed back";
  }
}

TEST_F(TheResponseCode, CountsAsGoodWhenLibcurlCannotTellIt) {
  EXPECT_EQ(Detect(L"http://h/", CURLE_UNKNOWN_OPTION), kFinished);
}

TEST_F(TheResponseCode, CountsForHttpInAnySpellingOnly) {
  for (const wchar_t* url : {L"http://h/", L"HTTP://h/", L"hTTps://h/", L"https:", L"http"}) {
    EXPECT_EQ(Detect(url, 404L), Corvane::TRANSFER_E_CONNECT) << Narrow(url);
  }
  for (const wchar_t* url : {L"ftp://h/", L"file:///f", L"htt", L"", L" http://h/", L"ttp://h/"}) {
    EXPECT_EQ(Detect(url, 404L), kFinished) << Narrow(url);
  }
}

TEST_F(TheResponseCode, IsNotCheckedByDownloadUnlessAsked) {
  ZTransfer transfer;
  curl.Respond(404, {.blocks = {"page"}});
  EXPECT_EQ(transfer.Download(L"http://h/", page), kFinished);
  EXPECT_EQ(page, ZString(L"page"));
  EXPECT_EQ(transfer.GetHttpStatus(), 404) << "what the getter tells decides nothing";
}

TEST_F(TheResponseCode, IsCheckedByEveryPostAndFileDownload) {
  WriteFile(folder / "in", "x");
  struct Case {
    const char* name;
    std::function<ZResult(ZTransfer&)> run;
    const char* outcome;
  };
  const Case cases[] = {
      {"fields", [](ZTransfer& t) { return t.Post(L"http://h/", L"a", L"b"); }, "0x8001138B Post failed, http://h/"},
      {"data", [](ZTransfer& t) { return t.PostData(L"http://h/", L"a"); }, "0x8001138B Post failed, http://h/"},
      {"file", [&](ZTransfer& t) { return t.PostFile(L"http://h/", Path("in")); }, "0x8001138B Post failed, http://h/"},
      {"download", [&](ZTransfer& t) { return t.DownloadFile(L"http://h/", Path("out"), false); },
       "0x80011389 Failed to connect to the specified URL, http://h/\nHTTP/1.1 500 No\r\n\r\n"}};
  for (const Case& c : cases) {
    ZTransfer transfer;
    curl.Respond(500, {.headers = {"HTTP/1.1 500 No\r\n", "\r\n"}, .blocks = {"page"}});
    const ZResult returned = c.run(transfer);
    EXPECT_EQ(returned, transfer.GetStatus()) << c.name;
    EXPECT_EQ(Outcome(transfer), c.outcome) << c.name;
    curl.info[CURLINFO_RESPONSE_CODE] = CURLE_UNKNOWN_OPTION;
    EXPECT_EQ(c.run(transfer), kFinished) << c.name << ": libcurl cannot tell the code";
  }
}

// --- The content size. ---

class TheContentSize : public TransferTest {
 protected:
  // The size after a first block, for a download of `length` bytes as libcurl tells it; `resumed`: of a file of 100 bytes.
  unsigned long long Size(std::variant<long, double, CURLcode> length, bool resumed) {
    curl.info[CURLINFO_CONTENT_LENGTH_DOWNLOAD] = length;
    curl.info[CURLINFO_RESPONSE_CODE] = resumed ? 206L : 200L;
    WriteFile(folder / "out", MakePattern(100));
    ZTransfer transfer;
    unsigned long long during = 0;
    curl.perform = [&](const EasyHandle& handle) {
      EXPECT_EQ(transfer.GetContentSize(), kUnknown) << "not known before the first block";
      if (resumed) handle.Header("\r\nContent-Range: bytes 68-72/73\r\n");
      handle.Write("block");
      during = transfer.GetContentSize();
      return CURLE_OK;
    };
    EXPECT_EQ(transfer.DownloadFile(L"http://h/", Path("out"), resumed), kFinished);
    EXPECT_EQ(transfer.GetContentSize(), during) << "it stays readable";
    return during;
  }
};

TEST_F(TheContentSize, IsTheContentLengthPlusTheResumePosition) {
  struct Case {
    double length;
    unsigned long long fresh, resumed;
  };
  constexpr Case kCases[] = {{0.0, 0, 68},
                             {5.0, 5, 73},
                             {32.0, 32, 100},
                             {4294967296.0, 4294967296, 4294967364},
                             {9007199254740992.0, 9007199254740992, 9007199254741060}};
  for (const Case& c : kCases) {
    EXPECT_EQ(Size(c.length, false), c.fresh) << c.length;
    EXPECT_EQ(Size(c.length, true), c.resumed) << c.length;
  }
}

TEST_F(TheContentSize, IsAllOnesWhenTheServerDoesNotTellIt) {
  EXPECT_EQ(Size(-1.0, false), kUnknown);
  EXPECT_EQ(Size(-1.0, true), kUnknown);
}

TEST_F(TheContentSize, IsAllOnesForALengthThatNoIntegerHolds) {
  for (const double length : {1e30, 9223372036854775808.0, -2.0, -1e30}) {
    EXPECT_EQ(Size(length, false), kUnknown) << length;
    EXPECT_EQ(Size(length, true), kUnknown) << length;
  }
}

TEST_F(TheContentSize, IsLeftAtZeroWhenLibcurlCannotTellIt) {
  EXPECT_EQ(Size(CURLE_UNKNOWN_OPTION, false), 0u);
  EXPECT_EQ(Size(CURLE_UNKNOWN_OPTION, true), 0u);
}

TEST_F(TheContentSize, OfTheOperationBeforeIsForgotten) {
  ZTransfer transfer;
  curl.Respond(200, {.blocks = {"block"}});
  ZString result;
  curl.info[CURLINFO_CONTENT_LENGTH_DOWNLOAD] = 5.0;
  transfer.Download(L"http://h/", result);
  EXPECT_EQ(transfer.GetContentSize(), 5u);
  curl.info[CURLINFO_CONTENT_LENGTH_DOWNLOAD] = CURLE_UNKNOWN_OPTION;
  transfer.Download(L"http://h/", result);
  EXPECT_EQ(transfer.GetContentSize(), 0u);
}

TEST_F(TheContentSize, IsAskedForOnceAtTheFirstBlock) {
  ZTransfer transfer;
  curl.Respond(200, {.blocks = {"a", "b", "c"}});
  ZString result;
  transfer.Download(L"http://h/", result);
  EXPECT_EQ(curl.Count("getinfo " + std::to_string(CURLINFO_CONTENT_LENGTH_DOWNLOAD)), 1u);
  transfer.Download(L"http://h/", result);
  EXPECT_EQ(curl.Count("getinfo " + std::to_string(CURLINFO_CONTENT_LENGTH_DOWNLOAD)), 2u);
}

TEST_F(TheContentSize, OfAnEmptyBodyIsAllOnesAndNobodyIsNotified) {
  RecordingObserver observer;
  ZTransfer transfer;
  transfer.Attach(&observer);
  curl.info[CURLINFO_CONTENT_LENGTH_DOWNLOAD] = 0.0;
  ZString result = L"before";
  EXPECT_EQ(transfer.Download(L"http://h/", result), kFinished);
  EXPECT_EQ(transfer.GetContentSize(), kUnknown);
  EXPECT_EQ(result, ZString());
  EXPECT_THAT(observer.events, IsEmpty());
}

TEST_F(TheContentSize, IsZeroWhenTheOperationHasFailedAlready) {
  curl.info[CURLINFO_CONTENT_LENGTH_DOWNLOAD] = 5.0;
  ZTransfer transfer;
  curl.perform = [&](const EasyHandle& handle) {
    // An abort whose option is refused on another thread between the look at its flag and this one at the code leaves
    // such a failure. No call order of one thread does, so it is written into the object.
    auto* const object =
        static_cast<ZTransfer::ZTransferImpl*>(const_cast<void*>(handle.Get(CURLOPT_WRITEDATA).pointer));
    object->m_outcome.SetCode(kCurl | CURLE_UNKNOWN_OPTION);
    EXPECT_EQ(handle.Write("block"), 5u);
    EXPECT_EQ(transfer.GetContentSize(), 0u);
    return CURLE_OK;
  };
  ZString result;
  EXPECT_EQ(transfer.Download(L"http://h/", result), kFinished);
  EXPECT_EQ(transfer.GetContentSize(), 0u);
  EXPECT_EQ(curl.Count("getinfo " + std::to_string(CURLINFO_CONTENT_LENGTH_DOWNLOAD)), 0u);
}

// --- Transfer size and rate. ---

class TheTransferSize : public TransferTest {
 protected:
  TheTransferSize() {
    curl.info[CURLINFO_TOTAL_TIME] = 2.0;
    curl.info[CURLINFO_SIZE_UPLOAD] = 10000.0;
    curl.info[CURLINFO_SIZE_DOWNLOAD] = 2000.0;
    curl.info[CURLINFO_REQUEST_SIZE] = 300L;
    curl.info[CURLINFO_HEADER_SIZE] = 40L;
  }

  void Download() {
    ZString result;
    EXPECT_EQ(transfer.Download(L"http://h/", result), kFinished);
  }

  ZTransfer transfer;
};

TEST_F(TheTransferSize, CountsBothDirectionsAndTheHeaders) {
  Download();
  EXPECT_EQ(transfer.GetTransferSize(), 12340u);
  EXPECT_EQ(transfer.GetTransferRate(), 6u);  // 12340 / 2 / 1024 = 6.02
}

TEST_F(TheTransferSize, IsUpdatedAtEachBlockAndTwiceWithTheThrottle) {
  curl.perform = [&](const EasyHandle& handle) {
    handle.Write("block");
    EXPECT_EQ(transfer.GetTransferSize(), 12340u);
    EXPECT_EQ(transfer.GetTransferRate(), 6u);
    curl.info[CURLINFO_SIZE_DOWNLOAD] = 4000.0;
    handle.Write("block");
    EXPECT_EQ(transfer.GetTransferSize(), 14340u);
    EXPECT_EQ(transfer.GetTransferRate(), 7u);
    curl.info[CURLINFO_SIZE_DOWNLOAD] = 6000.0;
    return CURLE_OK;
  };
  const std::string update = "getinfo " + std::to_string(CURLINFO_TOTAL_TIME);
  for (const bool throttle : {true, false}) {
    transfer.UseThrottling(throttle);
    curl.info[CURLINFO_SIZE_DOWNLOAD] = 2000.0;
    curl.Clear();
    Download();
    EXPECT_EQ(transfer.GetTransferSize(), 16340u) << "what came with the end counts too";
    EXPECT_EQ(curl.Count(update), throttle ? 5u : 3u) << "per block once or twice, and once at the end";
  }
}

TEST_F(TheTransferSize, IsKnownAfterAFailureToo) {
  curl.Respond(200, {.result = CURLE_RECV_ERROR});
  ZString result;
  transfer.Download(L"http://h/", result);
  EXPECT_EQ(transfer.GetTransferSize(), 12340u);
  EXPECT_EQ(transfer.GetTransferRate(), 6u);
}

TEST_F(TheTransferSize, CountsAValueThatLibcurlCannotTellAsZero) {
  struct Case {
    CURLINFO info;
    unsigned long long size;
    unsigned int rate;
  };
  constexpr Case kCases[] = {{CURLINFO_SIZE_UPLOAD, 2340, 1},
                             {CURLINFO_SIZE_DOWNLOAD, 10340, 5},
                             {CURLINFO_REQUEST_SIZE, 12040, 5},
                             {CURLINFO_HEADER_SIZE, 12300, 6}};
  for (const Case& c : kCases) {
    const auto value = curl.info[c.info];
    curl.info[c.info] = CURLE_UNKNOWN_OPTION;
    Download();
    EXPECT_EQ(transfer.GetTransferSize(), c.size) << c.info;
    EXPECT_EQ(transfer.GetTransferRate(), c.rate) << c.info;
    curl.info[c.info] = value;
  }
}

TEST_F(TheTransferSize, AndTheRateAreZeroWhenLibcurlCannotTellTheTime) {
  curl.info[CURLINFO_TOTAL_TIME] = CURLE_UNKNOWN_OPTION;
  curl.Clear();
  Download();
  EXPECT_EQ(transfer.GetTransferSize(), 0u);
  EXPECT_EQ(transfer.GetTransferRate(), 0u);
  EXPECT_EQ(curl.Count("getinfo " + std::to_string(CURLINFO_SIZE_UPLOAD)), 0u) << "nothing else is asked for then";
}

TEST_F(TheTransferSize, OfAnEarlierBlockIsForgottenWhenTheTimeCannotBeToldAnyMore) {
  curl.perform = [&](const EasyHandle& handle) {
    handle.Write("block");
    EXPECT_EQ(transfer.GetTransferSize(), 12340u);
    curl.info[CURLINFO_TOTAL_TIME] = CURLE_UNKNOWN_OPTION;
    return CURLE_OK;
  };
  Download();
  EXPECT_EQ(transfer.GetTransferSize(), 0u);
  EXPECT_EQ(transfer.GetTransferRate(), 0u);
}

struct RateCase {
  const char* name;
  double bytes;
  double seconds;
  unsigned long long size;
  unsigned int rate;
};
constexpr RateCase kRateCases[] = {
    {"nothing", 0.0, 1.0, 0, 0},
    {"nothing in no time", 0.0, 0.0, 0, 0},
    {"something in no time", 1024.0, 0.0, 1024, 0},
    {"one KiB per second", 1024.0, 1.0, 1024, 1},
    {"a little less", 1023.0, 1.0, 1023, 0},
    {"a little less than two", 2047.0, 1.0, 2047, 1},
    {"half a second", 1024.0, 0.5, 1024, 2},
    {"a third", 1024.0, 3.0, 1024, 0},
    {"seven thirds", 7168.0, 3.0, 7168, 2},
    {"the largest rate", 4398046511103.0, 1.0, 4398046511103, 4294967295},
    {"one more", 4398046511104.0, 1.0, 4398046511104, 4294967295},
    {"far too fast", 1e18, 1e-6, 1000000000000000000, 4294967295},
    {"the shortest time", 1.0, std::numeric_limits<double>::denorm_min(), 1, 4294967295},
    {"a clock that went back", 1024.0, -1.0, 1024, 0},
    {"more than any integer holds", 1e300, 1.0, kUnknown, 4294967295},
    {"just more than any integer holds", 18446744073709551616.0, 1e10, kUnknown, 1801439},
};

TEST(TheTransferRate, IsInKibPerSecondTruncatedAndSaturates) {
  for (const RateCase& c : kRateCases) {
    CurlRecorder curl;
    curl.Respond(200, {});
    curl.info[CURLINFO_TOTAL_TIME] = c.seconds;
    curl.info[CURLINFO_SIZE_UPLOAD] = 0.0;
    curl.info[CURLINFO_SIZE_DOWNLOAD] = c.bytes;
    curl.info[CURLINFO_REQUEST_SIZE] = 0L;
    curl.info[CURLINFO_HEADER_SIZE] = 0L;
    ZTransfer transfer;
    ZString result;
    transfer.Download(L"http://h/", result);
    EXPECT_EQ(transfer.GetTransferSize(), c.size) << c.name;
    EXPECT_EQ(transfer.GetTransferRate(), c.rate) << c.name;
  }
}

}  // namespace
}  // namespace CorvaneTest
