// What the object does with the blocks and the header lines that libcurl hands it.

#include <sys/resource.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include <Corvane/Base/ErrorDict.h>
#include <Corvane/Base/Result.h>
#include <Corvane/Transfer/TransferImpl.h>

#include "tests/recorder/TransferTest.h"
#include "tests/support/Env.h"

namespace CorvaneTest {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

const std::string kResponseCode = "getinfo " + std::to_string(CURLINFO_RESPONSE_CODE);

// --- The body. ---

class TheBody : public TransferTest {
 protected:
  std::string Download(std::vector<std::string> blocks) {
    curl.Respond(200, {.blocks = std::move(blocks)});
    ZString result;
    EXPECT_EQ(transfer.Download(L"http://h/", result), kFinished);
    return Narrow(result);
  }

  ZTransfer transfer;
};

TEST_F(TheBody, IsDecodedFromUtf8AcrossTheBlocks) {
  EXPECT_EQ(Download({"caf\xC3", "\xA9 \xE2", "\x82", "\xAC"}), "caf\xC3\xA9 \xE2\x82\xAC");
  EXPECT_EQ(Download({"a\xFF", "b\xC3"}),
            "a\xEF\xBF\xBD"
            "b\xEF\xBF\xBD")
      << "ill-formed bytes become U+FFFD";
  EXPECT_EQ(Download({std::string("a\0b", 3)}), std::string("a\0b", 3));
}

TEST_F(TheBody, OfALaterOperationReplacesALongerOne) {
  EXPECT_EQ(Download({std::string(100000, 'x')}), std::string(100000, 'x'));
  EXPECT_EQ(Download({"abc"}), "abc");
  EXPECT_EQ(Download({}), "");
  EXPECT_EQ(Download({"defg", "hi"}), "defghi");
}

TEST_F(TheBody, CountsInTheDownloadSizeBlockByBlock) {
  curl.perform = [&](const EasyHandle& handle) {
    EXPECT_EQ(transfer.GetDownloadSize(), 0u);
    EXPECT_EQ(handle.Write("four"), 4u);
    EXPECT_EQ(transfer.GetDownloadSize(), 4u);
    EXPECT_EQ(handle.Write(""), 0u);
    EXPECT_EQ(transfer.GetDownloadSize(), 4u);
    EXPECT_EQ(handle.Write("three", 5), 5u) << "one item of five bytes";
    EXPECT_EQ(handle.Write("sixsix", 2), 6u) << "three items of two bytes";
    EXPECT_EQ(transfer.GetDownloadSize(), 15u);
    return CURLE_OK;
  };
  ZString result;
  EXPECT_EQ(transfer.Download(L"http://h/", result), kFinished);
  EXPECT_EQ(transfer.GetDownloadSize(), 15u);
  EXPECT_EQ(result, ZString(L"fourthreesixsix"));
}

TEST_F(TheBody, GoesIntoTheFileFromTheResumePositionOnAndCountsOnTop) {
  const std::string old = MakePattern(100);
  WriteFile(folder / "out", old);
  curl.perform = [&](const EasyHandle& handle) {
    EXPECT_EQ(transfer.GetDownloadSize(), 68u);
    EXPECT_EQ(handle.Write("0123456789"), 10u);
    EXPECT_EQ(transfer.GetDownloadSize(), 78u);
    EXPECT_EQ(ReadFile(folder / "out"), old.substr(0, 68) + "0123456789" + old.substr(78)) << "nothing is held back";
    EXPECT_EQ(handle.Write(std::string(30, 'x')), 30u);
    return CURLE_OK;
  };
  EXPECT_EQ(transfer.DownloadFile(L"ftp://h/f", Path("out"), true), kFinished);
  EXPECT_EQ(transfer.GetDownloadSize(), 108u);
  EXPECT_EQ(ReadFile(folder / "out"), old.substr(0, 68) + "0123456789" + std::string(30, 'x'));
}

TEST_F(TheBody, OfAFileDownloadIsNoResult) {
  EXPECT_EQ(Download({"page"}), "page");
  curl.Respond(200, {.blocks = {"file"}});
  EXPECT_EQ(transfer.DownloadFile(L"http://h/", Path("out"), false), kFinished);
  EXPECT_EQ(Download({"12"}), "12") << "the next download is in memory again";
  EXPECT_EQ(ReadFile(folder / "out"), "file");
}

TEST_F(TheBody, OfAPostGoesWhereTheOverloadSays) {
  WriteFile(folder / "in", "x");
  curl.Respond(200, {.blocks = {"ans", "wer"}});
  ZString result = L"before";
  EXPECT_EQ(transfer.PostFile(L"http://h/", Path("in"), Path("out")), kFinished);
  EXPECT_EQ(ReadFile(folder / "out"), "answer");
  EXPECT_EQ(transfer.PostData(L"http://h/", L"x", result), kFinished);
  EXPECT_EQ(result, ZString(L"answer"));
  result = L"before";
  EXPECT_EQ(transfer.Post(L"http://h/", L"a", L"b", result), kFinished);
  EXPECT_EQ(result, ZString(L"answer"));
  curl.Respond(200, {.blocks = {"dropped"}});
  EXPECT_EQ(transfer.PostFile(L"http://h/", Path("in")), kFinished);
  EXPECT_EQ(transfer.PostFile(L"http://h/", Path("in"), ZString()), kFinished);
  EXPECT_EQ(ReadFile(folder / "out"), "answer");
}

TEST_F(TheBody, OfARefusedPostIsStillHandedBack) {
  curl.Respond(500, {.blocks = {"page"}});
  ZString result;
  EXPECT_EQ(transfer.PostData(L"http://h/", L"x", result), Corvane::TRANSFER_E_POST);
  EXPECT_EQ(result, ZString(L"page"));
}

TEST_F(TheBody, ThatCannotBeReadBackIsAFailureWithTheReason) {
  curl.perform = [&](const EasyHandle& handle) {
    handle.Write("block");
    // Nothing that libcurl does makes the stream shorter than what was counted, so the count is made longer.
    auto* const object =
        static_cast<ZTransfer::ZTransferImpl*>(const_cast<void*>(handle.Get(CURLOPT_WRITEDATA).pointer));
    object->m_request.downloadSize = 6;
    return CURLE_OK;
  };
  ZString result = L"before";
  EXPECT_EQ(transfer.Download(L"http://h/", result), Corvane::TRANSFER_E_DOWNLOAD);
  EXPECT_EQ(Outcome(transfer),
            "0x8001138A Download failed: " + Narrow(Corvane::ZGetErrorMsg(Corvane::BASE_E_END_OF_STREAM)));
  EXPECT_EQ(result, ZString());
}

TEST_F(TheBody, OfMoreThanATextHoldsIsAFailureAndNoCutText) {
  const auto downloadOf = [&](unsigned long long bytes) {
    curl.perform = [=](const EasyHandle& handle) {
      handle.Write("block");
      auto* const object =
          static_cast<ZTransfer::ZTransferImpl*>(const_cast<void*>(handle.Get(CURLOPT_WRITEDATA).pointer));
      object->m_request.downloadSize = bytes;
      return CURLE_OK;
    };
  };
  downloadOf(0x10000000BULL);
  ZString result = L"before";
  EXPECT_EQ(transfer.Download(L"http://h/", result), Corvane::TRANSFER_E_DOWNLOAD);
  EXPECT_EQ(
      Outcome(transfer),
      "0x8001138A Download failed: The body of 4294967307 bytes is too large for a text. Download it into a file.");
  EXPECT_EQ(result, ZString());
  downloadOf(0xFFFFFFFFULL);
  transfer.Download(L"http://h/", result);
  EXPECT_EQ(Outcome(transfer),
            "0x8001138A Download failed: " + Narrow(Corvane::ZGetErrorMsg(Corvane::BASE_E_END_OF_STREAM)))
      << "the largest text is read";
}

TEST_F(TheBody, ThatCannotBeStoredIsAShortWrite) {
  curl.perform = [&](const EasyHandle& handle) {
    EXPECT_EQ(handle.Write("0123456789"), 0u);
    EXPECT_EQ(transfer.GetDownloadSize(), 0u);
    handle.SetErrorText("short");
    return CURLE_WRITE_ERROR;
  };
  EXPECT_EQ(transfer.DownloadFile(L"ftp://h/", L"/dev/full", false), kCurl | CURLE_WRITE_ERROR);
  EXPECT_EQ(Narrow(transfer.GetError()), "short");
}

// Limits the size of files that the process writes; what is over the limit fails like a full disk.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : m_formerHandler(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &m_former);
    const rlimit limited{bytes, m_former.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limited);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &m_former);
    std::signal(SIGXFSZ, m_formerHandler);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  void (*m_formerHandler)(int);
  rlimit m_former{};
};

