#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <utility>

#include "tests/support/Deadline.h"

namespace CorvaneTest {

// A call on a thread of its own that is expected to block, on a lock say, until the test lets it go on.
class BlockedCall {
 public:
  explicit BlockedCall(std::function<void()> call)
      : m_thread([this, call = std::move(call)] {
          m_id = static_cast<long>(syscall(SYS_gettid));
          call();
          m_done = true;
        }) {}
  ~BlockedCall() { Join(); }
  BlockedCall(const BlockedCall&) = delete;
  BlockedCall& operator=(const BlockedCall&) = delete;

  // Waits until the thread either sleeps in the kernel or has come back from the call. True when it sleeps. A call that
  // does not block always comes back in the end, so that the answer does not depend on the machine's speed.
  [[nodiscard]] bool IsBlocked() const {
    for (const Deadline deadline = After(kPatience); Clock::now() < deadline; std::this_thread::yield()) {
      if (m_done) return false;
      if (m_id != 0 && SleepsForGood()) return !m_done;
    }
    return false;
  }

  [[nodiscard]] bool IsDone() const { return m_done; }
  void Join() {
    if (m_thread.joinable()) m_thread.join();
  }

 private:
  // A thread may also sleep for a moment for reasons of its own, a sanitizer's locks among them.
  [[nodiscard]] bool SleepsForGood() const {
    for (int look = 0; look < 50; ++look) {
      if (State() != 'S') return false;
      std::this_thread::yield();
    }
    return true;
  }

  // As in ps(1): 'S' sleeps, 'R' runs.
  [[nodiscard]] char State() const {
    std::ifstream file("/proc/self/task/" + std::to_string(m_id.load()) + "/stat");
    // Not by iterators: they throw when the thread ends between the opening of the file and the reading.
    std::string text;
    std::getline(file, text);
    const std::string::size_type name = text.rfind(") ");
    return name == std::string::npos ? '?' : text[name + 2];
  }

  std::atomic<long> m_id{0};  // 0 until the thread runs
  std::atomic<bool> m_done{false};
  std::thread m_thread;  // last: it uses the others
};

}  // namespace CorvaneTest
