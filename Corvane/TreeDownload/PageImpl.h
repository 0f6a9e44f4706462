#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Corvane {

// What servers show of a directory: the readers of pages and listings for a whole tree. They are functions over values:
// they look nothing up, keep nothing, log nothing, and work on the bytes that came. Their time grows with the length of
// the text alone, whatever is or is not in it. Errors: none but std::bad_alloc.
//
// They own the files Page*, Html*, Mlsd* and List* of this folder, and use libcurl's URL parser and nothing else of the
// library. docs/listings.md tells users which servers' columns are trusted, and why.

// Something in the directory.
struct PageEntry {
  // A plain file name as IsPlainName has it, in the server's bytes: percent-escapes decoded, control characters kept.
  std::string name;
  bool isFolder = false;
  std::optional<unsigned long long> size;  // bytes, only when the page shows it exactly; never for folders
  std::optional<long long> time;   // seconds since 1970, UTC, of the beginning of the interval of the last change
  unsigned int timeExactness = 0;  // length of that interval in seconds: 1, 60 or 86400; 0 without a time
};

struct Page {
  bool isListing = false;          // the page is one of a directory, be it an empty one
  bool isTooLong = false;          // there are more entries than were allowed; the rest was not read
  std::vector<PageEntry> entries;  // in the page's order, each name once
  // What was shown and is no entry: links that are not below the page, names that are refused, the file where a folder
  // has the same name, lines that cannot be read; over FTP symbolic links and special files, too.
  std::size_t leftOut = 0;
  std::vector<std::string> leftOutNames;  // the first of these
};

inline constexpr std::size_t kMostLeftOutPageNames = 100;
// Bytes; no file system takes more, and so much is kept of what was left out.
inline constexpr std::size_t kMostNameLength = 255;
// Bytes. Every link that must be put together with the page's address costs as much time as that is long. Servers take
// half of this at most, and no local path comes to it.
inline constexpr std::size_t kMostPageUrlLength = 16384;

// Reads the page that a web server makes of a directory.
//   page: its bytes. url: the absolute address, http or https, that it really came from, after redirects, of at
//   most kMostPageUrlLength bytes; of any other address nothing is a listing. server: the value of the answer's Server
//   field, or empty. mostEntries: more entries than these end the reading.
//
// An entry is what an anchor leads to that is exactly one segment below the directory of `url`, on the same scheme, host
// and port, without a query; a slash at its end makes a folder. Links that lead around are no entries and are not left
// out either: to the page itself in whatever order, to the folders above it, to other servers, to what is not http.
//
// The page is a listing when one of these holds. They are strict, since files may be removed for being on no listing:
//   - a title or heading is "Index of", "Directory listing for" or "Listing of" and a path;
//   - title and heading are alike "HOST - /PATH/", as IIS writes them;
//   - an anchor orders the page as Apache or Caddy do ("?C=N;O=D", "?sort=namedirfirst&order=desc");
//   - nothing is left out for where it leads, no link asks more of the page itself than an order, and every entry is
//     shown by its name (whole, or cut as servers cut long ones) in the text of an anchor; and there is an entry, or a
//     link that calls itself the parent directory. So the list of an unknown server counts, and a home page does not
//     that leads to files below under its own words.
// A page with a link to itself that asks for another part of it ("?page=2") is never a listing: it is not the whole.
[[nodiscard]] Page ReadHtmlPage(std::string_view page, std::string_view url, std::string_view server,
                                std::size_t mostEntries);

// Reads what an FTP server sends for MLSD (RFC 3659, section 7). Lines end with LF or CR LF; times are exact to the
// second. The folder itself and its parent are neither entries nor left out.
[[nodiscard]] Page ReadMlsd(std::string_view text, std::size_t mostEntries);

// Reads what an FTP server sends for LIST: the Unix long format and the DOS format. Sizes only: these times are in a
// zone that nobody tells, so no entry has one, and `now` (seconds since 1970), from which the year of a date without
// one would follow, is not looked at.
[[nodiscard]] Page ReadList(std::string_view text, long long now, std::size_t mostEntries);

// Whether a name may become a file or folder of the tree: neither empty nor "." nor "..", without "/" and NUL, at most
// kMostNameLength bytes. ".corvane" is the program's own, in any case of its letters: some file systems know no case.
[[nodiscard]] bool IsPlainName(std::string_view name) noexcept;

}  // namespace Corvane
