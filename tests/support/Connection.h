#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "tests/support/Deadline.h"
#include "tests/support/FileDescriptor.h"
#include "tests/support/Gate.h"
#include "tests/support/Request.h"

struct ssl_ctx_st;
struct ssl_st;

namespace CorvaneTest {

// What ReadRequest does with the request's body.
enum class Body {
  kRead,   // read it into Request::body
  kCount,  // read it, keep only its size (for uploads too large to hold)
  kLeave,  // leave it unread: the client's upload stalls once the socket buffers are full
};

// One accepted connection, in the hands of its handler.
//
// Every call blocks until it is done, the peer is gone or the server is stopped; from the moment of Stop() on, reads
// see the end of the stream and Send() fails, so a handler that checks results always comes to its end. A peer that is
// gone never raises SIGPIPE, and no disposition of the process is changed for that.
// Thread safety: one thread only, the one that runs the handler.
class Connection {
 public:
  // Told about a request when its head is read, and again when its body is.
  using RequestObserver = std::function<void(const Request& request, bool isUpdate)>;

  // socket: connected and non-blocking. stop: opened by the server's Stop(); must outlive the connection.
  Connection(FileDescriptor socket, const Gate& stop, std::size_t number = 0, RequestObserver observer = nullptr);
  ~Connection();  // as Close()
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // Makes it a TLS connection, as the server's side. False, with the reason in `error`, when the handshake fails.
  // SIGPIPE stays blocked in the calling thread.
  bool AcceptTls(ssl_ctx_st* context, std::string& error);

  // Accepts a further connection, for protocols with one for data. It ends with the server's Stop() as this one does.
  // Null when the server stopped, or this connection's peer left, before anyone came.
  std::unique_ptr<Connection> AcceptFrom(const FileDescriptor& listener) const;

  // --- receiving

  // The next request, or nullopt when the peer closed before a whole head came. A request with "Expect: 100-continue"
  // whose body is to be read is told to continue first, as a real server does.
  std::optional<Request> ReadRequest(Body body = Body::kRead);

  // Reads the body of a request that was read with Body::kLeave. False when the peer went away before its end.
  bool ReadBody(Request& request, Body body = Body::kRead);

  // At least one byte and at most `limit`; empty at the end of the stream.
  std::string ReadSome(std::size_t limit = 65536);

  // Exactly `count` bytes; fewer only when the stream ended first.
  std::string ReadExactly(std::size_t count);

  // The next line without its CR LF or LF; nullopt when the stream ended before the line did.
  std::optional<std::string> ReadLine();

  // --- sending

  // True when the system (or the TLS layer) took all bytes; false when the peer is gone or the server stops.
  // True does not mean that the peer read them.
  bool Send(std::string_view bytes);

  // --- ending; each leaves the connection unusable, except that HalfClose leaves the receiving side
  // As with any TCP socket, data of the peer that arrives after Close() or CutOff() makes the system send it RST, upon
  // which it may lose what it has not read yet. Where that matters use HalfClose() and WaitUntilPeerCloses().

  void HalfClose();  // no more data from us (with TLS: close_notify first); the peer may go on sending
  void Close();      // orderly: FIN, with TLS close_notify first
  void CutOff();     // as Close(), but under TLS without close_notify: a truncated stream
  void Reset();      // the peer gets RST, also for data it has not read yet

  bool IsOpen() const { return m_socket.IsOpen(); }

  // --- waiting

  // True once the peer closed or reset the connection; what it sends until then is thrown away. False when the deadline
  // passed or the server stopped.
  bool WaitUntilPeerCloses(Deadline deadline);
  bool WaitUntilPeerCloses() { return WaitUntilPeerCloses(After(kPatience)); }

  // True once the peer's program has taken all that was sent out of its socket, which must be one of this machine: what is
  // done next then never overtakes these bytes. False when the peer left, the deadline passed or the server stopped.
  bool WaitUntilPeerHasRead(Deadline deadline) const;
  bool WaitUntilPeerHasRead() const { return WaitUntilPeerHasRead(After(kPatience)); }

  // True once the gate is open; false when the deadline passed or the server stopped.
  bool WaitFor(const Gate& gate, Deadline deadline) const;
  bool WaitFor(const Gate& gate) const { return WaitFor(gate, After(kPatience)); }

  // Returns when the server stops: the way to stall for as long as the test takes.
  void WaitUntilStopped() const;

  // --- queries

  // Number of this connection at its server, counted from 0.
  std::size_t Number() const { return m_number; }
  bool IsStopping() const { return m_stop.IsOpen(); }

 private:
  struct SslDeleter {
    void operator()(ssl_st* ssl) const noexcept;
  };

  bool AwaitSocket(short events) const;
  bool AwaitTls(int result) const;
  std::size_t Receive(char* buffer, std::size_t size);
  std::size_t Transmit(const char* bytes, std::size_t size);
  bool FillBuffer();
  std::string TakeFromBuffer(std::size_t count);
  bool ReadBodyPart(Request& request, Body body, std::uint64_t count);
  bool ReadChunks(Request& request, Body body);

  FileDescriptor m_socket;
  const Gate& m_stop;
  std::size_t m_number;
  RequestObserver m_observer;
  std::string m_buffer;  // received and not yet taken
  std::unique_ptr<ssl_st, SslDeleter> m_ssl;
};

}  // namespace CorvaneTest
