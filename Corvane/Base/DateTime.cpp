#include <Corvane/Base/DateTime.h>

#include <ctime>
#include <limits>

namespace Corvane {

namespace {

__extension__ using WideInt =
    __int128;  // holds every intermediate result, so only the end result needs a look at its range

constexpr long long kMicrosecondsPerSecond = 1000000;

long long Saturate(WideInt value) noexcept {
  constexpr WideInt lowest = std::numeric_limits<long long>::min();
  constexpr WideInt highest = std::numeric_limits<long long>::max();
  if (value < lowest) return std::numeric_limits<long long>::min();
  if (value > highest) return std::numeric_limits<long long>::max();
  return static_cast<long long>(value);
}

}  // namespace

ZTimeSpan& ZTimeSpan::operator=(const ZTimeSpan& other) noexcept {
  m_microseconds.store(other.GetTotalMicroSeconds(), std::memory_order_relaxed);
  return *this;
}

void ZTimeSpan::Set(long days, long hours, long minutes, long seconds, long microseconds) noexcept {
  const WideInt totalHours = static_cast<WideInt>(days) * 24 + hours;
  const WideInt totalMinutes = totalHours * 60 + minutes;
  const WideInt totalSeconds = totalMinutes * 60 + seconds;
  m_microseconds.store(Saturate(totalSeconds * kMicrosecondsPerSecond + microseconds), std::memory_order_relaxed);
}

ZDateTime& ZDateTime::operator=(const ZDateTime& other) noexcept {
  m_microseconds.store(other.GetMicroSecondsSinceEpoch(), std::memory_order_relaxed);
  return *this;
}

ZDateTime ZDateTime::Now() noexcept {
  std::timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);  // cannot fail: the clock exists everywhere and the pointer is good
  return ZDateTime(static_cast<long long>(now.tv_sec) * kMicrosecondsPerSecond + now.tv_nsec / 1000);
}

int ZDateTime::Compare(const ZDateTime& other) const noexcept {
  const long long mine = GetMicroSecondsSinceEpoch();
  const long long theirs = other.GetMicroSecondsSinceEpoch();
  if (mine == theirs) return 0;
  return mine < theirs ? -1 : 1;
}

ZTimeSpan operator-(const ZDateTime& later, const ZDateTime& earlier) noexcept {
  return ZTimeSpan(
      Saturate(static_cast<WideInt>(later.GetMicroSecondsSinceEpoch()) - earlier.GetMicroSecondsSinceEpoch()));
}

}  // namespace Corvane
