#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include <Corvane/Base/String.h>

// Inside the program messages are UTF-8; names for the system are the bytes that came in. These functions convert between
// the two and the libraries' wide strings. Thread safety: all of them from any thread (none changes the locale).
namespace CorvaneCli {

[[nodiscard]] std::string ToUtf8(const Corvane::ZString& text);
[[nodiscard]] Corvane::ZString FromUtf8(std::string_view text);

// What `bytes` say in the locale's encoding; nullopt when the locale cannot express them, so that encoding the text again
// would not give the same bytes.
[[nodiscard]] std::optional<Corvane::ZString> DecodeLocal(const std::string& bytes);

// `bytes` of a name as UTF-8 for a message. Bytes that the locale does not know show as \xNN.
[[nodiscard]] std::string DisplayName(const std::string& bytes);

// Whether a character only stands for itself: no control character (line ends included), no line or paragraph separator, and no
// text direction mark, which would let a server's text rearrange the rest of the line.
[[nodiscard]] bool IsPlain(wchar_t character) noexcept;

// A message in the locale's encoding, safe for a terminal: control characters, line ends included, become blanks, and
// characters that the locale cannot express become \x{N} with their number in hexadecimal.
[[nodiscard]] std::string Printable(std::string_view utf8);

// Number of terminal columns that `utf8` takes as Printable shows it.
[[nodiscard]] std::size_t DisplayWidth(std::string_view utf8);
// The beginning of `utf8` that fits into `columns`, ended by "..." when something was cut off.
[[nodiscard]] std::string Shorten(std::string_view utf8, std::size_t columns);

// `sentence` for the place before a semicolon: without the period at its end.
[[nodiscard]] std::string WithoutPeriod(std::string sentence);
// The same for the middle of another: the first letter is a small one.
[[nodiscard]] std::string AsClause(std::string sentence);

// "812 B", "1.5 KiB", "27.4 MiB" and so on, in steps of 1024.
[[nodiscard]] std::string FormatBytes(unsigned long long bytes);
// "0:05", "12:34", "1:02:03".
[[nodiscard]] std::string FormatDuration(unsigned long long seconds);

// `word` as a POSIX shell takes it: in single quotes unless it needs none.
[[nodiscard]] std::string ShellQuote(std::string_view word);

// A whole decimal number without sign or blanks; nullopt for anything else, or when it does not fit.
[[nodiscard]] std::optional<unsigned long long> ParseNumber(std::string_view text);
// The same with an optional suffix k, M or G (either case) for 1024, 1024^2 or 1024^3.
[[nodiscard]] std::optional<unsigned long long> ParseSize(std::string_view text);

// Every byte of `utf8` but the unreserved characters of RFC 3986 as %XX.
[[nodiscard]] std::string PercentEncode(std::string_view utf8);

}  // namespace CorvaneCli
