#pragma once

#include <map>
#include <string>
#include <string_view>

namespace Corvane {

class Descriptor;

// SHA-2 checksums in lower-case hexadecimal digits.
class Checksum {
 public:
  enum class Kind { Sha256, Sha512 };

  [[nodiscard]] static std::string OfText(Kind kind, std::string_view text);
  // Of the whole file, wherever it stands. Empty when it cannot be read; the reason is in errno.
  [[nodiscard]] static std::string OfFile(Kind kind, const Descriptor& file);
};

// What a list of checksums says of files: the output of sha256sum(1) and sha512sum(1), in the form "DIGITS  NAME" with their escapes,
// and with --tag, "SHA256 (NAME) = DIGITS".
using ChecksumList = std::map<std::string, std::string, std::less<>>;  // name, digits

// Lines that are none of both, and digits of another length, are left aside; "./" in front of a name does not count. A name that comes
// twice with different digits gets an empty text, which no file has.
[[nodiscard]] ChecksumList ParseChecksums(std::string_view text, Checksum::Kind kind);

}  // namespace Corvane
