#include <cerrno>
#include <cstring>
#include <new>
#include <optional>
#include <utility>

#include <strings.h>

#include <Corvane/Transfer/AnswerHeaderImpl.h>
#include <Corvane/Transfer/FileVersionImpl.h>
#include <Corvane/Transfer/RequestHeadersImpl.h>
#include <Corvane/Transfer/TransferImpl.h>

// What a transfer does only when its host asks for it. An object on which nothing of this was set gets no option from here.

namespace Corvane {
namespace {

constexpr unsigned int kMostRedirects = 10000;
constexpr unsigned long kSmallestBuffer = 1024;  // libcurl's own bounds
constexpr unsigned long kLargestBuffer = 10485760;

// None when something is refused.
std::optional<Additions> AdditionsOf(const ZTransferOptions& options) {
  Additions additions;
  std::optional<std::vector<std::string>> headers = RequestHeadersOf(options.headers);
  if (!headers) return std::nullopt;
  additions.headers = *std::move(headers);
  additions.userAgent = Utf8Of(options.userAgent);
  additions.validator = Utf8Of(options.validator);
  additions.receiveBufferBytes = options.receiveBufferBytes;
  additions.mostRedirects = options.mostRedirects;
  additions.checkResume = options.checkResume;
  additions.limitFollowsUpload = options.limitFollowsUpload;
  additions.askModificationTime = options.askModificationTime;
  additions.handOnErrorPages = options.handOnErrorPages;
  additions.trace = options.trace;
  const unsigned long buffer = options.receiveBufferBytes;
  const bool isBuffer = buffer == 0 || (buffer >= kSmallestBuffer && buffer <= kLargestBuffer);
  const bool isGood = isBuffer && options.mostRedirects <= kMostRedirects && IsFieldValue(additions.userAgent) &&
                      IsFieldValue(additions.validator);
  return isGood ? std::optional(std::move(additions)) : std::nullopt;
}

bool IsHttps(const char* url) { return url != nullptr && strncasecmp(url, "https:", 6) == 0; }

}  // namespace

ZResult ZTransfer::ZTransferImpl::SetOptions(const ZTransferOptions& options) {
  if (IsRunning()) return BASE_E_BUSY;
  try {
    std::optional<Additions> additions = AdditionsOf(options);
    if (!additions) return ResultFromErrno(EINVAL);
    m_settings.additions = *std::move(additions);
    return BASE_S_OK;
  } catch (const std::bad_alloc&) {
    return ResultFromErrno(ENOMEM);
  }
}

bool ZTransfer::ZTransferImpl::SetAdditions() {
  constexpr const char* kWho = "Transfer";
  const Additions& wanted = m_settings.additions;
  if (wanted.mostRedirects != 0 && !SetRedirects()) return false;
  if (!wanted.userAgent.empty() && !SetOption(kWho, CURLOPT_USERAGENT, wanted.userAgent.c_str())) return false;
  if (!SetRequestHeaders()) return false;
  const auto buffer = static_cast<long>(wanted.receiveBufferBytes);
  if (buffer != 0 && !SetOption(kWho, CURLOPT_BUFFERSIZE, buffer)) return false;
  if (wanted.askModificationTime && !SetOption(kWho, CURLOPT_FILETIME, 1L)) return false;
  if (wanted.limitFollowsUpload && !SetProgress()) return false;
  return SetTrace();
}

bool ZTransfer::ZTransferImpl::SetProgress() {
  constexpr const char* kWho = "Transfer";
  return SetOption(kWho, CURLOPT_XFERINFOFUNCTION, &ProgressCallback) && SetOption(kWho, CURLOPT_XFERINFODATA, this) &&
         SetOption(kWho, CURLOPT_NOPROGRESS, 0L);
}

// A redirect may lead from http to https, where the server is to be verified as if it had been asked for at once.
bool ZTransfer::ZTransferImpl::SetRedirects() {
  const char* const url = m_request.url.get();
  const bool isHttps = IsHttps(url);
  const bool isPlainHttp = !isHttps && (m_request.IsHttp() || std::strstr(url, "://") == nullptr);  // libcurl's guess
  if (isPlainHttp && IsFailure(ApplyExtraHttpsSettings())) return false;
  const long protocols = isHttps ? CURLPROTO_HTTPS : CURLPROTO_HTTP | CURLPROTO_HTTPS;
  return SetOption("Transfer", CURLOPT_FOLLOWLOCATION, 1L) &&
         SetOption("Transfer", CURLOPT_MAXREDIRS, static_cast<long>(m_settings.additions.mostRedirects)) &&
         SetOption("Transfer", kRedirectProtocolsOption, protocols);
}

// Without redirects the answer came from where the request went. May be asked while libcurl calls.
AnswerSource ZTransfer::ZTransferImpl::Source() const {
  AnswerSource source;
  const char* url = m_request.url.get();
  if (url == nullptr) return source;
  if (m_settings.additions.mostRedirects != 0) {
    const char* effective = nullptr;
    if (curl_easy_getinfo(m_request.easy, CURLINFO_EFFECTIVE_URL, &effective) == CURLE_OK && effective != nullptr) {
      url = effective;
    }
  }
  source.effectiveUrl = url;
  if (m_request.IsHttp()) source.httpStatus = m_request.Info(CURLINFO_RESPONSE_CODE, 0L);
  if (!m_settings.additions.askModificationTime) return source;
  if (curl_easy_getinfo(m_request.easy, CURLINFO_FILETIME, &source.fileTime) != CURLE_OK) source.fileTime = -1;
  const std::optional<unsigned long long> size = m_request.ResourceSize();
  if (!m_request.IsHttp() && size && source.fileTime >= 0) source.fileVersion = FileVersion(*size, source.fileTime);
  return source;
}

// A chain of redirects that has come to https stays there: the protocols for the next step are set when an answer begins.
void ZTransfer::ZTransferImpl::KeepRedirectsSecure(std::string_view line) {
  if (m_settings.additions.mostRedirects == 0 || !IsStatusLine(line)) return;
  const char* url = nullptr;
  if (curl_easy_getinfo(m_request.easy, CURLINFO_EFFECTIVE_URL, &url) != CURLE_OK || !IsHttps(url)) return;
  SetEasyOption(kRedirectProtocolsOption, static_cast<long>(CURLPROTO_HTTPS));
}

bool ZTransfer::ZTransferImpl::SetRequestHeaders() {
  const Additions& wanted = m_settings.additions;
  const bool hasValidator = !wanted.validator.empty() && !IsFileVersion(wanted.validator);
  const bool asksIfRange = wanted.checkResume && hasValidator && m_request.body->Position() != 0;
  if (wanted.headers.empty() && !asksIfRange) return true;
  m_request.headers.reset();
  for (const std::string& header : wanted.headers) Append(m_request.headers, header);
  if (asksIfRange) Append(m_request.headers, "If-Range: " + wanted.validator);
  return SetOption("Transfer", CURLOPT_HTTPHEADER, m_request.headers.get());
}

// Only called when the time limit is to follow what is sent.
int ZTransfer::ZTransferImpl::ProgressCallback(void* object, curl_off_t /*toReceive*/, curl_off_t /*received*/,
                                               curl_off_t /*toSend*/, curl_off_t sent) noexcept {
  constexpr int kGoOn = 0;
  auto* const self = static_cast<ZTransferImpl*>(object);
  if (sent <= self->m_request.sentBytes) return kGoOn;
  self->m_request.sentBytes = sent;
  self->m_request.UpdateTransferTime();
  self->m_request.UpdateTransferSize();
  self->ExtendTimeLimit(self->m_settings.useThrottling ? 0 : 10);
  return kGoOn;
}

}  // namespace Corvane
