#include <Corvane/TreeDownload/HtmlTextImpl.h>

#include <utf8.h>

#include <algorithm>
#include <charconv>
#include <iterator>

#include <Corvane/TreeDownload/PageTextImpl.h>

namespace Corvane {
namespace {

struct NamedReference {
  std::string_view name;
  std::string_view text;
  bool needsSemicolon;  // HTML knows the others without one since its beginnings
};
constexpr NamedReference kNamed[] = {
    {"amp", "&", false}, {"AMP", "&", false},   {"lt", "<", false},    {"LT", "<", false},  {"gt", ">", false},
    {"GT", ">", false},  {"quot", "\"", false}, {"QUOT", "\"", false}, {"apos", "'", true}, {"nbsp", "\xC2\xA0", false},
};

// Each returns the length of the reference at the beginning of `text`, and appends what it stands for; 0 when there is
// none.
std::size_t AppendNamed(std::string_view text, bool isAttribute, std::string& decoded) {
  const std::string_view rest = text.substr(1);
  for (const NamedReference& reference : kNamed) {
    if (!rest.starts_with(reference.name)) continue;
    const std::size_t length = 1 + reference.name.size();
    const char behind = length < text.size() ? text[length] : '\0';
    const bool goesOn = behind == '=' || IsAsciiLetter(behind) || IsAsciiDigit(behind);
    if (behind != ';' && (reference.needsSemicolon || (isAttribute && goesOn))) continue;
    decoded += reference.text;
    return behind == ';' ? length + 1 : length;
  }
  return 0;
}

std::size_t AppendNumber(std::string_view text, std::string& decoded) {
  const bool isHex = text.size() > 2 && (text[2] == 'x' || text[2] == 'X');
  const char* begin = text.data() + (isHex ? 3 : 2);
  const char* const textEnd = text.data() + text.size();
  char32_t number = 0;
  std::uint_least32_t parsed = 0;
  const auto [end, error] = std::from_chars(begin, textEnd, parsed, isHex ? 16 : 10);
  if (end == begin) return 0;
  number = error == std::errc() ? parsed : 0;
  const bool isCharacter = number != 0 && number <= 0x10FFFF && (number < 0xD800 || number > 0xDFFF);
  utf8::unchecked::append(isCharacter ? number : U'\xFFFD', std::back_inserter(decoded));
  return static_cast<std::size_t>(end - text.data()) + (end != textEnd && *end == ';' ? 1 : 0);
}

}  // namespace

void AppendUnreferenced(std::string_view text, bool isAttribute, std::string& decoded) {
  for (;;) {
    const std::size_t mark = text.find('&');
    decoded += text.substr(0, mark);
    if (mark == text.npos) return;
    text.remove_prefix(mark);
    const std::size_t length =
        text.substr(1).starts_with('#') ? AppendNumber(text, decoded) : AppendNamed(text, isAttribute, decoded);
    if (length == 0) decoded += '&';
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
}

}  // namespace Corvane
