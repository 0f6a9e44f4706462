#pragma once

#include <string>
#include <string_view>

#include <Corvane/MultiDownload.h>

#include "apps/corvane/Report.h"

// What a server lists and a mirror does not take.
namespace CorvaneCli {

// A word for reports, such as "shortened".
[[nodiscard]] std::string_view WordFor(Corvane::LeftOutReason reason);

// How many of each kind, and what to do: "2 entries are left out of what the server lists: 2 folders; ...". Empty when
// nothing is.
[[nodiscard]] std::string DescribeLeftOut(const Report& report);

// One of them, for the log.
[[nodiscard]] std::string DescribeLeftOut(const Corvane::LeftOut& entry);

}  // namespace CorvaneCli