TEST_F(TheBody, ThatIsStoredInPartCountsThatPartAndStops) {
  ScriptedTime time;
  curl.perform = [&](const EasyHandle& handle) {
    const FileSizeLimit limit(13);
    EXPECT_EQ(handle.Write("0123456789"), 10u);
    const int charged = time.ThrottleCalls();
    EXPECT_EQ(handle.Write("0123456789"), 0u);
    EXPECT_EQ(transfer.GetDownloadSize(), 13u);
    EXPECT_EQ(time.ThrottleCalls(), charged + 1) << "what was written is charged";
    return CURLE_WRITE_ERROR;
  };
  EXPECT_EQ(transfer.DownloadFile(L"http://h/", Path("out"), false), kCurl | CURLE_WRITE_ERROR);
  EXPECT_EQ(ReadFile(folder / "out"), "0123456789012") << "the part stays, to be resumed";
}

// --- The header. ---

class TheHeader : public TransferTest {
 protected:
  std::string Header() {
    ZString header = L"before";
    EXPECT_EQ(transfer.GetHeader(header), 0u);
    return Narrow(header);
  }

  ZTransfer transfer;
  ZString result;
};

TEST_F(TheHeader, IsTheLinesAsReceivedThoseOfInterimAnswersToo) {
  EXPECT_EQ(Header(), "");
  const std::vector<std::string> lines = {"HTTP/1.1 100 Continue\r\n", "\r\n", "HTTP/1.1 200 OK\r\n",
                                          "X-A: \xC3\xA9\r\n", "\r\n"};
  curl.Respond(200, {.headers = lines});
  transfer.Download(L"http://h/", result);
  EXPECT_EQ(Header(), lines[0] + lines[1] + lines[2] + lines[3] + lines[4]);
}

