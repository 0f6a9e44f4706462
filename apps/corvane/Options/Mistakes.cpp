#include "apps/corvane/Options/Mistakes.h"

#include <fmt/core.h>

#include <algorithm>
#include <string_view>
#include <vector>

#include "apps/corvane/Options/Values.h"
#include "apps/corvane/Target.h"
#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

// "get, post, mirror or resolve".
std::string ListOfCommands(const CLI::App& program) {
  const std::vector<const CLI::App*> commands = program.get_subcommands([](const CLI::App*) { return true; });
  std::string list;
  for (const CLI::App* const command : commands) {
    if (!list.empty()) list += command == commands.back() ? " or " : ", ";
    list += command->get_name();
  }
  return list;
}

// Only the first argument is repeated, and of an option only its name: behind it there may be a password.
std::string DescribeExtra(const CLI::App& program, const std::string& first) {
  const CLI::App* const command = ChosenCommand(program);
  if (first.size() > 1 && first.front() == '-') {
    const std::string name = first.substr(0, first.find('='));
    if (command != nullptr && command->get_option_no_throw(name) != nullptr) {
      return fmt::format("the option {} is in the wrong place; put it behind \"corvane {}\"", name,
                         command->get_name());
    }
    return fmt::format("the option {} is not known here; see the help for those that are", DisplayName(name));
  }
  if (command == nullptr) {
    return fmt::format("the command {} is not known; use {}", ShownValue(first), ListOfCommands(program));
  }
  return fmt::format("the argument {} is one too many; quote a URL or text with blanks", ShownValue(first));
}

std::string DescribeMissing(const CLI::App& command) {
  struct Argument {
    const char* name;
    const char* example;
  };
  constexpr Argument kArguments[] = {{"HOST", "give a name such as example.com"},
                                     {"URL", "give one such as http://example.com/file"},
                                     {"DIR", "give the directory to fetch into"}};
  for (const Argument& argument : kArguments) {
    const CLI::Option* const option = command.get_option_no_throw(argument.name);
    if (option != nullptr && option->count() == 0) return fmt::format("no {}; {}", argument.name, argument.example);
  }
  return "something is missing; see the help";
}

}  // namespace

const CLI::App* ChosenCommand(const CLI::App& program) {
  const std::vector<CLI::App*> chosen = program.get_subcommands();
  return chosen.empty() ? nullptr : chosen.front();
}

std::string DescribeMistake(const CLI::App& program, const CLI::ParseError& error, const char* firstArgument) {
  const std::vector<std::string> extras = program.remaining(true);
  if (ChosenCommand(program) == nullptr) {
    return firstArgument == nullptr ? fmt::format("no command; use {}", ListOfCommands(program))
                                    : DescribeExtra(program, firstArgument);
  }
  if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr && !extras.empty()) {
    return DescribeExtra(program, extras.front());
  }
  if (dynamic_cast<const CLI::RequiredError*>(&error) != nullptr) return DescribeMissing(*ChosenCommand(program));
  std::string text = error.what();
  std::replace(text.begin(), text.end(), '\n', ' ');
  return HideSecrets(DisplayName(text)) + "; see the help";
}

}  // namespace CorvaneCli
