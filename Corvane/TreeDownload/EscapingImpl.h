#pragma once

#include <string>
#include <string_view>

namespace Corvane {

// Percent-encodes all bytes but the unreserved characters of RFC 3986, section 2.3.
[[nodiscard]] std::string Escaped(std::string_view bytes);
// The inverse. A "%" without two hexadecimal digits stays as it is.
[[nodiscard]] std::string Unescaped(std::string_view text);

}  // namespace Corvane
