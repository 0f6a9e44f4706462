#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace Corvane {

// What is kept beside a file that is under way: which file it is, and of which version what is there.
struct PartRecord {
  std::string path;                        // below the directory
  std::string url;                         // that the content was asked for
  std::string validator;                   // of the version, as ValidatorOf and FileVersion give it
  std::optional<unsigned long long> size;  // of the whole, if known

  bool operator==(const PartRecord& other) const {
    return path == other.path && url == other.url && validator == other.validator && size == other.size;
  }
};

// Lines "NAME VALUE" with all but printing ASCII characters escaped, the first names the format, the last is "end": what was cut off
// is no record.
[[nodiscard]] std::string TextOf(const PartRecord& record);
// None for what TextOf does not make.
[[nodiscard]] std::optional<PartRecord> ParsePartRecord(std::string_view text);

}  // namespace Corvane
