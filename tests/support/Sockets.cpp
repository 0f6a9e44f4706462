#include "tests/support/Sockets.h"

#include <arpa/inet.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <string>
#include <system_error>

namespace CorvaneTest {

namespace {

[[noreturn]] void Throw(const char* operation) { throw std::system_error(errno, std::generic_category(), operation); }

sockaddr_in Loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

FileDescriptor OpenSocket(int flags) {
  FileDescriptor result(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
  if (!result.IsOpen()) Throw("socket");
  return result;
}

FileDescriptor BindToFreePort(int flags) {
  FileDescriptor result = OpenSocket(flags);
  const int on = 1;
  const sockaddr_in address = Loopback(0);
  if (setsockopt(result.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) Throw("SO_REUSEADDR");
  if (bind(result.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) Throw("bind");
  return result;
}

FileDescriptor Connect(std::uint16_t port, int flags) {
  FileDescriptor result = OpenSocket(flags);
  const sockaddr_in address = Loopback(port);
  const int error = connect(result.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
  if (error != 0 && errno != EINPROGRESS) Throw("connect");
  return result;
}

}  // namespace

FileDescriptor ListenOnLoopback(int backlog) {
  FileDescriptor result = BindToFreePort(SOCK_NONBLOCK);
  if (listen(result.Get(), backlog) != 0) Throw("listen");
  return result;
}

std::uint16_t PortOf(const FileDescriptor& socket) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  if (getsockname(socket.Get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) Throw("getsockname");
  return ntohs(address.sin_port);
}

std::optional<std::size_t> BytesUntaken(const FileDescriptor& socket) {
  sockaddr_in peer{};
  socklen_t size = sizeof peer;
  int unacknowledged = 0;
  if (getpeername(socket.Get(), reinterpret_cast<sockaddr*>(&peer), &size) != 0) return std::nullopt;
  if (ioctl(socket.Get(), SIOCOUTQ, &unacknowledged) != 0) Throw("SIOCOUTQ");
  const unsigned int ours = PortOf(socket);
  std::ifstream table("/proc/net/tcp");
  for (std::string line; std::getline(table, line);) {
    unsigned int local = 0;
    unsigned int remote = 0;
    std::size_t untaken = 0;
    const int fields = std::sscanf(line.c_str(), " %*d: %*x:%x %*x:%x %*x %*x:%zx", &local, &remote, &untaken);
    if (fields == 3 && local == ntohs(peer.sin_port) && remote == ours)
      return static_cast<std::size_t>(unacknowledged) + untaken;
  }
  return std::nullopt;
}

FileDescriptor ConnectToLoopback(std::uint16_t port) { return Connect(port, 0); }

FileDescriptor AcceptFrom(const FileDescriptor& listener) {
  FileDescriptor result(accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  const int on = 1;
  if (result.IsOpen()) setsockopt(result.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return result;
}

FileDescriptor StartConnectingToLoopback(std::uint16_t port) { return Connect(port, SOCK_NONBLOCK); }

PortReservation::PortReservation() : m_socket(BindToFreePort(0)), m_port(PortOf(m_socket)) {}

}  // namespace CorvaneTest
