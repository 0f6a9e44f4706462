#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include <Corvane/Base/Result.h>
#include <Corvane/Base/String.h>
#include <Corvane/TransferErrorCodes.h>

namespace Corvane {

// Where an answer came from, and what is known of the resource beside its header lines.
struct AnswerSource {
  std::string effectiveUrl;  // behind all redirects
  long httpStatus = 0;       // as libcurl took it, by which it is judged; 0: libcurl knows none
  long fileTime = -1;        // seconds since the epoch, where libcurl was asked for it
  std::string fileVersion;   // without HTTP: what stands for the version, where time and size are known
};

// What became of the current or last operation. Never changes once it is published.
struct OutcomeSnapshot {
  ZResult code = TRANSFER_E_NOT_STARTED;
  ZString text;
  ZResult cause = TRANSFER_E_NOT_STARTED;  // what libcurl said, which the operation may have replaced in code and text
  ZString causeText;
  std::string header;   // the lines of an operation that has ended, as received
  AnswerSource source;  // of that operation
};

// Holds the outcome while one thread works on it and others look. Code and text change together, so that nobody sees one of them
// with the other's predecessor. Who looks again while nothing has changed gets the same snapshot.
// Thread safety: every member from any thread.
class Outcome {
 public:
  Outcome() = default;
  Outcome(const Outcome&) = delete;
  Outcome& operator=(const Outcome&) = delete;

  // Without the lock.
  [[nodiscard]] ZResult Code() const noexcept { return m_code; }
  [[nodiscard]] bool IsFailed() const noexcept { return IsFailure(Code()); }

  // Nothing has been started, as after construction.
  void Reset();
  // With the code's own message as its text, which is looked up only when somebody asks.
  void Set(ZResult code);
  void Set(ZResult code, ZString text);
  // With a text that is made only when somebody looks. `text` may be called on any thread, under the lock, until the next change.
  void SetLater(ZResult code, std::function<ZString()> text);
  // Keeps the text that there is.
  void SetCode(ZResult code) {
    const std::lock_guard guard(m_mutex);
    m_code = m_current.code = code;
    m_published.reset();
  }
  void SetCause(ZResult cause, ZString text);
  void SetHeader(std::string header);
  void SetSource(AnswerSource source);

  [[nodiscard]] std::shared_ptr<const OutcomeSnapshot> Snapshot() const;
  // The text for the calling thread: a copy of its own, which changes only at the same thread's next call, and lives as long as
  // this object.
  [[nodiscard]] const ZString& TextForThisThread() const;

 private:
  using SnapshotPointer = std::shared_ptr<const OutcomeSnapshot>;
  struct ThreadText {
    SnapshotPointer from;
    ZString text;
  };

  [[nodiscard]] const SnapshotPointer& Publish() const;

  std::atomic<ZResult> m_code{TRANSFER_E_NOT_STARTED};
  mutable std::mutex m_mutex;
  // All guarded by m_mutex. What is published is made when somebody looks, and given up when something changes.
  OutcomeSnapshot m_current;
  std::optional<ZResult> m_textOf{
      TRANSFER_E_NOT_STARTED};          // the code whose message is the text; none: m_current.text is
  std::function<ZString()> m_makeText;  // if set: makes the text
  mutable SnapshotPointer m_published;
  mutable std::map<std::thread::id, ThreadText> m_texts;  // nodes never move, and each is read by its thread only
};

}  // namespace Corvane
