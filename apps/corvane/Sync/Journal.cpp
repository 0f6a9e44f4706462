#include "apps/corvane/Sync/Journal.h"

#include <fmt/core.h>

#include <algorithm>

#include "apps/corvane/Sync/Words.h"
#include "apps/corvane/Text.h"

namespace CorvaneCli {

void SyncJournal::Update(const Item& item) {
  if (Corvane::IsFailure(item.result)) {
    ++m_failureCount;
    if (m_failures.size() < kMostFailures) m_failures.push_back(item);
  } else {
    const auto action = static_cast<std::size_t>(item.action);
    if (action < m_counts.size()) ++m_counts[action];
  }
  if (m_keepsAll) m_items.push_back(item);
  if (m_logging.IsOn()) Log(item);
}

// The library logs what fails. What is kept is not worth a line: a run over a tree that has not changed is nothing else.
void SyncJournal::Log(const Item& item) const {
  if (m_isPlan && item.action != Action::LeaveOut) return;
  if (Corvane::IsFailure(item.result) || item.action == Action::Keep) return;
  std::string line = fmt::format("{}: {}", WordsFor(item.action).past, ShownPath(item));
  const std::string_view reason = WordsFor(item.reason).text;
  if (!reason.empty()) line += fmt::format(" ({})", reason);
  if (item.size) line += fmt::format(", {} bytes", *item.size);
  m_logging.Tell(line);
}

void SyncJournal::SortItems() {
  std::stable_sort(m_items.begin(), m_items.end(), [](const Item& a, const Item& b) { return a.path < b.path; });
}

std::string ShownPath(const Corvane::ZTreeDownload::Item& item) { return DisplayName(item.path); }

}  // namespace CorvaneCli
