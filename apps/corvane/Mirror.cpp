#include <fmt/core.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include <Corvane/Base/Dir.h>
#include <Corvane/Base/ErrorDict.h>
#include <Corvane/Base/File.h>
#include <Corvane/Base/Path.h>
#include <Corvane/Base/StringCoding.h>
#include <Corvane/Base/Url.h>
#include <Corvane/MultiDownload.h>

#include "apps/corvane/Command.h"
#include "apps/corvane/Explain/HttpAnswer.h"
#include "apps/corvane/Failure.h"
#include "apps/corvane/FileList.h"
#include "apps/corvane/Files.h"
#include "apps/corvane/Mirror/FileModes.h"
#include "apps/corvane/Mirror/LeftOut.h"
#include "apps/corvane/Mirror/Outcome.h"
#include "apps/corvane/Proxy.h"
#include "apps/corvane/Session.h"
#include "apps/corvane/Text.h"

// corvane mirror: fetches the files of a directory into a directory.

namespace CorvaneCli {
namespace {

using Corvane::ZMultiDownload;
using Corvane::ZString;
using Corvane::ZTransfer;

constexpr const char* kDoing = "cannot mirror";

// Counts the events, and notes which files something came for.
class MirrorObserver : public ZTransfer::Observer {
 public:
  explicit MirrorObserver(const ZMultiDownload& mirror) : m_mirror(mirror) {}

  void Update(int event, long value) override {
    ++m_counts[{event, static_cast<unsigned int>(value)}];
    const Corvane::ZStringEncoder name(m_mirror.GetStatistics().fileName, Corvane::ZStringEncoder::Local);
    if (name.CStr() != nullptr && name.Length() != 0) m_fetched.insert(name.CStr());
  }
  [[nodiscard]] const EventCounts& Counts() const noexcept { return m_counts; }
  [[nodiscard]] const std::set<std::string>& Fetched() const noexcept { return m_fetched; }

 private:
  const ZMultiDownload& m_mirror;
  EventCounts m_counts;
  std::set<std::string> m_fetched;  // names as the system has them
};

class Mirror {
 public:
  Mirror(const MirrorCommand& command, Environment& environment, Report& report)
      : m_command(command), m_environment(environment), m_report(report) {}

  void Run();

 private:
  void ReadLists();
  void PrepareDirectory();
  void SpareFilesFromAnUnreachableServer();
  void Transfer();
  void TellOfTheListing() const;
  void RequireAListing() const;
  void TellSummary() const;
  [[nodiscard]] bool IsIgnored(const ZString& name) const;
  [[nodiscard]] ZString LocalPath(const ZString& name) const { return (Corvane::ZPath(m_directory) / name).ToString(); }
  [[nodiscard]] bool WouldBeGivenUp(const ZString& name, unsigned long long expectedSize) const;
  [[nodiscard]] Report AskForDirectory();
  [[nodiscard]] Circumstances TheCircumstances() const;
  [[noreturn]] void Fail();

