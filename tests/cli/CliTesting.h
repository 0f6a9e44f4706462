#pragma once

#include <gmock/gmock.h>

#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <set>
#include <string>
#include <vector>

#include "tests/support/Process.h"
#include "tests/support/ScriptedServer.h"

// Runs the built program as a user would.
namespace CorvaneTest {

// The program's environment differs from the test's in what would make it depend on the machine: the locale is C.UTF-8
// unless `options` say otherwise, and there is no password.
[[nodiscard]] ProgramResult RunCorvane(const std::vector<std::string>& arguments, const ProgramOptions& options = {});
[[nodiscard]] std::unique_ptr<BackgroundProgram> StartCorvane(const std::vector<std::string>& arguments,
                                                              const ProgramOptions& options = {});

// Runs a script of bash in which "$0" is the program and "$1" and so on are `arguments`.
[[nodiscard]] ProgramResult RunShell(const std::string& script, const std::vector<std::string>& arguments = {},
                                     const ProgramOptions& options = {});

// What a script finds on standard output after --json; fails the test when it is not one JSON object.
[[nodiscard]] nlohmann::json ParseReport(const ProgramResult& result);

// The error line, which begins with "corvane: " and must be the only one, without its line feed.
[[nodiscard]] std::string OnlyErrorLine(const ProgramResult& result);

// The names in a folder, in order.
[[nodiscard]] std::vector<std::string> NamesIn(const std::filesystem::path& folder);

// What the first group of the expression matches, each once.
[[nodiscard]] std::set<std::string> MatchesIn(const std::string& text, const std::string& expression);

// A URL on which nobody listens.
[[nodiscard]] std::string RefusedUrl(const std::string& scheme = "http");

}  // namespace CorvaneTest
