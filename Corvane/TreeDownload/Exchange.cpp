#include <Corvane/TreeDownload/ExchangeImpl.h>

#include <strings.h>
#include <sys/socket.h>

#include <new>
#include <string_view>
#include <utility>

#include <Corvane/Transfer/AnswerHeaderImpl.h>
#include <Corvane/Transfer/FileVersionImpl.h>
#include <Corvane/Transfer/ProcessSetupImpl.h>
#include <Corvane/Transfer/RequestHeadersImpl.h>
#include <Corvane/TreeDownload/ConnectionsImpl.h>
#include <Corvane/TreeDownload/RetryImpl.h>

namespace Corvane {
namespace {

constexpr std::size_t kMostHeaderBytes = std::size_t{1} << 20;
// Of the page of a refusal so much is read, so that the connection can be used again.
constexpr unsigned long long kMostRefusedBytes = 65536;
constexpr long kReceiveBuffer = 65536;

bool IsHttpUrl(const std::string& url) { return strncasecmp(url.c_str(), "http", 4) == 0; }
bool IsHttpsUrl(const std::string& url) { return strncasecmp(url.c_str(), "https:", 6) == 0; }

// Headers that tell who asks; they go where credentials go.
bool IsSecret(const std::string& header) {
  return IsSameName(NameOf(header), "Authorization") || IsSameName(NameOf(header), "Cookie");
}

}  // namespace

template <class Value>
void Exchange::Set(CURLoption option, Value value) {
  // What this library sets is known to every libcurl that it is built with, so that only memory can run out.
  if (curl_easy_setopt(m_easy.get(), option, value) != CURLE_OK) throw std::bad_alloc();
}

Exchange::Exchange(Connections& connections) : m_connections(connections), m_easy(curl_easy_init()) {
  if (m_easy == nullptr) throw std::bad_alloc();
  const RequestSettings& settings = m_connections.Settings();
  Set(CURLOPT_PRIVATE, this);
  Set(CURLOPT_XFERINFOFUNCTION, &ProgressCallback);
  Set(CURLOPT_XFERINFODATA, this);
  Set(CURLOPT_NOSIGNAL, 1L);  // the library runs on the host's threads
  Set(kProtocolsOption, static_cast<long>(CURLPROTO_HTTP | CURLPROTO_HTTPS | CURLPROTO_FTP));
  Set(CURLOPT_WRITEFUNCTION, &WriteCallback);
  Set(CURLOPT_WRITEDATA, this);
  Set(CURLOPT_HEADERFUNCTION, &HeaderCallback);
  Set(CURLOPT_HEADERDATA, this);
  Set(CURLOPT_ERRORBUFFER, m_errorText.data());
  Set(CURLOPT_OPENSOCKETFUNCTION, &Connections::OpenSocket);
  Set(CURLOPT_OPENSOCKETDATA, &m_connections);
  Set(CURLOPT_CLOSESOCKETFUNCTION, &Connections::CloseSocket);
  Set(CURLOPT_CLOSESOCKETDATA, &m_connections);
  Set(CURLOPT_FILETIME, 1L);
  Set(CURLOPT_BUFFERSIZE, kReceiveBuffer);
  // A file that can go over a connection that is just being made, and will speak HTTP/2, waits for that.
  Set(CURLOPT_PIPEWAIT, 1L);
  const long limit = LimitOf(static_cast<unsigned long>(settings.timeout.count()), 0);
  Set(CURLOPT_CONNECTTIMEOUT, limit);
  if (limit != 0) Set(CURLOPT_SERVER_RESPONSE_TIMEOUT, limit);
  Set(CURLOPT_SSL_VERIFYHOST, settings.verifyHost ? 2L : 0L);
  Set(CURLOPT_SSL_VERIFYPEER, settings.verifyPeer ? 1L : 0L);
  if (!settings.caDir.empty()) Set(CURLOPT_CAPATH, settings.caDir.c_str());
  if (!settings.caFile.empty()) Set(CURLOPT_CAINFO, settings.caFile.c_str());
  if (!settings.userAgent.empty()) Set(CURLOPT_USERAGENT, settings.userAgent.c_str());
}

void Exchange::Prepare(const Order& asked) {
  order = asked;
  isTimedOut = false;
  m_header.clear();
  m_errorText.front() = '\0';
  m_reply.reset();
  m_refusedBytes = 0;
  m_isHeaderTooLong = m_isHeaderWhole = m_isCut = false;
  m_isHttp = IsHttpUrl(order.url);
  Set(CURLOPT_URL, order.url.c_str());
  Set(CURLOPT_NOBODY, order.withoutContent ? 1L : 0L);
  if (m_isHttp && !order.withoutContent) Set(CURLOPT_HTTPGET, 1L);
  Set(CURLOPT_CUSTOMREQUEST, order.command.empty() ? static_cast<const char*>(nullptr) : order.command.c_str());
  // Asked to resume over HTTP, libcurl would refuse the whole, which is as good where the rest is not to be had.
  const std::string range = std::to_string(order.position) + '-';
  Set(CURLOPT_RANGE, m_isHttp && order.position != 0 ? range.c_str() : static_cast<const char*>(nullptr));
  Set(CURLOPT_RESUME_FROM_LARGE, m_isHttp ? curl_off_t{0} : order.position);
  // When an FTP server has sent a file libcurl waits for its word about it, up to a minute, and asks nobody but this callback meanwhile.
  Set(CURLOPT_NOPROGRESS, m_isHttp ? 1L : 0L);
  SetCredentials();
  SetHeaders();
  m_lastByte = std::chrono::steady_clock::now();
}

void Exchange::SetCredentials() {
  const std::string& credentials = m_connections.Settings().credentials;
  if (credentials.empty()) return;
  const bool isTrusted = m_connections.IsTrusted(order.url);
  Set(CURLOPT_USERPWD, isTrusted ? credentials.c_str() : static_cast<const char*>(nullptr));
  Set(CURLOPT_HTTPAUTH, m_connections.Authentication(IsHttpsUrl(order.url)));
}

void Exchange::SetHeaders() {
  const std::vector<std::string>& wanted = m_connections.Settings().headers;
  if (m_headers == nullptr && order.headers.empty() && wanted.empty()) return;
  const bool isTrusted = m_connections.IsTrusted(order.url);
  OwnedList headers;
  for (const std::string& header : wanted) {
    if (isTrusted || !IsSecret(header)) Append(headers, header);
  }
  for (const std::string& header : order.headers) Append(headers, header);
  Set(CURLOPT_HTTPHEADER, headers.get());
  m_headers = std::move(headers);
}

std::size_t Exchange::WriteCallback(char* data, std::size_t size, std::size_t count, void* object) noexcept {
  auto* const self = static_cast<Exchange*>(object);
  const std::size_t total = size * count;
  return self->CatchAll(total, [=] { return self->ReceiveContent(data, total); });
}

std::size_t Exchange::HeaderCallback(char* data, std::size_t size, std::size_t count, void* object) noexcept {
  auto* const self = static_cast<Exchange*>(object);
  const std::size_t total = size * count;
  return self->CatchAll(total, [=] { return self->ReceiveHeader(data, total); });
}

int Exchange::ProgressCallback(void* object, curl_off_t /*toReceive*/, curl_off_t /*received*/, curl_off_t /*toSend*/,
                               curl_off_t /*sent*/) noexcept {
  return static_cast<Exchange*>(object)->m_connections.IsStopped() ? 1 : 0;
}

// No exception may cross libcurl's frames.
template <class Receive>
std::size_t Exchange::CatchAll(std::size_t total, Receive receive) noexcept {
  const std::size_t refused = total == 0 ? 1 : 0;  // anything but `total` ends the request
  m_lastByte = std::chrono::steady_clock::now();
  try {
    return receive();
  } catch (const std::bad_alloc&) {
    isShort = true;
  } catch (...) {
    exception = std::current_exception();
  }
  return refused;
}

std::size_t Exchange::ReceiveContent(const char* data, std::size_t total) {
  if (m_connections.IsStopped()) return 0;
  if (!m_reply) m_reply = CurrentReply();
  if (!m_reply->IsAcceptable()) {
    m_refusedBytes += total;
    m_isCut = m_refusedBytes > kMostRefusedBytes;
    return m_isCut ? 0 : total;
  }
  const bool isTaken = total == 0 || errand.job->Take(*m_reply, data, total);
  if (m_connections.Settings().useThrottling) sm_Throttling().Throttle(static_cast<unsigned int>(total));
  return isTaken ? total : 0;
}

std::size_t Exchange::ReceiveHeader(const char* data, std::size_t total) {
  if (m_connections.IsStopped()) return 0;
  const std::string_view line(data, total);
  if (!m_isHttp) {  // an FTP server's replies, of which the first alone is of interest
    if (m_header.empty()) m_header = line;
    return total;
  }
  if (IsStatusLine(line)) m_header.clear();
  m_isHeaderTooLong = total > kMostHeaderBytes - m_header.size();
  if (m_isHeaderTooLong) return 0;
  m_header.append(line);
  // The empty line. Trailers come after it.
  m_isHeaderWhole = !IsStatusLine(line) && (m_isHeaderWhole || line == "\r\n" || line == "\n");
  return total;
}

// A server may refuse to tell in which folder a new connection is (RFC 959, PWD). libcurl does not find back there then, and would
// look for the next folder below the last one. It tells the folder to the request only that made the connection, whose first reply is
// the greeting.
void Exchange::LetGoOfLostConnection() const noexcept {
  constexpr std::string_view kGreeting = "220";
  const char* begin = nullptr;
  curl_socket_t kept = CURL_SOCKET_BAD;
  if (m_isHttp || !std::string_view(m_header).starts_with(kGreeting)) return;
  if (curl_easy_getinfo(m_easy.get(), CURLINFO_FTP_ENTRY_PATH, &begin) != CURLE_OK || begin != nullptr) return;
  if (curl_easy_getinfo(m_easy.get(), CURLINFO_ACTIVESOCKET, &kept) != CURLE_OK || kept == CURL_SOCKET_BAD) return;
  shutdown(kept, SHUT_RD);  // libcurl takes it for gone
}

std::optional<unsigned long long> Exchange::ContentLength() const {
  curl_off_t length = -1;
  if (curl_easy_getinfo(m_easy.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length) != CURLE_OK || length < 0)
    return std::nullopt;
  return static_cast<unsigned long long>(length);
}

Reply Exchange::CurrentReply() const {
  Reply reply;
  reply.isHttp = m_isHttp;
  curl_easy_getinfo(m_easy.get(), CURLINFO_RESPONSE_CODE, &reply.status);
  if (m_isHttp) reply.header = m_header;
  reply.contentLength = ContentLength();
  curl_off_t time = -1;
  if (curl_easy_getinfo(m_easy.get(), CURLINFO_FILETIME_T, &time) == CURLE_OK && time >= 0) reply.time = time;
  return reply;
}

Ending Exchange::TakeEnding(CURLcode code, std::string& redirect) {
  Ending ending;
  ending.code = isTimedOut ? CURLE_OPERATION_TIMEDOUT : code;
  ending.reply = CurrentReply();
  ending.url = order.url;
  ending.isCut = m_isCut;
  if (m_isCut) ending.code = CURLE_OK;  // the answer itself has come
  ending.text = m_errorText.data();
  // To libcurl an end is an end where no length was announced: an empty file would be taken for the file.
  if (ending.code == CURLE_OK && m_isHttp && !m_isHeaderWhole) {
    ending.code = CURLE_PARTIAL_FILE;
    ending.text = "The answer ends within its header lines.";
  }
  if (isTimedOut) {
    ending.text = "No byte came for " + std::to_string(m_connections.Settings().timeout.count()) + " seconds.";
  }
  if (m_isHeaderTooLong) ending.text = "The server sent more than 1 MiB of header lines.";
  if (std::exchange(isShort, false)) {
    ending.code = CURLE_OUT_OF_MEMORY;
    ending.text.clear();
  }
  if (ending.text.empty() && ending.code != CURLE_OK) ending.text = curl_easy_strerror(ending.code);
  ending.isPassing = ending.code == CURLE_OK ? ending.reply.isHttp && IsPassingHttpStatus(ending.reply.status)
                                             : IsPassingFailure(ending.code, !ending.reply.isHttp, ending.reply.status);
  const char* target = nullptr;
  const bool isRedirect = ending.code == CURLE_OK && ending.reply.isHttp && ending.reply.status / 100 == 3 &&
                          curl_easy_getinfo(m_easy.get(), CURLINFO_REDIRECT_URL, &target) == CURLE_OK;
  if (isRedirect && target != nullptr) redirect = target;
  return ending;
}

// Connecting has a limit of libcurl's own. A request that waits for a connection has not been sent.
bool Exchange::IsIdleFor(std::chrono::seconds limit, std::chrono::steady_clock::time_point now) const {
  if (now - m_lastByte < limit) return false;
  curl_off_t sent = 0;
  return curl_easy_getinfo(m_easy.get(), CURLINFO_PRETRANSFER_TIME_T, &sent) == CURLE_OK && sent > 0;
}

}  // namespace Corvane
