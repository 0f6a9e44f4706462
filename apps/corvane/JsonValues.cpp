#include "apps/corvane/JsonValues.h"

#include <cstddef>
#include <string_view>

#include "apps/corvane/Text.h"
#include "apps/corvane/Utf8.h"

namespace CorvaneCli {
namespace {

// The first bytes in UTF-8 of all that is not plain and that JSON leaves as it is: a delete, the second set of control characters,
// separators of lines, marks of direction. None is beyond U+FFFF.
constexpr std::string_view kSuspects = "\x7F\xC2\xD8\xE2";

}  // namespace

std::string Dump(const Json& value, int indent) {
  const std::string dumped = value.dump(indent, ' ', false, Json::error_handler_t::replace);
  std::string safe;
  std::size_t done = 0;
  for (std::size_t at = dumped.find_first_of(kSuspects); at != std::string::npos;
       at = dumped.find_first_of(kSuspects, at + 1)) {
    const std::size_t length = Utf8Length(std::string_view(dumped).substr(at));
    const Corvane::ZString character = FromUtf8(std::string_view(dumped).substr(at, length));
    if (character.Length() != 1 || IsPlain(character[0])) continue;
    safe.append(dumped, done, at - done).append(fmt::format("\\u{:04x}", static_cast<unsigned int>(character[0])));
    done = at + length;
  }
  return safe.append(dumped, done, std::string::npos);
}

}  // namespace CorvaneCli
