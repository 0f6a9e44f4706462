#include <Corvane/Transfer/ContentRangeImpl.h>

#include <strings.h>

#include <charconv>
#include <system_error>

namespace Corvane {
namespace {

constexpr std::string_view kDigits = "0123456789";

// Takes the number that `text` begins with off it. None when there is none, or it is out of range.
std::optional<unsigned long long> TakeNumber(std::string_view& text) {
  unsigned long long number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc()) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

bool Take(std::string_view& text, char character) {
  if (!text.starts_with(character)) return false;
  text.remove_prefix(1);
  return true;
}

bool IsConsistent(const ContentRange& range) {
  if (range.last && *range.last < range.first) return false;
  return !range.total || *range.total > range.last.value_or(range.first);
}

bool BeginsWithNoCase(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && strncasecmp(text.data(), prefix.data(), prefix.size()) == 0;
}

}  // namespace

std::optional<ContentRange> ParseContentRange(std::string_view value) {
  const std::size_t begin = value.find_first_of("0123456789*");
  if (begin == std::string_view::npos) return std::nullopt;
  value.remove_prefix(begin);
  value = value.substr(0, value.find_last_not_of(" \t\r\n") + 1);
  const std::optional<unsigned long long> first = TakeNumber(value);
  if (!first || !Take(value, '-')) return std::nullopt;

  ContentRange range{*first, std::nullopt, std::nullopt};
  if (!value.empty() && kDigits.find(value.front()) != std::string_view::npos) {
    if (!(range.last = TakeNumber(value))) return std::nullopt;
  }
  if (Take(value, '/') && !Take(value, '*')) {
    if (!(range.total = TakeNumber(value))) return std::nullopt;
  }
  if (!value.empty() || !IsConsistent(range)) return std::nullopt;
  return range;
}

std::optional<ContentRange> AnnouncedRange(std::string_view header) {
  constexpr std::string_view kField = "content-range:";
  std::optional<ContentRange> announced;
  bool isUnbelievable = false;
  while (!header.empty()) {
    const std::string_view line = header.substr(0, header.find('\n') + 1);  // npos + 1 is 0: a line without an end
    header.remove_prefix(line.empty() ? header.size() : line.size());
    if (BeginsWithNoCase(line, "HTTP/")) {
      announced.reset();
      isUnbelievable = false;
    } else if (BeginsWithNoCase(line, kField)) {
      const std::optional<ContentRange> range = ParseContentRange(line.substr(kField.size()));
      if (!range || (announced && !(*announced == *range))) isUnbelievable = true;
      announced = range;
    }
  }
  return isUnbelievable ? std::nullopt : announced;
}

}  // namespace Corvane
