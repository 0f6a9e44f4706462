#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace CorvaneCli {

// What is known of an incomplete file: what FILE.part.json says of FILE.part. Texts are UTF-8 without control characters.
struct PartRecord {
  std::string url;                         // without user and password
  std::string validator;                   // see ZTransfer::GetValidator; empty when the server gave none
  std::optional<unsigned long long> size;  // of the complete file in bytes, when the server told it

  bool operator==(const PartRecord&) const = default;
};

// The record as one line of JSON: {"corvane": 1, "url": ..., "validator": ..., "size": ...}, size null when not known. Bytes
// that are not UTF-8 become U+FFFD.
[[nodiscard]] std::string Format(const PartRecord& record);

inline constexpr std::size_t kMostRecordBytes = 65536;

// What Format wrote; keys that it does not know are ignored. nullopt for anything else, in particular what another program or
// another version of the format left, what is larger than that or nested deeply, and texts with control characters: a validator
// goes into a request. Throws only std::bad_alloc.
[[nodiscard]] std::optional<PartRecord> ParsePartRecord(std::string_view text);

}  // namespace CorvaneCli
