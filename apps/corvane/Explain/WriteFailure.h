#pragma once

#include <string>

namespace CorvaneCli {

// Why the file or directory `path` took no more data, and what to do about it: "the reason; the remedy".
[[nodiscard]] std::string ExplainWriteFailure(const std::string& path);

}  // namespace CorvaneCli
