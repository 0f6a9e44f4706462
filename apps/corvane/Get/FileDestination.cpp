#include <fmt/core.h>

#include <memory>
#include <optional>
#include <string>

#include <Corvane/Base/StringCoding.h>
#include <Corvane/TransferOptions.h>

#include "apps/corvane/Explain/HttpAnswer.h"
#include "apps/corvane/Failure.h"
#include "apps/corvane/Get/Destination.h"
#include "apps/corvane/Get/FileName.h"
#include "apps/corvane/Get/WholeFile.h"
#include "apps/corvane/OutputFile.h"
#include "apps/corvane/Progress.h"
#include "apps/corvane/Text.h"

// corvane get into a file. Old and new content are never mixed: what an earlier run or try has left is continued only where
// the server, or a checksum, proves that it belongs to the same version.

namespace CorvaneCli {
namespace {

using Corvane::ZString;
using Corvane::ZTransfer;

std::string LastPart(const std::string& path) {
  const std::string name = path.substr(path.rfind('/') + 1);
  return DisplayName(name.empty() ? path : name);
}

// `name` as the locale spells it; percent-encoded what it cannot express.
std::string LocalName(const std::string& name) {
  const Corvane::ZStringEncoder local(FromUtf8(name), Corvane::ZStringEncoder::Local);
  return local.CStr() != nullptr ? std::string(local.CStr(), local.Length()) : PercentEncode(name);
}

// The name of the file on this machine, which the URL gives unless the user did.
std::string PathOf(const GetCommand& command, const Target& target) {
  const Placement& placement = command.placement;
  if (placement.output) return *placement.output;
  std::string name = LocalName(NameFromUrl(target.display));
  if (!placement.directory) return name;
  return placement.directory->back() == '/' ? *placement.directory + name : *placement.directory + '/' + name;
}

class FileDestination : public Destination, private ZTransfer::Observer {
 public:
  FileDestination(const GetCommand& command, const Target& target, Environment& environment)
      : m_command(command),
        m_target(target),
        m_environment(environment),
        m_path(PathOf(command, target)),
        m_file(m_path,
               command.placement.usesRemoteName ? OutputFile::Existing::kSpared : OutputFile::Existing::kReplaced) {
    TakeUp();
  }

  [[nodiscard]] std::string Label() const override { return LastPart(m_path); }
  bool IsHereAlready(Session& session, Report& report) override;
  void Try(Session& session, Report& report) override;
  [[nodiscard]] unsigned long long Position() const override { return CanContinue() ? m_file.Part().Size() : 0; }
  [[nodiscard]] bool Finish(Session& session, Report& report) override;
  [[noreturn]] void Fail(Session& session, Report& report) override;

 private:
  void TakeUp();
  [[nodiscard]] bool IsProven() const;
  [[nodiscard]] bool CanContinue() const;
  void Continue(Session& session, Report& report);
  void BeginAnew(Session& session, Report& report);
  void Run(Session& session, bool resume, Report& report);
  void Update(int event, long value) override;
  [[nodiscard]] bool HasRightSum(Report& report);
  [[nodiscard]] std::optional<long long> RemoteTime(Session& session) const;
  [[nodiscard]] std::string NameFromServer(const Report& report) const;

