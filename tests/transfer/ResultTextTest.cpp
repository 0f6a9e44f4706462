#include <Corvane/ResultText.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <sstream>

#include <Corvane/TransferErrorCodes.h>

namespace Corvane {
namespace {

TEST(ZDescribeResult, TellsNumberNameAndMeaning) {
  struct Case {
    ZResult code;
    const char* text;
  };
  const Case cases[] = {
      {BASE_S_OK, "0x00000000 BASE_S_OK: Success"},
      {BASE_E_BUSY, "0x8000005E BASE_E_BUSY: Object is busy"},
      {BASE_E_NOT_A_FILE, "0x80000103 BASE_E_NOT_A_FILE: Not a regular file or symbolic link"},
      {TRANSFER_S_FINISHED, "0x00010000 TRANSFER_S_FINISHED: Transfer has finished successfully"},
      {TRANSFER_E_SYSTEM_INIT, "0x80011000 TRANSFER_E_SYSTEM_INIT: System library initialization failure"},
      {TRANSFER_E_NOT_STARTED, "0x80011001 TRANSFER_E_NOT_STARTED: Download not started yet"},
      {TRANSFER_E_IN_PROGRESS, "0x80011002 TRANSFER_E_IN_PROGRESS: Download is currently in progress"},
      {TRANSFER_E_ABORTED, "0x80011003 TRANSFER_E_ABORTED: Download aborted by user"},
      {TRANSFER_E_BLOCKED, "0x80011388 TRANSFER_E_BLOCKED: Download is blocked due to client policy settings"},
      {TRANSFER_E_CONNECT, "0x80011389 TRANSFER_E_CONNECT: Failed to connect to the specified URL"},
      {TRANSFER_E_DOWNLOAD, "0x8001138A TRANSFER_E_DOWNLOAD: Download failed"},
      {TRANSFER_E_POST, "0x8001138B TRANSFER_E_POST: Post failed"},
      {TRANSFER_E_DISK_SPACE, "0x8001138C TRANSFER_E_DISK_SPACE: Insufficient disk space"},
      {TRANSFER_E_INVALID_URL, "0x8001138D TRANSFER_E_INVALID_URL: Invalid URL"},
      {TRANSFER_E_SIZE_MISMATCH, "0x8001138E TRANSFER_E_SIZE_MISMATCH: Download file size mismatch"},
      {TRANSFER_E_CURL_BASE | 6, "0x80010006 libcurl 6: Couldn't resolve host name"},
  };
  for (const Case& c : cases) EXPECT_EQ(ZDescribeResult(c.code).ToUtf8(), c.text);
}

TEST(ZDescribeResult, NamesTheSystemsErrors) {
#if defined(__GLIBC__) && __GLIBC_PREREQ(2, 32)
  EXPECT_EQ(ZDescribeResult(ResultFromErrno(ENOSPC)).ToUtf8(), "0x8000101C ENOSPC: No space left on device");
#else
  EXPECT_EQ(ZDescribeResult(ResultFromErrno(ENOSPC)).ToUtf8(), "0x8000101C: No space left on device");
#endif
}

TEST(ZDescribeResult, HasNoNameForWhatNobodyDefined) {
  for (const ZResult code : {0x80012345u, 0x87FF0001u, 0xFFFFFFFFu, 0x80001FFFu, TRANSFER_E_CURL_BASE}) {
    std::ostringstream number;
    number << "0x" << std::uppercase << std::hex << code << ": ";
    EXPECT_EQ(ZDescribeResult(code).ToUtf8().rfind(number.str(), 0), 0u) << ZDescribeResult(code);
  }
}

}  // namespace
}  // namespace Corvane
