#pragma once

#include <chrono>
#include <optional>

#include <curl/curl.h>

// Which failures of a request may pass, and how long to wait before it is made again.

namespace Corvane {

// Whether an answer with this status may be another one soon (RFC 9110, section 15; RFC 8470 for 425).
[[nodiscard]] bool IsPassingHttpStatus(long status) noexcept;

// Whether libcurl's failure may pass; `response` is the last code of the server, for FTP its last reply.
[[nodiscard]] bool IsPassingFailure(CURLcode failure, bool isFtp, long response) noexcept;

// The wait before the `repetition`th repetition, which counts from 1: `first`, then each time twice as long, up to a minute or `first`.
// What the server asked for holds if it is longer, up to an hour.
[[nodiscard]] std::chrono::milliseconds WaitBeforeRepetition(unsigned int repetition, std::chrono::milliseconds first,
                                                             std::chrono::seconds askedFor) noexcept;

}  // namespace Corvane
