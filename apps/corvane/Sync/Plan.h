#pragma once

#include <string>

#include <Corvane/TreeDownload.h>

#include "apps/corvane/Sync/Journal.h"

// A plan for people, in UTF-8; a line is not yet safe for a terminal.
namespace CorvaneCli {

// "fetch        1.2 KiB  src/a.c  (not here)".
[[nodiscard]] std::string FormatPlanLine(const Corvane::ZTreeDownload::Item& item);

// "12 files to fetch, 1 to continue, 100 to keep, 2 to delete; 5.0 MiB to come".
[[nodiscard]] std::string FormatPlanTotals(const SyncJournal& journal,
                                           const Corvane::ZTreeDownload::Statistics& statistics);

}  // namespace CorvaneCli
