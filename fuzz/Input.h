#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <Corvane/Base/StringCoding.h>

// How the fuzzers take an input apart: into lines, so that seeds can be written by hand.
namespace CorvaneFuzz {

inline std::string_view BytesOf(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

// Takes the next line off `rest`, without its "\n"; the last one need not have one.
inline std::string_view TakeLine(std::string_view& rest) {
  const std::size_t end = std::min(rest.find('\n'), rest.size());
  const std::string_view line = rest.substr(0, end);
  rest.remove_prefix(std::min(end + 1, rest.size()));
  return line;
}

// The number that the text begins with; 0 without digits, and cut to the type when it is too large.
inline unsigned long long NumberIn(std::string_view text) {
  unsigned long long number = 0;
  for (std::size_t i = 0; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    number = number * 10 + static_cast<unsigned long long>(text[i] - '0');
  }
  return number;
}

inline Corvane::ZString Wide(std::string_view utf8) {
  return Corvane::ZStringDecoder::FromUtf8(utf8.data(), utf8.size());
}

inline std::string Narrow(const Corvane::ZString& text) {
  const Corvane::ZStringEncoder encoder(text, Corvane::ZStringEncoder::Utf8);
  return {encoder.CStr(), encoder.Length()};
}

// Every byte as %XX.
inline std::string AllEscaped(std::string_view bytes) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (const char character : bytes) {
    const auto byte = static_cast<unsigned char>(character);
    text += {'%', kDigits[byte / 16], kDigits[byte % 16]};
  }
  return text;
}

}  // namespace CorvaneFuzz
