#pragma once

#include <atomic>
#include <thread>

#include <Corvane/Base/Guard.h>
#include <Corvane/Base/Sync.h>

namespace Corvane {

// Whether an object runs an operation, on which thread, and whether that was asked to end. The recursive mutex is the object lock:
// it is held only for the short bookkeeping steps (reset, begin and end of an operation, abort), never while a transfer runs.
//
// The flags are read by other threads at any time. Their order among each other matters, so they use the default one.
class Operation : public ZRecursiveMutex {
 public:
  Operation() = default;
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;

  [[nodiscard]] bool IsRunning() const noexcept { return m_inProgress; }
  // Whether the calling thread runs the current operation, or ran the last.
  [[nodiscard]] bool IsOnItsThread() const noexcept { return m_runner == std::this_thread::get_id(); }

  // Waits until no operation runs, up to `milliseconds`. After true the thread that ran the last operation does not touch the
  // object any more, so that it may be destroyed.
  bool WaitUntilIdle(unsigned long milliseconds);

  [[nodiscard]] bool IsAborted() const noexcept { return m_abort; }
  // For the side that raises the flag and then shortens the limits, and for the side that has written a limit and then looks at the
  // flag: either the second sees the abort, or the first writes its limit after the second's. Both replace the flag in one step,
  // for which there is one order: a plain load could run ahead of the write before it. (A fence would do, too, but
  // ThreadSanitizer does not know fences.)
  void RaiseAbort() noexcept { m_abort.exchange(true); }
  [[nodiscard]] bool IsAbortedAfterWrites() noexcept {
    bool aborted = false;
    return !m_abort.compare_exchange_strong(aborted, false);
  }

  // The abort flag of the run that this object serves. An operation that begins after the run was aborted is aborted from its
  // beginning, so that an abort between two transfers of a run is not lost. Must outlive the object.
  void FollowAbort(const std::atomic<bool>& abort) noexcept { m_runAbort = &abort; }

 protected:
  ~Operation() = default;

  // Steps of the bracket, under the lock.
  void ClearFlags() noexcept;
  void SignalIdle() { m_completion.Set(); }
  void Begin();
  void End();

 private:
  std::atomic<bool> m_inProgress{false};
  ZEvent m_completion{1};  // signalled while no operation runs
  std::atomic<bool> m_abort{false};
  const std::atomic<bool>* m_runAbort = nullptr;
  std::atomic<std::thread::id> m_runner{};
};

using ObjectGuard = ZGuardImpl<ZRecursiveMutex>;

}  // namespace Corvane
