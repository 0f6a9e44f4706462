#pragma once

#include <signal.h>

#include <chrono>
#include <functional>
#include <mutex>
#include <thread>

#include "apps/corvane/Files.h"

namespace CorvaneCli {

// For work that cannot be aborted: from now on SIGINT, SIGTERM and SIGHUP end the process at once with status 130,
// unless it was started to ignore them.
void ExitOnSignals();

class Interrupt;

// Lets `time` pass. False at once when a signal has come or comes meanwhile.
[[nodiscard]] bool WaitFor(std::chrono::milliseconds time, const Interrupt& interrupt);

// Watches for SIGINT, SIGTERM and SIGHUP on a thread of its own, with the signals blocked everywhere else; one that the
// program was started to ignore (by nohup, say) stays ignored. The first signal asks what is armed to end; a second
// one, at least half a second later, ends the process at once with status 130, whatever it is doing. One that comes
// sooner belongs to the first: timeout(1), for one, sends to the process and then to its group.
//
// Construct it before any other thread, which then inherits the blocked signals. The destructor unblocks them again, so
// that afterwards a signal ends the program in the ordinary way, or as a second one when it is one.
// Thread safety: HasHappened from any thread; the rest from the thread that constructed it.
class Interrupt {
 public:
  Interrupt();  // throws std::system_error
  ~Interrupt();
  Interrupt(const Interrupt&) = delete;
  Interrupt& operator=(const Interrupt&) = delete;

  // From now on a signal calls `abort`, on the watching thread, every 200 milliseconds until Disarm: an abort that
  // meets a transfer just beginning is lost. When a signal has come before, that begins at once.
  void Arm(std::function<void()> abort);
  // Returns when `abort` is not running and never will again.
  void Disarm();

  [[nodiscard]] bool HasHappened() const;
  // Polls as readable from the first signal on.
  [[nodiscard]] int PollDescriptor() const noexcept { return m_happened.Get(); }

 private:
  void Watch();
  void HandleSignal();
  void CallAbort();

  sigset_t m_signals{};  // those that are watched
  sigset_t m_formerMask{};
  Descriptor m_arrivals;  // signalfd
  Descriptor m_happened;  // eventfd: readable once a signal has come
  Descriptor m_wake;      // eventfd: something was armed
  Descriptor m_stop;      // eventfd
  std::mutex m_mutex;
  std::function<void()> m_abort;  // guarded by m_mutex
  std::thread m_watcher;
};

}  // namespace CorvaneCli
