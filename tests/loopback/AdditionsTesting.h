#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <Corvane/TransferOptions.h>

#include "tests/loopback/TransferTesting.h"

// What the tests of a transfer's additions share.
namespace CorvaneTest {

// Keeps what it is handed, up to its room.
class CollectingSink : public Corvane::ZTransferSink {
 public:
  std::size_t Write(const void* data, std::size_t bytes) override {
    if (onWrite) onWrite();
    if (thrown) throw std::runtime_error("sink");
    const std::size_t taken = std::min(bytes, room - collected.size());
    collected.append(static_cast<const char*>(data), taken);
    return taken;
  }

  std::function<void()> onWrite;  // called first
  std::string collected;
  std::size_t room = std::string::npos;
  bool thrown = false;
};

// Remembers the lines, each behind "* ", "> " or "< ".
class RecordingTrace : public Corvane::ZTransferTrace {
 public:
  void Line(Kind kind, const Corvane::ZString& line) override {
    lines.push_back((kind == Kind::Information ? "* " : kind == Kind::RequestLine ? "> " : "< ") + Narrow(line));
    if (onLine) onLine();
  }
  std::vector<std::string> Take() { return std::exchange(lines, {}); }

  std::vector<std::string> lines;
  std::function<void()> onLine;
};

}  // namespace CorvaneTest
