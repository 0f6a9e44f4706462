#pragma once

#include <atomic>

#include "tests/support/Deadline.h"
#include "tests/support/FileDescriptor.h"

namespace CorvaneTest {

// A one-way latch: closed at first, open for ever after Open(). With it a test and the handlers of its scripted server
// agree on an order of events without anyone sleeping:
//
//   Gate halfSent, goOn;
//   ScriptedServer server([&](Connection& peer) {
//     peer.ReadRequest();
//     peer.Send(firstHalf);
//     halfSent.Open();
//     if (!peer.WaitFor(goOn)) return;  // also returns when the server is stopped
//     peer.Send(secondHalf);
//   });
//
// Inside a handler wait with Connection::WaitFor, which Stop() of the server ends too; anywhere else with Wait().
// Declare gates before the server that uses them, so that they outlive its handlers.
// Thread safety: every member from any thread; what happened before Open() is visible after a wait that returned true.
class Gate {
 public:
  Gate();  // throws std::system_error when the process is out of descriptors
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;

  void Open();
  bool IsOpen() const { return m_isOpen.load(std::memory_order_acquire); }

  // True as soon as the gate is open, false when the deadline passed first.
  [[nodiscard]] bool Wait(Deadline deadline) const;
  [[nodiscard]] bool Wait() const { return Wait(After(kPatience)); }

  // A descriptor that polls as readable once the gate is open, to be combined with others in one poll().
  int PollDescriptor() const { return m_event.Get(); }

 private:
  std::atomic<bool> m_isOpen{false};
  FileDescriptor m_event;
};

}  // namespace CorvaneTest
