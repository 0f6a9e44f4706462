// Stands between clients and a server on this machine and makes the way between them long, so that what a round trip
// costs can be measured without a network. Prints the port that it listens on, then relays until it is ended.
//
//   Relay SERVER_PORT ONE_WAY_MS
//
// Every byte, and the end of a stream, arrives ONE_WAY_MS after it was sent, in order; the bandwidth is not limited,
// nor is there a slow start. The kernel completes a client's connect at once, where a real one takes a round trip:
// what the client sends meanwhile counts as sent when that round trip is over, and the connection to the server is
// opened when the last part of the handshake would arrive there. So the answer to the first request comes after two
// round trips, that to every later one after one.

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <list>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

// A sender whose peer does not read is stopped at last, as on any link. At 20 ms this is reached above 3 GB/s only.
constexpr std::size_t kMostUnderWay = 64u << 20;

[[noreturn]] void Die(const char* what) {
  std::fprintf(stderr, "Relay: %s: %s\n", what, std::strerror(errno));
  std::exit(1);
}

class Socket {
 public:
  explicit Socket(int descriptor) : m_descriptor(descriptor) {
    const int on = 1;  // nothing may wait here for more to come
    setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  ~Socket() { close(m_descriptor); }

  [[nodiscard]] int Get() const noexcept { return m_descriptor; }

 private:
  int m_descriptor;
};

bool WouldBlock() { return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR; }

// One direction of a connection: what is under way, with the time at which it arrives.
class Direction {
 public:
  Direction(Clock::duration delay, Clock::time_point firstSent) : m_delay(delay), m_firstSent(firstSent) {}

  [[nodiscard]] bool WantsToRead() const { return !m_readAll && m_underWay < kMostUnderWay; }
  [[nodiscard]] bool WantsToWrite() const { return m_isBlocked; }
  [[nodiscard]] bool IsOver() const { return m_readAll && m_pieces.empty(); }
  [[nodiscard]] bool IsBroken() const { return m_isBroken; }

  // When the next piece arrives; nothing while the receiver takes no more.
  [[nodiscard]] std::optional<Clock::time_point> NextArrival() const {
    if (m_pieces.empty() || m_isBlocked) return std::nullopt;
    return m_pieces.front().arrival;
  }

  void ReadFrom(int from, Clock::time_point now) {
    static std::array<char, 256u << 10> buffer;
    const Clock::time_point arrival = std::max(now, m_firstSent) + m_delay;
    while (WantsToRead()) {
      const ssize_t got = recv(from, buffer.data(), buffer.size(), 0);
      if (got < 0 && WouldBlock()) return;
      if (got <= 0) m_readAll = true;  // a reset travels as an end: either way no more comes
      m_pieces.push_back({arrival, std::string(buffer.data(), got > 0 ? static_cast<std::size_t>(got) : 0)});
      m_underWay += m_pieces.back().bytes.size();
    }
  }

  void WriteTo(int to, Clock::time_point now) {
    m_isBlocked = false;
    while (!m_pieces.empty() && m_pieces.front().arrival <= now) {
      if (!WriteFirstPiece(to)) return;
      m_pieces.pop_front();
    }
  }

 private:
  struct Piece {
    Clock::time_point arrival;
    std::string bytes;  // none at the end of the stream
  };

  bool WriteFirstPiece(int to) {
    std::string& bytes = m_pieces.front().bytes;
    if (bytes.empty()) shutdown(to, SHUT_WR);
    while (m_written < bytes.size()) {
      const ssize_t put = send(to, bytes.data() + m_written, bytes.size() - m_written, MSG_NOSIGNAL);
      if (put < 0) {
        (WouldBlock() ? m_isBlocked : m_isBroken) = true;
        return false;
      }
      m_written += static_cast<std::size_t>(put);
    }
    m_underWay -= bytes.size();
    m_written = 0;
    return true;
  }

  Clock::duration m_delay;
  Clock::time_point m_firstSent;  // nothing was sent before
  std::deque<Piece> m_pieces;
  std::size_t m_underWay = 0;  // bytes in m_pieces
  std::size_t m_written = 0;   // of the first piece
  bool m_readAll = false;
  bool m_isBlocked = false;
  bool m_isBroken = false;  // nobody takes what comes
};

class Connection {
 public:
  Connection(int client, in_port_t serverPort, Clock::duration delay, Clock::time_point now)
      : m_client(client),
        m_serverPort(serverPort),
        m_handshakeOver(now + 3 * delay),
        m_up(delay, now + 2 * delay),
        m_down(delay, now) {}

  // A peer that is gone ends the other direction, too: what it would have read keeps its sender waiting.
  [[nodiscard]] bool IsOver() const {
    return m_up.IsBroken() || m_down.IsBroken() || (m_up.IsOver() && m_down.IsOver());
  }

