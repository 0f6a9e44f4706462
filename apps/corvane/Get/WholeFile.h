#pragma once

#include <string>

#include "apps/corvane/Command.h"
#include "apps/corvane/Report.h"
#include "apps/corvane/Session.h"

// Whether a file that is here is the whole of what is to be fetched.
namespace CorvaneCli {

// The SHA-256 checksum of an open file, in lower case. path: for messages. Throws Failure.
[[nodiscard]] std::string ChecksumOf(int descriptor, const std::string& path, Environment& environment);

// Whether the file `path` has this SHA-256 checksum. Throws Failure.
[[nodiscard]] bool HasChecksum(const std::string& path, const std::string& checksum, Environment& environment);

// Asks the server for the last few bytes of `target`: whether the file `path` ends with the same, is as long, and is
// younger than the last change that the server tells. Fills the report when it is.
[[nodiscard]] bool IsWhole(const std::string& path, const Target& target, const std::string& label, Session& session,
                           Report& report);

}  // namespace CorvaneCli
