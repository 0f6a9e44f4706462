// The parser of FTP listings. The input is a listing as bytes. Whatever it is:
//   - every name is a plain file name (see Parse);
//   - parsing a listing again on top of its own entries changes nothing;
//   - lines stand for themselves: a listing cut in two between lines gives the entries of the whole;
//   - empty lines, blanks around lines and the kind of line end do not matter.

#include "fuzz/Listings.h"

namespace {

using namespace CorvaneFuzz;

// The same lines, each with blanks around it, between empty ones.
ZString Loosened(const ZString& text) {
  ZString loosened(L"\r\n \n");
  for (const wchar_t character : text.Str()) {
    if (character == L'\n' || character == L'\r') {
      loosened.Append(ZString(L" \r\n\n\t "));
    } else {
      loosened.Append(character);
    }
  }
  return loosened + L"\r";
}

// The position of the line that is about in the middle.
std::size_t MiddleLine(const ZString& text) {
  const std::size_t end = text.Str().find_first_of(L"\r\n", text.Length() / 2);
  return end == ZString::npos ? text.Length() : end;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Impl run;  // costly to make; its entries are all that a parser changes
  run.m_fileSizes.clear();
  const ZString text = TextOf(data, size);
  const FileSizeList entries = Parse(run, &Impl::ParseFtpListing, text);
  Require(Parse(run, &Impl::ParseFtpListing, text) == entries, "the second time gives the same");

  run.m_fileSizes.clear();
  const std::size_t cut = MiddleLine(text);
  Parse(run, &Impl::ParseFtpListing, text.Substr(0, cut));
  Require(Parse(run, &Impl::ParseFtpListing, text.Substr(cut)) == entries, "lines stand for themselves");

  run.m_fileSizes.clear();
  Require(Parse(run, &Impl::ParseFtpListing, Loosened(text)) == entries, "space around lines does not matter");
  return 0;
}