TEST_F(TheHeader, IsThatOfTheLastOperationOnly) {
  curl.Respond(200, {.headers = {"first\r\n"}});
  transfer.Download(L"http://h/", result);
  curl.Respond(200, {.headers = {"second\r\n"}});
  transfer.PostData(L"http://h/", L"x");
  EXPECT_EQ(Header(), "second\r\n");
  curl.Respond(200, {});
  transfer.Download(L"ftp://h/", result);
  EXPECT_EQ(Header(), "") << "none is collected for FTP";
}

TEST_F(TheHeader, StaysReadableAfterAFailure) {
  curl.Respond(200, {.headers = {"line\r\n"}, .result = CURLE_RECV_ERROR});
  transfer.Download(L"http://h/", result);
  EXPECT_EQ(Header(), "line\r\n");
}

TEST_F(TheHeader, IsDecodedFromUtf8InEveryLocale) {
  for (const char* const locale : {"C", "C.UTF-8"}) {
    const ScopedLocale scoped(locale);
    curl.Respond(200, {.headers = {"X: gr\xC3\xBCn \xFF\r\n"}});
    transfer.Download(L"http://h/", result);
    ZString header;
    transfer.GetHeader(header);
    EXPECT_EQ(header, ZString(L"X: gr\u00FCn \uFFFD\r\n")) << locale;
  }
}

TEST_F(TheHeader, InTheTextOfARefusedFileIsDecodedFromUtf8) {
  const ScopedLocale ascii("C");
  curl.Respond(404, {.headers = {"X: gr\xC3\xBCn\r\n"}});
  transfer.DownloadFile(L"http://h/", Path("f"), false);
  EXPECT_EQ(transfer.GetError(), ZString(L"Failed to connect to the specified URL, http://h/\nX: gr\u00FCn\r\n"));
}

