#include <fmt/core.h>

#include <string>

#include "apps/corvane/Command.h"
#include "apps/corvane/JsonReport.h"
#include "apps/corvane/Resolve/HostLookup.h"
#include "apps/corvane/Text.h"

// corvane resolve: looks a host up and prints its names and addresses.

namespace CorvaneCli {
namespace {

std::string FormatLines(const HostReport& report) {
  std::string lines = "name " + Printable(report.name) + '\n';
  for (const std::string& alias : report.aliases) lines += "alias " + Printable(alias) + '\n';
  for (const std::string& address : report.addresses) lines += "address " + Printable(address) + '\n';
  return lines;
}

}  // namespace

ExitCode RunResolve(const ResolveCommand& command, Environment& environment) {
  ExitOnSignals();  // the system's resolver cannot be interrupted
  const std::string shown = ToUtf8(command.host);
  environment.logging.Tell(fmt::format("corvane {}: resolve {}", CORVANE_VERSION, shown));
  HostReport report;
  ExitCode code = ExitCode::kSuccess;
  if (!LookUpHost(command.host, report)) {
    code = ExitCode::kTransfer;
    report.error = fmt::format("cannot resolve {}: no address was found; check the name and the network", shown);
    environment.console.Error(report.error);
    environment.logging.RecordError(report.error);
  }
  if (environment.line.common.json) return PrintOutput(FormatJson(report), code, environment);
  return code == ExitCode::kSuccess ? PrintOutput(FormatLines(report), code, environment) : code;
}

}  // namespace CorvaneCli
