#pragma once

#include <chrono>
#include <cmath>
#include <type_traits>

namespace Corvane {

// The smallest number of whole Units that `time` fits into, `largest` for anything longer: a time that becomes a limit never becomes a
// shorter one. Negative for a negative time, and for one that is no number (NaN).
//
//   WholeUnits<std::chrono::seconds>(std::chrono::milliseconds(1500), 100)  // 2
//
// Thread safety and errors: none.
template <class Unit, class Rep, class Period>
[[nodiscard]] long long WholeUnits(std::chrono::duration<Rep, Period> time, long long largest) noexcept {
  static_assert(std::is_arithmetic_v<Rep>);
  // Exact for every integer of 64 bits, and does not overflow.
  const long double units = std::chrono::duration<long double, typename Unit::period>(time).count();
  if (!(units >= 0)) return -1;
  return units >= static_cast<long double>(largest) ? largest : static_cast<long long>(std::ceil(units));
}

// A limit as SetTimeout takes it: whole seconds, 2^31 - 1 for anything longer. Negative for what is no limit.
template <class Rep, class Period>
[[nodiscard]] long long SecondsOf(std::chrono::duration<Rep, Period> limit) noexcept {
  return WholeUnits<std::chrono::seconds>(limit, 0x7FFFFFFF);
}

// A time as Wait takes it: whole milliseconds, almost 50 days for anything longer, since the largest number would mean a wait without
// limit. 0 for a time that has passed.
template <class Rep, class Period>
[[nodiscard]] unsigned long MillisecondsOf(std::chrono::duration<Rep, Period> time) noexcept {
  const long long milliseconds = WholeUnits<std::chrono::milliseconds>(time, 0xFFFFFFFE);
  return milliseconds < 0 ? 0 : static_cast<unsigned long>(milliseconds);
}

}  // namespace Corvane
