#pragma once

#include <string>

#include "apps/corvane/Report.h"

namespace CorvaneCli {

// The report as one JSON object (UTF-8, indented, ended by a line feed). Sizes are bytes, the rate is KiB per second,
// contentSize and partial are null when there are none, result codes are texts such as "0x00010000".
[[nodiscard]] std::string FormatJson(const Report& report);

}  // namespace CorvaneCli
