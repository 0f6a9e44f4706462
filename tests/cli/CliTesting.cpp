#include "tests/cli/CliTesting.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <regex>

#include "tests/support/Sockets.h"

namespace CorvaneTest {
namespace {

std::vector<std::string> CommandOf(const std::vector<std::string>& arguments) {
  std::vector<std::string> command = {CORVANE_PROGRAM};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return command;
}

ProgramOptions Complete(ProgramOptions options) {
  options.environment.try_emplace("LC_ALL", "C.UTF-8");
  options.environment.try_emplace("CORVANE_PASSWORD", std::nullopt);
  options.environment.try_emplace("TERM", "xterm");
  return options;
}

}  // namespace

ProgramResult RunCorvane(const std::vector<std::string>& arguments, const ProgramOptions& options) {
  return RunProgram(CommandOf(arguments), Complete(options));
}

std::unique_ptr<BackgroundProgram> StartCorvane(const std::vector<std::string>& arguments,
                                                const ProgramOptions& options) {
  return std::make_unique<BackgroundProgram>(CommandOf(arguments), Complete(options));
}

ProgramResult RunShell(const std::string& script, const std::vector<std::string>& arguments,
                       const ProgramOptions& options) {
  std::vector<std::string> command = {"/bin/bash", "-c", script, CORVANE_PROGRAM};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return RunProgram(command, Complete(options));
}

nlohmann::json ParseReport(const ProgramResult& result) {
  nlohmann::json report = nlohmann::json::parse(result.out, nullptr, false);
  EXPECT_TRUE(report.is_object()) << result.Describe();
  return report.is_object() ? report : nlohmann::json::object();
}

std::string OnlyErrorLine(const ProgramResult& result) {
  EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.Describe();
  EXPECT_THAT(result.err, testing::StartsWith("corvane: "));
  return result.err.substr(0, result.err.find('\n'));
}

std::vector<std::string> NamesIn(const std::filesystem::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

std::set<std::string> MatchesIn(const std::string& text, const std::string& expression) {
  std::set<std::string> found;
  const std::regex compiled(expression);
  for (std::sregex_iterator match(text.begin(), text.end(), compiled), end; match != end; ++match) {
    found.insert((*match)[1]);
  }
  return found;
}

std::string RefusedUrl(const std::string& scheme) {
  // Bound and never listened on: connections are refused, and nobody else gets the port.
  static const PortReservation reservation;
  return scheme + "://127.0.0.1:" + std::to_string(reservation.Port()) + "/file";
}

}  // namespace CorvaneTest
