#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "tests/support/FileDescriptor.h"

// TCP on 127.0.0.1. All descriptors are close-on-exec. Errors: std::system_error.
namespace CorvaneTest {

// A listening, non-blocking socket on a port the system chose.
FileDescriptor ListenOnLoopback(int backlog);

// The port a socket is bound to.
std::uint16_t PortOf(const FileDescriptor& socket);

// The bytes on their way from a connected socket to a peer on this machine: not yet acknowledged, or acknowledged and not yet
// taken by the peer's program. None when the peer's socket is not there any more.
std::optional<std::size_t> BytesUntaken(const FileDescriptor& socket);

// A connected, blocking socket.
FileDescriptor ConnectToLoopback(std::uint16_t port);

// The next connection of a listening socket, non-blocking; empty when none is waiting. What is written to it goes out
// at once: the small answers of a server would otherwise wait for the client's delayed acknowledgement.
FileDescriptor AcceptFrom(const FileDescriptor& listener);

// A non-blocking socket whose connection may still be under way.
FileDescriptor StartConnectingToLoopback(std::uint16_t port);

// Keeps a port from being given to anyone else by the system until a server has bound it.
// It binds the port without listening. With SO_REUSEADDR on both sides, as all the usual servers have it, Linux lets
// the server bind the same port all the same, while it never chooses the port for anyone who asks for a free one.
class PortReservation {
 public:
  PortReservation();
  std::uint16_t Port() const { return m_port; }

 private:
  FileDescriptor m_socket;
  std::uint16_t m_port = 0;
};

}  // namespace CorvaneTest
