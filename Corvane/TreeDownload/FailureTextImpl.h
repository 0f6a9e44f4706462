#pragma once

#include <Corvane/Base/Result.h>
#include <Corvane/Base/String.h>
#include <Corvane/TreeDownload/JobImpl.h>

namespace Corvane {

// What a request that was not good ended with, for people and for programs.
[[nodiscard]] ZResult CodeOfFailure(const Ending& ending);
[[nodiscard]] ZString TextOfFailure(const Ending& ending);

}  // namespace Corvane
