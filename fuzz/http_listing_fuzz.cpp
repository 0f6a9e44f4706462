// The parser of directory pages. The input is the header text of an answer followed by its page, as bytes. Whatever it
// is:
//   - the files are those that a literal second reader takes;
//   - every name is a plain file name, and what is left out is bounded (see AddFiles);
//   - nothing behind the end of the listing matters;
//   - header and page give by themselves what they give as one text, wherever one ends and the other begins;
//   - the time grows no faster than the page.

#include <algorithm>

#include "fuzz/LinearTime.h"
#include "fuzz/Listings.h"

namespace {

using namespace CorvaneFuzz;

bool HasListing(const ZString& text) {
  const ZString lower = text.Lower();
  return lower.Find(L"<pre>") != ZString::npos && lower.Find(L"</pre>") != ZString::npos;
}

// Up to the listing, or to as much of it as is no text of tags.
std::size_t HeaderLength(const ZString& text) { return std::min(text.Find(L'<'), text.Length()); }

Listing ParsePage(const ZString& text) { return Corvane::ParseHttpListing(text); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ZString text = TextOf(data, size);
  const FileSizeList files = Parse(&ParsePage, text);
  Require(files == PlainFiles(ReadHttpLiterally(text)), "the files are those of the rules");

  for (const std::size_t cut : {MiddleLine(text), HeaderLength(text), text.Length() / 2}) {
    const Listing listing = Corvane::ParseHttpListing(text.Substr(0, cut), text.Substr(cut));
    Require(FilesOf(listing) == files, "the parts give what the whole gives");
  }

  if (IsTimed(data, size)) RequireLinearTime(&ParsePage, text);
  if (!HasListing(text)) return 0;
  const ZString more(L"\n'\"><a href=\"more\">more</a><pre><a href='more'>more</a></pre>");
  Require(Parse(&ParsePage, text + more) == files, "the listing ends at its first end");
  return 0;
}
