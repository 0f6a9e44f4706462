#include "tests/torture/Watch.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <optional>
#include <thread>

#include "tests/support/Deadline.h"

namespace CorvaneTest {
namespace {

// Read by signal handlers.
std::array<char, 256> s_what{};

void Say(const char* text) { static_cast<void>(!write(STDERR_FILENO, text, std::strlen(text))); }

void SayWhere(const char* how) {
  Say(how);
  Say(s_what.data());
  Say("\n");
}

extern "C" void SayWhereItCrashed(int number) {
  SayWhere("crashed at ");
  signal(number, SIG_DFL);
  raise(number);
}

// The thread that looks at the clock. It lives as long as the process.
class Clockwork {
 public:
  Clockwork() : m_thread([this] { Run(); }) {
    // A sanitizer has handlers of its own for the others, with a report that says more.
    signal(SIGABRT, &SayWhereItCrashed);
#ifndef __SANITIZE_ADDRESS__
    for (const int number : {SIGSEGV, SIGBUS, SIGFPE, SIGILL}) signal(number, &SayWhereItCrashed);
#endif
  }
  ~Clockwork() {
    Set(std::nullopt, true);
    m_thread.join();
  }
  Clockwork(const Clockwork&) = delete;
  Clockwork& operator=(const Clockwork&) = delete;

  void Set(std::optional<Deadline> deadline, bool isEnd = false) {
    const std::lock_guard guard(m_mutex);
    m_deadline = deadline;
    m_isEnd = isEnd;
    if (isEnd) m_changed.notify_all();
  }

 private:
  // Looks now and then: an operation takes milliseconds, and to be told of each would cost more.
  void Run() {
    std::unique_lock lock(m_mutex);
    while (!m_isEnd) {
      m_changed.wait_for(lock, std::chrono::seconds(1));
      if (!m_deadline || Clock::now() < *m_deadline) continue;
      SayWhere("no end of ");
      std::abort();
    }
  }

  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::optional<Deadline> m_deadline;  // guarded by m_mutex
  bool m_isEnd = false;                // guarded by m_mutex
  std::thread m_thread;                // the last: it uses the others
};

Clockwork& TheClockwork() {
  static Clockwork clockwork;
  return clockwork;
}

}  // namespace

Watch::Watch(const std::string& what) {
  s_what[what.copy(s_what.data(), s_what.size() - 1)] = '\0';
  TheClockwork().Set(After(kPatience));
}

Watch::~Watch() { TheClockwork().Set(std::nullopt); }

}  // namespace CorvaneTest
