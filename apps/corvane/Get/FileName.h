#pragma once

#include <optional>
#include <string>
#include <string_view>

// Names for files, from URLs and from what servers suggest. They are hostile. Every name that these functions give is the plain
// name of one file, in UTF-8: never empty, "." or "..", without "/", NUL, other control characters, line separators and text
// direction marks (each "_" instead), without blanks and dots at its end, at most 200 bytes long with a short extension kept.
// Bytes that are not UTF-8 are percent-encoded.
namespace CorvaneCli {

// The last segment of the path of `url`, decoded; "index.html" when there is none, as in "http://h/a/". The name may begin with "."
// or "-": pass the URL of the user, not one to which a server redirected.
[[nodiscard]] std::string NameFromUrl(const std::string& url);

// The name that the value of a Content-Disposition field suggests (RFC 6266): of "filename*" (RFC 8187, in UTF-8 or ISO-8859-1) if
// that is well-formed, else of "filename". Only what is behind its last "/" or "\" counts. A "." or "-" at its beginning becomes "_":
// a server hides no file, and makes no option. nullopt when there is no name, or nothing is left of it.
[[nodiscard]] std::optional<std::string> NameFromDisposition(std::string_view value);

}  // namespace CorvaneCli