  [[nodiscard]] std::optional<Clock::time_point> NextEvent() const {
    if (!m_server) return m_handshakeOver;
    const auto up = m_up.NextArrival();
    const auto down = m_down.NextArrival();
    return up && down ? std::min(up, down) : up ? up : down;
  }

  [[nodiscard]] std::array<pollfd, 2> Watched() const {
    const auto events = [](const Direction& in, const Direction& out) {
      return static_cast<short>((in.WantsToRead() ? POLLIN : 0) | (out.WantsToWrite() ? POLLOUT : 0));
    };
    // A descriptor below zero is not looked at; without that, poll would report a closed peer again and again.
    const auto entry = [](int descriptor, short wanted) { return pollfd{wanted != 0 ? descriptor : -1, wanted, 0}; };
    return {entry(m_client.Get(), events(m_up, m_down)), entry(m_server ? m_server->Get() : -1, events(m_down, m_up))};
  }

  void Move(bool clientIsReady, bool serverIsReady, Clock::time_point now) {
    if (clientIsReady) m_up.ReadFrom(m_client.Get(), now);
    if (!m_server && m_handshakeOver <= now) OpenServer();
    if (!m_server) return;
    if (serverIsReady) m_down.ReadFrom(m_server->Get(), now);
    m_up.WriteTo(m_server->Get(), now);
    m_down.WriteTo(m_client.Get(), now);
  }

 private:
  // The connect may still be going on afterwards; reading and writing then say that they would block.
  void OpenServer() {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (descriptor < 0) Die("socket");
    m_server.emplace(descriptor);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(m_serverPort);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    // One that is refused shows when it is read.
    static_cast<void>(connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address));
  }

  Socket m_client;
  std::optional<Socket> m_server;
  in_port_t m_serverPort;
  Clock::time_point m_handshakeOver;
  Direction m_up;    // from the client to the server
  Direction m_down;  // and back
};

class Relay {
 public:
  Relay(in_port_t serverPort, Clock::duration delay)
      : m_listener(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)),
        m_serverPort(serverPort),
        m_delay(delay) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(m_listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) Die("bind");
    if (listen(m_listener.Get(), SOMAXCONN) != 0) Die("listen");
  }

  [[nodiscard]] unsigned Port() const {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    if (getsockname(m_listener.Get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) Die("getsockname");
    return ntohs(address.sin_port);
  }

  [[noreturn]] void Run() {
    for (;;) {
      Wait();
      const Clock::time_point now = Clock::now();
      std::size_t at = 1;
      for (Connection& connection : m_connections) {
        connection.Move(m_watched[at].revents != 0, m_watched[at + 1].revents != 0, now);
        at += 2;
      }
      m_connections.remove_if([](const Connection& connection) { return connection.IsOver(); });
      if (m_watched[0].revents != 0) Accept(now);
    }
  }

 private:
  // Until something can be read or written, or something arrives.
  void Wait() {
    m_watched.assign(1, pollfd{m_listener.Get(), POLLIN, 0});
    std::optional<Clock::time_point> next;
    for (const Connection& connection : m_connections) {
      const auto entries = connection.Watched();
      m_watched.insert(m_watched.end(), entries.begin(), entries.end());
      const auto event = connection.NextEvent();
      if (event && (!next || *event < *next)) next = event;
    }
    timespec limit{};
    if (next) {
      const auto left = std::max(std::chrono::nanoseconds(0), std::chrono::nanoseconds(*next - Clock::now()));
      limit.tv_sec = static_cast<time_t>(left.count() / 1'000'000'000);
      limit.tv_nsec = static_cast<long>(left.count() % 1'000'000'000);
    }
    if (ppoll(m_watched.data(), m_watched.size(), next ? &limit : nullptr, nullptr) < 0 && errno != EINTR) Die("ppoll");
  }

  void Accept(Clock::time_point now) {
    for (;;) {
      const int client = accept4(m_listener.Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
      if (client < 0 && (WouldBlock() || errno == ECONNABORTED)) return;
      if (client < 0) Die("accept");
      m_connections.emplace_back(client, m_serverPort, m_delay, now);
    }
  }

  Socket m_listener;
  in_port_t m_serverPort;
  Clock::duration m_delay;
  std::list<Connection> m_connections;
  std::vector<pollfd> m_watched;  // the listener, then two entries a connection
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: Relay SERVER_PORT ONE_WAY_MS\n");
    return 2;
  }
  const auto port = static_cast<in_port_t>(std::strtoul(argv[1], nullptr, 10));
  Relay relay(port, std::chrono::milliseconds(std::strtol(argv[2], nullptr, 10)));
  std::printf("%u\n", relay.Port());
  std::fflush(stdout);
  relay.Run();
}
