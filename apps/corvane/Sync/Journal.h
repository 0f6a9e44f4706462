#pragma once

#include <array>
#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include <Corvane/TreeDownload.h>

#include "apps/corvane/Logging.h"

namespace CorvaneCli {

// Notes what becomes of every file of a run. How much it keeps does not grow with the tree, unless it is asked to keep all.
// Thread safety: one thread.
class SyncJournal : public Corvane::ZTreeDownload::Observer {
 public:
  using Item = Corvane::ZTreeDownload::Item;
  using Action = Corvane::ZTreeDownload::Action;

  // isPlan: what comes are plans, not deeds. keepsAll: every item is kept, for a plan or a report that shows them all.
  SyncJournal(Logging& logging, bool isPlan, bool keepsAll)
      : m_logging(logging), m_isPlan(isPlan), m_keepsAll(keepsAll) {}

  void Update(const Item& item) override;

  // How many items had this action and did not fail.
  [[nodiscard]] std::size_t Count(Action action) const { return m_counts[static_cast<std::size_t>(action)]; }
  // Those that failed: how many, and the first of them in their order.
  [[nodiscard]] std::size_t FailureCount() const noexcept { return m_failureCount; }
  [[nodiscard]] const std::vector<Item>& Failures() const noexcept { return m_failures; }
  // All, by their paths; empty when they were not to be kept. `SortItems` first.
  [[nodiscard]] const std::deque<Item>& Items() const noexcept { return m_items; }
  void SortItems();

  static constexpr std::size_t kMostFailures = 20;

 private:
  void Log(const Item& item) const;

  Logging& m_logging;
  const bool m_isPlan;
  const bool m_keepsAll;
  static constexpr std::size_t kActions = static_cast<std::size_t>(Action::Refuse) + 1;
  std::array<std::size_t, kActions> m_counts{};
  std::size_t m_failureCount = 0;
  std::vector<Item> m_failures;
  std::deque<Item> m_items;  // grows without being copied, whatever the number
};

// The item's path as a message shows it.
[[nodiscard]] std::string ShownPath(const Corvane::ZTreeDownload::Item& item);

}  // namespace CorvaneCli
