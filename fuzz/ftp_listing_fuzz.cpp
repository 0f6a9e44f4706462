// The parser of FTP listings. The input is a listing as bytes. Whatever it is:
//   - the files are those that a literal second reader takes;
//   - every name is a plain file name, and what is left out is bounded (see AddFiles);
//   - lines stand for themselves: a listing cut in two between lines gives the entries of the whole;
//   - empty lines, blanks around lines and the kind of line end do not matter;
//   - the time grows no faster than the listing.

#include "fuzz/LinearTime.h"
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
  Require(files == PlainFiles(ReadFtpLiterally(text)), "the files are those of the rules");

  const std::size_t cut = MiddleLine(text);
  FileSizeList halves = Parse(&Corvane::ParseFtpListing, text.Substr(0, cut));
  AddFiles(Corvane::ParseFtpListing(text.Substr(cut)), halves);
  Require(halves == files, "lines stand for themselves");

  Require(Parse(&Corvane::ParseFtpListing, Loosened(text)) == files, "space around lines does not matter");
  if (IsTimed(data, size)) RequireLinearTime(&Corvane::ParseFtpListing, text);
  return 0;
}
