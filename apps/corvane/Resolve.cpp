#include <arpa/inet.h>
#include <fmt/core.h>
#include <netdb.h>

#include <array>
#include <string>

#include <Corvane/GetHostByName.h>

#include "apps/corvane/Command.h"
#include "apps/corvane/JsonReport.h"
#include "apps/corvane/Text.h"

// corvane resolve: looks a host up and prints its names and addresses.

namespace CorvaneCli {
namespace {

// Names come from whoever answers for the host; they are ASCII or, at worst, not.
std::string HostText(const char* name) { return name == nullptr ? std::string() : ToUtf8(FromUtf8(name)); }

void Fill(const hostent& host, HostReport& report) {
  report.name = HostText(host.h_name);
  for (char** alias = host.h_aliases; alias != nullptr && *alias != nullptr; ++alias) {
    report.aliases.push_back(HostText(*alias));
  }
  for (char** address = host.h_addr_list; address != nullptr && *address != nullptr; ++address) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    if (inet_ntop(host.h_addrtype, *address, text.data(), text.size()) != nullptr)
      report.addresses.emplace_back(text.data());
  }
}

std::string FormatLines(const HostReport& report) {
  std::string lines = "name " + Printable(report.name) + '\n';
  for (const std::string& alias : report.aliases) lines += "alias " + Printable(alias) + '\n';
  for (const std::string& address : report.addresses) lines += "address " + address + '\n';
  return lines;
}

}  // namespace

ExitCode RunResolve(const ResolveCommand& command, Environment& environment) {
  ExitOnSignals();  // the system's resolver cannot be interrupted
  const std::string shown = ToUtf8(command.host);
  environment.logging.Tell(fmt::format("corvane {}: resolve {}", CORVANE_VERSION, shown));
  const Corvane::ZGetHostByName lookup(command.host);
  HostReport report;
  report.name = shown;
  ExitCode code = ExitCode::kSuccess;
  if (const hostent* const host = lookup.GetHostEnt()) {
    Fill(*host, report);
  } else {
    code = ExitCode::kTransfer;
    report.error = fmt::format("cannot resolve {}: no address was found; check the name and the network", shown);
    environment.console.Error(report.error);
    environment.logging.RecordError(report.error);
  }
  if (environment.line.common.json) return PrintOutput(FormatJson(report), code, environment);
  return code == ExitCode::kSuccess ? PrintOutput(FormatLines(report), code, environment) : code;
}

}  // namespace CorvaneCli