// A body is limited by whoever takes it, a header line by libcurl, but not the lines that may follow a body.
TEST_F(TheHeader, EndsTheTransferBehind16MiB) {
  const std::string line(1 << 20, 'x');
  curl.perform = [&](const EasyHandle& handle) {
    for (int i = 0; i < 16; ++i) EXPECT_EQ(handle.Header(line), line.size());
    EXPECT_EQ(handle.Header("y"), 0u);
    return CURLE_WRITE_ERROR;
  };
  EXPECT_EQ(transfer.Download(L"http://h/", result), kCurl | CURLE_WRITE_ERROR);
  EXPECT_EQ(Narrow(transfer.GetError()), "The server sent more than 16 MiB of header lines.");
  ZString cause;
  EXPECT_EQ(transfer.GetCause(cause), kCurl | CURLE_WRITE_ERROR);
  EXPECT_EQ(cause, transfer.GetError());
  curl.Respond(200, {.headers = {"HTTP/1.1 200 OK\r\n"}, .blocks = {"good"}});
  EXPECT_EQ(transfer.Download(L"http://h/", result), kFinished) << "the next operation counts from nothing";
}

// --- The sliding limit. ---

class TheTimeLimit : public TransferTest {
 protected:
  ~TheTimeLimit() override { ZTransfer::SetThrottling(0, 0, false); }

  // The values that CURLOPT_TIMEOUT got after the set-up.
  std::vector<std::string> Moves(std::function<CURLcode(const EasyHandle&)> perform) {
    curl.perform = std::move(perform);
    curl.Clear();
    ZString result;
    EXPECT_EQ(transfer.Download(L"http://h/", result), kFinished);
    std::vector<std::string> values = curl.ValuesOf(CURLOPT_TIMEOUT);
    EXPECT_FALSE(values.empty());
    if (!values.empty()) values.erase(values.begin());
    return values;
  }

  ScriptedTime time;
  ZTransfer transfer;
};

TEST_F(TheTimeLimit, IsMovedTwiceByEachBlockTheSecondTimeWithoutTheTenSeconds) {
  EXPECT_THAT(Moves([&](const EasyHandle& handle) {
                handle.Write("a");
                time.Advance(milliseconds(2999));
                handle.Write("b");
                time.Advance(milliseconds(1));
                handle.Write("c");
                handle.Write("");
                return CURLE_OK;
              }),
              ElementsAre("310", "300", "312", "302", "313", "303", "313", "303"));
}

TEST_F(TheTimeLimit, IsMovedOnceByEachBlockWithoutThrottling) {
  EXPECT_EQ(transfer.UseThrottling(false), 0u);
  EXPECT_THAT(Moves([&](const EasyHandle& handle) {
                handle.Write("a");
                time.Advance(seconds(700));
                handle.Write("b");
                return CURLE_OK;
              }),
              ElementsAre("310", "1010"));
  EXPECT_EQ(time.ThrottleCalls(), 0);
}

TEST_F(TheTimeLimit, StaysOffWhenTheTimeoutIsZero) {
  transfer.SetTimeout(0);
  const auto oneBlock = [&](const EasyHandle& handle) {
    time.Advance(seconds(5));
    handle.Write("a");
    return CURLE_OK;
  };
  EXPECT_THAT(Moves(oneBlock), ElementsAre("0", "0"));
  transfer.UseThrottling(false);
  EXPECT_THAT(Moves(oneBlock), ElementsAre("0"));
}

TEST_F(TheTimeLimit, FollowsANewTimeoutFromTheNextBlockOn) {
  EXPECT_THAT(Moves([&](const EasyHandle& handle) {
                handle.Write("a");
                EXPECT_EQ(transfer.SetTimeout(50), 0u);
                time.Advance(seconds(1));
                handle.Write("b");
                EXPECT_EQ(transfer.SetTimeout(0), 0u);
                handle.Write("c");
                EXPECT_EQ(transfer.SetTimeout(7), 0u);
                handle.Write("d");
                return CURLE_OK;
              }),
              ElementsAre("310", "300", "61", "51", "0", "0", "18", "8"));
  Moves([](const EasyHandle&) { return CURLE_OK; });
  EXPECT_THAT(curl.ValuesOf(CURLOPT_TIMEOUT), ElementsAre("7")) << "it persists";
  EXPECT_THAT(curl.ValuesOf(CURLOPT_CONNECTTIMEOUT), ElementsAre("7"));
}

