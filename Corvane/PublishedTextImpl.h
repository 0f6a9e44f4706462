#pragma once

#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include <Corvane/Base/String.h>

namespace Corvane {

// An error text that other threads may read while it is replaced. Each reading thread gets a copy of its own, so that the
// reference it holds never changes under its hands.
class PublishedText {
 public:
  void Set(ZString text) {
    const std::lock_guard guard(m_mutex);
    m_text = std::move(text);
  }
  // Valid as long as this object; changes only at the same thread's next call.
  [[nodiscard]] const ZString& ForThisThread() const {
    const std::lock_guard guard(m_mutex);
    ZString& copy = m_copies[std::this_thread::get_id()];
    if (copy != m_text) copy = m_text;
    return copy;
  }

 private:
  mutable std::mutex m_mutex;
  ZString m_text;  // guarded by m_mutex
  // Guarded by m_mutex; nodes never move, and each is read by its thread only.
  mutable std::map<std::thread::id, ZString> m_copies;
};

}  // namespace Corvane
