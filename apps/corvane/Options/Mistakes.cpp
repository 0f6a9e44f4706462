#include "apps/corvane/Options/Mistakes.h"

#include <fmt/core.h>

#include <algorithm>
#include <string_view>
#include <vector>

#include "apps/corvane/Options/Habits.h"
#include "apps/corvane/Options/Nearest.h"
#include "apps/corvane/Options/Values.h"
#include "apps/corvane/Target.h"
#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

// "--retries or --retry-wait".
std::string ListOf(const std::vector<std::string>& words, std::string_view last) {
  std::string list;
  for (const std::string& word : words) {
    if (!list.empty()) list += &word == &words.back() ? last : ", ";
    list += word;
  }
  return list;
}

std::vector<const CLI::App*> CommandsOf(const CLI::App& program) {
  return program.get_subcommands([](const CLI::App*) { return true; });
}

std::vector<std::string> NamesOfCommands(const CLI::App& program) {
  std::vector<std::string> names;
  for (const CLI::App* const command : CommandsOf(program)) names.push_back(command->get_name());
  return names;
}

// The commands that have an option of this name: "get, post and sync".
std::string CommandsWith(const CLI::App& program, const std::string& option) {
  std::vector<std::string> names;
  for (const CLI::App* const command : CommandsOf(program)) {
    if (command->get_option_no_throw(option) != nullptr) names.push_back(command->get_name());
  }
  return ListOf(names, " and ");
}

// Without their dashes.
std::vector<std::string> LongOptionsOf(const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::Option* const option : command.get_options()) {
    if (!option->get_positional()) names.push_back(option->get_lnames().front());
  }
  return names;
}

// What to do about an option that this command does not have.
std::string RemedyFor(const CLI::App& program, const CLI::App* command, const std::string& name) {
  const std::string_view remedy = RemedyForOption(name, command == nullptr ? "get" : command->get_name());
  if (!remedy.empty()) return std::string(remedy);
  const std::string owners = CommandsWith(program, name);
  if (!owners.empty()) {
    if (command != nullptr) return fmt::format("it is an option of corvane {}", owners);
    return fmt::format("begin with a command, such as \"corvane {}\"", owners.substr(0, owners.find_first_of(", ")));
  }
  if (command != nullptr && name.rfind("--", 0) == 0) {
    std::vector<std::string> nearest = NearestNames(name.substr(2), LongOptionsOf(*command));
    for (std::string& option : nearest) option.insert(0, "--");
    if (!nearest.empty()) return fmt::format("did you mean {}?", ListOf(nearest, " or "));
  }
  return "see the help for those that are";
}

// Of an option only its name is repeated: behind it, or behind its letter, there may be a password.
std::string DescribeOption(const CLI::App& program, const std::string& word) {
  const CLI::App* const command = ChosenCommand(program);
  const bool isLong = word.rfind("--", 0) == 0;
  const std::string name = isLong ? word.substr(0, word.find('=')) : word.substr(0, 2);
  // "-resume"; its letters say nothing.
  const std::string withOneDash = '-' + word.substr(0, word.find('='));
  if (command != nullptr && !isLong && word.size() > 3 && command->get_option_no_throw(withOneDash) != nullptr) {
    return fmt::format("the option {} is not known here; did you mean {}?", withOneDash.substr(1), withOneDash);
  }
  if (command != nullptr && command->get_option_no_throw(name) != nullptr) {
    return fmt::format("the option {} is in the wrong place; put it behind \"corvane {}\"", name, command->get_name());
  }
  return fmt::format("the option {} is not known here; {}", DisplayName(name), RemedyFor(program, command, name));
}

std::string DescribeCommand(const CLI::App& program, const std::string& word) {
  const std::vector<std::string> names = NamesOfCommands(program);
  std::vector<std::string> meant = NearestNames(word, names);
  if (meant.empty()) {
    const std::string_view command = CommandMeantBy(word);
    if (!command.empty()) meant.emplace_back(command);
  }
  std::string remedy = "use " + ListOf(names, " or ");
  if (word == "help") remedy = "use \"corvane --help\" or \"corvane COMMAND --help\"";
  if (word.find("://") != std::string::npos) remedy = "put \"get\" in front of a URL; else " + remedy;
  if (!meant.empty())
    remedy = fmt::format("did you mean \"corvane {}\"? Else {}", ListOf(meant, "\" or \"corvane "), remedy);
  return fmt::format("the command {} is not known; {}", ShownValue(word), remedy);
}

// Only the first argument is repeated.
std::string DescribeExtra(const CLI::App& program, const std::string& first) {
  if (first.size() > 1 && first.front() == '-') return DescribeOption(program, first);
  if (ChosenCommand(program) == nullptr) return DescribeCommand(program, first);
  if (ChosenCommand(program)->count("--json") > 0 && ChosenCommand(program)->get_name() == "post") {
    return fmt::format(
        "the argument {} is one too many; --json takes no text, give --data TEXT --type application/json",
        ShownValue(first));
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
  const CLI::App* const command = ChosenCommand(program);
  if (command == nullptr) {
    return firstArgument == nullptr ? "no command; use " + ListOf(NamesOfCommands(program), " or ")
                                    : DescribeExtra(program, firstArgument);
  }
  // "help get": the parser looks for a command behind what it does not know.
  if (firstArgument != nullptr && *firstArgument != '-' && command->get_name() != firstArgument) {
    return DescribeCommand(program, firstArgument);
  }
  if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr && !extras.empty()) {
    return DescribeExtra(program, extras.front());
  }
  if (dynamic_cast<const CLI::RequiredError*>(&error) != nullptr) return DescribeMissing(*command);
  std::string text = error.what();
  std::replace(text.begin(), text.end(), '\n', ' ');
  return HideSecrets(DisplayName(text)) + "; see the help";
}

}  // namespace CorvaneCli
