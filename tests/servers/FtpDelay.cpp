#include "tests/servers/FtpDelay.h"

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <chrono>
#include <system_error>
#include <utility>

#include "tests/support/Sockets.h"

namespace CorvaneTest {
namespace {

constexpr std::chrono::milliseconds kDelay{2};

void Await(const FileDescriptor& socket, short events) {
  pollfd entry{socket.Get(), events, 0};
  poll(&entry, 1, -1);
}

bool SendAll(const FileDescriptor& socket, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = send(socket.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno != EAGAIN && errno != EINTR) return false;
    if (sent < 0) Await(socket, POLLOUT);
    if (sent > 0) bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

bool IsPassiveAnswer(std::string_view bytes) { return bytes.substr(0, 4) == "229 " || bytes.substr(0, 4) == "227 "; }

}  // namespace

FtpDelay::FtpDelay(std::uint16_t server) : m_server(server), m_listener(ListenOnLoopback(16)) {
  m_acceptor = std::thread([this] { AcceptLoop(); });
}

FtpDelay::~FtpDelay() {
  m_stop.Open();
  m_acceptor.join();
}

std::string FtpDelay::Url(std::string_view path) const {
  return "ftp://127.0.0.1:" + std::to_string(PortOf(m_listener)) + std::string(path);
}

void FtpDelay::AcceptLoop() {
  while (!m_stop.IsOpen()) {
    std::array<pollfd, 2> events{{{m_listener.Get(), POLLIN, 0}, {m_stop.PollDescriptor(), POLLIN, 0}}};
    poll(events.data(), events.size(), -1);
    FileDescriptor client = AcceptFrom(m_listener);
    if (!client.IsOpen()) continue;
    m_sessions.emplace_back([this, owned = std::move(client)] { Relay(owned); });
  }
  for (std::thread& session : m_sessions) session.join();
}

// Returns, which closes both connections, when either side has closed its own.
void FtpDelay::Relay(const FileDescriptor& client) const {
  FileDescriptor server;
  try {
    server = ConnectToLoopback(m_server);
  } catch (const std::system_error&) {
    return;  // the server has gone
  }
  std::array<char, 4096> buffer{};
  for (;;) {
    std::array<pollfd, 3> events{
        {{client.Get(), POLLIN, 0}, {server.Get(), POLLIN, 0}, {m_stop.PollDescriptor(), POLLIN, 0}}};
    poll(events.data(), events.size(), -1);
    if (m_stop.IsOpen()) return;
    const bool isFromServer = events[1].revents != 0;
    if (!isFromServer && events[0].revents == 0) continue;
    const ssize_t count = recv(isFromServer ? server.Get() : client.Get(), buffer.data(), buffer.size(), 0);
    if (count <= 0) return;
    const std::string_view bytes(buffer.data(), static_cast<std::size_t>(count));
    if (isFromServer && IsPassiveAnswer(bytes)) std::this_thread::sleep_for(kDelay);
    if (!SendAll(isFromServer ? client : server, bytes)) return;
  }
}

}  // namespace CorvaneTest
