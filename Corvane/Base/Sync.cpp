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
  if (m_manualReset) {
    m_signals = 1;
    m_changed.notify_all();
  } else {
    ++m_signals;
    m_changed.notify_one();
  }
}

void ZEvent::Reset() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_signals = 0;
}

ZResult ZEvent::Wait(unsigned long milliseconds) {
  const auto isSignalled = [this] { return m_signals != 0; };
  std::unique_lock<std::mutex> lock(m_mutex);
  if (milliseconds >= kWithoutLimit) {
    m_changed.wait(lock, isSignalled);
  } else {
    // At most 50 days from now, far from the end of the clock's range.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    if (!m_changed.wait_until(lock, deadline, isSignalled)) return BASE_E_TIMEOUT;
  }
  if (!m_manualReset) --m_signals;
  return BASE_S_OK;
}

}  // namespace Corvane
