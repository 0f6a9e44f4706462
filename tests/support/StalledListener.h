#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/FileDescriptor.h"

namespace CorvaneTest {

// A port of 127.0.0.1 whose accept queue is full and that accepts nothing: connecting to it hangs until the client
// gives up. Frees the port on destruction, upon which hanging clients are refused.
// Errors: the constructor throws std::system_error.
class StalledListener {
 public:
  StalledListener();

  std::uint16_t Port() const { return m_port; }

  // "SCHEME://127.0.0.1:PORT/".
  std::string Url(const std::string& scheme = "http") const;

 private:
  FileDescriptor m_listener;
  std::uint16_t m_port = 0;
  std::vector<FileDescriptor> m_fillers;  // the connections that fill the queue
};

}  // namespace CorvaneTest
