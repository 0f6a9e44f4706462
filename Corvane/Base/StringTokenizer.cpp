#include <Corvane/Base/StringTokenizer.h>

#include <array>
#include <string>

namespace Corvane {
namespace {

// A set of characters with a table for ASCII: listings of a million lines are split with it, character by character.
class DelimiterSet {
 public:
  explicit DelimiterSet(const std::wstring& characters) {
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

}  // namespace

ZStringTokenizer::ZStringTokenizer(ZString text, const ZString& delimiters)
    : ZStringTokenizer(std::move(text), delimiters, 0, 0) {}

ZStringTokenizer::ZStringTokenizer(ZString text, const ZString& delimiters, int /*flags*/, std::size_t most)
    : m_text(std::move(text)) {
  const DelimiterSet set(delimiters.Str());
  const std::wstring& characters = m_text.Str();
  const std::size_t length = characters.size();
  for (std::size_t position = 0;;) {
    while (position < length && set.Contains(characters[position])) ++position;
    if (position == length) return;
    const std::size_t begin = position;
    if (m_tokens.size() + 1 == most) {
      position = length;  // the remainder
    } else {
      while (position < length && !set.Contains(characters[position])) ++position;
    }
    m_tokens.emplace_back(begin, position - begin);
  }
}

ZString ZStringTokenizer::GetToken(std::size_t index) const {
  if (index >= m_tokens.size()) return ZString();
  return m_text.Substr(m_tokens[index].first, m_tokens[index].second);
}

}  // namespace Corvane
