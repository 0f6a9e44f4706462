// UTF-8, both ways. The input is a text in UTF-8, and a row of characters of four bytes each. Whatever it is:
//   - what is decoded and what is encoded is what a literal second implementation gives, U+FFFD for what is no character;
//   - what was decoded is encoded and decoded again to the same, and bytes that were valid to the same bytes;
//   - in two pieces that are cut between characters the text is the same.

#include <cstring>

#include "fuzz/Input.h"
#include "fuzz/LiteralUtf8.h"
#include "fuzz/Require.h"

namespace {

using namespace CorvaneFuzz;
using Corvane::ZString;

void CheckDecoding(std::string_view bytes) {
  const ZString text = Wide(bytes);
  Require(text.Str() == DecodeLiterally(bytes), "decodes as the rules say");
  const std::string encoded = Narrow(text);
  Require(Wide(encoded) == text, "what was decoded comes back");
  Require(encoded == bytes || text.Find(wchar_t{0xFFFD}) != ZString::npos, "valid bytes come back");

  std::size_t cut = encoded.size() / 2;
  while (cut > 0 && (static_cast<unsigned char>(encoded[cut]) & 0xC0U) == 0x80U) --cut;
  ZString pieces;
  Corvane::AppendUtf8(pieces, encoded.data(), cut);
  Corvane::AppendUtf8(pieces, encoded.data() + cut, encoded.size() - cut);
  Require(pieces == text, "pieces make the whole");
}

void CheckEncoding(std::string_view bytes) {
  std::wstring characters(bytes.size() / sizeof(wchar_t), L'\0');
  if (!characters.empty()) std::memcpy(characters.data(), bytes.data(), characters.size() * sizeof(wchar_t));
  for (const std::uint32_t mask : {0xFFFFFFFFU, 0x1FFFFFU, 0xFFFFU}) {  // most characters of 32 bits are none
    std::wstring masked = characters;
    for (wchar_t& character : masked) character = static_cast<wchar_t>(static_cast<std::uint32_t>(character) & mask);
    const std::string encoded = Narrow(ZString(masked));
    Require(encoded == EncodeLiterally(masked), "encodes as the rules say");
    Require(Narrow(Wide(encoded)) == encoded, "what was encoded comes back");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  CheckDecoding(BytesOf(data, size));
  CheckEncoding(BytesOf(data, size));
  return 0;
}
