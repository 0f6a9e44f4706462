#include "apps/corvane/Get/SafeName.h"

#include <fmt/core.h>

#include <charconv>
#include <cstddef>

#include "apps/corvane/Text.h"
#include "apps/corvane/Utf8.h"

namespace CorvaneCli {
namespace {

// File systems take 255; the rest is for ".part.json" and the like.
constexpr std::size_t kMostNameBytes = 200;
constexpr std::size_t kLongestExtension = 16;
constexpr std::string_view kNotAtTheEnd = " \t.";

bool IsUnsafe(std::string_view character) { return character == "/" || !IsPlain(FromUtf8(character)[0]); }

std::string WithoutUnsafe(std::string_view bytes) {
  std::string name;
  while (!bytes.empty()) {
    const std::size_t length = Utf8Length(bytes);
    if (length == 0) {
      name += fmt::format("%{:02X}", static_cast<unsigned char>(bytes.front()));
      bytes.remove_prefix(1);
      continue;
    }
    const std::string_view character = bytes.substr(0, length);
    name += IsUnsafe(character) ? std::string_view("_") : character;
    bytes.remove_prefix(length);
  }
  return name;
}

void TrimEnd(std::string& name) { name.erase(name.find_last_not_of(kNotAtTheEnd) + 1); }

// Cuts before a character, not inside.
void CutTo(std::size_t most, std::string& utf8) {
  if (utf8.size() <= most) return;
  while (most > 0 && (static_cast<unsigned char>(utf8[most]) & 0xC0U) == 0x80U) --most;
  utf8.resize(most);
}

void Shorten(std::string& name) {
  if (name.size() <= kMostNameBytes) return;
  const std::size_t dot = name.rfind('.');
  const bool hasExtension = dot != std::string::npos && dot > 0 && name.size() - dot <= kLongestExtension;
  const std::string extension = hasExtension ? name.substr(dot) : std::string();
  name.resize(name.size() - extension.size());
  CutTo(kMostNameBytes - extension.size(), name);
  name += extension;
  TrimEnd(name);
}

// The value of the two hexadecimal digits at the beginning of `text`.
std::optional<unsigned char> HexByte(std::string_view text) {
  if (text.size() < 2) return std::nullopt;
  unsigned char byte = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + 2, byte, 16);
  if (error != std::errc() || end != text.data() + 2) return std::nullopt;
  return byte;
}

}  // namespace

std::string MakeSafeName(std::string_view bytes) {
  std::string name = WithoutUnsafe(bytes);
  TrimEnd(name);
  Shorten(name);
  return name;
}

std::string PercentDecode(std::string_view text) {
  std::string bytes;
  while (!text.empty()) {
    const std::optional<unsigned char> byte = text.front() == '%' ? HexByte(text.substr(1)) : std::nullopt;
    bytes += byte ? static_cast<char>(*byte) : text.front();
    text.remove_prefix(byte ? 3 : 1);
  }
  return bytes;
}

}  // namespace CorvaneCli
