#pragma once

#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "tests/faults/Matrix.h"
#include "tests/support/ScriptedServer.h"

namespace CorvaneTest {

class HttpFaultSite;

// What a faulty answer is made of.
class Answer {
 public:
  // `request` is null for what happens before there is one.
  Answer(Connection& peer, HttpFaultSite& site, const Request* request);

  // The answer's head as it ought to be: 200, or for a part 206 with its range, these lines, and the empty one.
  [[nodiscard]] std::string Head(std::initializer_list<std::string> lines) const;
  [[nodiscard]] std::string StatusLine() const;  // the first line of it, and for a part the one with the range
  [[nodiscard]] std::string Length() const;      // "Content-Length: N" of what is asked for
  // What is asked for, up to this byte of the content; a range, if any, begins where it is asked for.
  [[nodiscard]] std::string Body(std::size_t upTo = kContentSize) const;
  // The same as "chunked" has it, without the last chunk.
  [[nodiscard]] std::string Chunk(std::size_t upTo = kContentSize) const { return FormatChunk(Body(upTo)); }
  [[nodiscard]] const std::string& Target() const { return m_target; }
  [[nodiscard]] bool IsRanged() const { return m_isRanged; }

  bool Send(const std::string& bytes);
  void Close() { m_peer.Close(); }
  // Sends the bytes, and is gone.
  void SendAndClose(const std::string& bytes);
  // The same with RST, which takes nothing of them from the client.
  void SendAndReset(const std::string& bytes);
  // Falls silent once the client has read all that was sent, until it goes away.
  void Stall();
  void SendAndStall(const std::string& bytes);
  // The same, but sends the piece again and again.
  void Trickle(const std::string& piece);
  Connection& Peer() { return m_peer; }

 private:
  Connection& m_peer;
  HttpFaultSite& m_site;
  std::string m_target;
  std::size_t m_position = 0;
  bool m_isRanged = false;
};

// What differs from the rest for some operations.
struct Exception {
  Ops ops;
  Told told;
};

// One way to misbehave.
struct HttpFault {
  std::string name;
  std::function<void(Answer&)> answer;  // to every request for what the operation asks for
  Told told;
  std::vector<Exception> exceptions = {};
  Patience patience = Patience::kNotNeeded;
  Conditions conditions = {};
  bool isAtAccept = false;   // the answer is given before there is a request
  bool hasTrailers = false;  // the header text holds more than what was sent before the content
};

// All that the server has arrives.
inline const Told kWhole = {.status = 200, .upTo = kContentSize};
// An answer that was acceptable, and is not the part that a resume asks for.
inline const Told kNoRest = {.status = 206,  // by what the library finds
                             .curl = kRangeError,
                             .text = "The server did not send the rest of the file. Cannot resume."};
inline const Told kNoPart = {.status = 200,  // by what libcurl finds
                             .curl = kRangeError,
                             .text = "HTTP server doesn't seem to support byte ranges. Cannot resume."};

enum class Tls {
  kNone,
  kUsed,         // the fault is inside
  kInterrupted,  // the fault is in the place of a handshake; the good server is another one
  kDistrusted,   // the fault is the certificate; the good server is one without TLS
};

// What each of them comes to for each of the operations. The server shows this certificate.
std::vector<Cell> CellsOf(const std::vector<HttpFault>& faults, const Ops& ops, Tls tls = Tls::kNone,
                          const TlsIdentity* identity = nullptr);

}  // namespace CorvaneTest
