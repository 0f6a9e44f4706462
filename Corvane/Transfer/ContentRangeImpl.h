#pragma once

#include <optional>
#include <string_view>

namespace Corvane {

// What a Content-Range field (RFC 9110, section 14.4) says of the part that an answer holds.
struct ContentRange {
  unsigned long long first = 0;             // offset of the part's first byte
  std::optional<unsigned long long> last;   // offset of its last byte
  std::optional<unsigned long long> total;  // length of the whole resource
  bool operator==(const ContentRange& other) const noexcept {
    return first == other.first && last == other.last && total == other.total;
  }
};

// Reads the field's value. As libcurl does, it takes any word, or none, for the unit. None for an unsatisfied range ("bytes */N"), and
// for what is no range or contradicts itself.
[[nodiscard]] std::optional<ContentRange> ParseContentRange(std::string_view value);

// The range that the last of the answers in `header` (lines as received, those of earlier answers before it) announces. None when it
// announces none, or several that differ: the last is not more believable than the first.
[[nodiscard]] std::optional<ContentRange> AnnouncedRange(std::string_view header);

}  // namespace Corvane
