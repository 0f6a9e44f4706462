#include "apps/corvane/Sync/Outcome.h"

#include <fmt/core.h>

#include <cerrno>

#include <Corvane/Base/ErrorDict.h>

#include "apps/corvane/Explain/WriteFailure.h"
#include "apps/corvane/Files.h"
#include "apps/corvane/Proxy.h"
#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

using Corvane::ZTreeDownload;
using Item = ZTreeDownload::Item;
using Action = ZTreeDownload::Action;
using Reason = ZTreeDownload::Reason;

constexpr unsigned int kRangeError = 33;

std::string TextOf(const Item& item) { return HideProxySecrets(ToUtf8(item.text)); }

// The directory itself has the path "/".
bool IsTop(const Item& item) { return item.path == "/"; }

// A pattern that matches the item, and nothing else.
std::string PatternOf(const Item& item) {
  std::string pattern = "/";
  for (const char character : ShownPath(item)) {
    if (std::string_view("*?[\\").find(character) != std::string_view::npos) pattern += '\\';
    pattern += character;
  }
  while (pattern.back() == '/') pattern.pop_back();
  return pattern;
}

std::string RemedyByExcluding(const Item& item) { return "leave it out with --exclude " + ShellQuote(PatternOf(item)); }

// What its own table knows best: answers of HTTP, and failures of libcurl.
Explanation ExplainTransfer(const Item& item, Circumstances circumstances) {
  Report report;
  report.status = item.result;
  report.cause = item.result;
  report.causeText = TextOf(item);
  report.libraryText = report.causeText;
  report.httpStatus = item.httpStatus;
  if (item.httpStatus != 0) report.header = fmt::format("HTTP/1.1 {}\r\n", item.httpStatus);
  if (!IsTop(item)) {
    circumstances.fileName = ShownPath(item);
    circumstances.leaveOut = RemedyByExcluding(item);
  }
  return Explain(report, circumstances);
}

Explanation ExplainAnswer(const Item& item, const Circumstances& circumstances) {
  if (item.httpStatus >= 400) return ExplainTransfer(item, circumstances);
  const char* const remedy = item.httpStatus >= 300
                                 ? "ask for that address itself, if you trust it, or allow more with --redirects N"
                                 : "ask the server's operator";
  return {ExitCode::kTransfer, fmt::format("{}; {}", AsClause(TextOf(item)), remedy)};
}

Explanation ExplainFolder(const Item& item) {
  const std::string text = AsClause(TextOf(item));
  if (item.reason == Reason::NotComparable) {
    return {ExitCode::kTransfer, fmt::format("{}; {}", text, IsTop(item) ? "check the URL" : RemedyByExcluding(item))};
  }
  if (item.reason == Reason::InTheWay) {
    return {ExitCode::kLocal, fmt::format("{}; remove what is there, or {}", text, RemedyByExcluding(item))};
  }
  return {ExitCode::kLocal, WithoutPeriod(TextOf(item)) + "; check the disk and the permissions"};
}

Explanation ExplainItem(const Item& item, const Circumstances& circumstances) {
  switch (item.result) {
    case Corvane::TRANSFER_E_CONNECT:
      return ExplainAnswer(item, circumstances);
    case Corvane::TRANSFER_E_SIZE_MISMATCH:
      return {ExitCode::kTransfer, fmt::format("{}; try again, it may just have changed; if that does not help, {}",
                                               AsClause(TextOf(item)), RemedyByExcluding(item))};
    case Corvane::TRANSFER_E_DISK_SPACE:
      return {ExitCode::kLocal, WithoutPeriod(TextOf(item)) + "; free some space"};
    case Corvane::TRANSFER_E_CURL_BASE | kRangeError:
      return {ExitCode::kTransfer, AsClause(TextOf(item)) + "; try again later"};
    case Corvane::TRANSFER_E_DOWNLOAD:
      break;
    default:
      return ExplainTransfer(item, circumstances);
  }
  if (item.isFolder || item.reason == Reason::InTheWay) return ExplainFolder(item);
  return {ExitCode::kLocal, WithoutPeriod(TextOf(item)) + "; check the disk and the permissions"};
}

