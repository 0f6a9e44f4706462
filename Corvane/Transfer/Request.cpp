#include <Corvane/Transfer/RequestImpl.h>

#include <strings.h>
#include <sys/socket.h>

#include <ctime>
#include <limits>
#include <string_view>

namespace Corvane {
namespace {

constexpr long long kMicrosecondsPerSecond = 1000000;
constexpr unsigned long long kUnknownSize = std::numeric_limits<unsigned long long>::max();

// The whole part of `value`, or the nearest number that the type holds: a conversion that does not fit is undefined.
template <class Whole>
Whole Truncated(double value) noexcept {
  constexpr Whole kLargest = std::numeric_limits<Whole>::max();
  // For 64 bits the double is one more than the largest number, which is not a double itself.
  if (value >= static_cast<double>(kLargest)) return kLargest;
  return value > 0.0 ? static_cast<Whole>(value) : 0;
}

// The clock that libcurl holds its limits to.
long long SteadyMicroseconds() noexcept {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC_RAW, &now);
  return static_cast<long long>(now.tv_sec) * kMicrosecondsPerSecond + now.tv_nsec / 1000;
}

}  // namespace

void Request::LetGoOfKeptConnection() noexcept {
  if (keptPeer.empty()) return;
  keptPeer.clear();
  // Only libcurl knows whether it still has the connection; a descriptor that was remembered might be somebody else's by now.
  curl_socket_t kept = CURL_SOCKET_BAD;
  if (curl_easy_getinfo(easy, CURLINFO_ACTIVESOCKET, &kept) == CURLE_OK && kept != CURL_SOCKET_BAD) {
    shutdown(kept, SHUT_RD);
  }
}

void Request::LetGoOfOtherPeer(const char* credentials) {
  if (!keptPeer.empty() && keptPeer != PeerOf(credentials)) LetGoOfKeptConnection();
}

void Request::LetGoOfLostConnection() noexcept {
  if (keptPeer.empty()) return;
  const char* begin = nullptr;
  if (curl_easy_getinfo(easy, CURLINFO_FTP_ENTRY_PATH, &begin) == CURLE_OK && begin == nullptr) LetGoOfKeptConnection();
}

void Request::RememberPeer(const char* credentials) { keptPeer = IsHttp() ? std::string() : PeerOf(credentials); }

// The URL up to its path, and who logs in.
std::string Request::PeerOf(const char* credentials) const {
  const std::string_view text = url.get();
  const std::size_t scheme = text.find("://");
  const std::size_t path = text.find('/', scheme == std::string_view::npos ? 0 : scheme + 3);
  return std::string(text.substr(0, path)) + '\n' + (credentials == nullptr ? "" : credentials);
}

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

void Request::StartClocks() {
  startTime = ZDateTime::Now();
  transferTime.Set(0, 0, 0, 0, 0);
  steadyStart = SteadyMicroseconds();
}

unsigned long Request::ElapsedSeconds() const noexcept {
  return static_cast<unsigned long>((SteadyMicroseconds() - steadyStart) / kMicrosecondsPerSecond);
}

// In plain numbers, for it runs twice for each block.
void Request::UpdateTransferTime() {
  const long long start = startTime.GetMicroSecondsSinceEpoch();
  const long long now = ZDateTime::Now().GetMicroSecondsSinceEpoch();
  transferTime = ZTimeSpan(now > start ? now - start : 0);
}

void Request::ReadContentSize() {
  double length = 0.0;
  if (curl_easy_getinfo(easy, kContentLength, &length) != CURLE_OK) return;
  // libcurl tells an unknown length as -1; no length that it knows reaches 2^63.
  const bool known = length >= 0.0 && length < 9223372036854775808.0;
  contentSize = known ? static_cast<unsigned long long>(length) + body->Position() : kUnknownSize;
}

// Without content libcurl has not been asked yet, and tells the whole.
std::optional<unsigned long long> Request::ResourceSize() const {
  if (!contentSizeKnown) {
    const double length = Info(kContentLength, 0.0);
    return length >= 0.0 ? std::optional(Truncated<unsigned long long>(length)) : std::nullopt;
  }
  const unsigned long long size = contentSize;
  return size != kUnknownSize ? std::optional(size) : std::nullopt;
}

void Request::UpdateTransferSize() {
  double seconds = 0.0;
  if (curl_easy_getinfo(easy, CURLINFO_TOTAL_TIME, &seconds) != CURLE_OK) {
    transferSize = 0;
    transferRate = 0;
    return;
  }
  const double uploaded = Info(kUploadedSize, 0.0);
  const double downloaded = Info(kDownloadedSize, 0.0);
  const long requestBytes = Info(CURLINFO_REQUEST_SIZE, 0L);
  const long headerBytes = Info(CURLINFO_HEADER_SIZE, 0L);
  const double size = downloaded + uploaded + static_cast<double>(headerBytes) + static_cast<double>(requestBytes);
  transferSize = Truncated<unsigned long long>(size);
  transferRate = seconds > 0.0 ? Truncated<unsigned int>(size / seconds / 1024.0) : 0;
}

}  // namespace Corvane
