#pragma once

#include <atomic>

#include <Corvane/Base/Export.h>
#include <Corvane/Base/String.h>

namespace Corvane {

// How severe a log line is, the most severe first.
enum class ZLogLevel : unsigned int {
  Critical = 0,    // the most severe
  Error = 1,       // something failed
  Warning = 2,     // it goes on, but somebody should know
  Information = 3  // what is done
};

// Where the libraries' log lines go. A host derives a class, installs an object of it with ZLog::SetLogger, and gets
// the lines of the levels that it enabled.
// Thread safety: as each member says.
class CORVANE_ZPS_API ZLogger {
 public:
  ZLogger() noexcept = default;  // every level is disabled
  virtual ~ZLogger() = default;
  ZLogger(const ZLogger&) = delete;  // transfers on other threads hold its address
  ZLogger& operator=(const ZLogger&) = delete;

  // Every level is disabled at first. Any thread, any time.
  void Enable(ZLogLevel level, bool enabled) noexcept;
  // Enables `level` and all that are more severe, disables the others.
  void EnableUpTo(ZLogLevel level) noexcept;
  // Costs one relaxed atomic load; callers ask before they build a message.
  [[nodiscard]] bool IsEnabled(ZLogLevel level) const noexcept {
    return (m_enabled.load(std::memory_order_relaxed) >> static_cast<unsigned int>(level) & 1u) != 0;
  }

  // Takes one line. `message` and `file`, which names the source without its ending ("Corvane/Transfer"), are valid
  // during the call only. Called from whatever thread does the work, several at a time. An exception passes to the
  // caller of the operation, of Abort or of the constructor that wrote the line; that of a destructor's line is
  // dropped.
  //
  // Four lines are written while a lock of the transfer library is held:
  // - the process-wide set-up: the constructor of the first ZTransfer or ZMultiDownload, under the lock of all of them;
  // - the clean-up: the destructor of the last one, under the same lock;
  // - the end of a measure period: an operation that has received data (or the host's own ZThrottle::Throttle), under
  //   the throttle's lock, for which every other throttled transfer waits;
  // - a failed option of Abort: Abort, and also Reset, the destructors and a running ZMultiDownload between two of its
  //   transfers, which call it, under the object's lock.
  // So that no thread waits for itself or for another that waits for it, Write must not make or destroy a ZTransfer or
  // a ZMultiDownload, set the throttle (SetThrottling, StartMulti, FinishMulti), start an operation, call Abort, Reset
  // or Wait on any such object, nor wait for a thread that does. The getters may be called. A slow Write holds up
  // whoever needs the lock.
  virtual void Write(ZLogLevel level, const ZString& message, const char* file, int line) = 0;

 private:
  std::atomic<unsigned int> m_enabled{0};  // bit n: level n
};

// The process-wide logger.
// Thread safety: any thread, any time, static initialisers and destructors included. Errors: none.
class CORVANE_ZPS_API ZLog {
 public:
  // Never null. Until a host installs its own, a logger with every level disabled: the libraries print nothing unasked.
  [[nodiscard]] static ZLogger* GetLogger() noexcept;
  // Installs `logger`, or the silent default again when it is null, and returns the one before. The object must live
  // until it is replaced and every call into the libraries that began before that has returned.
  static ZLogger* SetLogger(ZLogger* logger) noexcept;
};

}  // namespace Corvane
