#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <Corvane/Base/Result.h>
#include <Corvane/Transfer/CurlImpl.h>
#include <Corvane/TreeDownload/AddressImpl.h>
#include <Corvane/TreeDownload/ExchangeImpl.h>
#include <Corvane/TreeDownload/JobImpl.h>

namespace Corvane {

// What requests are made with; nothing of it changes during a run.
struct RequestSettings {
  std::chrono::seconds timeout{300};  // 0: no limit
  bool verifyHost = true;
  bool verifyPeer = true;
  std::string caFile;  // local encoding; with an empty caDir, too, libcurl's own authorities count
  std::string caDir;
  std::string credentials;           // "user:password"; empty: none
  std::vector<std::string> headers;  // as libcurl takes them
  std::string userAgent;
  unsigned int mostConnections = 8;
  unsigned int mostRedirects = 10;
  unsigned int mostRepetitions = 3;
  std::chrono::milliseconds firstWait{1000};
  bool useThrottling = true;
};

// What the requests of a run have to do with the rest of it.
class ConnectionsOwner {
 public:
  ConnectionsOwner() = default;
  virtual ~ConnectionsOwner() = default;
  ConnectionsOwner(const ConnectionsOwner&) = delete;
  ConnectionsOwner& operator=(const ConnectionsOwner&) = delete;
  // Whether all that is under way is to end now.
  [[nodiscard]] virtual bool IsStopped() const noexcept = 0;
  virtual void CountRequests(std::size_t inFlight, std::size_t connections, unsigned long long requests) noexcept = 0;
};

// Makes the requests of one run, many at a time, on the calling thread: libcurl's multi handle, the connections that it keeps, what is
// under way, and what waits to be repeated.
class Connections {
 public:
  // Throws std::bad_alloc when libcurl gives no handle.
  Connections(const RequestSettings& settings, ConnectionsOwner& owner);
  ~Connections();
  Connections(const Connections&) = delete;
  Connections& operator=(const Connections&) = delete;

  // Where credentials go; nowhere before it is called.
  void Trust(const std::string& url) { m_trusted = OriginOf(url); }

  // Does all jobs of the source. False when the owner's run stopped; what was under way has been given up then. What jobs throw
  // passes out.
  bool Do(JobSource& source);

  // Lets Do look at its owner's flag. Any thread, while the object lives.
  void WakeUp() noexcept { curl_multi_wakeup(m_multi.get()); }

  // --- For Exchange. ---
  [[nodiscard]] const RequestSettings& Settings() const noexcept { return m_settings; }
  [[nodiscard]] bool IsTrusted(const std::string& url) const;
  [[nodiscard]] long Authentication(bool overTls) const noexcept;
  [[nodiscard]] bool IsStopped() const noexcept { return m_owner.IsStopped(); }
  static curl_socket_t OpenSocket(void* object, curlsocktype purpose, curl_sockaddr* address) noexcept;
  static int CloseSocket(void* object, curl_socket_t socket) noexcept;

 private:
  using Clock = std::chrono::steady_clock;
  struct MultiDeleter {
    void operator()(CURLM* multi) const noexcept { curl_multi_cleanup(multi); }
  };

  struct Ended {
    Exchange* exchange;
    CURLcode code;
  };

  void Perform();
  void Start(JobSource& source);
  void StartDue();
  void StartNew(JobSource& source);
  void Start(Errand errand);
  void StartOrder(Exchange& exchange);
  void Send(Exchange& exchange);
  // Whether any request has ended.
  bool CollectEnded();
  void FinishEnded();
  void TakeOut(Exchange& exchange) noexcept;
  void End(Exchange& exchange, CURLcode code);
  bool Redirect(Exchange& exchange, const std::string& target, Ending& ending);
  void Repeat(Exchange& exchange, const Ending& ending);
  void LearnFrom(const Exchange& exchange);
  void EndIdle();
  void GiveUp() noexcept;
  void Count() noexcept;
  [[nodiscard]] int PollMs() const;
  Exchange* FreeExchange();

  const RequestSettings m_settings;
  ConnectionsOwner& m_owner;
  std::optional<Origin> m_trusted;
  std::set<curl_socket_t> m_sockets;  // that libcurl has open
  std::unique_ptr<CURLM, MultiDeleter> m_multi;
  std::vector<std::unique_ptr<Exchange>> m_exchanges;
  std::vector<Ended> m_ended;  // not looked at yet; their exchanges are busy until they are
  std::multimap<Clock::time_point, Errand> m_waiting;
  std::size_t m_inFlight = 0;
  std::size_t m_mostInFlight;
  unsigned long long m_requests = 0;
  bool m_hasFtp = false;         // requests go to an FTP server
  bool m_isBasicEnough = false;  // the server offers no NTLM
  Clock::time_point m_lastIdleCheck{};
};

}  // namespace Corvane