  const GetCommand& m_command;
  const Target& m_target;
  Environment& m_environment;
  const std::string m_path;
  mutable OutputFile m_file;
  PartRecord m_record;       // what the part is a part of
  bool m_isContent = false;  // what the part holds is the beginning of it
  bool m_isFresh = false;    // the running request began at the beginning
  ZTransfer* m_running = nullptr;
  unsigned long long m_before = 0;  // bytes that were there before this run
};

// What an earlier run has left.
void FileDestination::TakeUp() {
  PartFile& part = m_file.Part();
  m_record.url = m_target.display;
  if (!m_command.resume) return;
  const std::string name = DisplayName(part.Path());
  const std::optional<PartRecord>& found = part.Found();
  if (!found) {
    if (part.IsBesideAnother()) {
      TellNote(
          m_environment,
          fmt::format("the file with the name of the part was not made by corvane get; beginning anew, in {}", name));
    }
    return;
  }
  if (found->url != m_record.url) {
    TellNote(m_environment, fmt::format("{} belongs to {}; beginning anew", name, HideSecrets(found->url)));
  } else if (found->validator.empty() && !m_command.sha256) {
    TellNote(m_environment, fmt::format("nothing proves that {} is of what the server has now; beginning anew", name));
  } else {
    m_record = *found;
    m_isContent = true;
    m_before = CanContinue() ? part.Size() : 0;
  }
}

// A checksum proves everything in the end.
bool FileDestination::IsProven() const { return m_isContent && (!m_record.validator.empty() || m_command.sha256); }

bool FileDestination::CanContinue() const { return IsProven() && m_file.Part().Size() > kResumeThreshold; }

bool FileDestination::IsHereAlready(Session& session, Report& report) {
  if (!m_command.resume || m_isContent || m_file.Old().empty()) return false;
  const bool isHere = m_command.sha256 ? HasChecksum(m_file.Old(), *m_command.sha256, m_environment)
                                       : IsWhole(m_file.Old(), m_target, Label(), session, report);
  if (isHere) {
    m_file.KeepOld(RemoteTime(session));
    report.status = Corvane::TRANSFER_S_FINISHED;
    TellNote(m_environment, fmt::format("{} is complete already", DisplayName(m_path)));
  } else if (!m_command.sha256 && !WasInterrupted(m_environment)) {
    TellNote(m_environment,
             fmt::format("nothing proves that {} is what the server has now; beginning anew", DisplayName(m_path)));
  }
  return isHere;
}

void FileDestination::Try(Session& session, Report& report) {
  if (!CanContinue()) return BeginAnew(session, report);
  Continue(session, report);
  if (!IsRefusedResume(report) || WasInterrupted(m_environment)) return;
  TellNote(m_environment, fmt::format("cannot continue {} ({}); beginning anew", DisplayName(m_file.Part().Path()),
                                      WithoutPeriod(report.libraryText)));
  BeginAnew(session, report);
}

void FileDestination::Continue(Session& session, Report& report) {
  m_isFresh = false;
  session.Options().checkResume = true;
  session.Options().validator = FromUtf8(m_record.validator);
  Run(session, true, report);
}

void FileDestination::BeginAnew(Session& session, Report& report) {
  m_isFresh = true;
  m_isContent = false;
  m_before = 0;
  m_record = PartRecord{m_target.display, {}, std::nullopt};
  m_file.Part().Record(m_record);  // before the first byte: nothing is known of it yet
  session.Options().checkResume = false;
  session.Options().validator = ZString();
  Run(session, false, report);
  // The page of a refusal is nothing to keep, unless it was asked for.
  if (!m_isContent && !m_command.acceptHttpErrors) m_file.Part().Clear();
}

void FileDestination::Run(Session& session, bool resume, Report& report) {
  ZTransfer& transfer = session.Transfer();
  m_running = &transfer;
  transfer.Attach(this);
  session.Run(
      Label(), true, [&](ZTransfer& running) { running.DownloadFile(m_target.url, m_file.Part().Name(), resume); },
      report);
  transfer.Detach(this);
  m_running = nullptr;
}

// The first bytes are about to be written: from now on the part is known to be of this version, also after a SIGKILL.
void FileDestination::Update(int event, long value) {
  const bool isGood = event == 1 && static_cast<Corvane::ZResult>(value) == Corvane::TRANSFER_E_IN_PROGRESS;
  if (!isGood || !m_isFresh) return;
  ZString validator;
  m_running->GetValidator(validator);
  m_record.validator = ToUtf8(validator);
  m_record.size = KnownSize(m_running->GetContentSize());
  m_file.Part().Record(m_record);
  m_isContent = true;
}

bool FileDestination::HasRightSum(Report& report) {
  if (!m_command.sha256) return true;
  const std::string found = ChecksumOf(m_file.Part().Get(), m_file.Part().Path(), m_environment);
  if (found == *m_command.sha256) return true;
  if (!m_isFresh) {
    m_isContent = false;
    TellNote(m_environment, fmt::format("{} has another SHA-256 than was asked for; beginning anew",
                                        DisplayName(m_file.Part().Path())));
    return false;
  }
  const std::optional<OutputFile::Kept> kept = m_file.Abandon();
  if (kept) report.partial = DisplayName(kept->path);
  throw Failure(ExitCode::kTransfer, fmt::format("{} {}: its SHA-256 is {}, not {}; check the checksum and the URL{}",
                                                 kCannotGet, m_target.display, found, *m_command.sha256,
                                                 kept ? ", what came is in " + DisplayName(kept->path) : ""));
}

// Only of an answer that is the file, and only when the user did not name it.
std::string FileDestination::NameFromServer(const Report& report) const {
  if (!m_command.placement.usesRemoteName) return {};
  const std::optional<std::string> name = NameFromDisposition(LastHeader(report.header, "content-disposition:"));
  return name ? LocalName(*name) : std::string();
}

// What the file gets when it was asked for and is known.
std::optional<long long> FileDestination::RemoteTime(Session& session) const {
  const long long time = m_command.keepsRemoteTime ? session.Transfer().GetModificationTime() : -1;
  return time >= 0 ? std::optional(time) : std::nullopt;
}

bool FileDestination::Finish(Session& session, Report& report) {
  if (!HasRightSum(report)) return false;
  const std::optional<long long> time = RemoteTime(session);
  if (m_command.keepsRemoteTime && !time) {
    TellNote(m_environment, "the server does not tell the time of the file; it has the present time");
  }
  const std::string path = m_file.Commit(NameFromServer(report), time);
  report.file = DisplayName(path);
  const CommonOptions& common = m_environment.line.common;
  if (path != m_path) TellNote(m_environment, fmt::format("{} is in {}", m_target.display, *report.file));
  if (!common.quiet && !common.json) {
    m_environment.console.FinishStatus(FormatSummary(LastPart(path), report.downloadSize, m_before,
                                                     report.transferTimeMs, m_environment.console.Columns()));
  }
  return true;
}

void FileDestination::Fail(Session& session, Report& report) { session.Fail(kCannotGet, &m_file, IsProven(), report); }

}  // namespace

std::unique_ptr<Destination> MakeFileDestination(const GetCommand& command, const Target& target,
                                                 Environment& environment) {
  return std::make_unique<FileDestination>(command, target, environment);
}

}  // namespace CorvaneCli
