#include <Corvane/TreeDownload/HtmlTagsImpl.h>

#include <algorithm>

#include <Corvane/TreeDownload/PageTextImpl.h>

namespace Corvane {
namespace {

struct HtmlAttribute {
  std::string_view name;
  std::string_view value;
};

std::size_t SkipWhile(std::string_view text, std::size_t from, bool (*holds)(char)) noexcept {
  while (from < text.size() && holds(text[from])) ++from;
  return from;
}

// The value behind the "=" of an attribute; moves `from` behind it, which is the end when its quote is not closed.
std::string_view ReadValue(std::string_view text, std::size_t& from) noexcept {
  from = SkipWhile(text, from, [](char c) { return IsHtmlBlank(c); });
  if (from == text.size() || text[from] == '>') return {};
  if (text[from] == '"' || text[from] == '\'') {
    const std::size_t begin = from + 1;
    const std::size_t end = std::min(text.find(text[from], begin), text.size());
    from = std::min(end + 1, text.size());
    return text.substr(begin, end - begin);
  }
  const std::size_t begin = from;
  from = SkipWhile(text, from, [](char c) { return !IsHtmlBlank(c) && c != '>'; });
  return text.substr(begin, from - begin);
}

// Reads the attribute at `from`; false at the end of the tag, where `from` then is.
bool ReadAttribute(std::string_view text, std::size_t& from, HtmlAttribute& attribute) noexcept {
  from = SkipWhile(text, from, [](char c) { return IsHtmlBlank(c) || c == '/'; });
  if (from == text.size() || text[from] == '>') return false;
  const std::size_t begin = from;
  // A name may begin with "=".
  from = SkipWhile(text, from + 1, [](char c) { return !IsHtmlBlank(c) && c != '/' && c != '>' && c != '='; });
  attribute.name = text.substr(begin, from - begin);
  attribute.value = {};
  const std::size_t equals = SkipWhile(text, from, [](char c) { return IsHtmlBlank(c); });
  if (equals < text.size() && text[equals] == '=') {
    from = equals + 1;
    attribute.value = ReadValue(text, from);
  }
  return true;
}

bool HoldsRawText(const HtmlTag& tag) noexcept {
  return tag.Is("script") || tag.Is("style") || tag.Is("title") || tag.Is("textarea");
}

}  // namespace

bool HtmlTag::Is(std::string_view lowered) const noexcept { return IsLowered(name, lowered); }

std::optional<std::string_view> HtmlTag::Attribute(std::string_view lowered) const noexcept {
  HtmlAttribute attribute;
  for (std::size_t from = 0; ReadAttribute(attributes, from, attribute);) {
    if (IsLowered(attribute.name, lowered)) return attribute.value;
  }
  return std::nullopt;
}

bool HtmlTags::Next(HtmlTag& tag) noexcept {
  for (;;) {
    const std::size_t begin = m_page.find('<', m_position);
    if (begin == m_page.npos || begin + 1 == m_page.size()) break;
    const char next = m_page[begin + 1];
    m_position = begin + 1;
    if (IsAsciiLetter(next) || (next == '/' && begin + 2 < m_page.size() && IsAsciiLetter(m_page[begin + 2]))) {
      if (ReadTag(begin, tag)) return true;
    } else if (m_page.compare(begin, 4, "<!--") == 0) {
      SkipTo("-->", begin + 2);  // "<!-->" is a whole comment, too
    } else if (next == '!' || next == '?' || next == '/') {
      SkipTo(">", begin + 2);
    }
  }
  m_position = m_page.size();
  return false;
}

bool HtmlTags::ReadTag(std::size_t begin, HtmlTag& tag) noexcept {
  tag.begin = begin;
  tag.isEnd = m_page[begin + 1] == '/';
  const std::size_t name = begin + (tag.isEnd ? 2 : 1);
  const std::size_t attributes =
      SkipWhile(m_page, name, [](char c) { return !IsHtmlBlank(c) && c != '/' && c != '>'; });
  tag.name = m_page.substr(name, attributes - name);
  m_position = attributes;
  HtmlAttribute attribute;
  while (ReadAttribute(m_page, m_position, attribute)) continue;
  if (m_position == m_page.size()) return false;
  tag.attributes = m_page.substr(attributes, m_position - attributes);
  tag.end = ++m_position;
  if (!tag.isEnd && HoldsRawText(tag)) SkipRawText(tag.name);
  return true;
}

void HtmlTags::SkipTo(std::string_view end, std::size_t from) noexcept {
  const std::size_t found = m_page.find(end, from);
  m_position = found == m_page.npos ? m_page.size() : found + end.size();
}

// To the end tag of that name, or to the end of the page.
void HtmlTags::SkipRawText(std::string_view name) noexcept {
  const auto isSame = [](char a, char b) { return AsciiLower(a) == AsciiLower(b); };
  for (;;) {
    m_position = std::min(m_page.find("</", m_position), m_page.size());
    const std::string_view rest = m_page.substr(m_position);
    if (rest.empty()) return;
    const std::string_view found = rest.substr(2, name.size());
    const char behind = rest.size() > 2 + name.size() ? rest[2 + name.size()] : '>';
    const bool ends = IsHtmlBlank(behind) || behind == '/' || behind == '>';
    if (ends && std::equal(found.begin(), found.end(), name.begin(), name.end(), isSame)) return;
    m_position += 2;
  }
}

}  // namespace Corvane
