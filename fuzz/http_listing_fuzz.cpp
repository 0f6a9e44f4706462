// The parser of directory pages. The input is the header text of an answer followed by its page, as bytes. Whatever it is:
//   - every name is a plain file name, and what is left out is bounded (see Parse);
//   - parsing a page again on top of its own entries changes nothing;
//   - only a page of IIS has sizes, and the name of the server changes nothing but these;
//   - nothing behind the end of the listing matters.

#include "fuzz/Listings.h"

namespace {

using namespace CorvaneFuzz;

bool HasListing(const ZString& text) {
  const ZString lower = text.Lower();
  return lower.Find(L"<pre>") != ZString::npos && lower.Find(L"</pre>") != ZString::npos;
}

bool IsIis(const ZString& text) { return text.Lower().Find(L"server: microsoft-iis") != ZString::npos; }

FileSizeList WithoutSizes(FileSizeList entries) {
  for (auto& entry : entries) entry.second = 0;
  return entries;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ZString text = TextOf(data, size);
  const FileSizeList files = Parse(&Corvane::ParseHttpListing, text);
  FileSizeList again = files;
  Parse(&Corvane::ParseHttpListing, text, again);
  Require(again == files, "the second time gives the same");
  Require(IsIis(text) || files == WithoutSizes(files), "only IIS shows sizes");
  Require(HasListing(text) || files.empty(), "entries stand in a listing");

  const FileSizeList ofIis = Parse(&Corvane::ParseHttpListing, text + L"\nserver: microsoft-iis");
  Require(WithoutSizes(ofIis) == WithoutSizes(files), "the names are the same for every server");

  if (!HasListing(text)) return 0;
  const ZString more(L"\n'\"><a href=\"more\">more</a><pre><a href='more'>more</a></pre>");
  Require(Parse(&Corvane::ParseHttpListing, text + more) == files, "the listing ends at its first end");
  return 0;
}
