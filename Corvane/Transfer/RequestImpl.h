#pragma once

#include <atomic>
#include <exception>
#include <optional>
#include <string>

#include <Corvane/Base/DateTime.h>
#include <Corvane/Transfer/BodyImpl.h>
#include <Corvane/Transfer/CurlImpl.h>
#include <Corvane/Transfer/TraceLinesImpl.h>

namespace Corvane {

// One request on the object's easy handle: what libcurl is given and has to find unchanged until it returns, and what it has moved
// so far. Other threads read the sizes and times at any time; they are independent of each other and need no order.
struct Request {
  CURL* easy = nullptr;  // owned by ZTransfer, which cleans it up before this object goes
  // Whether an option may have been set since the handle was reset last; a reset that would change nothing is saved.
  std::atomic<bool> hasOptions{true};
  OwnedCString url;                   // UTF-8
  OwnedCString postData;              // UTF-8
  char errorText[4096] = {};          // libcurl's own words
  std::string header;                 // the header lines received so far
  bool isHeaderTooLong = false;       // more lines came than are taken
  MemoryBody memory;                  // where bodies go that go nowhere else
  Body* body = &memory;               // where this one goes
  OwnedList headers;                  // request headers that the host asked for
  curl_off_t sentBytes = 0;           // of the body, when the time limit follows it
  bool isFirstDataNotified = false;   // the observers know
  std::exception_ptr exception;       // thrown by host code inside a callback; rethrown when libcurl has returned
  std::optional<TraceLines> trace;    // while an operation runs for a host that wants to be told
  std::exception_ptr traceException;  // thrown there; rethrown when the operation's steps are done

  std::atomic<bool> contentSizeKnown{false};
  std::atomic<unsigned long long> contentSize{0};
  std::atomic<unsigned long long> downloadSize{0};
  std::atomic<unsigned long long> transferSize{0};
  std::atomic<unsigned int> transferRate{0};  // KiB per second
  ZDateTime startTime = ZDateTime::Now();
  ZTimeSpan transferTime;
  // When the operation began, on a clock that nobody sets, in microseconds: what time limits are counted from.
  long long steadyStart = 0;

  // The server and login of the last request, if libcurl may have kept a connection on which it would take its leave.
  std::string keptPeer;

  // libcurl says goodbye on a kept FTP connection (and those of other protocols with a dialogue) when it gives it up, in its
  // clean-up and when its pool is full, and waits two minutes for the answer. Who asks for something else, or for the end, does not
  // wait for a peer that is gone: with its receiving side shut down such a connection has had its answer.
  void LetGoOfKeptConnection() noexcept;
  void LetGoOfOtherPeer(const char* credentials);
  void RememberPeer(const char* credentials);
  // After a request: over a connection of which nobody knows the folder it was in when it was new, libcurl cannot find back there
  // (RFC 959 lets a server refuse PWD), and would look for the next file below the folder of the last one: another file.
  void LetGoOfLostConnection() noexcept;

  // Whether the URL is one of HTTP or HTTPS.
  [[nodiscard]] bool IsHttp() const;
  // False for an HTTP answer outside 200 to 299, and for none at all.
  [[nodiscard]] bool IsAnswerAcceptable() const;

  // What libcurl tells; 0 when it does not. The second argument only chooses the type.
  [[nodiscard]] double Info(CURLINFO info, double) const;
  [[nodiscard]] long Info(CURLINFO info, long) const;

  void StartClocks();
  // Whole seconds since StartClocks, on the steady clock.
  [[nodiscard]] unsigned long ElapsedSeconds() const noexcept;
  void UpdateTransferTime();
  void UpdateTransferSize();
  void ReadContentSize();
  // The length of the whole resource, as far as it is known.
  [[nodiscard]] std::optional<unsigned long long> ResourceSize() const;

 private:
  [[nodiscard]] std::string PeerOf(const char* credentials) const;
};

// Directs the body to a destination that lives shorter than the object.
class Destination {
 public:
  Destination(Request& request, Body& body) : m_request(request) { m_request.body = &body; }
  ~Destination() { m_request.body = &m_request.memory; }
  Destination(const Destination&) = delete;
  Destination& operator=(const Destination&) = delete;

 private:
  Request& m_request;
};

}  // namespace Corvane
