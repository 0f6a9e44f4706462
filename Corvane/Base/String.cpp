#include <Corvane/Base/String.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <limits>
#include <new>
#include <optional>
#include <type_traits>

#include <Corvane/Base/StringCoding.h>
#include <Corvane/Base/StringCodingImpl.h>

namespace Corvane {
namespace {

using Span = std::pair<std::size_t, std::size_t>;

constexpr wchar_t kWhiteSpace[] = L" \t\n\v\f\r";

struct Placeholder {
  std::size_t begin;
  std::size_t end;
  unsigned int number;
};

// Walks once over the placeholders of a text, from left to right, and passes over the spans that are filled already.
class PlaceholderScanner {
 public:
  PlaceholderScanner(const std::wstring& text, const std::vector<Span>& filled)
      : m_text(text), m_span(filled.begin()), m_lastSpan(filled.end()) {}

  std::optional<Placeholder> Next() {
    while ((m_position = m_text.find(L'%', m_position)) != std::wstring::npos) {
      while (m_span != m_lastSpan && m_span->second <= m_position) ++m_span;
      const std::size_t limit = m_span == m_lastSpan ? m_text.size() : m_span->first;
      if (limit <= m_position) {  // the "%" is part of a value
        m_position = m_span->second;
        continue;
      }
      const Placeholder found = ParseAt(m_position, limit);
      m_position = found.end;
      if (found.number != 0) return found;
    }
    return std::nullopt;
  }

 private:
  // The placeholder whose "%" stands at `begin` and which ends before `limit`; number 0 when there is none.
  [[nodiscard]] Placeholder ParseAt(std::size_t begin, std::size_t limit) const {
    Placeholder found{begin, begin + 1, 0};
    while (found.end < limit && found.end - begin <= 2) {
      const wchar_t digit = m_text[found.end];
      if (digit < L'0' || digit > L'9' || (digit == L'0' && found.number == 0)) break;
      found.number = found.number * 10 + static_cast<unsigned int>(digit - L'0');
      ++found.end;
    }
    return found;
  }

  const std::wstring& m_text;
  std::vector<Span>::const_iterator m_span;
  std::vector<Span>::const_iterator m_lastSpan;
  std::size_t m_position = 0;
};

// 0 when the text has no placeholder.
unsigned int LowestPlaceholder(const std::wstring& text, const std::vector<Span>& filled) {
  PlaceholderScanner scanner(text, filled);
  unsigned int lowest = 0;
  while (const auto found = scanner.Next()) {
    if (lowest == 0 || found->number < lowest) lowest = found->number;
  }
  return lowest;
}

// ASCII is mapped here: in a Turkish locale towlower(L'I') is no ASCII letter, and protocol keywords would not be
// found.
wchar_t ToLower(wchar_t character) noexcept {
  if (character >= L'A' && character <= L'Z') return static_cast<wchar_t>(character - L'A' + L'a');
  if (character >= 0 && character < 0x80) return character;
  return static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(character)));
}

wchar_t ToUpper(wchar_t character) noexcept {
  if (character >= L'a' && character <= L'z') return static_cast<wchar_t>(character - L'a' + L'A');
  if (character >= 0 && character < 0x80) return character;
  return static_cast<wchar_t>(std::towupper(static_cast<std::wint_t>(character)));
}

template <class Number>
std::wstring NumberText(Number number, char format) {
  using Signed = std::make_signed_t<Number>;
  using Unsigned = std::make_unsigned_t<Number>;
  std::array<char, 24> digits;  // 2^64 has 20 decimal digits
  char* const first = digits.data();
  char* const last = first + digits.size();
  char* end = nullptr;
  if (format == 'x') {
    end = std::to_chars(first, last, static_cast<Unsigned>(number), 16).ptr;
  } else if (format == 'u') {
    end = std::to_chars(first, last, static_cast<Unsigned>(number)).ptr;
  } else if (format == 'd') {
    end = std::to_chars(first, last, static_cast<Signed>(number)).ptr;
  } else {
    end = std::to_chars(first, last, number).ptr;
  }
  return std::wstring(first, end);
}

