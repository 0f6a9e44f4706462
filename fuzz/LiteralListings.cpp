#include "fuzz/LiteralListings.h"

#include <cstddef>
#include <optional>

#include <Corvane/Base/Url.h>

namespace CorvaneFuzz {
namespace {

using Corvane::ZString;
constexpr std::size_t npos = std::wstring::npos;

std::wstring Trimmed(const std::wstring& text) {
  const std::wstring blanks = L" \t\n\v\f\r";
  const std::size_t first = text.find_first_not_of(blanks);
  return first == npos ? L"" : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

bool IsSuffix(const std::wstring& suffix, const std::wstring& text) {
  return suffix.size() <= text.size() && text.substr(text.size() - suffix.size()) == suffix;
}

bool IsOfDigits(const std::wstring& text) { return text.find_first_not_of(L"0123456789") == npos; }

// The non-empty runs between delimiters, at most `most` of them; the last one is the rest of the text.
std::vector<std::wstring> Split(const std::wstring& text, const std::wstring& delimiters, std::size_t most) {
  std::vector<std::wstring> tokens;
  std::size_t position = text.find_first_not_of(delimiters);
  while (position != npos) {
    const std::size_t end = tokens.size() + 1 == most ? npos : text.find_first_of(delimiters, position);
    tokens.push_back(text.substr(position, end == npos ? npos : end - position));
    position = end == npos ? npos : text.find_first_not_of(delimiters, end);
  }
  return tokens;
}

struct Anchor {
  std::size_t begin = 0;
  std::size_t end = 0;
  std::wstring target;
  std::wstring label;
};

// The anchor at or after `position`; none where the reading ends.
std::optional<Anchor> FindAnchor(const std::wstring& text, const std::wstring& lower, std::size_t position,
                                 std::size_t listingEnd) {
  Anchor anchor;
  anchor.begin = lower.find(L"<a", position);
  if (anchor.begin == npos || anchor.begin > listingEnd) return std::nullopt;
  anchor.end = lower.find(L"</a>", anchor.begin);
  if (anchor.end == npos || anchor.end > listingEnd) return std::nullopt;
  std::size_t quote = text.find(L'"', anchor.begin);
  const std::size_t single = text.find(L'\'', anchor.begin);
  if (quote == npos || (single != npos && single < quote)) quote = single;
  if (quote == npos || quote > anchor.end) return std::nullopt;
  const std::size_t quoteEnd = text.find(text[quote], quote + 1);
  if (quoteEnd == npos || quoteEnd > anchor.end) return std::nullopt;
  const std::size_t tagEnd = text.find(L'>', quoteEnd);
  if (tagEnd == npos || tagEnd > anchor.end) return std::nullopt;
  ZString decoded;
  Corvane::ZUrl::Decode(ZString(text.substr(quote + 1, quoteEnd - quote - 1)), decoded);
  anchor.target = decoded.Str();
  anchor.label = text.substr(tagEnd + 1, anchor.end - tagEnd - 1);
  return anchor;
}

// The name of the file that the anchor leads to; empty for anything else.
std::wstring NameOf(const Anchor& anchor) {
  const std::wstring stem = anchor.target.substr(0, anchor.target.rfind(L'.'));
  if (!IsSuffix(anchor.label, anchor.target) && !IsSuffix(anchor.label, stem)) return L"";
  const std::size_t slash = anchor.target.rfind(L'/');
  return slash == npos ? anchor.target : anchor.target.substr(slash + 1);
}

unsigned long long IisSize(const std::wstring& text, std::size_t anchor) {
  const std::wstring column = anchor < 16 ? text.substr(0, anchor - 1) : text.substr(anchor - 15, 14);
  const std::wstring trimmed = Trimmed(column);
  const std::size_t last = trimmed.find_last_not_of(L"0123456789");
  const bool isShown = last != npos && last + 1 < trimmed.size();
  return isShown ? NumberLiterally(trimmed.substr(last + 1)) : 0;
}

}  // namespace

unsigned long long NumberLiterally(const std::wstring& text) {
  unsigned long long number = 0;
  std::size_t i = text.find_first_not_of(L" \t\n\v\f\r");
  for (; i < text.size() && text[i] >= L'0' && text[i] <= L'9'; ++i) {
    const auto digit = static_cast<unsigned long long>(text[i] - L'0');
    if (__builtin_mul_overflow(number, 10ULL, &number) || __builtin_add_overflow(number, digit, &number)) return ~0ULL;
  }
  return number;
}

ListedFiles ReadHttpLiterally(const ZString& page) {
  ListedFiles files;
  const std::wstring& text = page.Str();
  const std::wstring lower = page.Lower().Str();
  const bool isIis = lower.find(L"server: microsoft-iis") != npos;
  std::size_t position = lower.find(L"<pre>");
  const std::size_t listingEnd = lower.find(L"</pre>");
  if (position == npos || listingEnd == npos) return files;
  while (const std::optional<Anchor> anchor = FindAnchor(text, lower, position, listingEnd)) {
    const std::wstring name = NameOf(*anchor);
    if (!name.empty()) files.emplace_back(name, isIis ? IisSize(text, anchor->begin) : 0);
    position = anchor->end;
  }
  return files;
}

ListedFiles ReadFtpLiterally(const ZString& text) {
  ListedFiles files;
  for (const std::wstring& untrimmed : Split(text.Str(), L"\n\r", npos)) {
    const std::wstring line = Trimmed(untrimmed);
    if (line.find_first_of(L"0123456789") == 0) {
      const std::vector<std::wstring> fields = Split(line, L" \t", 4);
      if (fields.size() == 4 && IsOfDigits(fields[2])) files.emplace_back(fields[3], NumberLiterally(fields[2]));
    } else if (!line.empty() && line[0] == L'-') {
      const std::vector<std::wstring> fields = Split(line, L" \t", 9);
      if (fields.size() == 9) files.emplace_back(fields[8], NumberLiterally(fields[4]));
    }
  }
  return files;
}

}  // namespace CorvaneFuzz
