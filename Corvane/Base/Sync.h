#pragma once

#include <condition_variable>
#include <mutex>

#include <Corvane/Base/Export.h>
#include <Corvane/Base/Result.h>

namespace Corvane {

// A mutex. Not recursive.
class ZMutex {
 public:
  // Waits until no thread holds it, and takes it.
  void Lock() { m_mutex.lock(); }
  // For the thread that holds it only.
  void Unlock() { m_mutex.unlock(); }

 private:
  std::mutex m_mutex;
};

// A mutex that the thread that holds it may take again; it is free when every Lock has had its Unlock.
class ZRecursiveMutex {
 public:
  // Waits until no other thread holds it, and takes it once more.
  void Lock() { m_mutex.lock(); }
  // Gives back one Lock; for the thread that holds it only.
  void Unlock() { m_mutex.unlock(); }

 private:
  std::recursive_mutex m_mutex;
};

// Something that threads wait for. Constructed signalled.
// Thread safety: all operations from any thread at any time. What a thread wrote before Set is visible to a thread
// whose Wait returned because of it. Whoever destroys an event sees to it that nobody waits on it or calls it any more;
// a thread whose Wait has returned may do so at once.
// Errors: none. Nothing here throws or allocates.
class CORVANE_ZPS_API ZEvent {
 public:
  // resetFlag 1, or any but 0: manual reset. The event stays signalled until Reset; any number of waits return at once.
  // resetFlag 0: automatic reset. Each Set lets one wait return, whether it came before the wait or during it.
  explicit ZEvent(unsigned int resetFlag);
  ZEvent(const ZEvent&) = delete;
  ZEvent& operator=(const ZEvent&) = delete;

  // On manual reset everybody who waits is released, and the event stays signalled. On automatic reset one of those who
  // wait is released; when nobody does, the event remembers the Set for a later wait. A release is final: a Reset that
  // follows at once does not take it back.
  void Set();
  // Lets later waits wait until the next Set. On automatic reset the remembered Sets are forgotten.
  void Reset();

  // Waits up to `milliseconds` on the steady clock, 0xFFFFFFFF or more: without limit. Returns 0 when the event was
  // signalled, BASE_E_TIMEOUT when the time ran out.
  [[nodiscard]] ZResult Wait(unsigned long milliseconds);

 private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  const bool m_manualReset;
  // All guarded by m_mutex.
  unsigned long m_signals = 1;   // how many later waits return at once; on manual reset 1 stands for all of them
  unsigned long m_waiting = 0;   // threads that wait
  unsigned long m_released = 0;  // how many of them may go, although they have not woken up yet
  // Counts the Sets: a thread that began to wait after the last one has not been released by it.
  unsigned long long m_generation = 0;
};

}  // namespace Corvane
