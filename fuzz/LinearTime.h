#pragma once

#include <ctime>

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include <Corvane/Base/String.h>

#include "fuzz/Require.h"

// Whether a reader takes time in proportion to its text.
namespace CorvaneFuzz {

// The text with its middle third repeated, about `length` characters long: what would be read again and again by a reader that looks
// for the same thing from every place.
inline Corvane::ZString Stretched(const Corvane::ZString& text, std::size_t length) {
  const std::size_t third = text.Length() / 3;
  const Corvane::ZString middle = text.Substr(third, std::max<std::size_t>(third, 1));
  Corvane::ZString stretched = text.Substr(0, third);
  stretched.Reserve(length + text.Length());
  while (stretched.Length() < length && !middle.IsEmpty()) stretched.Append(middle);
  return stretched + text.Substr(2 * third);
}

// CPU time of this thread: whatever else runs on the machine does not count.
template <class Read>
double SecondsOf(Read read, const Corvane::ZString& text) {
  const auto now = [] {
    std::timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
  };
  const double begin = now();
  read(text);
  return now() - begin;
}

// One of many inputs, always the same ones: this takes longer than all other checks.
inline bool IsTimed(const std::uint8_t* data, std::size_t size) {
  std::uint32_t sum = 0;
  for (std::size_t i = 0; i < size; ++i) sum = sum * 31 + data[i];
  return sum % 16 == 0;
}

// What takes time in proportion takes 8 times as long for a text that is 8 times as long, and what begins anew at every place takes 64
// times as long. It must show again and again, since caches and interrupts disturb a single measurement.
template <class Read>
void RequireLinearTime(Read read, const Corvane::ZString& text) {
  constexpr std::size_t kShort = 8192;
  constexpr std::size_t kFactor = 8;
  constexpr double kMeasurable = 0.05;
  const Corvane::ZString longText = Stretched(text, kShort * kFactor);
  for (int attempt = 0; attempt < 5; ++attempt) {
    const double longTime = SecondsOf(read, longText);
    if (longTime < kMeasurable || longTime < 3.0 * kFactor * SecondsOf(read, Stretched(text, kShort))) return;
  }
  Require(false, "time grows no faster than the text");
}

}  // namespace CorvaneFuzz
