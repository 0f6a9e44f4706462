#pragma once

#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "tests/support/HttpResponders.h"

namespace CorvaneTest {

// A file of an HTTP server that changes, and connections to it that break.
// Thread safety: every member from any thread.
class VersionedFile {
 public:
  struct Version {
    std::string content;
    std::vector<HeaderField> headers;  // ETag and the like
    bool servesRanges = true;
    bool obeysIfRange = true;  // else a range of whatever the file is now
    bool tellsParts = true;    // else a part has the status of a whole
  };

  explicit VersionedFile(Version version) : m_version(std::move(version)) {}

  void Change(Version version);
  // The next answers break off after so many bytes of their body each, one after another; those after them are whole.
  void BreakAfter(std::deque<std::uint64_t> bytes);

  // Answers every request with the file.
  [[nodiscard]] Responder Serve();

 private:
  void Answer(Connection& peer, const Request& request);

  std::mutex m_mutex;
  Version m_version;                   // guarded by m_mutex
  std::deque<std::uint64_t> m_breaks;  // guarded by m_mutex
};

}  // namespace CorvaneTest
