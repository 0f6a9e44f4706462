#pragma once

#include <cstddef>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <Corvane/Base/Export.h>

namespace Corvane {

// A wide-character string (wchar_t, 32-bit characters) with value semantics: moves are cheap, copies are deep.
//
// Positions and lengths count characters. A failed search returns npos; a position past the end is never an error.
// Where a pointer comes with a length, npos means up to the terminating zero.
// Thread safety: like std::wstring. Different objects are independent; one object may be read by many threads or
// changed by one.
// Errors: only std::bad_alloc, also for more characters than any string can hold.
class CORVANE_ZPS_API ZString {
 public:
  using size_type = std::size_t;  // of positions and lengths, in characters
  // No position: what a search returns in vain, and "up to the end" as a length.
  static constexpr size_type npos = static_cast<size_type>(-1);

  ZString() noexcept = default;  // empty

  // From narrow text in the process's local multibyte encoding (LC_CTYPE, as the host set it with setlocale). A byte
  // that does not decode becomes the character of the same number, so nothing is lost. A null pointer gives an empty
  // string.
  ZString(const char* text);  // NOLINT(google-explicit-constructor): literals are passed everywhere
  ZString(const char* text, size_type length);

  // From wide text. A null pointer gives an empty string.
  ZString(const wchar_t* text);  // NOLINT(google-explicit-constructor)
  ZString(const wchar_t* text, size_type length);
  ZString(std::wstring text) noexcept;  // NOLINT(google-explicit-constructor)

  // From UTF-8, whatever the locale. Ill-formed input becomes U+FFFD, as the Unicode standard recommends (section 3.9).
  [[nodiscard]] static ZString FromUtf8(std::string_view text);
  // To UTF-8, whatever the locale. Characters that are no Unicode scalar values become U+FFFD.
  [[nodiscard]] std::string ToUtf8() const;

  // Replaces the text, and returns this string.
  ZString& Assign(const ZString& text);
  ZString& Assign(const char* text);  // decoded as by the constructor
  ZString& Assign(const char* text, size_type length);
  // Puts the text at the end, and returns this string.
  ZString& Append(const ZString& text);
  ZString& Append(const char* text, size_type length);  // decoded as by the constructor
  ZString& Append(const wchar_t* text, size_type length);
  ZString& Append(wchar_t character);
  // Makes this string empty, and returns it.
  ZString& Clear() noexcept;
  // Makes room for `length` characters in all, so that the text can grow to there without another allocation. Never
  // shrinks.
  ZString& Reserve(size_type length);
  // White space is what isspace(3) knows in the "C" locale: blank, \t, \n, \v, \f, \r; so that a trimmed name is the
  // same in every locale.
  ZString& TrimLeft();   // removes leading white space
  ZString& TrimRight();  // removes trailing white space

  // Replaces the text by `number`: format 'd' signed decimal, 'u' unsigned decimal, 'x' lower-case hexadecimal; any
  // other counts as the default. The argument's own width decides how a negative number looks in 'u' and 'x', and how
  // an unsigned one above the signed range looks in 'd'.
  ZString& SetNum(int number, char format = 'd');
  ZString& SetNum(unsigned int number, char format = 'u');
  ZString& SetNum(long number, char format = 'd');
  ZString& SetNum(unsigned long number, char format = 'u');
  ZString& SetNum(long long number, char format = 'd');
  ZString& SetNum(unsigned long long number, char format = 'u');

  // A copy in which every occurrence of the lowest-numbered placeholder left (%1 to %99) is replaced by `value`;
  // without a placeholder, an unchanged copy. Text that an Arg inserted is never searched for placeholders again, so
  // that a value may hold "%2" and come out unharmed:
  //
  //   ZString(L"%1: %2").Arg(L"100%2.txt").Arg(L"ok")  // "100%2.txt: ok"
  //
  // The mark of inserted text survives copying, appending to another string, trimming, Substr, Lower and Upper.
  // A placeholder is "%", a digit from 1 to 9 and, when one follows, a second digit.
  [[nodiscard]] ZString Arg(const ZString& value) const;

  // True when there is no character.
  [[nodiscard]] bool IsEmpty() const noexcept { return m_text.empty(); }
  // The number of characters.
  [[nodiscard]] size_type Length() const noexcept { return m_text.size(); }
  // Valid until this string changes or is destroyed; terminated by a zero character.
  [[nodiscard]] const wchar_t* CStr() const noexcept { return m_text.c_str(); }
  // Valid as long as CStr().
  [[nodiscard]] const std::wstring& Str() const noexcept { return m_text; }
  // The character at `position`, the zero character from the end on.
  [[nodiscard]] wchar_t operator[](size_type position) const noexcept {
    return position < m_text.size() ? m_text[position] : L'\0';
  }

