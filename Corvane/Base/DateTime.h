#pragma once

#include <atomic>

#include <Corvane/Base/Export.h>

namespace Corvane {

// A duration in microseconds, possibly negative. What is beyond the range of 64 bits, 292,000 years, becomes its
// nearest end.
// Thread safety: the value is one relaxed atomic, so an object may be read while another thread assigns to it.
// Errors: none.
class CORVANE_ZPS_API ZTimeSpan {
 public:
  ZTimeSpan() noexcept = default;
  explicit ZTimeSpan(long long microseconds) noexcept : m_microseconds(microseconds) {}
  ZTimeSpan(const ZTimeSpan& other) noexcept : m_microseconds(other.GetTotalMicroSeconds()) {}
  ZTimeSpan& operator=(const ZTimeSpan& other) noexcept;

  // Replaces the value by the sum of the parts, each of any size and sign.
  void Set(long days, long hours, long minutes, long seconds, long microseconds) noexcept;
  [[nodiscard]] long long GetTotalMicroSeconds() const noexcept {
    return m_microseconds.load(std::memory_order_relaxed);
  }

 private:
  std::atomic<long long> m_microseconds{0};
};

// A point in time: microseconds since the epoch on the system clock, which may be set and so go backwards.
// Thread safety and errors: as ZTimeSpan.
class CORVANE_ZPS_API ZDateTime {
 public:
  ZDateTime() noexcept = default;  // the epoch
  explicit ZDateTime(long long microsecondsSinceEpoch) noexcept : m_microseconds(microsecondsSinceEpoch) {}
  ZDateTime(const ZDateTime& other) noexcept : m_microseconds(other.GetMicroSecondsSinceEpoch()) {}
  ZDateTime& operator=(const ZDateTime& other) noexcept;

  [[nodiscard]] static ZDateTime Now() noexcept;  // clock_gettime(CLOCK_REALTIME)

  // Negative, 0 or positive as this is earlier than, equal to or later than `other`.
  [[nodiscard]] int Compare(const ZDateTime& other) const noexcept;
  [[nodiscard]] long long GetMicroSecondsSinceEpoch() const noexcept {
    return m_microseconds.load(std::memory_order_relaxed);
  }

 private:
  std::atomic<long long> m_microseconds{0};
};

// The time from `earlier` to `later`; negative when it is the other way round.
[[nodiscard]] CORVANE_ZPS_API ZTimeSpan operator-(const ZDateTime& later, const ZDateTime& earlier) noexcept;

}  // namespace Corvane
