#include <Corvane/Transfer/RequestImpl.h>

#include <strings.h>

#include <limits>

namespace Corvane {
namespace {

// The whole part of `value`, or the nearest number that the type holds: a conversion that does not fit is undefined.
template <class Whole>
Whole Truncated(double value) noexcept {
  constexpr Whole kLargest = std::numeric_limits<Whole>::max();
  // For 64 bits the double is one more than the largest number, which is not a double itself.
  if (value >= static_cast<double>(kLargest)) return kLargest;
  return value > 0.0 ? static_cast<Whole>(value) : 0;
}

}  // namespace

bool Request::IsHttp() const { return strncasecmp(url.get(), "http", 4) == 0; }

bool Request::IsAnswerAcceptable() const {
  if (!IsHttp()) return true;
  long response = 0;
  if (curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &response) != CURLE_OK) return true;
  return response >= 200 && response <= 299;
}

double Request::Info(CURLINFO info, double value) const {
  return curl_easy_getinfo(easy, info, &value) == CURLE_OK ? value : 0.0;
}

long Request::Info(CURLINFO info, long value) const {
  return curl_easy_getinfo(easy, info, &value) == CURLE_OK ? value : 0;
}

// In plain numbers, for it runs twice for each block.
void Request::UpdateTransferTime() {
  const long long start = startTime.GetMicroSecondsSinceEpoch();
  const long long now = ZDateTime::Now().GetMicroSecondsSinceEpoch();
  transferTime = ZTimeSpan(now > start ? now - start : 0);
}

void Request::ReadContentSize() {
  double length = 0.0;
  if (curl_easy_getinfo(easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD, &length) != CURLE_OK) return;
  constexpr unsigned long long kUnknown = std::numeric_limits<unsigned long long>::max();
  // libcurl tells an unknown length as -1; no length that it knows reaches 2^63.
  const bool known = length >= 0.0 && length < 9223372036854775808.0;
  contentSize = known ? static_cast<unsigned long long>(length) + body->Position() : kUnknown;
}

void Request::UpdateTransferSize() {
  double seconds = 0.0;
  if (curl_easy_getinfo(easy, CURLINFO_TOTAL_TIME, &seconds) != CURLE_OK) {
    transferSize = 0;
    transferRate = 0;
    return;
  }
  const double uploaded = Info(CURLINFO_SIZE_UPLOAD, 0.0);
  const double downloaded = Info(CURLINFO_SIZE_DOWNLOAD, 0.0);
  const long requestBytes = Info(CURLINFO_REQUEST_SIZE, 0L);
  const long headerBytes = Info(CURLINFO_HEADER_SIZE, 0L);
  const double size = downloaded + uploaded + static_cast<double>(headerBytes) + static_cast<double>(requestBytes);
  transferSize = Truncated<unsigned long long>(size);
  transferRate = seconds > 0.0 ? Truncated<unsigned int>(size / seconds / 1024.0) : 0;
}

}  // namespace Corvane
