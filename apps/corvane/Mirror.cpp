#include <fmt/core.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <optional>
#include <utility>

#include <Corvane/Base/Dir.h>
#include <Corvane/Base/ErrorDict.h>
#include <Corvane/Base/File.h>
#include <Corvane/Base/Path.h>
#include <Corvane/Base/Url.h>
#include <Corvane/MultiDownload.h>

#include "apps/corvane/Command.h"
#include "apps/corvane/Failure.h"
#include "apps/corvane/FileList.h"
#include "apps/corvane/Files.h"
#include "apps/corvane/Session.h"
#include "apps/corvane/Text.h"

// corvane mirror: fetches the files of a directory into a directory.

namespace CorvaneCli {
namespace {

using Corvane::ZMultiDownload;
using Corvane::ZString;
using Corvane::ZTransfer;

constexpr const char* kDoing = "cannot mirror";

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
  void CheckSizes() const;
  void TellSummary() const;
  [[nodiscard]] bool IsIgnored(const ZString& name) const;
  [[nodiscard]] ZString LocalPath(const ZString& name) const { return (Corvane::ZPath(m_directory) / name).ToString(); }
  [[nodiscard]] std::optional<unsigned long long> TotalSize() const;
  [[nodiscard]] Report AskForDirectory();
  [[nodiscard]] Circumstances TheCircumstances() const;
  [[nodiscard]] Explanation ExplainFailure();
  [[noreturn]] void Fail();

