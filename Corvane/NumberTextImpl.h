#pragma once

#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

#include <Corvane/Base/String.h>

namespace Corvane {

// Numbers in decimal, for messages.
inline ZString Number(long long number) { return ZString().SetNum(number, 'd'); }
inline ZString UnsignedNumber(unsigned long long number) { return ZString().SetNum(number, 'u'); }

// The number that the digits are; nothing when `text` is anything else, or more than fits.
inline std::optional<unsigned long long> NumberOf(std::string_view text) noexcept {
  unsigned long long number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

}  // namespace Corvane
