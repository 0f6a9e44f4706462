#include <fmt/core.h>

#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "apps/corvane/Command.h"
#include "apps/corvane/Explain/HttpAnswer.h"
#include "apps/corvane/Get/Destination.h"
#include "apps/corvane/JsonReport.h"
#include "apps/corvane/OutputFile.h"
#include "apps/corvane/Retry.h"
#include "apps/corvane/Session.h"
#include "apps/corvane/Text.h"

// corvane get: downloads one URL after another, each as often as it takes, to where the options say.

namespace CorvaneCli {
namespace {

std::unique_ptr<Destination> MakeDestination(const GetCommand& command, const Target& target,
                                             Environment& environment) {
  const Placement& placement = command.placement;
  if (placement.usesRemoteName || (placement.output && !OutputFile::IsStream(*placement.output))) {
    return MakeFileDestination(command, target, environment);
  }
  if (environment.line.common.json && !placement.output) return MakeReportDestination(command, target, environment);
  return MakeStreamDestination(command, target, environment);
}

// How long the server asks to wait before the next try.
std::optional<std::chrono::seconds> AskedToWait(const Report& report) {
  if (report.httpStatus != 429 && report.httpStatus != 503) return std::nullopt;
  return RetryAfter(LastHeader(report.header, "retry-after:"), std::time(nullptr));
}

}  // namespace

bool IsRefusedResume(const Report& report) {
  constexpr unsigned int kFtpRest = 31, kRange = 33, kResume = 36;
  constexpr long kRangeNotSatisfiable = 416;
  const auto is = [&](unsigned int number) { return report.cause == (Corvane::TRANSFER_E_CURL_BASE | number); };
  return is(kFtpRest) || is(kRange) || is(kResume) || report.httpStatus == kRangeNotSatisfiable;
}

namespace {

class Download {
 public:
  Download(const GetCommand& command, const Target& target, Session& session, Environment& environment, Report& report)
      : m_command(command),
        m_session(session),
        m_environment(environment),
        m_request(environment.line.common.request),
        m_report(report),
        m_destination(MakeDestination(command, target, environment)) {}

  void Run() {
    if (m_destination->IsHereAlready(m_session, m_report)) return;
    do {
      TryUntilItEnds();
      if (Corvane::IsFailure(m_report.status)) m_destination->Fail(m_session, m_report);
    } while (!m_destination->Finish(m_session, m_report));
  }

 private:
  void TryUntilItEnds() {
    do {
      ++m_report.attempts;
      m_destination->Try(m_session, m_report);
      if (m_command.acceptHttpErrors) Session::AcceptHttpError(m_report);
    } while (Corvane::IsFailure(m_report.status) && IsTriedAgain());
  }

  // Says so, and lets the time pass until then.
  bool IsTriedAgain() {
    const bool isHopeless = WasInterrupted(m_environment) || m_report.attempts > m_request.retries ||
                            !MayPass(m_report, m_report.httpStatus) || !m_destination->CanGoOn();
    if (isHopeless) return false;
    const std::optional<std::chrono::seconds> asked = AskedToWait(m_report);
    if (asked > kLongestRetryAfter) {  // none is less than any
      m_report.notes.push_back(fmt::format("the server asks to wait {} before the next try",
                                           FormatDuration(static_cast<unsigned long long>(asked->count()))));
      return false;
    }
    const std::chrono::milliseconds wait = asked ? *asked : WaitBefore(m_report.attempts, m_request.retryWait);
    const unsigned long long position = m_destination->Position();
    TellNote(m_environment, fmt::format("{}; trying again{} in {} s ({} of {})", m_session.Reason(m_report),
                                        position == 0 ? "" : fmt::format(" from {} on", FormatBytes(position)),
                                        (wait.count() + 999) / 1000, m_report.attempts, m_request.retries));
    return WaitFor(wait, *m_environment.interrupt);
  }

  const GetCommand& m_command;
  Session& m_session;
  Environment& m_environment;
  const RequestOptions& m_request;
  Report& m_report;
  const std::unique_ptr<Destination> m_destination;
};

// All the URLs of one command. One that fails does not keep the others from coming.
class Downloads {
 public:
  Downloads(const GetCommand& command, Environment& environment) : m_command(command), m_environment(environment) {}

  ExitCode Run() {
    for (const Target& target : m_command.targets) {
      const ExitCode code = GetOne(target);
      if (m_code == ExitCode::kSuccess) m_code = code;
      if (EndsAll(code)) break;
    }
    return Print();
  }

 private:
  ExitCode GetOne(const Target& target) {
    Report& report = m_reports.emplace_back(MakeReport("get", target, m_command.placement.output));
    return RunTold(report, m_environment, [&] {
      if (m_session) {
        m_session->TurnTo(target);
      } else {
        m_session.emplace(target, PrepareTransfers(target, m_environment), m_environment);
      }
      if (m_command.targets.size() > 1) m_session->ShowFiles({m_reports.size() - 1, m_command.targets.size()});
      Download(m_command, target, *m_session, m_environment, report).Run();
    });
  }

  // What is wrong with the command, or with the one output that all share, will not be better for the next.
  [[nodiscard]] bool EndsAll(ExitCode code) const {
    if (code == ExitCode::kInterrupted || code == ExitCode::kUsage) return true;
    return code == ExitCode::kLocal && !m_command.placement.usesRemoteName;
  }

  ExitCode Print() {
    if (!m_environment.line.common.json || m_code == ExitCode::kUsage) return m_code;
    const std::string json =
        m_command.targets.size() == 1 ? FormatJson(m_reports.front()) : FormatJson(m_reports, m_code);
    return PrintOutput(json, m_code, m_environment);
  }

  const GetCommand& m_command;
  Environment& m_environment;
  std::optional<Session> m_session;
  std::vector<Report> m_reports;
  ExitCode m_code = ExitCode::kSuccess;
};

}  // namespace

ExitCode RunGet(const GetCommand& command, Environment& environment) {
  environment.interrupt.emplace();
  const ExitCode code = Downloads(command, environment).Run();
  environment.interrupt.reset();
  return code;
}

}  // namespace CorvaneCli