TEST_F(TheTimeLimit, DoesNotFollowAClockThatIsSet) {
  for (const seconds set : {seconds(-3600), seconds(3600)}) {
    EXPECT_THAT(Moves([&](const EasyHandle& handle) {
                  time.Advance(seconds(100));
                  time.SetClock(set);
                  handle.Write("a");
                  return CURLE_OK;
                }),
                ElementsAre("410", "400"));
  }
}

TEST_F(TheTimeLimit, TakesAClockThatWentBackForNoTransferTimeAtAll) {
  Moves([&](const EasyHandle& handle) {
    time.SetClock(seconds(-3600));
    handle.Write("a");
    return CURLE_OK;
  });
  EXPECT_EQ(transfer.GetTransferTime(), 0);
}

// libcurl refuses more than this, for it counts milliseconds in 32 bits.
TEST_F(TheTimeLimit, SaturatesAtWhatLibcurlTakes) {
  constexpr unsigned long kLargest = 2147483;
  for (const unsigned long huge : {kLargest, kLargest + 1, 4294967295UL, std::numeric_limits<unsigned long>::max()}) {
    transfer.SetTimeout(300);
    EXPECT_THAT(Moves([&](const EasyHandle& handle) {
                  handle.Write("a");
                  EXPECT_EQ(transfer.SetTimeout(huge), 0u);
                  time.Advance(seconds(1));
                  handle.Write("b");
                  return CURLE_OK;
                }),
                ElementsAre("310", "300", "2147483", "2147483"))
        << huge;
    Moves([](const EasyHandle&) { return CURLE_OK; });
    EXPECT_THAT(curl.ValuesOf(CURLOPT_TIMEOUT), ElementsAre("2147483")) << huge;
    EXPECT_THAT(curl.ValuesOf(CURLOPT_CONNECTTIMEOUT), ElementsAre("2147483")) << huge;
  }
}

// No unit makes a limit shorter, or takes it away unasked.
TEST_F(TheTimeLimit, IsTakenInAnyUnit) {
  const auto limit = [&] {
    Moves([](const EasyHandle&) { return CURLE_OK; });
    return curl.ValuesOf(CURLOPT_TIMEOUT);
  };
  EXPECT_EQ(transfer.SetTimeout(std::chrono::minutes(2)), 0u);
  EXPECT_THAT(limit(), ElementsAre("120"));
  EXPECT_EQ(transfer.SetTimeout(milliseconds(1500)), 0u);
  EXPECT_THAT(limit(), ElementsAre("2"));
  EXPECT_EQ(transfer.SetTimeout(seconds(-1)), Corvane::ResultFromErrno(EINVAL));
  EXPECT_THAT(limit(), ElementsAre("2"));
  EXPECT_EQ(transfer.SetTimeout(std::chrono::hours::max()), 0u);
  EXPECT_THAT(limit(), ElementsAre("2147483"));
  EXPECT_EQ(transfer.SetTimeout(seconds(0)), 0u);
  EXPECT_THAT(limit(), ElementsAre("0"));
}

TEST_F(TheTimeLimit, SaturatesWhenItIsMovedBehindWhatLibcurlTakes) {
  transfer.SetTimeout(2147473);
  EXPECT_THAT(Moves([&](const EasyHandle& handle) {
                handle.Write("a");
                time.Advance(seconds(1));
                handle.Write("b");
                time.Advance(seconds(10));
                handle.Write("c");
                return CURLE_OK;
              }),
              ElementsAre("2147483", "2147473", "2147483", "2147474", "2147483", "2147483"));
}

TEST_F(TheTimeLimit, IsNotUsedUpByASleepInTheThrottle) {
  ZTransfer::SetThrottling(1000000000, 1, false);  // 1 KiB/s at once
  curl.info[CURLINFO_TOTAL_TIME] = 1.0;
  curl.info[CURLINFO_SIZE_DOWNLOAD] = 1024.0;
  time.onSleep = [&] {
    EXPECT_EQ(transfer.GetTransferRate(), 1u);
    time.Advance(seconds(7));
    curl.info[CURLINFO_SIZE_DOWNLOAD] = 5120.0;
  };
  EXPECT_THAT(Moves([&](const EasyHandle& handle) {
                handle.Write("a");  // begins the measure period, for which it does not count
                time.Advance(seconds(1));
                handle.Write(std::string(4096, 'x'));
                EXPECT_EQ(transfer.GetTransferRate(), 5u) << "what came during the sleep counts";
                return CURLE_OK;
              }),
              ElementsAre("310", "300", "311", "308"));
  EXPECT_THAT(time.sleeps, ElementsAre(ScriptedTime::Sleep{3, 96})) << "4096 bytes take 4096 ms, one second is over";
  EXPECT_EQ(transfer.GetTransferTime(), 8000);
}

