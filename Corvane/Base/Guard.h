#pragma once

namespace Corvane {

// A scoped guard: its constructor runs the lock step on an object, leaving its scope, normally or by an exception, the
// unlock step. For a mutex these are Lock and Unlock:
//
//   ZGuardImpl<ZMutex> guard(m_mutex);
//
// A class gets a bracket of its own by specialising the two steps, ZDoLock and ZDoUnlock, as a transfer does for its
// operations. A lock step may refuse by returning false; the unlock step is then not run.
template <class T>
class ZGuardImpl {
 public:
  // Runs the lock step on `object`, which must outlive this one. What the step throws passes through; the unlock step is not run then.
  explicit ZGuardImpl(T& object) : m_object(object), m_held(ZDoLock(object)) {}
  ~ZGuardImpl() { Release(); }  // runs the unlock step, unless it has run
  ZGuardImpl(const ZGuardImpl&) = delete;
  ZGuardImpl& operator=(const ZGuardImpl&) = delete;

  // False when the lock step refused, and after Release.
  [[nodiscard]] bool IsHeld() const noexcept { return m_held; }

  // Runs the unlock step now instead of at the end of the scope; nothing when it has run.
  void Release() {
    if (!m_held) return;
    m_held = false;
    ZDoUnlock(m_object);
  }

 private:
  static bool ZDoLock(T& object) {
    object.Lock();
    return true;
  }
  static void ZDoUnlock(T& object) { object.Unlock(); }

  T& m_object;
  bool m_held;
};

// The guard under the name by which classes with a bracket of their own use it: it initialises an operation.
template <class T>
using ZInitGuard = ZGuardImpl<T>;

}  // namespace Corvane
