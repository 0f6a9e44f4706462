#include "tests/support/StalledListener.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <system_error>

#include "tests/support/Sockets.h"

namespace CorvaneTest {

namespace {

bool IsQueueFull(const FileDescriptor& listener) {
  tcp_info info{};
  socklen_t size = sizeof info;
  if (getsockopt(listener.Get(), IPPROTO_TCP, TCP_INFO, &info, &size) != 0) {
    throw std::system_error(errno, std::generic_category(), "TCP_INFO");
  }
  // For a listening socket Linux reports the length of the accept queue and its limit here; it drops the requests of
  // further clients as soon as the limit is exceeded.
  return info.tcpi_unacked > info.tcpi_sacked;
}

}  // namespace

StalledListener::StalledListener() : m_listener(ListenOnLoopback(0)), m_port(PortOf(m_listener)) {
  while (!IsQueueFull(m_listener)) {
    const FileDescriptor& filler = m_fillers.emplace_back(StartConnectingToLoopback(m_port));
    // The queue grows when the handshake is over, which may be a moment after this; one filler too many does no harm.
    pollfd connected{filler.Get(), POLLOUT, 0};
    poll(&connected, 1, 10);
  }
}

std::string StalledListener::Url(const std::string& scheme) const {
  return scheme + "://127.0.0.1:" + std::to_string(m_port) + "/";
}

}  // namespace CorvaneTest
