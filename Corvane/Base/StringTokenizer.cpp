#include <Corvane/Base/StringTokenizer.h>

#include <string_view>

#include <Corvane/Base/TokenScannerImpl.h>

namespace Corvane {

ZStringTokenizer::ZStringTokenizer(ZString text, const ZString& delimiters)
    : ZStringTokenizer(std::move(text), delimiters, 0, 0) {}

ZStringTokenizer::ZStringTokenizer(ZString text, const ZString& delimiters, int /*flags*/, std::size_t most)
    : m_text(std::move(text)) {
  const DelimiterSet set(delimiters.Str());
  TokenScanner scanner(m_text.Str(), set);
  while (scanner.HasMore()) {
    const std::wstring_view token = m_tokens.size() + 1 == most ? scanner.Remainder() : scanner.Next();
    m_tokens.emplace_back(static_cast<std::size_t>(token.data() - m_text.CStr()), token.size());
  }
}

ZString ZStringTokenizer::GetToken(std::size_t index) const {
  if (index >= m_tokens.size()) return ZString();
  return m_text.Substr(m_tokens[index].first, m_tokens[index].second);
}

}  // namespace Corvane
