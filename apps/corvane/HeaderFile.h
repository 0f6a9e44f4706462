#pragma once

#include <string>
#include <vector>

#include <Corvane/Base/String.h>

// Request headers as the user gives them: "NAME: VALUE". What the library would refuse (see ZTransferOptions) is refused here, with
// words that tell why. Values are often secrets: no message shows one.
namespace CorvaneCli {

// The headers in the file `path`, one on each line; lines end with LF or CRLF, empty ones and those that begin with "#" are skipped.
// The file is UTF-8, at most 1 MiB, and may be a pipe, which is read to its end. Throws Failure(kUsage), which names the line, for
// what is no header or cannot be read.
[[nodiscard]] std::vector<Corvane::ZString> ReadHeaderFile(const std::string& path);

// `value`, as it came from the command line with `option`, under the same rules. Throws Failure(kUsage).
[[nodiscard]] Corvane::ZString CheckedHeader(const char* option, const std::string& value);

// Throws Failure(kUsage) when two of these headers, from wherever they came, have the same name: the library takes each only once.
void RefuseRepeatedHeaders(const std::vector<Corvane::ZString>& headers);

}  // namespace CorvaneCli
