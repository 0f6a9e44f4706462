// The parser of directory pages. The input is the header text of an answer followed by its page, as bytes. Whatever it is:
//   - every name is a plain file name (see Parse);
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
  static Impl run;  // costly to make; its entries are all that a parser changes
  run.m_fileSizes.clear();
  const ZString text = TextOf(data, size);
  const FileSizeList entries = Parse(run, &Impl::ParseHttpListing, text);
  Require(Parse(run, &Impl::ParseHttpListing, text) == entries, "the second time gives the same");
  Require(IsIis(text) || entries == WithoutSizes(entries), "only IIS shows sizes");
  Require(HasListing(text) || entries.empty(), "entries stand in a listing");

  run.m_fileSizes.clear();
  const FileSizeList ofIis = Parse(run, &Impl::ParseHttpListing, text + L"\nserver: microsoft-iis");
  Require(WithoutSizes(ofIis) == WithoutSizes(entries), "the names are the same for every server");

  if (!HasListing(text)) return 0;
  run.m_fileSizes.clear();
  const ZString more(L"\n'\"><a href=\"more\">more</a><pre><a href='more'>more</a></pre>");
  Require(Parse(run, &Impl::ParseHttpListing, text + more) == entries, "the listing ends at its first end");
  return 0;
}
