// What becomes of the result of the request.

#include <algorithm>
#include <filesystem>
#include <string>

#include "tests/recorder/TransferTest.h"
#include "tests/support/Env.h"

namespace CorvaneTest {
namespace {

class TheResultOfARequest : public TransferTest {
 protected:
  ZResult Download() { return transfer.Download(L"http://host/", result); }

  ZTransfer transfer;
  ZString result;
};

TEST_F(TheResultOfARequest, IsSuccessWithItsOwnTextWhateverTheErrorBufferHolds) {
  curl.Respond(200, {.result = CURLE_OK, .errorText = "Recv failure, retrying"});
  EXPECT_EQ(Download(), 0x00010000u);
  EXPECT_EQ(Outcome(transfer), "0x00010000 Transfer has finished successfully");
  ZString cause = L"before";
  EXPECT_EQ(transfer.GetCause(cause), kFinished);
  EXPECT_EQ(cause, ZString());
}

TEST_F(TheResultOfARequest, IsLibcurlsCodeWithLibcurlsText) {
  for (int code = 1; code < 100; ++code) {
    curl.Respond(200, {.result = static_cast<CURLcode>(code), .errorText = "why " + std::to_string(code)});
    EXPECT_EQ(Download(), 0x80010000u + static_cast<unsigned int>(code));
    EXPECT_EQ(transfer.GetStatus(), 0x80010000u + static_cast<unsigned int>(code));
    EXPECT_EQ(Narrow(transfer.GetError()), "why " + std::to_string(code));
    ZString cause;
    EXPECT_EQ(transfer.GetCause(cause), 0x80010000u + static_cast<unsigned int>(code));
    EXPECT_EQ(Narrow(cause), "why " + std::to_string(code));
  }
}

TEST_F(TheResultOfARequest, HasNoTextWhenLibcurlLeftNone) {
  curl.Respond(200, {.result = CURLE_OUT_OF_MEMORY});
  EXPECT_TRUE(IsFailure(Download()));
  EXPECT_EQ(transfer.GetError(), ZString());
}

TEST_F(TheResultOfARequest, EndsItsTextAtTheLastByteOfTheBufferAtTheLatest) {
  for (const std::size_t length : {4094u, 4095u, 4096u}) {
    curl.Respond(200, {.result = CURLE_RECV_ERROR, .errorText = std::string(length, 'x')});
    EXPECT_TRUE(IsFailure(Download()));
    EXPECT_EQ(transfer.GetError().Length(), std::min<std::size_t>(length, 4095));
  }
}

TEST_F(TheResultOfARequest, HasItsTextWidenedFromTheLocalEncoding) {
  curl.Respond(200, {.result = CURLE_RECV_ERROR, .errorText = "caf\xC3\xA9 \xFF"});
  Download();
  EXPECT_EQ(transfer.GetError(), ZString(L"caf\u00E9 \u00FF")) << "a stray byte is the character of its number";
  const ScopedLocale ascii("C");
  Download();
  EXPECT_EQ(transfer.GetError(), ZString(L"caf\u00C3\u00A9 \u00FF"));
}

TEST_F(TheResultOfARequest, IsAnAbortOnlyForATimeoutOrAWriteErrorAfterAnAbort) {
  for (const bool abort : {false, true}) {
    for (int code = 0; code < 100; ++code) {
      curl.perform = [&](const EasyHandle& handle) {
        if (abort) transfer.Abort();
        handle.SetErrorText("why");
        return static_cast<CURLcode>(code);
      };
      const ZResult own = code == 0 ? kFinished : kCurl + static_cast<unsigned int>(code);
      const std::string ownText = code == 0 ? "Transfer has finished successfully" : "why";
      const bool aborted = abort && (code == 28 || code == 23);
      EXPECT_EQ(Download(), aborted ? 0x80011003u : own) << code;
      EXPECT_EQ(Narrow(transfer.GetError()), aborted ? "Download aborted by user" : ownText) << code;
      ZString cause;
      EXPECT_EQ(transfer.GetCause(cause), own) << "the cause is libcurl's";
      EXPECT_EQ(Narrow(cause), code == 0 ? "" : "why");
    }
  }
}

TEST_F(TheResultOfARequest, OfAPostOrAFileIsAnAbortLikewise) {
  WriteFile(folder / "in", "x");
  curl.perform = [&](const EasyHandle&) {
    transfer.Abort();
    return CURLE_OPERATION_TIMEDOUT;
  };
  EXPECT_EQ(transfer.Post(L"http://h/", L"a", L"b"), Corvane::TRANSFER_E_ABORTED);
  EXPECT_EQ(transfer.PostData(L"http://h/", L"a"), Corvane::TRANSFER_E_ABORTED);
  EXPECT_EQ(transfer.PostFile(L"http://h/", Path("in")), Corvane::TRANSFER_E_ABORTED);
  EXPECT_EQ(transfer.DownloadFile(L"http://h/", Path("out"), false), Corvane::TRANSFER_E_ABORTED)
      << "the server had answered with 200";
  EXPECT_TRUE(std::filesystem::exists(folder / "out"));
  curl.info[CURLINFO_RESPONSE_CODE] = 0L;
  EXPECT_EQ(transfer.DownloadFile(L"http://h/", Path("out"), false), Corvane::TRANSFER_E_CONNECT)
      << "the server had not answered";
  EXPECT_FALSE(std::filesystem::exists(folder / "out"));
  EXPECT_EQ(transfer.DownloadFile(L"ftp://h/", Path("out"), false), Corvane::TRANSFER_E_ABORTED);
  EXPECT_TRUE(std::filesystem::exists(folder / "out"));
}

TEST_F(TheResultOfARequest, IsNotCheckedForAnHttpErrorAfterAFailure) {
  transfer.DetectHttpError(true);
  curl.Respond(404, {.blocks = {"page"}, .result = CURLE_PARTIAL_FILE, .errorText = "end of file"});
  EXPECT_EQ(Download(), kCurl | CURLE_PARTIAL_FILE);
  EXPECT_EQ(Narrow(transfer.GetError()), "end of file");
  EXPECT_EQ(result, ZString(L"page"));
}

TEST_F(TheResultOfARequest, OfAFailedPostKeepsLibcurlsCodeWhateverTheStatus) {
  curl.Respond(500, {.result = CURLE_SEND_ERROR, .errorText = "broken"});
  EXPECT_EQ(transfer.PostData(L"http://host/", L"x"), kCurl | CURLE_SEND_ERROR);
  EXPECT_EQ(Narrow(transfer.GetError()), "broken");
}

// --- GetCause. ---

class TheCause : public TransferTest {
 protected:
  std::string Cause(const ZTransfer& transfer) {
    ZString text = L"before";
    const ZResult code = transfer.GetCause(text);
    return std::to_string(code & 0xFFFF) + " " + Narrow(text);
  }
};

TEST_F(TheCause, IsThereNoneBeforeTheFirstRequest) {
  ZTransfer transfer;
  ZString text = L"before";
  EXPECT_EQ(transfer.GetCause(text), Corvane::TRANSFER_E_NOT_STARTED);
  EXPECT_EQ(text, ZString());
}

TEST_F(TheCause, IsKeptWhereAFileDownloadReplacesTheCode) {
  ZTransfer transfer;
  curl.Respond(0, {.result = CURLE_COULDNT_CONNECT, .errorText = "refused"});
  EXPECT_EQ(transfer.DownloadFile(L"http://h/", Path("out"), false), Corvane::TRANSFER_E_CONNECT);
  EXPECT_EQ(Narrow(transfer.GetError()), "Failed to connect to the specified URL, http://h/\n");
  EXPECT_EQ(Cause(transfer), "7 refused");
}

TEST_F(TheCause, IsForgottenByResetAndByAnOperationWithoutARequest) {
  ZTransfer transfer;
  curl.Respond(0, {.result = CURLE_COULDNT_CONNECT, .errorText = "refused"});
  ZString result;
  transfer.Download(L"http://h/", result);
  EXPECT_EQ(Cause(transfer), "7 refused");
  transfer.Reset();
  EXPECT_EQ(Cause(transfer), "4097 ");
  transfer.Download(L"http://h/", result);
  transfer.PostFile(L"http://h/", Path("missing"));
  EXPECT_EQ(Cause(transfer), "4097 ");
}

TEST_F(TheCause, IsRefusedWhileAnOperationRuns) {
  ZTransfer transfer;
  curl.perform = [&](const EasyHandle&) {
    ZString text = L"before";
    EXPECT_EQ(transfer.GetCause(text), Corvane::BASE_E_BUSY);
    EXPECT_EQ(text, ZString(L"before"));
    return CURLE_OK;
  };
  ZString result;
  EXPECT_EQ(transfer.Download(L"http://h/", result), kFinished);
}

}  // namespace
}  // namespace CorvaneTest
