#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include <Corvane/Base/String.h>
#include <Corvane/MultiDownload.h>

namespace Corvane {

// What servers show of a directory: the readers of listings, for whatever fetches more than one file. They are
// functions over values, which look nothing up and keep nothing; all that they touch is the log. They use the base
// library and the names in which a host is told what was left out.

enum class ListingKind {
  File,
  Folder,
  Link,    // a symbolic link, to whatever it may be
  Special  // a device, FIFO or socket
};

// Something in the directory. The name is a plain file name, see IsPlainFileName.
struct ListingEntry {
  ZString name;
  unsigned long long size = 0;  // bytes, of files; 0: not known
  ListingKind kind = ListingKind::File;
};

inline constexpr std::size_t kMostLeftOutNames = 100;
inline constexpr std::size_t kMostLeftOutLength = 255;

struct Listing {
  bool recognised = false;            // the text says that it is a listing, be it an empty one
  std::vector<ListingEntry> entries;  // in the order of the text; of entries with the same name the last counts
  std::size_t leftOut = 0;            // what was shown and is no entry
  std::vector<LeftOut> leftOutNames;  // the first of these
};

// Reads the directory page of an HTTP server: `text` is the answer's header followed by its body. Takes links between
// the first "<pre>" and the first "</pre>" whose text ends what they lead to. Sizes are read from pages of IIS alone.
// Links that lead around, to the parent directory or to another order of the page, are neither entries nor left out.
Listing ParseHttpListing(const ZString& text);
// The same for the two parts of that text. A page may be very large: it is copied only when it cannot be read by
// itself.
Listing ParseHttpListing(const ZString& header, const ZString& page);

// Reads the listing of an FTP server, in the Unix long format or the DOS format, line by line.
Listing ParseFtpListing(const ZString& text);

// --- What the readers share. ---

// Servers are not trusted: a name must stay inside the directory that it is used in.
[[nodiscard]] bool IsPlainFileName(std::wstring_view name);
// What follows the last slash; empty when that ends the path.
[[nodiscard]] std::wstring_view FileNameOf(std::wstring_view path);
// Counts what is left out; names the first kMostLeftOutNames, each with as many characters as kMostLeftOutLength.
void LeaveOut(Listing& listing, std::wstring_view name, LeftOutReason reason);
// Adds an entry named by what follows the last slash, or leaves it out when that is no name.
void AddEntry(Listing& listing, std::wstring_view path, unsigned long long size, ListingKind kind);

}  // namespace Corvane
