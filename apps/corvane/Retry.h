#pragma once

#include <chrono>
#include <ctime>
#include <optional>
#include <string_view>

#include "apps/corvane/Report.h"

// Which failed transfers are worth another attempt, and how long to wait before it. Pure functions, safe on any thread.
namespace CorvaneCli {

// Whether the reason of a failure may be gone later without anybody's help: a connection that could not be made, was reset, or
// ended too early, a TLS handshake that the peer broke off, a time-out, an overloaded server (HTTP 408, 429, 500, 502, 503, 504;
// FTP 421, 425, 426, 450, 451, 452). False for a success, an abort, all local failures, refused certificates and logins, and other
// answers; and for names that cannot be resolved: libcurl does not tell a resolver that was busy, which has repeated its question
// by then, from a name that is wrong, and nobody wants to wait for the latter.
//
// report: its `status`, `cause` and `causeText` count, the latter as libcurl wrote it.
// httpStatus: see ZTransfer::GetHttpStatus; pass 0 where the body of any answer is a success (--accept-http-errors).
[[nodiscard]] bool MayPass(const Report& report, long httpStatus);

// The longest that a server's Retry-After is waited for. One that asks for more is better asked by the user, later.
inline constexpr std::chrono::seconds kLongestRetryAfter = std::chrono::hours(1);

// How long the value of a Retry-After field (RFC 9110, section 10.2.3) asks to wait, counted from `now`: a number of seconds, or a
// date in any of HTTP's three forms. At least 0 (a date that is over) and at most 2,147,483,647 seconds, also for larger numbers.
// nullopt for anything else.
[[nodiscard]] std::optional<std::chrono::seconds> RetryAfter(std::string_view value, std::time_t now);

// How long to wait before a repetition, where the server does not say: `first` before number 1, then twice as long each time, and
// never more than a minute, or than `first` where that is more. 0 before number 0, which is no repetition.
[[nodiscard]] std::chrono::milliseconds WaitBefore(unsigned int retry, std::chrono::milliseconds first);

}  // namespace CorvaneCli
