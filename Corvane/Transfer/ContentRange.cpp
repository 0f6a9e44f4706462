#include <Corvane/Transfer/ContentRangeImpl.h>

#include <charconv>
#include <system_error>

#include <Corvane/Transfer/AnswerHeaderImpl.h>

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
  std::optional<ContentRange> announced;
  std::string_view line;
  for (std::string_view rest = LastAnswer(header); TakeLine(rest, line);) {
    const std::optional<std::string_view> value = FieldOn(line, "Content-Range");
    if (!value) continue;
    const std::optional<ContentRange> range = ParseContentRange(*value);
    if (!range || (announced && !(*announced == *range))) return std::nullopt;
    announced = range;
  }
  return announced;
}

}  // namespace Corvane
