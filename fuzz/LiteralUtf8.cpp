#include "fuzz/LiteralUtf8.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace CorvaneFuzz {
namespace {

constexpr wchar_t kReplacement = 0xFFFD;

bool IsScalar(std::uint32_t number) { return number <= 0x10FFFF && !(number >= 0xD800 && number <= 0xDFFF); }

// How many bytes a character has whose first byte this is; 0 when it is the first of none.
std::size_t LengthFrom(unsigned char lead) {
  if (lead < 0x80) return 1;
  if (lead >= 0xC0 && lead < 0xE0) return 2;
  if (lead >= 0xE0 && lead < 0xF0) return 3;
  return lead >= 0xF0 && lead < 0xF8 ? 4 : 0;
}

std::size_t LengthOf(std::uint32_t number) { return number < 0x80 ? 1 : number < 0x800 ? 2 : number < 0x10000 ? 3 : 4; }

// The number that `length` bytes stand for when the first `known` of them are at `bytes` and all others have these six bits.
std::uint32_t NumberFrom(const unsigned char* bytes, std::size_t known, std::size_t length, std::uint32_t others) {
  std::uint32_t number = length == 1 ? bytes[0] : bytes[0] & (0x7FU >> length);
  for (std::size_t i = 1; i < length; ++i) number = number * 64 + (i < known ? bytes[i] & 0x3FU : others);
  return number;
}

// Whether some bytes behind the first `known` ones make a character of them that has this length and no smaller one.
bool CanBecomeCharacter(const unsigned char* bytes, std::size_t known, std::size_t length) {
  constexpr std::uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  std::uint32_t number = std::max(NumberFrom(bytes, known, length, 0), kSmallest[length]);
  if (!IsScalar(number) && number < 0xE000) number = 0xE000;  // behind the surrogates
  return IsScalar(number) && number <= NumberFrom(bytes, known, length, 0x3F);
}

}  // namespace

std::wstring DecodeLiterally(std::string_view text) {
  std::wstring decoded;
  while (!text.empty()) {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data());
    const std::size_t length = LengthFrom(bytes[0]);
    // The longest beginning of a character that is here is replaced as a whole, and at least one byte.
    std::size_t known = length == 0 || !CanBecomeCharacter(bytes, 1, length) ? 0 : 1;
    while (known > 0 && known < length && known < text.size() && (bytes[known] & 0xC0U) == 0x80U &&
           CanBecomeCharacter(bytes, known + 1, length)) {
      ++known;
    }
    const bool isWhole = known > 0 && known == length;
    decoded += isWhole ? static_cast<wchar_t>(NumberFrom(bytes, length, length, 0)) : kReplacement;
    text.remove_prefix(known > 0 ? known : 1);
  }
  return decoded;
}

std::string EncodeLiterally(const std::wstring& text) {
  std::string bytes;
  for (const wchar_t character : text) {
    const bool isScalar = IsScalar(static_cast<std::uint32_t>(character));
    const std::uint32_t number = isScalar ? static_cast<std::uint32_t>(character) : std::uint32_t{kReplacement};
    const std::size_t length = LengthOf(number);
    const std::uint32_t mark = length == 1 ? 0 : (0xF00U >> length) & 0xFFU;
    bytes += static_cast<char>(mark | (number >> (6 * (length - 1))));
    for (std::size_t i = length - 1; i > 0; --i)
      bytes += static_cast<char>(0x80U | ((number >> (6 * (i - 1))) & 0x3FU));
  }
  return bytes;
}

}  // namespace CorvaneFuzz
