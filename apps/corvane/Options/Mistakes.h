#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace CorvaneCli {

// The command that was named; null when none was.
[[nodiscard]] const CLI::App* ChosenCommand(const CLI::App& program);

// What the parser did not understand: the thing, the reason, "; ", the remedy. Never shows anything that could be a
// password. firstArgument: null when there was none.
[[nodiscard]] std::string DescribeMistake(const CLI::App& program, const CLI::ParseError& error,
                                          const char* firstArgument);

}  // namespace CorvaneCli
