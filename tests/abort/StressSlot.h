#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <shared_mutex>

#include <Corvane/Transfer.h>

#include "tests/abort/StressServer.h"

namespace CorvaneTest {

// A place for a transfer object that many threads use and that is replaced again and again, under the rules that a host
// has to keep: no call begins on an object while it is being destroyed, but one operation may be under way.
// Thread safety: every member from any thread, except that only one thread runs operations.
class StressSlot {
 public:
  using Operation = std::function<Corvane::ZResult(Corvane::ZTransfer&)>;

  StressSlot() : m_object(std::make_unique<Corvane::ZTransfer>()) {}

  // Runs an operation on the object, which may be destroyed meanwhile.
  Corvane::ZResult Run(Behaviour behaviour, const Operation& operation);

  // Calls `use` with the object unless that is about to be destroyed. False when it was not called.
  bool Use(const std::function<void(Corvane::ZTransfer&)>& use);

  struct Abort {
    Behaviour behaviour;
    std::chrono::milliseconds time;  // until the operation's end; the limit when it has not ended by then
  };
  // Aborts the operation that runs, and waits for its end up to the limit. nullopt when none runs.
  std::optional<Abort> AbortRunning(std::chrono::milliseconds limit);

  // Destroys the object and makes a new one. Returns whether an operation ran.
  bool Replace();

 private:
  bool IsCalling() const { return m_calls % 2 != 0; }

  std::shared_mutex m_mutex;  // held shared to use the object, alone to replace it
  std::unique_ptr<Corvane::ZTransfer> m_object;
  std::atomic<bool> m_isClosing{false};   // keeps new users away from an object that is to be destroyed
  std::atomic<std::uint64_t> m_calls{0};  // odd from before an operation is called until after it has returned
  std::atomic<Behaviour> m_behaviour{Behaviour::kAnswer};  // of the last operation
};

}  // namespace CorvaneTest
