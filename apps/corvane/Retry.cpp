#include "apps/corvane/Retry.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <initializer_list>
#include <limits>
#include <string>

#include "apps/corvane/Explain/HttpAnswer.h"
#include "apps/corvane/Files.h"
#include "apps/corvane/HttpDate.h"
#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// libcurl's numbers, see libcurl-errors(3).
constexpr unsigned int kTlsConnect = 35, kSend = 55, kReceive = 56;
constexpr std::array<unsigned int, 7> kPassing = {7, 16, 18, 28, 52, 92, 95};

template <class Range, class Value>
bool Has(const Range& range, const Value& value) {
  return std::find(std::begin(range), std::end(range), value) != std::end(range);
}

bool Contains(std::string_view text, std::string_view part) { return text.find(part) != std::string_view::npos; }

// 501 and 505 are no overload: the server can do no better.
bool IsPassingHttpStatus(long status) { return Has(std::initializer_list<long>{408, 429, 500, 502, 503, 504}, status); }

bool IsPassingFtpReply(unsigned long long reply) {
  return Has(std::initializer_list<unsigned long long>{421, 425, 426, 450, 451, 452}, reply);
}

// The number that follows one of `beginnings`, with which `text` begins.
std::optional<unsigned long long> NumberBehind(std::initializer_list<std::string_view> beginnings,
                                               std::string_view text) {
  for (const std::string_view beginning : beginnings) {
    if (!text.starts_with(beginning)) continue;
    text.remove_prefix(beginning.size());
    return ParseNumber(text.substr(0, text.find_first_not_of("0123456789")));
  }
  return std::nullopt;
}

// libcurl shows a reply of an FTP server in these words only, and none to CWD or REST. 421 is a time-out to it, with no words.
std::optional<unsigned long long> FtpReplyIn(std::string_view text) {
  return NumberBehind({"RETR response: ", "Access denied: ", "ACCT rejected by server: ", "Bad PASV/EPSV response: ",
                       "PRET command not accepted: ", "QUOT command failed with ",
                       "Failed FTP upload: ", "server did not report OK, got ", "Got a "},
                      text);
}

// Whether the peer, or the network, broke the handshake off and did not merely dislike something about it. OpenSSL 1.1 has no words
// of its own for the end of the stream.
bool IsBrokenHandshake(std::string_view text) {
  return Contains(text, "SSL_ERROR_SYSCALL") || Contains(text, "unexpected eof") ||
         Contains(text, SystemText(ECONNRESET)) || Contains(text, SystemText(EPIPE));
}

// A header that is too long is so the next time, too; and so is a peer that says by a TLS alert what it dislikes: with TLS 1.3 the
// first that is heard of it is a failure to receive.
bool IsBrokenConnection(std::string_view text) {
  return !Contains(text, "Too large response headers") && !Contains(text, "response too large") &&
         !(Contains(text, "SSL routines:") && Contains(text, " alert "));
}

bool IsPassingCurlFailure(unsigned int number, std::string_view text) {
  if (const auto reply = FtpReplyIn(text)) return IsPassingFtpReply(*reply);
  if (const auto status = TunnelStatusIn(text)) return IsPassingHttpStatus(*status);
  if (number == kTlsConnect) return IsBrokenHandshake(text);
  if (number == kSend || number == kReceive) return IsBrokenConnection(text);
  return Has(kPassing, number);
}

bool IsCurlCode(Corvane::ZResult code) {
  return code > Corvane::TRANSFER_E_CURL_BASE && code < Corvane::TRANSFER_E_SYSTEM_INIT;
}

// A request whose login was still under way when the connection broke.
bool IsLoginStep(long httpStatus) { return httpStatus == 401 || httpStatus == 407; }

std::string_view WithoutBlanks(std::string_view value) {
  const std::size_t begin = value.find_first_not_of(" \t");
  if (begin == std::string_view::npos) return {};
  return value.substr(begin, value.find_last_not_of(" \t") + 1 - begin);
}

constexpr long long kMostSeconds = std::numeric_limits<int>::max();

}  // namespace

bool MayPass(const Report& report, long httpStatus) {
  const bool isRefusal = report.status == Corvane::TRANSFER_E_CONNECT || report.status == Corvane::TRANSFER_E_POST;
  if (!isRefusal && !IsCurlCode(report.status)) return false;
  const bool isCurlFailure = IsCurlCode(report.cause) || IsCurlCode(report.status);
  // The answer counts, also when the page that explains it did not come whole.
  if (httpStatus >= 400 && !(isCurlFailure && IsLoginStep(httpStatus))) return IsPassingHttpStatus(httpStatus);
  if (!isCurlFailure) return false;
  const Corvane::ZResult code = IsCurlCode(report.cause) ? report.cause : report.status;
  return IsPassingCurlFailure(code & 0xFFFFU, report.causeText);
}

std::optional<seconds> RetryAfter(std::string_view value, std::time_t now) {
  value = WithoutBlanks(value);
  if (value.empty()) return std::nullopt;
  if (value.find_first_not_of("0123456789") == std::string_view::npos) {
    const std::optional<unsigned long long> number = ParseNumber(value);  // none when it is larger than any
    return seconds(number ? static_cast<long long>(std::min<unsigned long long>(*number, kMostSeconds)) : kMostSeconds);
  }
  const std::optional<long long> date = ParseHttpDate(value, now);
  if (!date) return std::nullopt;
  if (*date <= now) return seconds(0);
  // Dates end with the year 9999; the difference to a clock that is set to nonsense may still overflow.
  long long wait = 0;
  if (__builtin_sub_overflow(*date, static_cast<long long>(now), &wait)) return seconds(kMostSeconds);
  return seconds(std::min(wait, kMostSeconds));
}

milliseconds WaitBefore(unsigned int retry, milliseconds first) {
  if (retry == 0) return milliseconds(0);
  const milliseconds kLongest = std::max<milliseconds>(std::chrono::minutes(1), first);
  milliseconds wait = std::max(first, milliseconds(0));
  for (unsigned int number = 1; number < retry && wait > milliseconds(0) && wait < kLongest; ++number) {
    wait = std::min(wait * 2, kLongest);
  }
  return wait;
}

}  // namespace CorvaneCli
