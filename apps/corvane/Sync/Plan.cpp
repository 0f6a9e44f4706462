#include "apps/corvane/Sync/Plan.h"

#include <fmt/core.h>

#include <string_view>

#include "apps/corvane/Sync/Words.h"
#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

using Corvane::ZTreeDownload;
using Action = ZTreeDownload::Action;

// What a part holds already is known only when it is continued.
std::string FormatBytesToCome(const SyncJournal& journal, const ZTreeDownload::Statistics& statistics) {
  if (!statistics.totalBytes) return "how many bytes is not known";
  const bool hasParts = journal.Count(Action::Continue) != 0;
  return FormatBytes(*statistics.totalBytes) + (hasParts ? " to come at most" : " to come");
}

}  // namespace

std::string FormatPlanLine(const ZTreeDownload::Item& item) {
  const std::string size = item.size ? FormatBytes(*item.size) : "-";
  // What failed says more than why it was looked at.
  const std::string failure = WithoutPeriod(ToUtf8(item.text));
  const std::string_view reason = failure.empty() ? WordsFor(item.reason).text : std::string_view(failure);
  const bool hasFailed = Corvane::IsFailure(item.result) && item.action != Action::Refuse;
  const std::string_view action = hasFailed ? "fail" : WordsFor(item.action).plan;
  std::string line = fmt::format("{:<9}  {:>10}  {}", action, size, ShownPath(item));
  if (!reason.empty()) line += fmt::format("  ({})", reason);
  return line;
}

std::string FormatPlanTotals(const SyncJournal& journal, const ZTreeDownload::Statistics& statistics) {
  std::string totals =
      fmt::format("{} to fetch, {} to continue, {} to keep, {} to delete", journal.Count(Action::Fetch),
                  journal.Count(Action::Continue), statistics.filesKept, statistics.filesDeleted);
  if (journal.FailureCount() != 0) totals += fmt::format(", {} failed", journal.FailureCount());
  if (statistics.leftOut != 0) totals += fmt::format(", {} left out", statistics.leftOut);
  return totals + "; " + FormatBytesToCome(journal, statistics);
}

}  // namespace CorvaneCli
