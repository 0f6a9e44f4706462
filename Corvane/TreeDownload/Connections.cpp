#include <Corvane/TreeDownload/ConnectionsImpl.h>

#include <sys/socket.h>

#include <algorithm>
#include <new>
#include <utility>

#include <Corvane/TreeDownload/RetryImpl.h>

namespace Corvane {
namespace {

// What servers of HTTP/2 allow on one connection when they do not say otherwise.
constexpr std::size_t kMostStreams = 100;
constexpr std::chrono::milliseconds kLongestPoll{1000};
// libcurl 7.88 forgets to ask to be called again when an FTP server names the port for a listing or a file before libcurl has begun to
// wait for it: without this the next of many files comes a second later.
constexpr std::chrono::milliseconds kLongestFtpPoll{10};

template <class Value>
void Set(CURLM* multi, CURLMoption option, Value value) {
  if (curl_multi_setopt(multi, option, value) != CURLM_OK) throw std::bad_alloc();
}

}  // namespace

Connections::Connections(const RequestSettings& settings, ConnectionsOwner& owner)
    : m_settings(settings), m_owner(owner), m_multi(curl_multi_init()), m_mostInFlight(settings.mostConnections) {
  if (m_multi == nullptr) throw std::bad_alloc();
  const auto connections = static_cast<long>(m_settings.mostConnections);
  Set(m_multi.get(), CURLMOPT_MAX_TOTAL_CONNECTIONS, connections);
  Set(m_multi.get(), CURLMOPT_MAXCONNECTS, connections);
  Set(m_multi.get(), CURLMOPT_PIPELINING, static_cast<long>(CURLPIPE_MULTIPLEX));
}

// libcurl takes its leave of FTP servers in its clean-up, and waits two minutes for the answer. With its receiving side shut down a
// connection has had its answer.
Connections::~Connections() {
  GiveUp();
  for (const curl_socket_t socket : m_sockets) shutdown(socket, SHUT_RD);
}

bool Connections::IsTrusted(const std::string& url) const { return m_trusted && m_trusted == OriginOf(url); }

// Basic authentication sends the password in the clear, so it is allowed only over TLS. Where both are allowed libcurl asks first which
// one it is to be; once that is known it need not ask again for every file.
long Connections::Authentication(bool overTls) const noexcept {
  if (!overTls) return static_cast<long>(CURLAUTH_NTLM);
  return static_cast<long>(m_isBasicEnough ? CURLAUTH_BASIC : CURLAUTH_NTLM | CURLAUTH_BASIC);
}

curl_socket_t Connections::OpenSocket(void* object, curlsocktype /*purpose*/, curl_sockaddr* address) noexcept {
  auto* const self = static_cast<Connections*>(object);
  const int number = socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
  if (number < 0) return CURL_SOCKET_BAD;
  try {
    self->m_sockets.insert(number);
    return number;
  } catch (...) {
    close(number);
    return CURL_SOCKET_BAD;
  }
}

int Connections::CloseSocket(void* object, curl_socket_t socket) noexcept {
  static_cast<Connections*>(object)->m_sockets.erase(socket);
  return close(socket);
}

bool Connections::Do(JobSource& source) {
  while (!m_owner.IsStopped()) {
    Start(source);
    if (m_inFlight == 0 && m_waiting.empty()) return true;
    const Clock::time_point begin = Clock::now();
    Perform();
    // The next requests go out before what has come is looked at and written: servers work meanwhile.
    if (CollectEnded()) {
      Start(source);
      Perform();
      FinishEnded();
      continue;
    }
    // A throttle that slept has held up those, too, whose bytes have come meanwhile.
    const bool isPrompt = Clock::now() - begin < std::chrono::seconds(1);
    if (isPrompt) EndIdle();
    curl_multi_poll(m_multi.get(), nullptr, 0, PollMs(), nullptr);
  }
  GiveUp();
  return false;
}

void Connections::Perform() {
  int running = 0;
  curl_multi_perform(m_multi.get(), &running);
}

void Connections::Start(JobSource& source) {
  StartDue();
  StartNew(source);
  Count();
}

void Connections::Count() noexcept { m_owner.CountRequests(m_inFlight, m_sockets.size(), m_requests); }

int Connections::PollMs() const {
  const auto longest = m_hasFtp ? kLongestFtpPoll : kLongestPoll;
  if (m_waiting.empty() || m_inFlight >= m_mostInFlight) return static_cast<int>(longest.count());
  const auto wait = std::chrono::ceil<std::chrono::milliseconds>(m_waiting.begin()->first - Clock::now());
  return static_cast<int>(std::clamp(wait, std::chrono::milliseconds(0), longest).count());
}

void Connections::StartDue() {
  while (!m_waiting.empty() && m_inFlight < m_mostInFlight && m_waiting.begin()->first <= Clock::now()) {
    Errand errand = std::move(m_waiting.begin()->second);
    m_waiting.erase(m_waiting.begin());
    Start(std::move(errand));
  }
}

void Connections::StartNew(JobSource& source) {
  while (m_inFlight < m_mostInFlight && !m_owner.IsStopped()) {
    std::unique_ptr<Job> job = source.Next();
    if (job == nullptr) return;
    Start({std::move(job), 0});
  }
}

Exchange* Connections::FreeExchange() {
  for (const std::unique_ptr<Exchange>& exchange : m_exchanges) {
    if (!exchange->IsBusy()) return exchange.get();
  }
  m_exchanges.push_back(std::make_unique<Exchange>(*this));
  return m_exchanges.back().get();
}

void Connections::Start(Errand errand) {
  Exchange* const exchange = FreeExchange();
  exchange->errand = std::move(errand);
  StartOrder(*exchange);
}

void Connections::StartOrder(Exchange& exchange) {
  const Order order = exchange.errand.job->Ask();
  exchange.redirects = 0;
  exchange.Prepare(order);
  m_hasFtp = m_hasFtp || order.url.starts_with("ftp:");
  Send(exchange);
}

void Connections::Send(Exchange& exchange) {
  if (curl_multi_add_handle(m_multi.get(), exchange.Easy()) != CURLM_OK) throw std::bad_alloc();
  ++m_inFlight;
  ++m_requests;
}

bool Connections::CollectEnded() {
  int left = 0;
  while (CURLMsg* const message = curl_multi_info_read(m_multi.get(), &left)) {
    if (message->msg != CURLMSG_DONE) continue;
    void* object = nullptr;
    curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &object);
    auto* const exchange = static_cast<Exchange*>(object);
    const CURLcode code = message->data.result;
    exchange->LetGoOfLostConnection();
    TakeOut(*exchange);
    m_ended.push_back({exchange, code});
  }
  return !m_ended.empty();
}

