#pragma once

#include <functional>
#include <optional>
#include <string>

#include <Corvane/TreeDownload.h>

#include "apps/corvane/Report.h"
#include "apps/corvane/Sync/Journal.h"

namespace CorvaneCli {

// What --json prints of a run or a plan, piece by piece, so that a tree of many files needs no second copy in memory. The result
// returns a piece with each call, and nullopt behind the last. All arguments must outlive it; `journal` has been sorted.
[[nodiscard]] std::function<std::optional<std::string>()> MakeSyncJson(
    const Report& report, bool isPlan, const Corvane::ZTreeDownload::Statistics& statistics,
    const SyncJournal& journal);

}  // namespace CorvaneCli