// The value of a digit in base 36; 36 for any other character.
unsigned int DigitValue(wchar_t character) noexcept {
  if (character >= L'0' && character <= L'9') return static_cast<unsigned int>(character - L'0');
  if (character >= L'a' && character <= L'z') return static_cast<unsigned int>(character - L'a') + 10;
  if (character >= L'A' && character <= L'Z') return static_cast<unsigned int>(character - L'A') + 10;
  return 36;
}

template <class Number>
Number ParseNumber(const std::wstring& text, int base, bool* ok) noexcept {
  constexpr Number kLargest = std::numeric_limits<Number>::max();
  if (ok != nullptr) *ok = false;
  if (base < 2 || base > 36) return 0;
  const auto radix = static_cast<unsigned int>(base);
  const std::size_t begin = std::min(text.find_first_not_of(kWhiteSpace), text.size());
  std::size_t position = begin;
  Number number = 0;
  bool fits = true;
  for (; position < text.size(); ++position) {
    const unsigned int digit = DigitValue(text[position]);
    if (digit >= radix) break;
    if (number > (kLargest - digit) / radix) fits = false;
    if (fits) number = static_cast<Number>(number * radix + digit);
  }
  if (ok != nullptr) *ok = fits && position > begin && position == text.size();
  return fits ? number : kLargest;
}

}  // namespace

ZString::ZString(const char* text) { Append(text, npos); }

ZString::ZString(const char* text, size_type length) { Append(text, length); }

ZString::ZString(const wchar_t* text) { Append(text, npos); }

ZString::ZString(const wchar_t* text, size_type length) { Append(text, length); }

ZString::ZString(std::wstring text) noexcept : m_text(std::move(text)) {}

ZString ZString::FromUtf8(std::string_view text) { return ZStringDecoder::FromUtf8(text.data(), text.size()); }

std::string ZString::ToUtf8() const {
  const ZStringEncoder utf8(*this, ZStringEncoder::Utf8);
  return {utf8.CStr(), utf8.Length()};
}

ZString& ZString::Assign(const ZString& text) { return *this = text; }

ZString& ZString::Assign(const char* text) { return Assign(text, npos); }

ZString& ZString::Assign(const char* text, size_type length) { return Clear().Append(text, length); }

ZString& ZString::Append(const ZString& text) {
  const size_type offset = m_text.size();
  const size_type spans = text.m_filled.size();  // fixed beforehand: `text` may be this string
  m_text.append(text.m_text);
  for (size_type i = 0; i < spans; ++i) {
    const Span span = text.m_filled[i];
    m_filled.emplace_back(span.first + offset, span.second + offset);
  }
  return *this;
}

ZString& ZString::Append(const char* text, size_type length) {
  if (text != nullptr) Coding::AppendLocal(*this, text, length == npos ? std::strlen(text) : length);
  return *this;
}

ZString& ZString::Append(const wchar_t* text, size_type length) {
  if (text != nullptr) m_text.append(text, length == npos ? std::wcslen(text) : length);
  return *this;
}

ZString& ZString::Append(wchar_t character) {
  m_text.push_back(character);
  return *this;
}

ZString& ZString::Clear() noexcept {
  m_text.clear();
  m_filled.clear();
  return *this;
}

ZString& ZString::Reserve(size_type length) {
  if (length > m_text.max_size()) throw std::bad_alloc();  // the standard library would throw a std::length_error
  if (length > m_text.capacity()) m_text.reserve(length);  // a smaller request may shrink in older standard libraries
  return *this;
}

ZString& ZString::TrimLeft() {
  const size_type begin = std::min(m_text.find_first_not_of(kWhiteSpace), m_text.size());
  CutFilled(begin, m_text.size());
  m_text.erase(0, begin);
  return *this;
}

ZString& ZString::TrimRight() {
  const size_type end = m_text.find_last_not_of(kWhiteSpace) + 1;  // npos + 1 is 0
  CutFilled(0, end);
  m_text.erase(end);
  return *this;
}

// Makes the marks fit the text that stays when only the characters from `from` to before `to` are kept.
void ZString::CutFilled(size_type from, size_type to) noexcept {
  size_type kept = 0;
  for (const Span& span : m_filled) {
    if (span.second < from || span.first > to) continue;
    m_filled[kept++] = Span(std::max(span.first, from) - from, std::min(span.second, to) - from);
  }
  m_filled.resize(kept);
}

