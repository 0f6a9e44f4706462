#pragma once

#include <algorithm>
#include <string_view>

namespace Corvane {

// ASCII as the formats of pages and listings mean it, whatever the host's locale says.

constexpr bool IsAsciiDigit(char c) noexcept { return c >= '0' && c <= '9'; }
constexpr bool IsAsciiLetter(char c) noexcept { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
constexpr bool IsHtmlBlank(char c) noexcept { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f'; }
constexpr char AsciiLower(char c) noexcept { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// `pattern` is in lower case.
constexpr bool IsLowered(std::string_view text, std::string_view pattern) noexcept {
  return std::equal(text.begin(), text.end(), pattern.begin(), pattern.end(),
                    [](char a, char b) { return AsciiLower(a) == b; });
}
constexpr bool BeginsLowered(std::string_view text, std::string_view pattern) noexcept {
  return IsLowered(text.substr(0, pattern.size()), pattern);
}

constexpr std::string_view TrimBlanks(std::string_view text) noexcept {
  while (!text.empty() && IsHtmlBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsHtmlBlank(text.back())) text.remove_suffix(1);
  return text;
}

constexpr bool IsAllDigits(std::string_view text) noexcept {
  return !text.empty() && std::all_of(text.begin(), text.end(), IsAsciiDigit);
}

}  // namespace Corvane
