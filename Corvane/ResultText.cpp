#include <Corvane/ResultText.h>

#include <curl/curl.h>

#include <cstring>
#include <optional>

#include <Corvane/Base/ErrorDict.h>
#include <Corvane/Base/ResultTableImpl.h>
#include <Corvane/NumberTextImpl.h>
#include <Corvane/TransferErrorCodes.h>

namespace Corvane {
namespace {

struct CodeName {
  ZResult code;
  const char* name;
};

constexpr CodeName kTransferNames[] = {
    {TRANSFER_S_FINISHED, "TRANSFER_S_FINISHED"},
    {TRANSFER_E_SYSTEM_INIT, "TRANSFER_E_SYSTEM_INIT"},
    {TRANSFER_E_NOT_STARTED, "TRANSFER_E_NOT_STARTED"},
    {TRANSFER_E_IN_PROGRESS, "TRANSFER_E_IN_PROGRESS"},
    {TRANSFER_E_ABORTED, "TRANSFER_E_ABORTED"},
    {TRANSFER_E_BLOCKED, "TRANSFER_E_BLOCKED"},
    {TRANSFER_E_CONNECT, "TRANSFER_E_CONNECT"},
    {TRANSFER_E_DOWNLOAD, "TRANSFER_E_DOWNLOAD"},
    {TRANSFER_E_POST, "TRANSFER_E_POST"},
    {TRANSFER_E_DISK_SPACE, "TRANSFER_E_DISK_SPACE"},
    {TRANSFER_E_INVALID_URL, "TRANSFER_E_INVALID_URL"},
    {TRANSFER_E_SIZE_MISMATCH, "TRANSFER_E_SIZE_MISMATCH"},
};

// The number of libcurl's failure that the code reports.
std::optional<CURLcode> LibcurlFailure(ZResult code) noexcept {
  if (code <= TRANSFER_E_CURL_BASE || code >= TRANSFER_E_SYSTEM_INIT) return std::nullopt;
  return static_cast<CURLcode>(code - TRANSFER_E_CURL_BASE);
}

const char* NameOf(ZResult code) noexcept {
  for (const CodeName& row : kTransferNames) {
    if (row.code == code) return row.name;
  }
  for (const ResultRow& row : kResultTable) {
    if (row.code == code) return row.name;
  }
#if defined(__GLIBC__) && __GLIBC_PREREQ(2, 32)
  const bool isErrno = code > BASE_E_ERRNO && code <= BASE_E_ERRNO + kLargestErrno;
  if (isErrno) return strerrorname_np(static_cast<int>(code - BASE_E_ERRNO));
#endif
  return nullptr;
}

ZString Hexadecimal(ZResult code) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  char text[] = "0x00000000";
  for (int digit = 0; digit < 8; ++digit) text[9 - digit] = kDigits[(code >> (4 * digit)) & 0xF];
  return text;
}

}  // namespace

ZString ZDescribeResult(ZResult code) {
  ZString text = Hexadecimal(code);
  if (const auto failure = LibcurlFailure(code)) {
    return text + L" libcurl " + Number(static_cast<int>(*failure)) + L": " + curl_easy_strerror(*failure);
  }
  if (const char* const name = NameOf(code)) text += ZString(L" ") + name;
  return text + L": " + ZGetErrorMsg(code);
}

}  // namespace Corvane
