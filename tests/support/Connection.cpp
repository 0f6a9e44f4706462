#include "tests/support/Connection.h"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <limits>
#include <utility>

#include "tests/support/OpenSsl.h"
#include "tests/support/Sockets.h"

namespace CorvaneTest {

namespace {

constexpr std::size_t kBlockBytes = 65536;

// The number at the beginning of the text; 0 when there is none.
std::uint64_t ParseNumber(std::string_view text, int base = 10) {
  std::uint64_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number, base);
  return number;
}

bool IsChunked(const Request& request) {
  return EqualIgnoringCase(request.Header("Transfer-Encoding").value_or(""), "chunked");
}

bool HasBody(const Request& request) {
  return IsChunked(request) || ParseNumber(request.Header("Content-Length").value_or("0")) > 0;
}

// Polls as poll() does, but again after a signal.
template <std::size_t Count>
bool PollUntil(std::array<pollfd, Count>& descriptors, Deadline deadline) {
  while (true) {
    const int ready = poll(descriptors.data(), descriptors.size(), MillisecondsUntil(deadline));
    if (ready > 0) return true;
    if (ready == 0 && Clock::now() >= deadline) return false;
  }
}

// Throws away what has come so far. False once the peer has closed or reset the connection.
// Reads a limited number of blocks, more than a socket holds, lest a peer that sends without end keeps it busy.
bool Drain(int socket) {
  std::array<char, kBlockBytes> buffer;
  for (int block = 0; block < 256; ++block) {
    const ssize_t count = recv(socket, buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (count < 0 && errno == EAGAIN) return true;
    if (count == 0 || (count < 0 && errno != EINTR)) return false;
  }
  return true;
}

// OpenSSL writes to the socket in a way that raises SIGPIPE when the peer is gone. Blocked for this thread alone, it
// stays pending and goes away with the thread; the rest of the process keeps its default.
void BlockSigpipeInThisThread() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

}  // namespace

void Connection::SslDeleter::operator()(ssl_st* ssl) const noexcept { SSL_free(ssl); }

Connection::Connection(FileDescriptor socket, const Gate& stop, std::size_t number, RequestObserver observer)
    : m_socket(std::move(socket)), m_stop(stop), m_number(number), m_observer(std::move(observer)) {}

Connection::~Connection() { Close(); }

bool Connection::AcceptTls(ssl_ctx_st* context, std::string& error) {
  BlockSigpipeInThisThread();
  ERR_clear_error();
  m_ssl.reset(SSL_new(context));
  if (!m_ssl || SSL_set_fd(m_ssl.get(), m_socket.Get()) != 1) {
    error = TakeOpenSslError();
    return false;
  }
  // Send() hands over whatever the socket takes, from a different address each time.
  SSL_set_mode(m_ssl.get(), SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
  while (true) {
    const int result = SSL_accept(m_ssl.get());
    if (result == 1) return true;
    if (AwaitTls(result)) continue;
    error = IsStopping() ? "the server was stopped" : TakeOpenSslError();
    return false;
  }
}

std::unique_ptr<Connection> Connection::AcceptFrom(const FileDescriptor& listener) const {
  std::array<pollfd, 3> descriptors{pollfd{listener.Get(), POLLIN, 0}, pollfd{m_stop.PollDescriptor(), POLLIN, 0},
                                    pollfd{m_socket.Get(), POLLRDHUP, 0}};
  PollUntil(descriptors, Deadline::max());
  if (IsStopping()) return nullptr;
  FileDescriptor socket = CorvaneTest::AcceptFrom(listener);
  if (!socket.IsOpen()) return nullptr;
  return std::make_unique<Connection>(std::move(socket), m_stop);
}

// --- receiving

std::optional<Request> Connection::ReadRequest(Body body) {
  constexpr std::string_view kHeadEnd = "\r\n\r\n";
  std::size_t end = m_buffer.find(kHeadEnd);
  while (end == std::string::npos) {
    const std::size_t searched = m_buffer.size() < kHeadEnd.size() ? 0 : m_buffer.size() - kHeadEnd.size();
    if (!FillBuffer()) return std::nullopt;
    end = m_buffer.find(kHeadEnd, searched);
  }
  Request request = ParseRequestHead(TakeFromBuffer(end + kHeadEnd.size()));
  request.connection = m_number;
  request.isBodyComplete = !HasBody(request);
  if (m_observer) m_observer(request, false);
  if (!request.isBodyComplete && body != Body::kLeave) ReadBody(request, body);
  return request;
}

bool Connection::ReadBody(Request& request, Body body) {
  if (EqualIgnoringCase(request.Header("Expect").value_or(""), "100-continue")) Send("HTTP/1.1 100 Continue\r\n\r\n");
  if (IsChunked(request)) {
    request.isBodyComplete = ReadChunks(request, body);
  } else {
    const std::uint64_t length = ParseNumber(request.Header("Content-Length").value_or("0"));
    request.isBodyComplete = ReadBodyPart(request, body, length);
  }
  if (m_observer) m_observer(request, true);
  return request.isBodyComplete;
}

bool Connection::ReadBodyPart(Request& request, Body body, std::uint64_t count) {
  while (count > 0) {
    if (m_buffer.empty() && !FillBuffer()) return false;
    const std::string part = TakeFromBuffer(static_cast<std::size_t>(std::min<std::uint64_t>(count, kBlockBytes)));
    if (body == Body::kRead) request.body += part;
    request.bodySize += part.size();
    count -= part.size();
  }
  return true;
}

bool Connection::ReadChunks(Request& request, Body body) {
  while (const std::optional<std::string> sizeLine = ReadLine()) {
    const std::uint64_t size = ParseNumber(*sizeLine, 16);
    if (size == 0) break;
    if (!ReadBodyPart(request, body, size) || !ReadLine()) return false;
  }
  while (const std::optional<std::string> trailer = ReadLine()) {
    if (trailer->empty()) return true;
  }
  return false;
}

std::string Connection::ReadSome(std::size_t limit) {
  if (m_buffer.empty() && !FillBuffer()) return {};
  return TakeFromBuffer(limit);
}

std::string Connection::ReadExactly(std::size_t count) {
  std::string result;
  while (result.size() < count) {
    const std::string part = ReadSome(count - result.size());
    if (part.empty()) break;
    result += part;
  }
  return result;
}

std::optional<std::string> Connection::ReadLine() {
  std::size_t end = m_buffer.find('\n');
  while (end == std::string::npos) {
    const std::size_t searched = m_buffer.size();
    if (!FillBuffer()) return std::nullopt;
    end = m_buffer.find('\n', searched);
  }
  std::string line = TakeFromBuffer(end + 1);
  line.pop_back();
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return line;
}

bool Connection::FillBuffer() {
  const std::size_t before = m_buffer.size();
  m_buffer.resize(before + kBlockBytes);
  const std::size_t count = Receive(m_buffer.data() + before, kBlockBytes);
  m_buffer.resize(before + count);
  return count > 0;
}

std::string Connection::TakeFromBuffer(std::size_t count) {
  std::string result = m_buffer.substr(0, count);
  m_buffer.erase(0, count);
  return result;
}

std::size_t Connection::Receive(char* buffer, std::size_t size) {
  while (m_socket.IsOpen() && !IsStopping()) {
    if (m_ssl) {
      ERR_clear_error();
      const int count = SSL_read(m_ssl.get(), buffer, static_cast<int>(size));
      if (count > 0) return static_cast<std::size_t>(count);
      if (!AwaitTls(count)) return 0;
      continue;
    }
    const ssize_t count = recv(m_socket.Get(), buffer, size, MSG_DONTWAIT);
    if (count >= 0) return static_cast<std::size_t>(count);
    if (errno != EAGAIN && errno != EINTR) return 0;
    if (errno == EAGAIN && !AwaitSocket(POLLIN)) return 0;
  }
  return 0;
}

// --- sending

bool Connection::Send(std::string_view bytes) {
  while (!bytes.empty()) {
    const std::size_t count = Transmit(bytes.data(), bytes.size());
    if (count == 0) return false;
    bytes.remove_prefix(count);
  }
  return m_socket.IsOpen();
}

std::size_t Connection::Transmit(const char* bytes, std::size_t size) {
  size = std::min<std::size_t>(size, std::numeric_limits<int>::max());
  while (m_socket.IsOpen() && !IsStopping()) {
    if (m_ssl) {
      ERR_clear_error();
      const int count = SSL_write(m_ssl.get(), bytes, static_cast<int>(size));
      if (count > 0) return static_cast<std::size_t>(count);
      if (!AwaitTls(count)) return 0;
      continue;
    }
    const ssize_t count = send(m_socket.Get(), bytes, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (count >= 0) return static_cast<std::size_t>(count);
    if (errno != EAGAIN && errno != EINTR) return 0;
    if (errno == EAGAIN && !AwaitSocket(POLLOUT)) return 0;
  }
  return 0;
}

// --- ending

void Connection::HalfClose() {
  if (!m_socket.IsOpen()) return;
  if (m_ssl) SSL_shutdown(m_ssl.get());
  ERR_clear_error();
  shutdown(m_socket.Get(), SHUT_WR);
}

void Connection::Close() {
  HalfClose();
  CutOff();
}

void Connection::CutOff() {
  if (!m_socket.IsOpen()) return;
  m_ssl.reset();
  shutdown(m_socket.Get(), SHUT_WR);
  // Data left unread would make the system send RST in place of FIN.
  Drain(m_socket.Get());
  m_socket.Close();
}

void Connection::Reset() {
  if (!m_socket.IsOpen()) return;
  m_ssl.reset();
  const linger immediately{1, 0};
  setsockopt(m_socket.Get(), SOL_SOCKET, SO_LINGER, &immediately, sizeof immediately);
  m_socket.Close();
}

// --- waiting

// Waits without a deadline: a handler waits until its peer acts or the server is stopped.
bool Connection::AwaitSocket(short events) const {
  std::array<pollfd, 2> descriptors{pollfd{m_socket.Get(), events, 0}, pollfd{m_stop.PollDescriptor(), POLLIN, 0}};
  return PollUntil(descriptors, Deadline::max()) && !IsStopping();
}

// True when the TLS call that gave `result` is to be tried again.
bool Connection::AwaitTls(int result) const {
  switch (SSL_get_error(m_ssl.get(), result)) {
    case SSL_ERROR_WANT_READ:
      return AwaitSocket(POLLIN);
    case SSL_ERROR_WANT_WRITE:
      return AwaitSocket(POLLOUT);
    default:
      return false;
  }
}

bool Connection::WaitUntilPeerCloses(Deadline deadline) {
  while (m_socket.IsOpen()) {
    if (!Drain(m_socket.Get())) return true;
    std::array<pollfd, 2> descriptors{pollfd{m_socket.Get(), POLLIN, 0}, pollfd{m_stop.PollDescriptor(), POLLIN, 0}};
    if (!PollUntil(descriptors, deadline) || IsStopping() || Clock::now() >= deadline) return false;
  }
  return true;
}

// The table of the system's connections may miss one that moves in it, so that only a look that finds it counts.
bool Connection::WaitUntilPeerHasRead(Deadline deadline) const {
  while (m_socket.IsOpen() && !IsStopping() && Clock::now() < deadline) {
    if (BytesUntaken(m_socket) == 0U) return true;
    std::array<pollfd, 2> descriptors{pollfd{m_socket.Get(), POLLRDHUP, 0}, pollfd{m_stop.PollDescriptor(), POLLIN, 0}};
    if (PollUntil(descriptors, After(std::chrono::milliseconds(1)))) return false;
  }
  return false;
}

bool Connection::WaitFor(const Gate& gate, Deadline deadline) const {
  std::array<pollfd, 2> descriptors{pollfd{gate.PollDescriptor(), POLLIN, 0},
                                    pollfd{m_stop.PollDescriptor(), POLLIN, 0}};
  PollUntil(descriptors, deadline);
  return gate.IsOpen();
}

void Connection::WaitUntilStopped() const {
  while (!m_stop.Wait(Deadline::max())) {
  }
}

}  // namespace CorvaneTest
