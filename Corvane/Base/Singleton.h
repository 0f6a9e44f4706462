#pragma once

#include <atomic>

#include <Corvane/Base/Export.h>
#include <Corvane/Base/Guard.h>
#include <Corvane/Base/Sync.h>

namespace Corvane {

// Creates process-wide objects on first use.
class CORVANE_ZPS_API ZSingleton {
 public:
  // Makes sure that `slot` is set: the first caller runs `factory` and stores its result, every other caller finds it
  // there, also when many threads come at once. A factory that throws leaves the slot null, and the next call tries
  // again. Once the slot is set a call costs one atomic load. A factory may call CheckInit for another slot, not for
  // its own; it must not wait for a thread that calls CheckInit.
  // Thread safety: any thread, any time. Whoever clears a slot sees to it that nobody uses the object any more.
  template <class T>
  static void CheckInit(std::atomic<T*>& slot, T* (*factory)()) {
    if (slot.load(std::memory_order_acquire) != nullptr) return;
    ZGuardImpl<ZRecursiveMutex> guard(CreationLock());
    if (slot.load(std::memory_order_relaxed) == nullptr) slot.store(factory(), std::memory_order_release);
  }

 private:
  // One lock for all slots: creation is rare, and a single recursive lock cannot be taken in two orders. Exported,
  // since CheckInit is compiled into whoever calls it.
  static ZRecursiveMutex& CreationLock();
};

}  // namespace Corvane
