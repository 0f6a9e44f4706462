#include <unistd.h>

#include <utility>

#include "apps/corvane/Command.h"
#include "apps/corvane/Session.h"
#include "apps/corvane/Text.h"

// corvane get: downloads into a file, or to the standard output as text.

namespace CorvaneCli {
namespace {

using Corvane::ZString;
using Corvane::ZTransfer;

constexpr const char* kDoing = "cannot get";

std::string LastPart(const std::string& path) {
  const std::string name = path.substr(path.rfind('/') + 1);
  return DisplayName(name.empty() ? path : name);
}

void GetFile(const GetCommand& command, Environment& environment, Report& report) {
  Session session(command.target, PrepareTransfers(command.target, environment), environment);
  OutputFile file(*command.output, {command.resume, command.acceptHttpErrors});
  const std::string label = LastPart(*command.output);
  session.Run(
      label, true,
      [&](ZTransfer& transfer) { transfer.DownloadFile(command.target.url, file.WorkName(), file.IsResumed()); },
      report);
  if (command.acceptHttpErrors) Session::AcceptHttpError(report);
  if (Corvane::IsFailure(report.status)) session.Fail(kDoing, &file, true, report);
  file.Commit();
  if (!environment.line.common.quiet && !environment.line.common.json) {
    environment.console.FinishStatus(
        FormatSummary(label, report.downloadSize, file.ResumeOffset(), report.transferTimeMs));
  }
}

void GetText(const GetCommand& command, Environment& environment, Report& report) {
  Session session(command.target, PrepareTransfers(command.target, environment), environment);
  session.Transfer().DetectHttpError(!command.acceptHttpErrors);
  ZString text;
  session.Run(
      command.target.Label(), false, [&](ZTransfer& transfer) { transfer.Download(command.target.url, text); }, report);
  TakeBody(std::move(text), report, environment);
  if (Corvane::IsFailure(report.status)) session.Fail(kDoing, nullptr, false, report);
}

}  // namespace

ExitCode RunGet(const GetCommand& command, Environment& environment) {
  Report report = MakeReport("get", command.target, command.output);
  return RunReported(report, environment, [&] {
    if (command.output) {
      GetFile(command, environment, report);
    } else {
      GetText(command, environment, report);
    }
  });
}

}  // namespace CorvaneCli
