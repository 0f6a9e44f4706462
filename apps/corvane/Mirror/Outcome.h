#pragma once

#include <string>

#include "apps/corvane/Explain.h"
#include "apps/corvane/Options.h"
#include "apps/corvane/Report.h"

// What is said of a mirror that has failed.
namespace CorvaneCli {

// Why it failed, also when all that is wrong is the size of some files.
[[nodiscard]] Explanation ExplainMirror(const Report& report, const MirrorCommand& command,
                                        const Circumstances& circumstances);

// What the directory holds of the mirror, and what another run makes of it; empty when there is nothing.
// again: the words of the command, see CommandWords.
[[nodiscard]] std::string DescribeKept(const Report& report, const MirrorCommand& command,
                                       const Circumstances& circumstances, const std::string& again);

}  // namespace CorvaneCli
