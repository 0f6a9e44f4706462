#pragma once

#include <atomic>
#include <chrono>

#include <Corvane/Base/Export.h>

namespace Corvane {

// A duration in microseconds, possibly negative. What is beyond the range of 64 bits, 292,000 years, becomes its
// nearest end.
// Thread safety: the value is one relaxed atomic, so an object may be read while another thread assigns to it.
// Errors: none.
class CORVANE_ZPS_API ZTimeSpan {
 public:
  ZTimeSpan() noexcept = default;  // 0
  // Of so many microseconds.
  explicit ZTimeSpan(long long microseconds) noexcept : m_microseconds(microseconds) {}
  explicit ZTimeSpan(std::chrono::microseconds time) noexcept : m_microseconds(time.count()) {}
  ZTimeSpan(const ZTimeSpan& other) noexcept : m_microseconds(other.GetTotalMicroSeconds()) {}
  ZTimeSpan& operator=(const ZTimeSpan& other) noexcept;

  // Replaces the value by the sum of the parts, each of any size and sign.
  void Set(long days, long hours, long minutes, long seconds, long microseconds) noexcept;
  // The whole of it in microseconds.
  [[nodiscard]] long long GetTotalMicroSeconds() const noexcept {
    return m_microseconds.load(std::memory_order_relaxed);
  }
  // The same for the standard library.
  [[nodiscard]] std::chrono::microseconds ToDuration() const noexcept {
    return std::chrono::microseconds(GetTotalMicroSeconds());
  }

 private:
  std::atomic<long long> m_microseconds{0};
};

// A point in time: microseconds since the epoch on the system clock, which may be set and so go backwards.
// Thread safety and errors: as ZTimeSpan.
class CORVANE_ZPS_API ZDateTime {
 public:
  ZDateTime() noexcept = default;  // the epoch
  // So many microseconds after the epoch, before it when negative.
  explicit ZDateTime(long long microsecondsSinceEpoch) noexcept : m_microseconds(microsecondsSinceEpoch) {}
  // The same moment; finer clocks lose what is below a microsecond.
  explicit ZDateTime(std::chrono::system_clock::time_point time) noexcept
      : m_microseconds(std::chrono::floor<std::chrono::microseconds>(time.time_since_epoch()).count()) {}
  ZDateTime(const ZDateTime& other) noexcept : m_microseconds(other.GetMicroSecondsSinceEpoch()) {}
  ZDateTime& operator=(const ZDateTime& other) noexcept;

  [[nodiscard]] static ZDateTime Now() noexcept;  // clock_gettime(CLOCK_REALTIME)

  // Negative, 0 or positive as this is earlier than, equal to or later than `other`.
  [[nodiscard]] int Compare(const ZDateTime& other) const noexcept;
  // Negative before the epoch.
  [[nodiscard]] long long GetMicroSecondsSinceEpoch() const noexcept {
    return m_microseconds.load(std::memory_order_relaxed);
  }
  // The same for the standard library; of a time beyond the clock's range, 292 years before and after 1970, the nearest end.
  [[nodiscard]] std::chrono::system_clock::time_point ToTimePoint() const noexcept {
    using Point = std::chrono::system_clock::time_point;
    const std::chrono::microseconds time(GetMicroSecondsSinceEpoch());
    if (time >= std::chrono::floor<std::chrono::microseconds>(Point::max().time_since_epoch())) return Point::max();
    if (time <= std::chrono::ceil<std::chrono::microseconds>(Point::min().time_since_epoch())) return Point::min();
    return Point(std::chrono::duration_cast<Point::duration>(time));
  }

 private:
  std::atomic<long long> m_microseconds{0};
};

// The time from `earlier` to `later`; negative when it is the other way round.
[[nodiscard]] CORVANE_ZPS_API ZTimeSpan operator-(const ZDateTime& later, const ZDateTime& earlier) noexcept;

// The earlier of two times is the smaller one.
inline bool operator==(const ZDateTime& a, const ZDateTime& b) noexcept { return a.Compare(b) == 0; }
inline bool operator!=(const ZDateTime& a, const ZDateTime& b) noexcept { return a.Compare(b) != 0; }
inline bool operator<(const ZDateTime& a, const ZDateTime& b) noexcept { return a.Compare(b) < 0; }
inline bool operator>(const ZDateTime& a, const ZDateTime& b) noexcept { return a.Compare(b) > 0; }
inline bool operator<=(const ZDateTime& a, const ZDateTime& b) noexcept { return a.Compare(b) <= 0; }
inline bool operator>=(const ZDateTime& a, const ZDateTime& b) noexcept { return a.Compare(b) >= 0; }

// As their microseconds compare: a negative duration is smaller than a positive one.
inline bool operator==(const ZTimeSpan& a, const ZTimeSpan& b) noexcept { return a.ToDuration() == b.ToDuration(); }
inline bool operator!=(const ZTimeSpan& a, const ZTimeSpan& b) noexcept { return a.ToDuration() != b.ToDuration(); }
inline bool operator<(const ZTimeSpan& a, const ZTimeSpan& b) noexcept { return a.ToDuration() < b.ToDuration(); }
inline bool operator>(const ZTimeSpan& a, const ZTimeSpan& b) noexcept { return a.ToDuration() > b.ToDuration(); }
inline bool operator<=(const ZTimeSpan& a, const ZTimeSpan& b) noexcept { return a.ToDuration() <= b.ToDuration(); }
inline bool operator>=(const ZTimeSpan& a, const ZTimeSpan& b) noexcept { return a.ToDuration() >= b.ToDuration(); }

}  // namespace Corvane
