#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <string>
#include <string_view>
#include <thread>

#include "tests/support/FileDescriptor.h"
#include "tests/support/Gate.h"

namespace CorvaneTest {

// Stands between a client and an FTP server on 127.0.0.1 and hands on what either says on the control connection, the answer to EPSV
// a little later than it came. Data connections go past it.
// libcurl 7.88 sleeps for a whole second when that answer is there before it has looked, which a server on the same machine manages
// once in ten to a hundred files: a mirror of many files would take minutes.
// Thread safety: Port() and Url() from any thread.
class FtpDelay {
 public:
  explicit FtpDelay(std::uint16_t server);  // the server's port
  ~FtpDelay();                              // cuts all connections
  FtpDelay(const FtpDelay&) = delete;
  FtpDelay& operator=(const FtpDelay&) = delete;

  std::string Url(std::string_view path) const;  // "ftp://127.0.0.1:PORT/path"

 private:
  void AcceptLoop();
  void Relay(const FileDescriptor& client) const;

  const std::uint16_t m_server;
  FileDescriptor m_listener;
  Gate m_stop;
  std::list<std::thread> m_sessions;  // touched by the acceptor only
  std::thread m_acceptor;
};

}  // namespace CorvaneTest
