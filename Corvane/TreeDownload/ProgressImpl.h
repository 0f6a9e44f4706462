#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <utility>

#include <Corvane/PublishedTextImpl.h>
#include <Corvane/TreeDownload.h>

namespace Corvane {

// What other threads see of a run, and how they end it.
// Thread safety: every member from any thread; Begin and End from the run's.
class Progress {
 public:
  // False when a run is on already.
  bool Begin();
  void End();
  [[nodiscard]] bool IsOn() const;

  // Changes the numbers; others see all of the change or nothing.
  template <class Change>
  void Update(Change change) {
    const std::lock_guard guard(m_mutex);
    change(m_statistics);
  }
  [[nodiscard]] ZTreeDownload::Statistics Snapshot() const;

  // The first failure of a run is the one that counts.
  void Fail(ZResult code, ZString text);
  // With the code's own message; without any text where there is no memory for it.
  void FailShortOfMemory() noexcept;
  // The failure, else what the run is at.
  [[nodiscard]] ZResult Status() const noexcept { return m_status; }
  [[nodiscard]] const ZString& Text() const { return m_text.ForThisThread(); }

  void Abort();
  [[nodiscard]] bool IsAborted() const noexcept { return m_isAborted.load(std::memory_order_relaxed); }
  // What an abort calls to be noticed; null: nothing. Once this has returned nothing calls the one before.
  void SetWakeUp(std::function<void()> wakeUp);

 private:
  mutable std::mutex m_mutex;
  ZTreeDownload::Statistics m_statistics;         // guarded by m_mutex
  std::chrono::steady_clock::time_point m_begin;  // guarded by m_mutex
  bool m_isOn = false;                            // guarded by m_mutex
  std::function<void()> m_wakeUp;                 // guarded by m_mutex
  std::atomic<bool> m_isAborted{false};
  std::atomic<ZResult> m_status{TRANSFER_E_NOT_STARTED};
  PublishedText m_text;
  ZString m_successText;  // guarded by m_mutex; made when the run begins, so that its end cannot fail
};

}  // namespace Corvane
