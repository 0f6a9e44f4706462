#pragma once

#include <string>

namespace CorvaneCli {

// Why the file `path` took no more data, and what to do about it: "the reason; the remedy". libcurl only knows that a
// block was not stored, and the library's code does not keep the errno, so the reason is looked for in what the system
// tells now. Where the disk still takes data it was memory that ran out.
[[nodiscard]] std::string ExplainWriteFailure(const std::string& path);

// The same for what is kept in memory.
inline constexpr const char* kMemoryRanOut = "memory ran out; free some memory, then try again";

}  // namespace CorvaneCli