void Connections::FinishEnded() {
  const std::vector<Ended> ended = std::exchange(m_ended, {});
  for (const Ended& one : ended) {
    if (m_owner.IsStopped()) return;
    End(*one.exchange, one.code);
  }
}

void Connections::TakeOut(Exchange& exchange) noexcept {
  curl_multi_remove_handle(m_multi.get(), exchange.Easy());
  --m_inFlight;
}

// Of a request that is under way no more.
void Connections::End(Exchange& exchange, CURLcode code) {
  // An exchange whose job throws is free again.
  Errand errand = std::move(exchange.errand);
  if (exchange.exception != nullptr) std::rethrow_exception(std::exchange(exchange.exception, nullptr));
  LearnFrom(exchange);
  std::string target;
  Ending ending = exchange.TakeEnding(code, target);
  ending.mayRepeat = errand.repetitions < m_settings.mostRepetitions;
  exchange.errand = std::move(errand);
  if (!target.empty() && Redirect(exchange, target, ending)) return;
  switch (exchange.errand.job->Finish(ending)) {
    case Next::Again:
      StartOrder(exchange);
      return;
    case Next::Later:
      Repeat(exchange, ending);
      break;
    case Next::Done:
      break;
  }
  exchange.errand.job.reset();
}

bool Connections::Redirect(Exchange& exchange, const std::string& target, Ending& ending) {
  const bool isFollowed = exchange.redirects < m_settings.mostRedirects && MayRedirect(exchange.order.url, target) &&
                          exchange.errand.job->Follows(target);
  if (!isFollowed) {
    ending.refusedUrl = target;
    return false;
  }
  ++exchange.redirects;
  Order order = exchange.order;
  order.url = target;
  exchange.Prepare(order);
  Send(exchange);
  return true;
}

void Connections::Repeat(Exchange& exchange, const Ending& ending) {
  Errand errand = std::move(exchange.errand);
  curl_off_t askedFor = 0;
  if (ending.reply.isHttp) curl_easy_getinfo(exchange.Easy(), CURLINFO_RETRY_AFTER, &askedFor);
  const auto wait = WaitBeforeRepetition(++errand.repetitions, m_settings.firstWait, std::chrono::seconds(askedFor));
  m_waiting.emplace(Clock::now() + wait, std::move(errand));
}

// What an answer says about the server.
void Connections::LearnFrom(const Exchange& exchange) {
  long version = 0;
  curl_easy_getinfo(exchange.Easy(), CURLINFO_HTTP_VERSION, &version);
  if (version == CURL_HTTP_VERSION_2_0) m_mostInFlight = std::max(m_mostInFlight, kMostStreams);
  if (m_settings.credentials.empty() || m_isBasicEnough || !IsTrusted(exchange.order.url)) return;
  long offered = 0;
  curl_easy_getinfo(exchange.Easy(), CURLINFO_HTTPAUTH_AVAIL, &offered);
  const auto methods = static_cast<unsigned long>(offered);
  m_isBasicEnough = (methods & CURLAUTH_BASIC) != 0 && (methods & CURLAUTH_NTLM) == 0;
}

void Connections::EndIdle() {
  const Clock::time_point now = Clock::now();
  if (m_settings.timeout.count() == 0 || now - m_lastIdleCheck < std::chrono::seconds(1)) return;
  m_lastIdleCheck = now;
  for (const std::unique_ptr<Exchange>& exchange : m_exchanges) {
    if (!exchange->IsBusy() || !exchange->IsIdleFor(m_settings.timeout, now)) continue;
    exchange->isTimedOut = true;
    TakeOut(*exchange);
    End(*exchange, CURLE_OPERATION_TIMEDOUT);
    if (m_owner.IsStopped()) return;
  }
}

// Nothing of what is under way counts any more.
void Connections::GiveUp() noexcept {
  for (const std::unique_ptr<Exchange>& exchange : m_exchanges) {
    if (!exchange->IsBusy()) continue;
#if LIBCURL_VERSION_NUM >= 0x075700
    // A name that is just being looked up is not waited for.
    curl_easy_setopt(exchange->Easy(), CURLOPT_QUICK_EXIT, 1L);
#endif
    curl_multi_remove_handle(m_multi.get(), exchange->Easy());
    exchange->errand.job.reset();
  }
  m_waiting.clear();
  m_ended.clear();
  m_inFlight = 0;
  Count();
}

}  // namespace Corvane
