// The parser of FTP listings. The input is a listing as bytes. Whatever it is:
//   - every name is a plain file name, and what is left out is bounded (see AddFiles);
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ZString text = TextOf(data, size);
  const FileSizeList files = Parse(&Corvane::ParseFtpListing, text);
  FileSizeList again = files;
  AddFiles(Corvane::ParseFtpListing(text), again);
  Require(again == files, "the second time gives the same");

  const std::size_t cut = MiddleLine(text);
  FileSizeList halves = Parse(&Corvane::ParseFtpListing, text.Substr(0, cut));
  AddFiles(Corvane::ParseFtpListing(text.Substr(cut)), halves);
  Require(halves == files, "lines stand for themselves");

  Require(Parse(&Corvane::ParseFtpListing, Loosened(text)) == files, "space around lines does not matter");
  return 0;
}
