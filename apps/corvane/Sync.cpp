#include <fmt/core.h>

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

#include <Corvane/TreeDownload.h>

#include "apps/corvane/Command.h"
#include "apps/corvane/Failure.h"
#include "apps/corvane/Proxy.h"
#include "apps/corvane/Session.h"
#include "apps/corvane/Sync/Journal.h"
#include "apps/corvane/Sync/Outcome.h"
#include "apps/corvane/Sync/Plan.h"
#include "apps/corvane/Sync/SyncJson.h"
#include "apps/corvane/Text.h"

// corvane sync: makes a directory hold what a remote one holds, with everything below it.

namespace CorvaneCli {
namespace {

using Corvane::ZString;
using Corvane::ZTreeDownload;
using Phase = ZTreeDownload::Phase;

Corvane::ZTreeOptions OptionsOf(const SyncCommand& command, const RequestOptions& request) {
  Corvane::ZTreeOptions options;
  options.mostConnections = command.connections;
  options.mostDepth = command.depth;
  options.include = Corvane::Container::ZStringList(command.include.begin(), command.include.end());
  options.exclude = Corvane::Container::ZStringList(command.exclude.begin(), command.exclude.end());
  options.deleteOthers = command.deletes;
  options.mostDeletes = command.mostDeletes;
  options.verify = command.verifies;
  options.stopAtFirstFailure = command.failsFast;
  options.mostRetries = request.retries;
  options.retryWaitMs = static_cast<unsigned int>(request.retryWait.count());
  options.mostRedirects = request.redirects;
  options.headers = Corvane::Container::ZStringList(request.headers.begin(), request.headers.end());
  options.userAgent = request.userAgent;
  return options;
}

// Of the files to fetch. What is done with the others has been decided before.
FileProgress FilesOf(const ZTreeDownload::Statistics& statistics) {
  const std::size_t wanted = statistics.filesToFetch;
  const std::size_t decided = statistics.filesKnown - std::min(wanted, statistics.filesKnown);
  const std::size_t settled =
      statistics.filesFetched + statistics.filesResumed + statistics.filesKept + statistics.filesFailed;
  return {std::min(settled - std::min(decided, settled), wanted), wanted};
}

// deletes: the last phase comes without deleting, too.
ProgressSample Sample(const ZTreeDownload& tree, bool deletes) {
  const ZTreeDownload::Statistics statistics = tree.GetStatistics();
  ProgressSample sample;
  switch (statistics.phase) {
    case Phase::Idle:
    case Phase::Listing:
      sample.tree = TreeProgress{"listing", statistics.folders, statistics.filesKnown};
      return sample;
    case Phase::Comparing:
      sample.tree = TreeProgress{"comparing", statistics.folders, statistics.filesKnown};
      return sample;
    case Phase::Deleting:
      if (!deletes) break;
      sample.tree = TreeProgress{"deleting", statistics.folders, statistics.filesKnown};
      return sample;
    case Phase::Fetching:
      break;
  }
  sample.bytes = statistics.bytesHere;
  sample.total = statistics.totalBytes;
  sample.received = statistics.receivedBytes;
  sample.files = FilesOf(statistics);
  sample.inFlight = statistics.inFlight;
  return sample;
}

class Sync {
 public:
  Sync(const SyncCommand& command, Environment& environment, Report& report)
      : m_command(command),
        m_environment(environment),
        m_report(report),
        m_journal(environment.logging, command.isPlan, command.isPlan || environment.line.common.json) {}

  // Throws Failure.
  void Run();
  // What goes to the standard output, behind a run or a failed one.
  [[nodiscard]] ExitCode Print(ExitCode code);

 private:
  void Transfer();
  void TellOfTheTree() const;
  void TellSummary() const;
  [[nodiscard]] std::string Summary(std::size_t columns = kAnyWidth) const;
  [[nodiscard]] ExitCode PrintPlan(ExitCode code);
  [[nodiscard]] std::string GoOn() const;
  [[noreturn]] void Fail();

