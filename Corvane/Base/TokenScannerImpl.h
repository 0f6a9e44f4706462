#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace Corvane {

// A set of characters with a table for ASCII: listings of a million lines are split with it, character by character.
class DelimiterSet {
 public:
  explicit DelimiterSet(std::wstring_view characters) {
    for (const wchar_t character : characters) {
      if (IsAscii(character)) {
        m_ascii[static_cast<std::size_t>(character)] = true;
      } else {
        m_others.push_back(character);
      }
    }
  }

  [[nodiscard]] bool Contains(wchar_t character) const noexcept {
    if (IsAscii(character)) return m_ascii[static_cast<std::size_t>(character)];
    return m_others.find(character) != std::wstring::npos;
  }

 private:
  static bool IsAscii(wchar_t character) noexcept { return character >= 0 && character < 0x80; }

  std::array<bool, 0x80> m_ascii{};
  std::wstring m_others;
};

// Walks over the tokens of a text, which are the runs between delimiters, without owning or copying anything: both the
// text and the set must outlive it, and what it returns lies within the text. No token is empty.
class TokenScanner {
 public:
  TokenScanner(std::wstring_view text, const DelimiterSet& delimiters) noexcept
      : m_rest(text), m_delimiters(delimiters) {
    SkipDelimiters();
  }

  [[nodiscard]] bool HasMore() const noexcept { return !m_rest.empty(); }

  // The next token, empty when there is none left.
  std::wstring_view Next() noexcept {
    std::size_t length = 0;
    while (length < m_rest.size() && !m_delimiters.Contains(m_rest[length])) ++length;
    const std::wstring_view token = m_rest.substr(0, length);
    m_rest.remove_prefix(length);
    SkipDelimiters();
    return token;
  }

  // The next token and everything behind it, delimiters included; nothing is left then.
  std::wstring_view Remainder() noexcept {
    const std::wstring_view remainder = m_rest;
    m_rest.remove_prefix(m_rest.size());
    return remainder;
  }

 private:
  void SkipDelimiters() noexcept {
    std::size_t length = 0;
    while (length < m_rest.size() && m_delimiters.Contains(m_rest[length])) ++length;
    m_rest.remove_prefix(length);
  }

  std::wstring_view m_rest;  // begins with the next token, or is empty
  const DelimiterSet& m_delimiters;
};

}  // namespace Corvane