ZString& ZString::SetNum(int number, char format) { return *this = NumberText(number, format); }
ZString& ZString::SetNum(unsigned int number, char format) { return *this = NumberText(number, format); }
ZString& ZString::SetNum(long number, char format) { return *this = NumberText(number, format); }
ZString& ZString::SetNum(unsigned long number, char format) { return *this = NumberText(number, format); }
ZString& ZString::SetNum(long long number, char format) { return *this = NumberText(number, format); }
ZString& ZString::SetNum(unsigned long long number, char format) { return *this = NumberText(number, format); }

ZString ZString::Arg(const ZString& value) const {
  const unsigned int lowest = LowestPlaceholder(m_text, m_filled);
  if (lowest == 0) return *this;

  ZString result;
  result.m_text.reserve(m_text.size() + value.m_text.size());
  size_type copied = 0;  // what stands before is in `result`
  auto span = m_filled.begin();
  const auto copyUpTo = [&](size_type end) {
    for (; span != m_filled.end() && span->second <= end; ++span) {
      const size_type begin = result.m_text.size() + (span->first - copied);
      result.m_filled.emplace_back(begin, begin + (span->second - span->first));
    }
    result.m_text.append(m_text, copied, end - copied);
    copied = end;
  };
  PlaceholderScanner scanner(m_text, m_filled);
  while (const auto found = scanner.Next()) {
    if (found->number != lowest) continue;
    copyUpTo(found->begin);
    const size_type begin = result.m_text.size();
    result.m_text.append(value.m_text);
    result.m_filled.emplace_back(begin, result.m_text.size());
    copied = found->end;
  }
  copyUpTo(m_text.size());
  return result;
}

ZString::size_type ZString::Find(const ZString& text, size_type from) const noexcept {
  return m_text.find(text.m_text, from);
}

ZString::size_type ZString::Find(wchar_t character, size_type from) const noexcept {
  return m_text.find(character, from);
}

ZString::size_type ZString::FindR(const ZString& text, size_type from) const noexcept {
  return m_text.rfind(text.m_text, from);
}

ZString::size_type ZString::FindR(wchar_t character, size_type from) const noexcept {
  return m_text.rfind(character, from);
}

ZString::size_type ZString::FindFirstOf(const ZString& set, size_type from) const noexcept {
  return m_text.find_first_of(set.m_text, from);
}

ZString::size_type ZString::FindFirstNotOf(const ZString& set, size_type from) const noexcept {
  return m_text.find_first_not_of(set.m_text, from);
}

ZString::size_type ZString::FindLastNotOf(const ZString& set, size_type from) const noexcept {
  return m_text.find_last_not_of(set.m_text, from);
}

bool ZString::StartsWith(const ZString& prefix, bool ignoreCase) const {
  const size_type length = prefix.m_text.size();
  if (length > m_text.size()) return false;
  if (!ignoreCase) return m_text.compare(0, length, prefix.m_text) == 0;
  return std::equal(prefix.m_text.begin(), prefix.m_text.end(), m_text.begin(),
                    [](wchar_t a, wchar_t b) { return ToLower(a) == ToLower(b); });
}

ZString ZString::Lower() const {
  ZString result = *this;
  std::transform(result.m_text.begin(), result.m_text.end(), result.m_text.begin(), ToLower);
  return result;
}

ZString ZString::Upper() const {
  ZString result = *this;
  std::transform(result.m_text.begin(), result.m_text.end(), result.m_text.begin(), ToUpper);
  return result;
}

ZString ZString::Substr(size_type from, size_type count) const {
  if (from >= m_text.size()) return ZString();
  ZString result;
  result.m_text.assign(m_text, from, count);
  if (!m_filled.empty()) {
    result.m_filled = m_filled;
    result.CutFilled(from, from + result.m_text.size());
  }
  return result;
}

unsigned long ZString::ToULong(int base, bool* ok) const noexcept {
  return ParseNumber<unsigned long>(m_text, base, ok);
}

unsigned long long ZString::ToULongLong(int base, bool* ok) const noexcept {
  return ParseNumber<unsigned long long>(m_text, base, ok);
}

}  // namespace Corvane