  // Negative, 0 or positive as this string sorts before, equals or sorts after `other`, by character number.
  [[nodiscard]] int Compare(const ZString& other) const noexcept { return m_text.compare(other.m_text); }

  // The first occurrence that begins at or behind `from`; an empty text occurs everywhere.
  [[nodiscard]] size_type Find(const ZString& text, size_type from = 0) const noexcept;
  [[nodiscard]] size_type Find(wchar_t character, size_type from = 0) const noexcept;
  // The last occurrence that begins at or before `from`.
  [[nodiscard]] size_type FindR(const ZString& text, size_type from = npos) const noexcept;
  [[nodiscard]] size_type FindR(wchar_t character, size_type from = npos) const noexcept;
  // The first character at or behind `from` that is one of `set`.
  [[nodiscard]] size_type FindFirstOf(const ZString& set, size_type from = 0) const noexcept;
  // The first character at or behind `from` that is none of `set`.
  [[nodiscard]] size_type FindFirstNotOf(const ZString& set, size_type from = 0) const noexcept;
  // The last character at or before `from` that is none of `set`.
  [[nodiscard]] size_type FindLastNotOf(const ZString& set, size_type from = npos) const noexcept;
  // Whether the text begins with `prefix`; every text does with an empty one. Letters in other case count as the same when asked to, see
  // Lower.
  [[nodiscard]] bool StartsWith(const ZString& prefix, bool ignoreCase = false) const;

  // A copy in lower case. Each character is mapped by itself, so that every character keeps its position. ASCII letters map
  // to ASCII letters in every locale (also in a Turkish one), other characters as towlower(3) says; StartsWith ignores
  // case by comparing in lower case.
  [[nodiscard]] ZString Lower() const;
  // A copy in upper case, likewise, by towupper(3).
  [[nodiscard]] ZString Upper() const;
  // The `count` characters from `from` on, fewer when the string ends before; empty when `from` is past the end.
  [[nodiscard]] ZString Substr(size_type from, size_type count = npos) const;

  // The number that the text begins with in `base` (2 to 36), white space before it skipped, anything behind it
  // ignored. Text without digits gives 0, also a signed number; a number too large gives the type's largest value.
  // `*ok`, when given, tells whether the whole text, leading white space apart, was one number that fits. Another base
  // gives 0.
  [[nodiscard]] unsigned long ToULong(int base = 10, bool* ok = nullptr) const noexcept;
  // As ToULong, up to 64 bits on every machine.
  [[nodiscard]] unsigned long long ToULongLong(int base = 10, bool* ok = nullptr) const noexcept;

  // As Append.
  ZString& operator+=(const ZString& text) { return Append(text); }

 private:
  using Span = std::pair<size_type, size_type>;  // begin and end position

  CORVANE_ZPS_HIDDEN void CutFilled(size_type from, size_type to) noexcept;

  std::wstring m_text;
  // What Arg inserted, ascending and disjoint; never searched for placeholders. An empty value leaves an empty span, so
  // that the text on its two sides does not join to a placeholder.
  std::vector<Span> m_filled;
};

// As ZString::Compare does, by character number.
inline bool operator==(const ZString& a, const ZString& b) noexcept { return a.Str() == b.Str(); }
inline bool operator!=(const ZString& a, const ZString& b) noexcept { return !(a == b); }
inline bool operator<(const ZString& a, const ZString& b) noexcept { return a.Compare(b) < 0; }
inline bool operator>(const ZString& a, const ZString& b) noexcept { return b < a; }
inline bool operator<=(const ZString& a, const ZString& b) noexcept { return !(b < a); }
inline bool operator>=(const ZString& a, const ZString& b) noexcept { return !(a < b); }
// The two texts, one behind the other.
inline ZString operator+(ZString a, const ZString& b) { return std::move(a.Append(b)); }

// Writes the text as UTF-8. A template, so that a host's own operator goes before it.
template <class Traits>
std::basic_ostream<char, Traits>& operator<<(std::basic_ostream<char, Traits>& stream, const ZString& text) {
  return stream << text.ToUtf8();
}

}  // namespace Corvane

// For the unordered containers of the standard library.
template <>
struct std::hash<Corvane::ZString> {
  // Texts that are equal have the same.
  std::size_t operator()(const Corvane::ZString& text) const noexcept { return std::hash<std::wstring>()(text.Str()); }
};
