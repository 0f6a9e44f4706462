#pragma once

#include <Corvane/Base/String.h>
#include <Corvane/Base/Sync.h>
#include <Corvane/Export.h>

namespace Corvane {

// Holds the combined data rate of many transfers to a limit, but only on slow links.
//
// Time is cut into measure periods of 180 seconds. During a period's first 10 seconds nothing is limited and the combined
// speed is measured. If it is below the low-water mark the link is taken to be slow, and a limit is in force for the rest of
// the period; otherwise nothing is limited until the next period. A low-water mark of 1,000,000,000 bytes/s or more with a fixed
// limit switches measuring off and limits from the first byte.
//
// A limit is one on the mean since the period's beginning, what came while it was measured included. For example: with
// SetThrottling(200000, 10, false) a transfer that comes at 100,000 bytes/s runs freely for 10 seconds, then stands still, in sleeps
// of at most 10 seconds with a block between two of them, until the mean is down at 10,240 bytes/s, and is held there up to the end of
// the 180 seconds.
//
// Only whole seconds are slept. So the data may be ahead of the limit by what it allows in a second, never more than that and a block
// (once the mean is down there); 1,280 KiB at 128 KiB/s may take 9 seconds.
//
// All transfers of the process feed one instance, which hosts reach through ZTransfer::SetThrottling, StartMulti and
// FinishMulti. An object of one's own is of use for other data.
//
// The bytes of a period are counted in 32 bits, and wrap at 4 GiB: a limit that allows more in 180 seconds (23,301 KiB per
// second) is not kept, and a link that brings more in the 10 seconds may be taken for a slow one.
//
// Thread safety: all operations but RestartThrottling from any thread. Throttle sleeps while it holds the object's lock, on
// purpose: every other thread that reports data meanwhile waits too, so that it is the combined rate that is limited.
// Errors: none. Only an exception of the host's logger passes out of Throttle, after the lock is released.
class CORVANE_ZN_API ZThrottle {
 public:
  ZThrottle() noexcept;  // limits nothing until SetThrottling
  // Nothing but the object goes; no thread may be in one of its operations.
  ~ZThrottle();  // NOLINT(performance-trivially-destructible): exported, so that it may come to have something to do
  ZThrottle(const ZThrottle&) = delete;
  ZThrottle& operator=(const ZThrottle&) = delete;

  // Sets the limit, and begins a new measure period.
  // lowWaterMark: bytes per second; a measured speed at or above it is never limited, so 0 switches limiting off.
  // limit: kilobytes (1024 bytes) per second, below 4,194,304; or, when `percent` is true, a percentage of the measured speed. 0
  // switches limiting off.
  void SetThrottling(unsigned int lowWaterMark, unsigned int limit, bool percent);

  // Counts a transfer as active. The first one to start when none was active begins a new measure period.
  void StartTransfer();
  // Counts it as active no more; a finish without a start changes nothing.
  void FinishTransfer();

  // Forgets the current measure period; the next Throttle call begins a new one. Takes no lock: for callers that know that no
  // other thread uses the object.
  void RestartThrottling() noexcept;

  // Reports that a transfer has just moved `bytes` bytes, and sleeps as long as the limit demands, at most 10 seconds a call.
  // The bytes reported by the call that begins a period are not counted.
  void Throttle(unsigned int bytes);

 private:
  struct TimeValue {  // as the C library's, in 32 bits
    int seconds = 0;
    int microseconds = 0;
  };

  [[nodiscard]] CORVANE_ZN_HIDDEN unsigned int EnterPeriod(TimeValue now);
  CORVANE_ZN_HIDDEN void Evaluate(unsigned int speed);
  [[nodiscard]] CORVANE_ZN_HIDDEN unsigned int LimitFor(unsigned int speed) const noexcept;

  ZMutex m_mutex;                       // guards every other member
  int m_nActiveTransfers = 0;           // live transfer objects plus open StartMulti calls
  int m_nPeriod = 0;                    // number of the current measure period; 0: none has begun
  int m_nEvaluatedPeriod = 0;           // the last period whose measurement has been evaluated
  unsigned int m_nLowWaterMark = 0;     // bytes per second
  unsigned int m_nLimitSetting = 0;     // bytes per second, or a percentage
  bool m_bPercent = false;              // m_nLimitSetting is a percentage of the measured speed
  unsigned int m_nLimit = 0;            // limit in force in this period, bytes per second; 0: none
  TimeValue m_tvLast;                   // when Throttle was last called
  TimeValue m_tvPeriodStart;            // when the current period began
  unsigned int m_nPeriodBytes = 0;      // bytes counted since then; wraps
  unsigned int m_nPeriodBaseBytes = 0;  // subtracted from m_nPeriodBytes for the speed; 0 whenever a period begins
};

}  // namespace Corvane
