#include <Corvane/Base/Sync.h>

#include <chrono>

namespace Corvane {

namespace {

constexpr unsigned long kWithoutLimit = 0xFFFFFFFF;

}  // namespace

ZEvent::ZEvent(unsigned int resetFlag) : m_manualReset(resetFlag != 0) {}

void ZEvent::Set() {
  // Waiters are told with the mutex held: one of them may destroy the event as soon as its Wait has returned, which it
  // cannot do before this thread has let go of the mutex for the last time.
  const std::lock_guard<std::mutex> lock(m_mutex);
  ++m_generation;
  if (m_manualReset) {
    m_signals = 1;
    m_released = m_waiting;
    m_changed.notify_all();
  } else if (m_released < m_waiting) {
    ++m_released;
    m_changed.notify_one();
  } else {
    ++m_signals;
  }
}

// Leaves m_released alone: those threads are as good as gone.
void ZEvent::Reset() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_signals = 0;
}

ZResult ZEvent::Wait(unsigned long milliseconds) {
  std::unique_lock<std::mutex> lock(m_mutex);
  if (m_signals != 0) {
    if (!m_manualReset) --m_signals;
    return BASE_S_OK;
  }
  // A state that Set turns on and Reset turns off again would be lost on a thread that wakes up only afterwards.
  const auto isReleased = [this, begin = m_generation] { return m_released != 0 && m_generation != begin; };
  bool released = true;
  ++m_waiting;
  if (milliseconds >= kWithoutLimit) {
    m_changed.wait(lock, isReleased);
  } else {
    // At most 50 days from now, far from the end of the clock's range.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    released = m_changed.wait_until(lock, deadline, isReleased);
  }
  --m_waiting;
  if (!released) return BASE_E_TIMEOUT;
  --m_released;
  return BASE_S_OK;
}

}  // namespace Corvane
