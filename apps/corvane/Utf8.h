#pragma once

#include <cstddef>
#include <string_view>

namespace CorvaneCli {

// What may follow the first byte of a character in UTF-8 (the Unicode standard, table 3-7).
struct Utf8Lead {
  int following = -1;                     // bytes to come, 0 to 3; -1: no character begins with this byte
  unsigned char low = 0x80, high = 0xBF;  // bounds of the first byte to come; those behind it are 80 to BF
};

[[nodiscard]] constexpr Utf8Lead Utf8LeadOf(unsigned char byte) noexcept {
  if (byte < 0x80) return {0};
  if (byte < 0xC2) return {-1};
  if (byte < 0xE0) return {1};
  if (byte == 0xE0) return {2, 0xA0, 0xBF};  // less would be overlong
  if (byte == 0xED) return {2, 0x80, 0x9F};  // more would be a surrogate
  if (byte < 0xF0) return {2};
  if (byte == 0xF0) return {3, 0x90, 0xBF};
  if (byte < 0xF4) return {3};
  if (byte == 0xF4) return {3, 0x80, 0x8F};  // more is beyond U+10FFFF
  return {-1};
}

// How many of the bytes at the beginning of `text` are a well-formed character, or the beginning of one; `lead` is that of its
// first byte, which begins a character.
[[nodiscard]] constexpr std::size_t Utf8Matching(std::string_view text, const Utf8Lead& lead) noexcept {
  const std::size_t length = static_cast<std::size_t>(lead.following) + 1;
  for (std::size_t i = 1; i < length && i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte < (i == 1 ? lead.low : 0x80) || byte > (i == 1 ? lead.high : 0xBF)) return i;
  }
  return length < text.size() ? length : text.size();
}

// Bytes of the well-formed character at the beginning of `text`; 0 when there is none.
[[nodiscard]] constexpr std::size_t Utf8Length(std::string_view text) noexcept {
  if (text.empty()) return 0;
  const Utf8Lead lead = Utf8LeadOf(static_cast<unsigned char>(text.front()));
  if (lead.following < 0) return 0;
  const std::size_t length = static_cast<std::size_t>(lead.following) + 1;
  return Utf8Matching(text, lead) == length ? length : 0;
}

// Whether `text`, which is not empty, is the beginning of a well-formed character that is not complete.
[[nodiscard]] constexpr bool IsIncompleteUtf8(std::string_view text) noexcept {
  const Utf8Lead lead = Utf8LeadOf(static_cast<unsigned char>(text.front()));
  return lead.following >= static_cast<int>(text.size()) && Utf8Matching(text, lead) == text.size();
}

}  // namespace CorvaneCli
