#pragma once

#include <condition_variable>
#include <mutex>

#include <Corvane/Base/Export.h>
#include <Corvane/Base/Result.h>

namespace Corvane {

// A mutex. Not recursive.
class ZMutex {
 public:
  void Lock() { m_mutex.lock(); }
  void Unlock() { m_mutex.unlock(); }

 private:
  std::mutex m_mutex;
};

// A mutex that the thread that holds it may take again; it is free when every Lock has had its Unlock.
class ZRecursiveMutex {
 public:
  void Lock() { m_mutex.lock(); }
  void Unlock() { m_mutex.unlock(); }

 private:
  std::recursive_mutex m_mutex;
};

// Something that threads wait for. Constructed signalled.
// Thread safety: all operations from any thread at any time. What a thread wrote before Set is visible to a thread whose
// Wait returned because of it.
class CORVANE_ZPS_API ZEvent {
 public:
  // resetFlag 1: manual reset. The event stays signalled until Reset, so any number of waits return at once.
  // resetFlag 0: automatic reset. Each Set lets one wait return, whether it came before the wait or during it.
  explicit ZEvent(unsigned int resetFlag);
  ZEvent(const ZEvent&) = delete;
  ZEvent& operator=(const ZEvent&) = delete;

  void Set();
  void Reset();

  // Waits up to `milliseconds` on the steady clock, 0xFFFFFFFF or more: without limit. Returns 0 when the event was
  // signalled, BASE_E_TIMEOUT when the time ran out.
  [[nodiscard]] ZResult Wait(unsigned long milliseconds);

 private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  const bool m_manualReset;
  // Guarded by m_mutex. How many waits may return; on manual reset 1 stands for all of them.
  unsigned long m_signals = 1;
};

}  // namespace Corvane