TEST_F(TheTimeLimit, ThatCannotBeMovedIsNoFailure) {
  curl.perform = [&](const EasyHandle& handle) {
    curl.onOption = [](const OptionCall&) { return CURLE_UNKNOWN_OPTION; };
    EXPECT_EQ(handle.Write("a"), 1u);
    curl.onOption = nullptr;
    return CURLE_OK;
  };
  ZString result;
  logger.Clear();
  EXPECT_EQ(transfer.Download(L"http://h/", result), kFinished);
  EXPECT_THAT(logger.Lines(), IsEmpty());
  EXPECT_THAT(curl.ValuesOf(CURLOPT_TIMEOUT), ElementsAre("300", "310", "300"));
}

TEST_F(TheTimeLimit, IsMovedAfterTheSizesWereUpdated) {
  curl.perform = [&](const EasyHandle& handle) {
    curl.Clear();
    handle.Write("a");
    return CURLE_OK;
  };
  const auto get = [](CURLINFO info) { return "getinfo " + std::to_string(info); };
  const std::string time1 = get(CURLINFO_TOTAL_TIME);
  const std::string upload = get(CURLINFO_SIZE_UPLOAD);
  const std::string download = get(CURLINFO_SIZE_DOWNLOAD);
  const std::string request = get(CURLINFO_REQUEST_SIZE);
  const std::string header = get(CURLINFO_HEADER_SIZE);
  curl.afterOption = [&](const OptionCall&) { curl.Note("charged " + std::to_string(time.ThrottleCalls())); };
  ZString result;
  EXPECT_EQ(transfer.Download(L"http://h/", result), kFinished);
  curl.afterOption = nullptr;
  EXPECT_THAT(curl.Calls(),
              ElementsAre(get(CURLINFO_CONTENT_LENGTH_DOWNLOAD), time1, upload, download, request, header,
                          "setopt 13=310", "charged 0", time1, upload, download, request, header, "setopt 13=300",
                          "charged 1", get(CURLINFO_RESPONSE_CODE), time1, upload, download, request, header));
}

TEST_F(TheTimeLimit, IsNotMovedByHeaderLines) {
  EXPECT_THAT(Moves([](const EasyHandle& handle) {
                handle.Header("HTTP/1.1 200 OK\r\n");
                return CURLE_OK;
              }),
              IsEmpty());
}

// --- The throttle. ---

class TheThrottle : public TransferTest {
 protected:
  TheThrottle() { ZTransfer::SetThrottling(1000000000, 1, false); }  // 1 KiB/s: 1000 bytes sleep a second
  ~TheThrottle() override { ZTransfer::SetThrottling(0, 0, false); }

  ScriptedTime time;
};

TEST_F(TheThrottle, IsChargedWithWhatWasStored) {
  ZTransfer transfer;
  curl.Respond(200, {.blocks = {"begins the period", std::string(2001, 'x'), ""}});
  ZString result;
  EXPECT_EQ(transfer.Download(L"http://h/", result), kFinished);
  EXPECT_EQ(time.ThrottleCalls(), 3) << "an empty block is charged too";
  using Sleep = ScriptedTime::Sleep;
  EXPECT_THAT(time.sleeps, ElementsAre(Sleep{2, 0}, Sleep{2, 0}));
}

TEST_F(TheThrottle, IsChargedWithThePartThatWasStored) {
  ZTransfer transfer;
  curl.perform = [&](const EasyHandle& handle) {
    const FileSizeLimit limit(13);
    EXPECT_EQ(handle.Write("begins now"), 10u);
    EXPECT_EQ(handle.Write("0123456789"), 0u);
    return CURLE_WRITE_ERROR;
  };
  EXPECT_EQ(transfer.DownloadFile(L"http://h/", Path("out"), false), kCurl | CURLE_WRITE_ERROR);
  EXPECT_THAT(time.sleeps, ElementsAre(ScriptedTime::Sleep{0, 2})) << "three bytes take 3 ms, one is over";
}

