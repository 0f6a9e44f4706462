#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <Corvane/TreeDownload.h>

#include "apps/corvane/Explain.h"
#include "apps/corvane/Options.h"
#include "apps/corvane/Sync/Journal.h"

// What is said of a run over a tree that has failed.
namespace CorvaneCli {

// How a run has ended, as its object tells.
struct SyncEnding {
  Corvane::ZResult status = Corvane::TRANSFER_E_NOT_STARTED;
  std::string text;  // the library's, in UTF-8
  Corvane::ZTreeDownload::Statistics statistics;
};

// Why it failed, by what failed first: the object's name, the reason, "; ", the remedy.
[[nodiscard]] Explanation ExplainSync(const SyncEnding& ending, const SyncCommand& command, const SyncJournal& journal,
                                      const Circumstances& circumstances);

// What else failed, a line each: the first of them, then how many more. areNamed: they were told while they happened.
[[nodiscard]] std::vector<std::string> DescribeOtherFailures(const SyncJournal& journal, bool areNamed);

}  // namespace CorvaneCli
