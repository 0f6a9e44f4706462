#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <shared_mutex>

#include "tests/soak/SoakObject.h"
#include "tests/support/Deadline.h"

namespace CorvaneTest {

// A place for an object that many threads use and that is replaced again and again, under the rules that a host has to keep: no call
// begins on an object while it is being destroyed, but one operation may be under way.
// Thread safety: every member from any thread, except that only one thread calls Run.
class SoakSlot {
 public:
  using Operation = std::function<SoakResult(SoakObject&)>;

  explicit SoakSlot(std::unique_ptr<SoakObject> object) : m_object(std::move(object)) {}

  // Runs an operation on the object, which may be destroyed meanwhile.
  SoakResult Run(const Operation& operation);
  // How long the operation has been running; 0 when none is.
  [[nodiscard]] std::chrono::milliseconds RunningFor() const;

  // Calls `use` with the object unless that is about to be destroyed.
  void Use(const std::function<void(SoakObject&)>& use);

  // Aborts the operation that runs, and waits for its end up to the limit: the time that took. nullopt when none runs.
  std::optional<std::chrono::milliseconds> AbortRunning(std::chrono::milliseconds limit);

  // Puts `next` in the object's place. Returns whether an operation ran on the one that is destroyed.
  bool Replace(std::unique_ptr<SoakObject> next);

 private:
  bool IsCalling() const { return m_calls % 2 != 0; }

  std::shared_mutex m_mutex;  // held shared to use the object, alone to replace it
  std::unique_ptr<SoakObject> m_object;
  std::atomic<bool> m_isClosing{false};   // keeps new users away from an object that is to be destroyed
  std::atomic<std::uint64_t> m_calls{0};  // odd from before an operation is called until after it has returned
  std::atomic<Clock::rep> m_begin{0};     // of the operation
};

}  // namespace CorvaneTest
