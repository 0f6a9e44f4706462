#include "apps/corvane/Text.h"

#include <fmt/core.h>
#include <wchar.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <cwctype>
#include <system_error>
#include <utility>

#include <Corvane/Base/StringCoding.h>

namespace CorvaneCli {
namespace {

using Corvane::ZString;
using Corvane::ZStringDecoder;
using Corvane::ZStringEncoder;

bool IsControl(wchar_t character) noexcept {
  return character < 0x20 || (character >= 0x7F && character < 0xA0) || character == 0x2028 || character == 0x2029;
}

// With embeddings and overrides.
bool IsDirectionMark(wchar_t character) noexcept {
  return character == 0x061C || (character >= 0x200E && character <= 0x200F) ||
         (character >= 0x202A && character <= 0x202E) || (character >= 0x2066 && character <= 0x2069);
}

// As Printable shows it.
std::string PrintedForm(wchar_t character) {
  if (!IsPlain(character)) return " ";
  const ZStringEncoder local(ZString(&character, 1), ZStringEncoder::Local);
  if (local.CStr() != nullptr) return local.CStr();
  return fmt::format("\\x{{{:X}}}", static_cast<unsigned long>(character));
}

// A character that the locale does not have takes as many columns as what stands for it.
std::size_t ColumnsOf(wchar_t character) {
  if (character >= 0x20 && character < 0x7F) return 1;
  const int columns = IsPlain(character) ? wcwidth(character) : 1;
  return columns < 0 ? PrintedForm(character).size() : static_cast<std::size_t>(columns);
}

bool IsUnreserved(char character) noexcept {
  const auto byte = static_cast<unsigned char>(character);
  return (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') ||
         std::string_view("-._~").find(character) != std::string_view::npos;
}

// 1024 to the power that the suffix stands for; 0 for no suffix.
unsigned long long UnitOf(char suffix) noexcept {
  switch (suffix) {
    case 'k':
    case 'K':
      return 1ULL << 10;
    case 'm':
    case 'M':
      return 1ULL << 20;
    case 'g':
    case 'G':
      return 1ULL << 30;
    default:
      return 0;
  }
}

}  // namespace

std::string ToUtf8(const ZString& text) {
  const ZStringEncoder encoder(text, ZStringEncoder::Utf8);
  return {encoder.CStr(), encoder.Length()};
}

ZString FromUtf8(std::string_view text) { return ZStringDecoder::FromUtf8(text.data(), text.size()); }

std::optional<ZString> DecodeLocal(const std::string& bytes) {
  ZString text = ZStringDecoder::FromLocal(bytes.data(), bytes.size());
  const ZStringEncoder again(text, ZStringEncoder::Local);
  if (again.CStr() == nullptr || std::string_view(again.CStr(), again.Length()) != bytes) return std::nullopt;
  return text;
}

std::string DisplayName(const std::string& bytes) {
  if (const std::optional<ZString> text = DecodeLocal(bytes)) return ToUtf8(*text);
  std::string shown;
  for (const char character : bytes) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte < 0x80) {
      shown += character;
    } else {
      shown += fmt::format("\\x{:02X}", byte);
    }
  }
  return shown;
}

bool IsPlain(wchar_t character) noexcept { return !IsControl(character) && !IsDirectionMark(character); }

std::string Printable(std::string_view utf8) {
  std::string printed;
  const ZString text = FromUtf8(utf8);
  for (const wchar_t character : text.Str()) printed += PrintedForm(character);
  return printed;
}

std::size_t DisplayWidth(std::string_view utf8) {
  std::size_t columns = 0;
  const ZString text = FromUtf8(utf8);
  for (const wchar_t character : text.Str()) columns += ColumnsOf(character);
  return columns;
}

std::string Shorten(std::string_view utf8, std::size_t columns) {
  if (DisplayWidth(utf8) <= columns) return std::string(utf8);
  constexpr std::string_view kMark = "...";
  if (columns <= kMark.size()) return std::string(kMark.substr(0, columns));
  ZString kept;
  std::size_t used = kMark.size();
  const ZString text = FromUtf8(utf8);
  for (const wchar_t character : text.Str()) {
    used += ColumnsOf(character);
    if (used > columns) break;
    kept.Append(character);
  }
  return ToUtf8(kept).append(kMark);
}

std::string WithoutPeriod(std::string sentence) {
  while (!sentence.empty() && (sentence.back() == '.' || sentence.back() == '\n')) sentence.pop_back();
  return sentence;
}

std::string AsClause(std::string sentence) {
  const auto isCapital = [](char letter) { return letter >= 'A' && letter <= 'Z'; };
  // "FTP" stays.
  if (sentence.size() > 1 && isCapital(sentence[0]) && !isCapital(sentence[1])) {
    sentence.front() = static_cast<char>(sentence.front() - 'A' + 'a');
  }
  return WithoutPeriod(std::move(sentence));
}

std::string FormatBytes(unsigned long long bytes) {
  if (bytes < 1024) return fmt::format("{} B", bytes);
  constexpr std::array<const char*, 6> kUnits = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  double amount = static_cast<double>(bytes) / 1024.0;
  std::size_t unit = 0;
  while (amount >= 1023.95 && unit + 1 < kUnits.size()) {  // what rounds to 1024.0 is one of the next unit
    amount /= 1024.0;
    ++unit;
  }
  return fmt::format("{:.1f} {}", amount, kUnits[unit]);
}

std::string FormatDuration(unsigned long long seconds) {
  if (seconds < 3600) return fmt::format("{}:{:02}", seconds / 60, seconds % 60);
  return fmt::format("{}:{:02}:{:02}", seconds / 3600, seconds / 60 % 60, seconds % 60);
}

std::string ShellQuote(std::string_view word) {
  const auto isPlain = [](char character) {
    return IsUnreserved(character) || std::string_view("/:=@%+,").find(character) != std::string_view::npos;
  };
  if (!word.empty() && word.front() != '~' && std::all_of(word.begin(), word.end(), isPlain)) return std::string(word);
  std::string quoted = "'";
  for (const char character : word) {
    if (character == '\'') {
      quoted += "'\\''";
    } else {
      quoted += character;
    }
  }
  return quoted + "'";
}

std::optional<unsigned long long> ParseNumber(std::string_view text) {
  unsigned long long number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || rest != end) return std::nullopt;
  return number;
}

std::optional<unsigned long long> ParseSize(std::string_view text) {
  const unsigned long long unit = text.empty() ? 0 : UnitOf(text.back());
  if (unit != 0) text.remove_suffix(1);
  const std::optional<unsigned long long> number = ParseNumber(text);
  if (!number || unit == 0) return number;
  if (*number > ULLONG_MAX / unit) return std::nullopt;
  return *number * unit;
}

std::string PercentEncode(std::string_view utf8) {
  std::string encoded;
  for (const char character : utf8) {
    if (IsUnreserved(character)) {
      encoded += character;
    } else {
      encoded += fmt::format("%{:02X}", static_cast<unsigned char>(character));
    }
  }
  return encoded;
}

}  // namespace CorvaneCli
