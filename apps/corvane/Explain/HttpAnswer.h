#pragma once

#include <optional>
#include <string>
#include <string_view>

// What a server answered, read from the response header.
namespace CorvaneCli {

// The last HTTP status line of `header`, such as "404 Not Found", with the usual phrase when the server sent none
// (HTTP/2). `status` receives the number; empty text and 0 when there is none.
[[nodiscard]] std::string LastHttpStatus(std::string_view header, int& status);

// Whether the last answer in `header` came to the end of its header lines, which an empty line is. libcurl takes one that ended
// earlier for whole: no length was announced yet.
[[nodiscard]] bool HasWholeHeader(std::string_view header) noexcept;

// The value of the last header `name` (in lower case, with its colon), valid as long as `header`.
[[nodiscard]] std::string_view LastHeader(std::string_view header, std::string_view name);

// The status with which a proxy refused the tunnel for https, from libcurl's words for a failure to receive (code 56). nullopt when
// they tell of something else.
[[nodiscard]] std::optional<int> TunnelStatusIn(std::string_view text) noexcept;

}  // namespace CorvaneCli
