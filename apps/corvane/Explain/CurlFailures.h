#pragma once

#include "apps/corvane/ExitCode.h"

namespace CorvaneCli {

// A failure code of libcurl, by its number in libcurl-errors(3), which never changes: the program sees libcurl only
// through the library's codes.
struct CurlFailure {
  unsigned int number;  // 0 for any that is not in the table
  const char* meaning;
  const char* remedy;  // null: made for the case, since the download cannot be resumed
  ExitCode code = ExitCode::kTransfer;
};

// The failure of that number; one that stands for all others when the table does not have it.
[[nodiscard]] const CurlFailure& FindCurlFailure(unsigned int number);

}  // namespace CorvaneCli