  const SyncCommand& m_command;
  Environment& m_environment;
  Report& m_report;
  TransferSettings m_settings;
  SyncJournal m_journal;
  SyncEnding m_ending;
};

void Sync::Run() {
  m_settings = PrepareTransfers(m_command.target, m_environment);
  TellOfDirectoryUrl(m_command.target, m_command.fragment, m_environment);
  Transfer();
  TellOfTheTree();
  if (Corvane::IsFailure(m_ending.status)) Fail();
  if (!m_command.isPlan) TellSummary();
}

void Sync::Transfer() {
  const std::optional<ZString> directory = DecodeLocal(m_command.directory);
  if (!directory) {
    throw Failure(ExitCode::kLocal,
                  fmt::format("cannot sync into {}: the locale cannot express the name; set LC_ALL=C.UTF-8, or choose "
                              "another name",
                              DisplayName(m_command.directory)));
  }
  ZTreeDownload tree;
  RequireSet(tree.SetTimeout(m_settings.timeoutSeconds));
  Configure(tree, m_settings);
  RequireSet(tree.SetOptions(OptionsOf(m_command, m_settings.request)));
  tree.Attach(&m_journal);
  RunWatched(
      m_environment, DisplayName(m_command.directory), true,
      [&] {
        m_command.isPlan ? tree.Plan(m_command.target.url, *directory)
                         : tree.Download(m_command.target.url, *directory);
      },
      [&] { tree.Abort(); }, [&] { return Sample(tree, m_command.deletes); });
  tree.Detach(&m_journal);
  m_ending = {tree.GetStatus(), HideProxySecrets(ToUtf8(tree.GetError())), tree.GetStatistics()};
  m_report.status = m_ending.status;
  m_report.libraryText = m_ending.text;
  m_environment.logging.Tell(fmt::format("ended with 0x{:08x}, {} requests, {} bytes, {} ms", m_ending.status,
                                         m_ending.statistics.requests, m_ending.statistics.receivedBytes,
                                         m_ending.statistics.elapsedMs));
}

// Nothing that a server shows is lost silently.
void Sync::TellOfTheTree() const {
  const ZTreeDownload::Statistics& statistics = m_ending.statistics;
  if (statistics.leftOut != 0) {
    TellNote(m_environment,
             fmt::format("{} left out of what the server shows: no file or folder with a plain name; -v names {}",
                         statistics.leftOut == 1 ? "1 entry is" : fmt::format("{} entries are", statistics.leftOut),
                         statistics.leftOut == 1 ? "it" : "them"));
  }
  if (statistics.filesWithoutChecksum != 0) {
    TellNote(m_environment, fmt::format("{} came without a check: no SHA512SUMS or SHA256SUMS of the server names {}",
                                        statistics.filesWithoutChecksum == 1
                                            ? "1 file"
                                            : fmt::format("{} files", statistics.filesWithoutChecksum),
                                        statistics.filesWithoutChecksum == 1 ? "it" : "them"));
  }
  if (m_command.deletes && !m_command.isPlan && statistics.foldersFailed != 0) {
    TellNote(m_environment, "nothing was deleted, since not all of the tree could be listed");
  }
  if (!Corvane::IsFailure(m_ending.status) && statistics.filesKnown == 0) {
    const bool isFiltered = !m_command.include.empty() || !m_command.exclude.empty();
    TellNote(m_environment, fmt::format("the server shows no file below {}{}", m_command.target.display,
                                        isFiltered ? " that the patterns let through" : ""));
  }
}

std::string Sync::Summary(std::size_t columns) const {
  const ZTreeDownload::Statistics& statistics = m_ending.statistics;
  TreeSummary summary;
  summary.fetched = statistics.filesFetched;
  summary.continued = statistics.filesResumed;
  summary.kept = statistics.filesKept;
  if (m_command.deletes) summary.deleted = statistics.filesDeleted;
  summary.failed = statistics.filesFailed + statistics.foldersFailed;
  summary.leftOut = statistics.leftOut;
  summary.bytes = statistics.receivedBytes;
  summary.milliseconds = statistics.elapsedMs;
  return FormatSummary(DisplayName(m_command.directory), summary, columns);
}

void Sync::TellSummary() const {
  const std::string summary = Summary();
  const CommonOptions& common = m_environment.line.common;
  const bool isShown = !common.quiet && !common.json && m_environment.console.IsTerminal();
  if (!isShown) return m_environment.logging.Tell(summary);
  m_environment.console.FinishStatus(Summary(m_environment.console.Columns()));
  m_environment.logging.Record(summary);
}

std::string Sync::GoOn() const {
  if (m_environment.line.hasUnrepeatableWords) return "the same command goes on from here";
  std::string words = CommandWords(m_environment);
  words.pop_back();
  return "the same command goes on from here: " + words;
}

void Sync::Fail() {
  const bool isInterrupted = WasInterrupted(m_environment);
  const Explanation explanation =
      ExplainSync(m_ending, m_command, m_journal, CircumstancesOf(m_command.target, m_settings, m_environment));
  if (!isInterrupted) m_report.notes = DescribeOtherFailures(m_journal, m_environment.line.common.verbose);
  const ZTreeDownload::Statistics& statistics = m_ending.statistics;
  if (!m_command.isPlan && (isInterrupted || statistics.filesKnown != 0)) {
    m_report.notes.push_back(Summary());
    m_report.notes.push_back(GoOn());
  }
  if (isInterrupted) throw Failure(ExitCode::kInterrupted, "interrupted");
  throw Failure(explanation.code, fmt::format("cannot sync {}: {}", m_command.target.display, explanation.text));
}

ExitCode Sync::Print(ExitCode code) {
  if (code == ExitCode::kUsage) return code;
  m_journal.SortItems();
  if (m_environment.line.common.json) {
    return PrintPieces(MakeSyncJson(m_report, m_command.isPlan, m_ending.statistics, m_journal), code, m_environment);
  }
  const bool isPlanMade = m_command.isPlan && (code == ExitCode::kSuccess || !m_journal.Items().empty());
  return isPlanMade ? PrintPlan(code) : code;
}

// What cannot be had is in it, too; the message has told why it is not the whole.
ExitCode Sync::PrintPlan(ExitCode code) {
  const auto& items = m_journal.Items();
  bool isDone = false;
  const auto nextPiece = [&, next = std::size_t{0}]() mutable -> std::optional<std::string> {
    if (isDone) return std::nullopt;
    std::string piece;
    for (; next < items.size() && piece.size() < kOutputPieceBytes; ++next)
      piece += Printable(FormatPlanLine(items[next])) + '\n';
    isDone = next == items.size();
    if (isDone) piece += Printable(FormatPlanTotals(m_journal, m_ending.statistics)) + '\n';
    return piece;
  };
  return PrintPieces(nextPiece, code, m_environment);
}

}  // namespace

ExitCode RunSync(const SyncCommand& command, Environment& environment) {
  Report report = MakeReport("sync", command.target, std::nullopt);
  report.directory = DisplayName(command.directory);
  environment.interrupt.emplace();
  Sync sync(command, environment, report);
  const ExitCode code = sync.Print(RunTold(report, environment, [&] { sync.Run(); }));
  environment.interrupt.reset();
  return code;
}

}  // namespace CorvaneCli