TEST_F(TheThrottle, IsChargedWithAPostedBodyAfterTheRequestWhateverItsOutcome) {
  WriteFile(folder / "in", std::string(3001, 'x'));
  const ZString data(std::wstring(1500, L'\u00E9'));  // 3000 bytes
  struct Case {
    const char* name;
    std::function<ZResult(ZTransfer&)> run;
  };
  const Case cases[] = {{"fields", [&](ZTransfer& t) { return t.Post(L"http://h/", L"a", data); }},
                        {"data", [&](ZTransfer& t) { return t.PostData(L"http://h/", data + L"x"); }},
                        {"file", [&](ZTransfer& t) { return t.PostFile(L"http://h/", Path("in")); }}};
  for (const CURLcode outcome : {CURLE_OK, CURLE_SEND_ERROR}) {
    for (const Case& c : cases) {
      ZTransfer transfer;
      ZTransfer::SetThrottling(1000000000, 1, false);  // restarts the measure period
      curl.perform = [&](const EasyHandle& handle) {
        handle.Write("begins the period");
        EXPECT_THAT(time.sleeps, IsEmpty()) << c.name;
        return outcome;
      };
      time.sleeps.clear();
      EXPECT_EQ(IsFailure(c.run(transfer)), outcome != CURLE_OK) << c.name;
      ASSERT_EQ(time.sleeps.size(), 1u) << c.name;
      EXPECT_EQ(time.sleeps[0].seconds, 3) << c.name;
    }
  }
}

// A measure period begins with the first block after a restart, which is not charged and so does not sleep.
TEST_F(TheThrottle, IsRestartedByAnObjectOnlyWhenThereIsNoOther) {
  curl.Respond(200, {.blocks = {std::string(2001, 'x')}});
  const auto sleepsOfANewObject = [&] {
    ZTransfer transfer;
    time.sleeps.clear();
    ZString result;
    transfer.Download(L"http://h/", result);
    return time.sleeps.size();
  };
  EXPECT_EQ(sleepsOfANewObject(), 0u);
  EXPECT_EQ(sleepsOfANewObject(), 0u) << "the one before is gone";
  {
    const ZTransfer other;
    EXPECT_EQ(sleepsOfANewObject(), 0u) << "the other one has restarted it";
    EXPECT_EQ(sleepsOfANewObject(), 1u);
  }
  EXPECT_EQ(sleepsOfANewObject(), 0u);
  EXPECT_EQ(ZTransfer::StartMulti(), 0u);
  EXPECT_EQ(sleepsOfANewObject(), 0u);
  EXPECT_EQ(sleepsOfANewObject(), 1u) << "a series counts as one";
  EXPECT_EQ(ZTransfer::FinishMulti(), 0u);
  EXPECT_EQ(sleepsOfANewObject(), 0u);
  EXPECT_EQ(ZTransfer::SetThrottling(1000000000, 1, false), 0u);
}

TEST_F(TheThrottle, IsNotChargedByAnObjectThatDoesNotUseIt) {
  WriteFile(folder / "in", "x");
  ZTransfer transfer;
  transfer.UseThrottling(false);
  curl.Respond(200, {.blocks = {std::string(5000, 'x')}});
  ZString result;
  transfer.Download(L"http://h/", result);
  transfer.DownloadFile(L"http://h/", Path("out"), false);
  transfer.Post(L"http://h/", L"a", L"b");
  transfer.PostData(L"http://h/", L"x");
  transfer.PostFile(L"http://h/", Path("in"));
  EXPECT_EQ(time.ThrottleCalls(), 0);
  transfer.UseThrottling(true);
  transfer.Download(L"http://h/", result);
  EXPECT_EQ(time.ThrottleCalls(), 1);
}

// --- Notification. ---

class TheFirstBlock : public TransferTest {
 protected:
  ZTransfer transfer;
  RecordingObserver observer;
  ZString result;
};

