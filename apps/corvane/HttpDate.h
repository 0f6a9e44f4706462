#pragma once

#include <ctime>
#include <optional>
#include <string_view>

namespace CorvaneCli {

// The seconds since 1970 of a date in one of HTTP's three forms (RFC 9110, section 5.6.7):
//
//   Sun, 06 Nov 1994 08:49:37 GMT      the one to use
//   Sunday, 06-Nov-94 08:49:37 GMT     its year is the one that is not more than 50 years after `now`
//   Sun Nov  6 08:49:37 1994
//
// nullopt for anything else, such as other blanks, another zone or a day that the month does not have. A wrong day of the week does
// not count; a 60th second is that of the next minute. Years 0 to 9999.
[[nodiscard]] std::optional<long long> ParseHttpDate(std::string_view text, std::time_t now);

}  // namespace CorvaneCli
