#pragma once

#include <atomic>

#include <Corvane/Base/Export.h>
#include <Corvane/Base/String.h>

namespace Corvane {

enum class ZLogLevel : unsigned int { Critical = 0, Error = 1, Warning = 2, Information = 3 };  // most severe first

// Where the libraries' log lines go. A host derives a class, installs an object of it with ZLog::SetLogger, and gets the
// lines of the levels that it enabled.
class CORVANE_ZPS_API ZLogger {
 public:
  ZLogger() noexcept = default;
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

  // Takes one line. `file` names the source without its ending ("Corvane/Transfer") and is valid during the call only.
  // Called from whatever thread does the work, several at a time; an exception passes to the caller of the operation.
  virtual void Write(ZLogLevel level, const ZString& message, const char* file, int line) = 0;

 private:
  std::atomic<unsigned int> m_enabled{0};  // bit n: level n
};

// The process-wide logger.
class CORVANE_ZPS_API ZLog {
 public:
  // Never null. Until a host installs its own, a logger with every level disabled: the libraries print nothing unasked.
  [[nodiscard]] static ZLogger* GetLogger() noexcept;
  // Installs `logger`, or the silent default again when it is null, and returns the one before. The object must live until it
  // is replaced and every operation that may still use it has ended.
  static ZLogger* SetLogger(ZLogger* logger) noexcept;
};

}  // namespace Corvane