  const MirrorCommand& m_command;
  Environment& m_environment;
  Report& m_report;
  TransferSettings m_settings;
  ZString m_directory;
  FileList m_sizes;
  FileList m_times;
};

void Mirror::Run() {
  ReadLists();
  m_settings = PrepareTransfers(m_command.target, m_environment);
  m_settings.request = RequestOptions{0, 0, {}, {}, {}};  // a mirror makes plain requests
  PrepareDirectory();
  TellOfDirectoryUrl(m_command.target, m_command.fragment, m_environment);
  SpareFilesFromAnUnreachableServer();
  Transfer();
  TellOfTheListing();
  // The library's status tells a size that differs only of the last file.
  if (Corvane::IsFailure(m_report.status) || m_report.files.filesMismatched > 0) Fail();
  RequireAListing();
  TellSummary();
}

void Mirror::ReadLists() {
  if (m_command.sizes) m_sizes = ReadFileList(*m_command.sizes, ULLONG_MAX);
  // To the library an empty list is none, and it would fetch whatever the server lists.
  if (m_command.sizes && m_sizes.empty()) {
    throw Failure(ExitCode::kUsage,
                  fmt::format("cannot use the list {}: it names no file; leave --sizes out to fetch all",
                              DisplayName(*m_command.sizes)));
  }
  if (m_command.times) m_times = ReadFileList(*m_command.times, LONG_MAX);
}

void Mirror::PrepareDirectory() {
  const auto refuse = [this](const std::string& reason, const char* remedy) {
    throw Failure(ExitCode::kLocal,
                  fmt::format("cannot write into {}: {}; {}", DisplayName(m_command.directory), reason, remedy));
  };
  const std::optional<ZString> directory = DecodeLocal(m_command.directory);
  if (!directory) refuse("the locale cannot express the name", "set LC_ALL=C.UTF-8, or choose another name");
  m_directory = *directory;
  const Corvane::ZResult created = Corvane::ZDir::CreateR(m_directory);
  if (Corvane::IsFailure(created)) {
    refuse(ToUtf8(Corvane::ZGetErrorMsg(created)), "choose another directory, or change the permissions");
  }
  if (access(m_command.directory.c_str(), W_OK | X_OK) != 0) {
    refuse(SystemText(errno), "choose another directory, or change the permissions");
  }
}

bool Mirror::IsIgnored(const ZString& name) const {
  return std::find(m_command.ignored.begin(), m_command.ignored.end(), name) != m_command.ignored.end();
}

// Whether the mirror begins by giving up what the file holds.
bool Mirror::WouldBeGivenUp(const ZString& name, unsigned long long expectedSize) const {
  const Corvane::ZFileInfo local(LocalPath(name), 0);
  if (IsIgnored(name) || !local.IsValid() || local.Size() == 0) return false;
  const auto time = m_times.find(name);
  const bool isStale = time != m_times.end() && static_cast<long long>(time->second) > local.ModTime();
  const bool isTooShort = local.Size() < expectedSize && local.Size() <= kResumeThreshold;
  return !m_command.resume || isStale || isTooShort || local.Size() > expectedSize;
}

// With a list of its own the mirror asks for no listing, and the library gives up the old content of a file before it
// knows whether a new one will come. So the server has to answer first when there is something to lose.
void Mirror::SpareFilesFromAnUnreachableServer() {
  if (std::none_of(m_sizes.begin(), m_sizes.end(),
                   [this](const auto& entry) { return WouldBeGivenUp(entry.first, entry.second); })) {
    return;
  }
  const Report answer = AskForDirectory();
  int status = 0;
  static_cast<void>(LastHttpStatus(answer.header, status));
  const bool isRefusedLogin = status == 401 || status == 407;
  // Any other answer will do: many servers show no listing and give the files away all the same.
  if (answer.status == Corvane::TRANSFER_E_CONNECT && status != 0 && !isRefusedLogin) return;
  if (!Corvane::IsFailure(answer.status)) return;
  m_report.status = answer.status;
  m_report.libraryText = answer.libraryText;
  m_report.cause = answer.cause;
  m_report.causeText = answer.causeText;
  m_report.header = answer.header;
  Fail();
}

// Downloads the directory's own page, to see what the server says.
Report Mirror::AskForDirectory() {
  Report answer;
  Session session(m_command.target, m_settings, m_environment);
  session.Transfer().DetectHttpError(true);
  ZString page;
  const ZString& given = m_command.target.url;
  const ZString::size_type query = std::min(given.Find(L'?'), given.Length());
  const ZString url = Corvane::ZUrl(given.Substr(0, query) + L"/").ToString() + given.Substr(query);
  session.Run(
      m_command.target.Label(), false, [&](ZTransfer& transfer) { transfer.Download(url, page); }, answer);
  return answer;
}

ProgressSample Sample(const ZMultiDownload& mirror) {
  const ZMultiDownload::Statistics files = mirror.GetStatistics();
  // Until it is known what there is to fetch, what comes is the listing.
  if (files.filesKnown == 0) return ProgressSample();
  return {files.presentBytes + files.receivedBytes, files.totalBytes, files.receivedBytes,
          FileProgress{files.filesFetched + files.filesResumed + files.filesSkipped, files.filesKnown}};
}

void Mirror::Transfer() {
  ZMultiDownload mirror;
  Configure(mirror, m_settings);
  MirrorObserver observer(mirror);
  mirror.Attach(&observer);
  mirror.SetIgnoreList(m_command.ignored);
  mirror.SetFileSizeList(m_sizes);
  std::map<ZString, long> times;
  for (const auto& [name, time] : m_times) times[name] = static_cast<long>(time);
  mirror.SetFileTimeList(times);

  const FileModes modes(m_command.directory);
  RunWatched(
      m_environment, DisplayName(m_command.directory), true,
      [&] { mirror.Download(m_command.target.url, m_directory, m_command.resume); }, [&] { mirror.Abort(); },
      [&] { return Sample(mirror); });
  mirror.Detach(&observer);
  modes.Restore(observer.Fetched());

  ZString text;
  ZString header;
  m_report.cause = mirror.GetCause(text, header);
  m_report.causeText = HideProxySecrets(ToUtf8(text));
  m_report.header = ToUtf8(header);
  m_report.files = mirror.GetStatistics();
  m_report.leftOut = mirror.GetLeftOut();
  m_report.status = mirror.GetStatus();
  m_report.libraryText = HideProxySecrets(ToUtf8(mirror.GetError()));
  m_report.downloadSize = mirror.GetDownloadSize();
  m_report.transferSize = mirror.GetTransferSize();
  m_report.transferRate = mirror.GetTransferRate();
  m_report.transferTimeMs = mirror.GetDownloadTime();
  m_report.eventCounts = observer.Counts();
  m_environment.logging.Tell(fmt::format("ended with 0x{:08x}, {} bytes, {} ms", m_report.status, m_report.downloadSize,
                                         m_report.transferTimeMs));
}

// Nothing that a server lists is lost silently.
void Mirror::TellOfTheListing() const {
  const std::string note = DescribeLeftOut(m_report);
  if (!note.empty()) m_environment.console.Note(note);
  for (const Corvane::LeftOut& entry : m_report.leftOut) m_environment.logging.Tell(DescribeLeftOut(entry));
}

void Mirror::RequireAListing() const {
  const ZMultiDownload::Statistics& files = m_report.files;
  if (files.filesKnown > 0 || !files.isListing) return;
  if (!*files.isListing) {
    throw Failure(ExitCode::kTransfer,
                  fmt::format("{} {}: what the server sent is no listing of a directory; check the URL, or name the "
                              "files with --sizes FILE",
                              kDoing, m_command.target.display));
  }
  if (files.leftOut == 0 && m_command.ignored.empty()) {
    m_environment.console.Note(fmt::format("the directory {} is empty", m_command.target.display));
  }
}

void Mirror::TellSummary() const {
  const ZMultiDownload::Statistics& files = m_report.files;
  const MirrorSummary counts{files.filesFetched, files.filesSkipped, files.filesResumed, files.receivedBytes,
                             m_report.transferTimeMs};
  const std::string label = DisplayName(m_command.directory);
  const std::string summary = FormatSummary(label, counts);
  const CommonOptions& common = m_environment.line.common;
  const bool isShown = !common.quiet && !common.json && m_environment.console.IsTerminal();
  if (!isShown) return m_environment.logging.Tell(summary);
  m_environment.console.FinishStatus(FormatSummary(label, counts, m_environment.console.Columns()));
  m_environment.logging.Record(summary);
}

Circumstances Mirror::TheCircumstances() const {
  Circumstances circumstances = CircumstancesOf(m_command.target, m_settings, m_environment);
  const ZString& name = m_report.files.fileName;
  const Corvane::ZStringEncoder path(LocalPath(name), Corvane::ZStringEncoder::Local);
  circumstances.isMirror = true;
  circumstances.fileName = ToUtf8(name);
  circumstances.isNameExpressible = path.CStr() != nullptr;
  circumstances.outputPath = name.IsEmpty() || path.CStr() == nullptr ? m_command.directory : path.CStr();
  return circumstances;
}

void Mirror::Fail() {
  const Circumstances circumstances = TheCircumstances();
  const std::string kept = DescribeKept(m_report, m_command, circumstances, CommandWords(m_environment));
  if (!kept.empty()) m_report.notes.push_back(kept);
  if (WasInterrupted(m_environment)) throw Failure(ExitCode::kInterrupted, "interrupted");
  const Explanation explanation = ExplainMirror(m_report, m_command, circumstances);
  if (explanation.code == ExitCode::kLocal) throw Failure(explanation.code, explanation.text);
  throw Failure(explanation.code, fmt::format("{} {}: {}", kDoing, m_command.target.display, explanation.text));
}

}  // namespace

ExitCode RunMirror(const MirrorCommand& command, Environment& environment) {
  Report report = MakeReport("mirror", command.target, std::nullopt);
  report.directory = DisplayName(command.directory);
  return RunReported(report, environment, [&] { Mirror(command, environment, report).Run(); });
}

}  // namespace CorvaneCli
