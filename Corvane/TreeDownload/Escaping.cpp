#include <Corvane/TreeDownload/EscapingImpl.h>

#include <cstddef>

namespace Corvane {
namespace {

bool IsUnreserved(char c) noexcept {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
         c == '_' || c == '~';
}

int DigitOf(char c) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::string Escaped(std::string_view bytes) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(bytes.size());
  for (const char c : bytes) {
    if (IsUnreserved(c)) {
      text += c;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    text += '%';
    text += kDigits[byte >> 4U];
    text += kDigits[byte & 0xFU];
  }
  return text;
}

std::string Unescaped(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool isEscape = text[i] == '%' && i + 2 < text.size();
    const int high = isEscape ? DigitOf(text[i + 1]) : -1;
    const int low = isEscape ? DigitOf(text[i + 2]) : -1;
    if (high < 0 || low < 0) {
      bytes += text[i];
      continue;
    }
    bytes += static_cast<char>(high * 16 + low);
    i += 2;
  }
  return bytes;
}

}  // namespace Corvane