// A list of checksums could not be had; its text names it.
Explanation ExplainChecksums(const SyncEnding& ending, const Circumstances& circumstances) {
  if (ending.status == Corvane::TRANSFER_E_CONNECT) {
    return {ExitCode::kTransfer, WithoutPeriod(ending.text) + "; try again later, or go without --verify"};
  }
  Report report;
  report.status = report.cause = ending.status;
  report.causeText = ending.text;
  return Explain(report, circumstances);
}

Explanation ExplainRefusalToDelete(const SyncEnding& ending, const SyncCommand& command) {
  const auto remedy = [&] {
    if (ending.statistics.filesKnown == 0) return "check the URL and the patterns";
    if (command.mostDeletes) return "look at them with --plan and a larger --max-delete";
    return "look at them with --plan --max-delete N, and allow so many";
  };
  return {ExitCode::kTransfer, fmt::format("{}; {}", AsClause(ending.text), remedy())};
}

// What did not happen to one file or folder.
Explanation ExplainRun(const SyncEnding& ending, const SyncCommand& command, const Circumstances& circumstances) {
  const std::string text = WithoutPeriod(ending.text);
  if (ending.text == ToUtf8(Corvane::ZGetErrorMsg(Corvane::ResultFromErrno(ENOMEM)))) {
    return {ExitCode::kLocal, kMemoryRanOut};
  }
  switch (ending.status) {
    case Corvane::BASE_E_IN_USE:
      return {ExitCode::kLocal, text + "; wait until it has ended"};
    case Corvane::TRANSFER_E_DISK_SPACE:
      return {ExitCode::kLocal, text + "; free some space"};
    case Corvane::TRANSFER_E_INVALID_URL:
      return {ExitCode::kTransfer, text + "; check the URL"};
    case Corvane::TRANSFER_E_DOWNLOAD:
      break;
    default:
      return ExplainChecksums(ending, circumstances);
  }
  const bool hasBegun = ending.statistics.requests != 0;
  if (hasBegun) return ExplainRefusalToDelete(ending, command);
  return {ExitCode::kLocal, text + "; choose another directory, or change the permissions"};
}

// The library tells of one failure by the text of the item.
bool IsOfItem(const SyncEnding& ending, const Item& item) {
  const std::string text = TextOf(item);
  return item.result == ending.status && ending.text.size() >= text.size() &&
         ending.text.compare(ending.text.size() - text.size(), text.size(), text) == 0;
}

std::string CountOf(const ZTreeDownload::Statistics& statistics) {
  const auto count = [](std::size_t number, const char* thing) {
    return fmt::format("{} {}{}", number, thing, number == 1 ? "" : "s");
  };
  if (statistics.foldersFailed == 0) return count(statistics.filesFailed, "file");
  if (statistics.filesFailed == 0) return count(statistics.foldersFailed, "folder");
  return count(statistics.filesFailed, "file") + " and " + count(statistics.foldersFailed, "folder");
}

}  // namespace

Explanation ExplainSync(const SyncEnding& ending, const SyncCommand& command, const SyncJournal& journal,
                        const Circumstances& circumstances) {
  if (journal.Failures().empty() || !IsOfItem(ending, journal.Failures().front())) {
    return ExplainRun(ending, command, circumstances);
  }
  const Item& first = journal.Failures().front();
  Explanation explanation = ExplainItem(first, circumstances);
  if (!IsTop(first)) explanation.text = fmt::format("{}: {}", ShownPath(first), explanation.text);
  if (journal.FailureCount() > 1) {
    explanation.text = fmt::format("{} failed, first {}", CountOf(ending.statistics), explanation.text);
  }
  return explanation;
}

std::vector<std::string> DescribeOtherFailures(const SyncJournal& journal, bool areNamed) {
  std::vector<std::string> lines;
  const std::vector<Item>& failures = journal.Failures();
  if (areNamed || failures.size() < 2) return lines;
  for (std::size_t i = 1; i < failures.size(); ++i) {
    lines.push_back(fmt::format("also failed: {}: {}", ShownPath(failures[i]), AsClause(TextOf(failures[i]))));
  }
  const std::size_t more = journal.FailureCount() - failures.size();
  if (more != 0) lines.push_back(fmt::format("and {} more; -v names them all", more));
  return lines;
}

}  // namespace CorvaneCli