  const MirrorCommand& m_command;
  Environment& m_environment;
  Report& m_report;
  TransferSettings m_settings;
  ZString m_directory;
  FileList m_sizes;
  FileList m_times;
  EventRecorder m_recorder;
};

void Mirror::Run() {
  ReadLists();
  m_settings = PrepareTransfers(m_command.target, m_environment);
  PrepareDirectory();
  SpareFilesFromAnUnreachableServer();
  Transfer();
  if (Corvane::IsFailure(m_report.status)) Fail();
  CheckSizes();
  TellSummary();
}

void Mirror::ReadLists() {
  if (m_command.sizes) m_sizes = ReadFileList(*m_command.sizes, ULLONG_MAX);
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

// With a list of its own the mirror asks for no listing, and the library gives up the old content of a file before it knows
// whether a new one will come. So the server has to answer first when there is something to lose.
void Mirror::SpareFilesFromAnUnreachableServer() {
  const bool hasSomethingToLose = std::any_of(m_sizes.begin(), m_sizes.end(), [this](const auto& entry) {
    unsigned long long size = 0;
    if (!IsIgnored(entry.first)) Corvane::ZFile::GetSize(LocalPath(entry.first), size);
    return size > 0;
  });
  if (!hasSomethingToLose) return;
  const Report answer = AskForDirectory();
  int status = 0;
  static_cast<void>(LastHttpStatus(answer.header, status));
  const bool isRefusedLogin = status == 401 || status == 407;
  // Any other answer will do: many servers show no listing and give the files away all the same.
  if (answer.status == Corvane::TRANSFER_E_CONNECT && status != 0 && !isRefusedLogin) return;
  m_report.status = answer.status;
  m_report.libraryText = answer.libraryText;
  if (Corvane::IsFailure(answer.status)) Fail();
}

// Downloads the directory's own page, to see what the server says.
Report Mirror::AskForDirectory() {
  Report answer;
  Session session(m_command.target, m_settings, m_environment);
  session.Transfer().DetectHttpError(true);
  ZString page;
  const ZString url = Corvane::ZUrl(m_command.target.url + L"/").ToString();
  session.Run(
      m_command.target.Label(), false, [&](ZTransfer& transfer) { transfer.Download(url, page); }, answer);
  return answer;
}

// Known only when the sizes of all files were given.
std::optional<unsigned long long> Mirror::TotalSize() const {
  unsigned long long total = 0;
  for (const auto& [name, size] : m_sizes) {
    if (size == 0) return std::nullopt;
    if (!IsIgnored(name)) total += size;
  }
  return m_sizes.empty() ? std::nullopt : std::optional(total);
}

void Mirror::Transfer() {
  ZMultiDownload mirror;
  Configure(mirror, m_settings);
  mirror.Attach(&m_recorder);
  mirror.SetIgnoreList(m_command.ignored);
  mirror.SetFileSizeList(m_sizes);
  std::map<ZString, long> times;
  for (const auto& [name, time] : m_times) times[name] = static_cast<long>(time);
  mirror.SetFileTimeList(times);

  const unsigned int listings = m_sizes.empty() ? 1 : 0;
  const std::optional<unsigned long long> total = TotalSize();
  const auto sample = [&] {
    const unsigned int begun = m_recorder.Count();
    return ProgressSample{mirror.GetDownloadSize(), total, begun > listings ? begun - listings : 0};
  };
  RunWatched(
      m_environment, DisplayName(m_command.directory), true,
      [&] { mirror.Download(m_command.target.url, m_directory, m_command.resume); }, [&] { mirror.Abort(); }, sample);

  m_report.status = mirror.GetStatus();
  m_report.libraryText = ToUtf8(mirror.GetError());
  m_report.downloadSize = mirror.GetDownloadSize();
  m_report.transferSize = mirror.GetTransferSize();
  m_report.transferRate = mirror.GetTransferRate();
  m_report.transferTimeMs = mirror.GetDownloadTime();
  m_report.events = m_recorder.Events();
  m_environment.logging.Tell(fmt::format("ended with 0x{:08x}, {} bytes, {} ms", m_report.status, m_report.downloadSize,
                                         m_report.transferTimeMs));
}

// The library tells a size that differs only of the last file.
void Mirror::CheckSizes() const {
  for (const auto& [name, expected] : m_sizes) {
    unsigned long long size = 0;
    if (expected == 0 || IsIgnored(name)) continue;
    Corvane::ZFile::GetSize(LocalPath(name), size);
    if (size == expected) continue;
    throw Failure(
        ExitCode::kTransfer,
        fmt::format("{} {}: the file {} has {} bytes and not {}; fetch it again, or check the sizes given with "
                    "--sizes",
                    kDoing, m_command.target.display, ToUtf8(name), size, expected));
  }
}

void Mirror::TellSummary() const {
  const CommonOptions& common = m_environment.line.common;
  if (common.quiet || common.json) return;
  m_environment.console.FinishStatus(
      FormatSummary(DisplayName(m_command.directory), m_report.downloadSize, m_report.transferTimeMs));
}

Circumstances Mirror::TheCircumstances() const {
  const CommonOptions& common = m_environment.line.common;
  return {m_command.target.IsHttps(), common.user.has_value(), common.timeoutSeconds, m_command.directory};
}

Explanation Mirror::ExplainFailure() {
  Report report = m_report;
  report.cause = report.status;
  report.causeText = report.libraryText;
  if (report.status != Corvane::TRANSFER_E_CONNECT) return Explain(report, TheCircumstances());
  // The text for a refused file ends with the header of the answer.
  report.header = report.libraryText.substr(std::min(report.libraryText.find('\n'), report.libraryText.size() - 1) + 1);
  int status = 0;
  static_cast<void>(LastHttpStatus(report.header, status));
  if (status == 0) {
    // Why the connection failed, or the listing was refused, is not told; the server will say it again.
    const Report answer = AskForDirectory();
    if (Corvane::IsFailure(answer.status)) return Explain(answer, TheCircumstances());
  }
  Explanation explanation = Explain(report, TheCircumstances());
  const std::string url = report.libraryText.substr(0, report.libraryText.find('\n'));
  explanation.text = fmt::format("{}: {}", url, explanation.text);
  return explanation;
}

void Mirror::Fail() {
  const bool interrupted = WasInterrupted(m_environment);
  const std::optional<Explanation> explanation = interrupted ? std::nullopt : std::optional(ExplainFailure());
  if (m_report.downloadSize > 0) {
    m_report.notes.push_back(fmt::format("what came is kept in {}; continue with: {}--resume",
                                         DisplayName(m_command.directory), CommandWords(m_environment)));
  }
  if (interrupted) throw Failure(ExitCode::kInterrupted, "interrupted");
  if (explanation->code == ExitCode::kLocal) throw Failure(explanation->code, explanation->text);
  throw Failure(explanation->code, fmt::format("{} {}: {}", kDoing, m_command.target.display, explanation->text));
}

}  // namespace

ExitCode RunMirror(const MirrorCommand& command, Environment& environment) {
  Report report = MakeReport("mirror", command.target, std::nullopt);
  report.directory = DisplayName(command.directory);
  return RunReported(report, environment, [&] { Mirror(command, environment, report).Run(); });
}

}  // namespace CorvaneCli