TEST_F(TheFirstBlock, NotifiesTheObserversOnceInEachOperation) {
  transfer.Attach(&observer);
  curl.Respond(200, {.blocks = {"a", "b", "c"}});
  transfer.Download(L"http://h/", result);
  EXPECT_THAT(observer.events, ElementsAre("1 80011002"));
  transfer.DownloadFile(L"http://h/", Path("out"), false);
  transfer.PostData(L"http://h/", L"x");
  EXPECT_THAT(observer.events, ElementsAre("1 80011002", "1 80011002", "1 80011002"));
}

TEST_F(TheFirstBlock, TellsWhetherTheAnswerIsGood) {
  struct Case {
    const wchar_t* url;
    long status;
    const char* event;
  };
  transfer.Attach(&observer);
  for (const Case& c : {Case{L"http://h/", 200, "1 80011002"}, Case{L"http://h/", 299, "1 80011002"},
                        Case{L"http://h/", 404, "1 80011389"}, Case{L"HTTPS://h/", 302, "1 80011389"},
                        Case{L"ftp://h/", 550, "1 80011002"}}) {
    curl.Respond(c.status, {.blocks = {"a", "b"}});
    observer.events.clear();
    transfer.Download(c.url, result);
    EXPECT_THAT(observer.events, ElementsAre(c.event)) << Narrow(c.url) << " " << c.status;
  }
}

TEST_F(TheFirstBlock, IsTheFirstThatIsNotEmpty) {
  transfer.Attach(&observer);
  curl.info[CURLINFO_CONTENT_LENGTH_DOWNLOAD] = 1.0;
  curl.perform = [&](const EasyHandle& handle) {
    handle.Header("HTTP/1.1 200 OK\r\n");
    handle.Write("");
    EXPECT_THAT(observer.events, IsEmpty());
    EXPECT_EQ(transfer.GetContentSize(), 1u) << "the size is known";
    handle.Write("a");
    EXPECT_THAT(observer.events, ElementsAre("1 80011002"));
    return CURLE_OK;
  };
  transfer.Download(L"http://h/", result);
}

TEST_F(TheFirstBlock, IsStoredAfterTheNotification) {
  curl.info[CURLINFO_CONTENT_LENGTH_DOWNLOAD] = 1234.0;
  observer.onUpdate = [&] {
    EXPECT_EQ(transfer.GetDownloadSize(), 0u);
    EXPECT_EQ(transfer.GetContentSize(), 1234u);
  };
  transfer.Attach(&observer);
  curl.Respond(200, {.blocks = {"a"}});
  transfer.Download(L"http://h/", result);
  EXPECT_EQ(observer.events.size(), 1u);
}

TEST_F(TheFirstBlock, ChecksTheAnswerOnlyWhenSomebodyIsAttached) {
  curl.Respond(200, {.blocks = {"a", "b"}});
  transfer.Download(L"http://h/", result);
  EXPECT_EQ(curl.Count(kResponseCode), 1u) << "at the end, to be told by the getter";
  transfer.Attach(&observer);
  transfer.Download(L"http://h/", result);
  EXPECT_EQ(curl.Count(kResponseCode), 3u) << "at the first block and at the end";
}

// A server may refuse a range with a page of its own, which must not overwrite what the file holds.
TEST_F(TheFirstBlock, OfARefusedRangeAndAllAfterItStayOutOfTheFile) {
  const std::string old = MakePattern(100);
  WriteFile(folder / "out", old);
  curl.info[CURLINFO_RESPONSE_CODE] = 416L;
  curl.perform = [](const EasyHandle& handle) {
    EXPECT_EQ(handle.Write("page"), 4u) << "the answer comes to its end, so that the connection can be kept";
    EXPECT_EQ(handle.Write("more"), 4u);
    return CURLE_OK;
  };
  EXPECT_EQ(transfer.DownloadFile(L"http://h/", Path("out"), true), Corvane::TRANSFER_E_CONNECT);
  EXPECT_EQ(ReadFile(folder / "out"), old);
  curl.Respond(206, {.headers = {"HTTP/1.1 206 Partial Content\r\n", "Content-Range: bytes 68-107/108\r\n"},
                     .blocks = {std::string(40, 'x')}});
  EXPECT_EQ(transfer.DownloadFile(L"http://h/", Path("out"), true), kFinished) << "the next try is not affected";
  EXPECT_EQ(ReadFile(folder / "out"), old.substr(0, 68) + std::string(40, 'x'));
}

}  // namespace
}  // namespace CorvaneTest
