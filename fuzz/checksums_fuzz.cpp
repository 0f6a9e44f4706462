// The reader of lists of checksums. The input is a list. Whatever it is:
//   - digits are lower-case hexadecimal ones of the kind's length, or none for a name with several sums;
//   - a list that is written again, in either form, is read as the same;
//   - the list twice over says the same, in lines of either kind, and after lines that say nothing;
//   - lines stand for themselves: no half of a list knows a name that the whole does not know.

#include <Corvane/TreeDownload/ChecksumsImpl.h>

#include "fuzz/Input.h"
#include "fuzz/Require.h"

namespace {

using namespace CorvaneFuzz;
using Corvane::Checksum;
using Corvane::ChecksumList;
using Corvane::ParseChecksums;

// As the system's programs write it; a name has to be escaped when it would not fit on a line.
std::string Written(const ChecksumList& list, bool isTagged, Checksum::Kind kind) {
  const std::string tag = kind == Checksum::Kind::Sha256 ? "SHA256 (" : "SHA512 (";
  std::string text;
  for (const auto& [name, digits] : list) {
    std::string escaped;
    for (const char c : name) escaped += c == '\\' ? "\\\\" : c == '\n' ? "\\n" : c == '\r' ? "\\r" : std::string(1, c);
    if (escaped != name) text += '\\';
    if (isTagged) {
      text.append(tag).append(escaped).append(") = ").append(digits);
    } else {
      text.append(digits).append(name.size() % 2 == 0 ? " *" : "  ").append(escaped);
    }
    text += '\n';
  }
  return text;
}

void Check(std::string_view text, Checksum::Kind kind) {
  const ChecksumList all = ParseChecksums(text, kind);
  const std::size_t length = kind == Checksum::Kind::Sha256 ? 64 : 128;
  ChecksumList sums;
  for (const auto& [name, digits] : all) {
    Require(digits.find_first_not_of("0123456789abcdef") == digits.npos, "digits are hexadecimal");
    Require(digits.empty() || digits.size() == length, "digits have the kind's length");
    Require(!name.starts_with("./"), "a name does not begin with the folder itself");
    if (!digits.empty() && !name.empty()) sums.emplace(name, digits);
  }
  Require(ParseChecksums(Written(sums, false, kind), kind) == sums, "the same when it is written again");
  Require(ParseChecksums(Written(sums, true, kind), kind) == sums, "the same when it is written with tags");
  const std::string once(text);
  Require(ParseChecksums(once + "\n\r\n0 x\nSHA256 () = \n" + once, kind) == all, "the same twice over");
  const std::size_t middle = std::min(text.find('\n', text.size() / 2), text.size());
  for (const std::string_view half : {text.substr(0, middle), text.substr(middle)}) {
    for (const auto& entry : ParseChecksums(half, kind)) Require(all.contains(entry.first), "lines stand alone");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Check(BytesOf(data, size), Checksum::Kind::Sha256);
  Check(BytesOf(data, size), Checksum::Kind::Sha512);
  return 0;
}
