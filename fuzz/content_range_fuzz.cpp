// The reader of Content-Range. The input is the field's value. Whatever it is:
//   - the range is the one that a literal second reader takes, a pattern;
//   - a range lies within itself: first <= last < total;
//   - a range that is written again is read as the same;
//   - a header announces it, whatever other answers and fields stand around it, but none when a second one differs.

#include <Corvane/Transfer/ContentRangeImpl.h>

#include <cerrno>
#include <cstdlib>
#include <regex>

#include "fuzz/Input.h"
#include "fuzz/Require.h"

namespace {

using namespace CorvaneFuzz;
using Corvane::ContentRange;
using Number = std::optional<unsigned long long>;

bool ReadNumber(const std::string& digits, Number& number) {
  errno = 0;
  if (!digits.empty()) number = std::strtoull(digits.c_str(), nullptr, 10);
  return errno == 0;
}

std::optional<ContentRange> ReadLiterally(const std::string& value) {
  static const std::regex pattern("[^0-9*]*([0-9]+)-([0-9]*)(?:/(?:\\*|([0-9]+)))?[ \\t\\r\\n]*");
  std::smatch found;
  Number first, last, total;
  if (!std::regex_match(value, found, pattern)) return std::nullopt;
  if (!ReadNumber(found[1], first) || !ReadNumber(found[2], last) || !ReadNumber(found[3], total)) return std::nullopt;
  const unsigned long long end = last ? *last : *first;
  if (end < *first || (total && *total <= end)) return std::nullopt;
  return ContentRange{*first, last, total};
}

std::string Written(const ContentRange& range) {
  return "bytes " + std::to_string(range.first) + "-" + (range.last ? std::to_string(*range.last) : "") + "/" +
         (range.total ? std::to_string(*range.total) : "*");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string value(BytesOf(data, std::min<std::size_t>(size, 1000)));  // the pattern's reader is recursive
  const std::optional<ContentRange> range = Corvane::ParseContentRange(value);
  Require(range == ReadLiterally(value), "the range is that of the rules");
  if (!range) return 0;
  Require(Corvane::ParseContentRange(Written(*range)) == range, "a range that is written again is the same");
  const std::string field = "content-RANGE: " + Written(*range) + "\r\n";
  const std::string header =
      "HTTP/1.1 401 No\r\nContent-Range: bytes 1-2/3\r\n\r\nHTTP/1.1 206 Yes\r\nX: y\r\n" + field;
  Require(Corvane::AnnouncedRange(header + field + "\r\n") == range, "the last answer announces it");
  const std::string other = "Content-Range: bytes " + std::to_string(range->first ^ 1U) + "-\r\n\r\n";
  Require(!Corvane::AnnouncedRange(header + other), "two that differ announce nothing");
  return 0;
}
