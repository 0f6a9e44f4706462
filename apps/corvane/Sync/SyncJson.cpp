#include "apps/corvane/Sync/SyncJson.h"

#include <cstddef>

#include "apps/corvane/Command.h"
#include "apps/corvane/JsonValues.h"
#include "apps/corvane/Proxy.h"
#include "apps/corvane/Sync/Words.h"
#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

using Corvane::ZTreeDownload;

Json StatisticsOf(const ZTreeDownload::Statistics& statistics) {
  return {{"folders", statistics.folders},
          {"filesKnown", statistics.filesKnown},
          {"filesToFetch", statistics.filesToFetch},
          {"filesFetched", statistics.filesFetched},
          {"filesResumed", statistics.filesResumed},
          {"filesKept", statistics.filesKept},
          {"filesFailed", statistics.filesFailed},
          {"foldersFailed", statistics.foldersFailed},
          {"filesDeleted", statistics.filesDeleted},
          {"filesWithoutChecksum", statistics.filesWithoutChecksum},
          {"leftOut", statistics.leftOut},
          {"inFlight", statistics.inFlight},
          {"connections", statistics.connections},
          {"requests", statistics.requests},
          {"totalBytes", OrNull(statistics.totalBytes)},
          {"bytesHere", statistics.bytesHere},
          {"receivedBytes", statistics.receivedBytes},
          {"listingBytes", statistics.listingBytes},
          {"elapsedMs", statistics.elapsedMs}};
}

Json FileOf(const ZTreeDownload::Item& item) {
  return {{"path", item.path},
          {"isFolder", item.isFolder},
          {"action", WordsFor(item.action).value},
          {"reason", OrNull(std::string(WordsFor(item.reason).value))},
          {"size", OrNull(item.size)},
          {"status", FormatCode(item.result)},
          {"error", OrNull(HideProxySecrets(ToUtf8(item.text)))},
          {"attempts", item.attempts},
          {"httpStatus", item.httpStatus == 0 ? Json(nullptr) : Json(item.httpStatus)}};
}

// The object up to the bracket that opens its last member, the list of files.
std::string HeadOf(const Report& report, bool isPlan, const ZTreeDownload::Statistics& statistics) {
  const Json object = {{"operation", report.operation},
                       {"isPlan", isPlan},
                       {"url", report.url},
                       {"directory", OrNull(report.directory)},
                       {"status", FormatCode(report.status)},
                       {"error", OrNull(report.error)},
                       {"exitCode", static_cast<int>(report.exitCode)},
                       {"statistics", StatisticsOf(statistics)}};
  std::string head = Dump(object, 2);
  head.erase(head.rfind('\n'));
  return head + ",\n  \"files\": [";
}

class Pieces {
 public:
  Pieces(std::string head, const SyncJournal& journal) : m_head(std::move(head)), m_journal(journal) {}

  std::optional<std::string> operator()() {
    if (m_isDone) return std::nullopt;
    std::string piece;
    piece.swap(m_head);
    const std::deque<ZTreeDownload::Item>& items = m_journal.Items();
    for (; m_next < items.size() && piece.size() < kOutputPieceBytes; ++m_next) {
      piece += m_next == 0 ? "\n    " : ",\n    ";
      piece += Dump(FileOf(items[m_next]), -1);
    }
    m_isDone = m_next == items.size();
    if (m_isDone) piece += items.empty() ? "]\n}\n" : "\n  ]\n}\n";
    return piece;
  }

 private:
  std::string m_head;
  const SyncJournal& m_journal;
  std::size_t m_next = 0;
  bool m_isDone = false;
};

}  // namespace

std::function<std::optional<std::string>()> MakeSyncJson(const Report& report, bool isPlan,
                                                         const ZTreeDownload::Statistics& statistics,
                                                         const SyncJournal& journal) {
  return Pieces(HeadOf(report, isPlan, statistics), journal);
}

}  // namespace CorvaneCli
