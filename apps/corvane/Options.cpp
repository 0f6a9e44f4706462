#include "apps/corvane/Options.h"

#include <fmt/core.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstring>
#include <memory>

#include "apps/corvane/Failure.h"
#include "apps/corvane/Files.h"
#include "apps/corvane/Options/Common.h"
#include "apps/corvane/Options/Definition.h"
#include "apps/corvane/Options/HelpFormatter.h"
#include "apps/corvane/Options/Mistakes.h"

namespace CorvaneCli {
namespace {

ExitCode TellUsage(const CLI::App& program, const std::string& text, Console& console) {
  console.Error(text);
  const CLI::App* const command = ChosenCommand(program);
  console.Line(fmt::format("Try: corvane {}--help", command == nullptr ? "" : command->get_name() + " "));
  return ExitCode::kUsage;
}

ExitCode Print(const std::string& text, Console& console) {
  const int error = WriteAll(STDOUT_FILENO, text);
  if (error == 0) return ExitCode::kSuccess;
  console.Error("cannot write to the standard output: " + SystemText(error) + "; check where it goes");
  return ExitCode::kLocal;
}

// The program's commands, in the order of the help.
class Commands {
 public:
  // The options of a command that is not named cost time and serve nobody.
  void AddTo(CLI::App& program, int argc, const char* const* argv) {
    for (const auto& definition : m_commands) {
      CLI::App& command = definition->AddTo(program);
      const auto isNamed = [&](const char* word) { return std::strcmp(word, definition->Name()) == 0; };
      if (std::any_of(argv, argv + argc, isNamed)) definition->AddOptions(command);
    }
  }

  [[nodiscard]] CommandLine Understand(const CLI::App& chosen) const {
    const Given given(chosen);
    CommandLine line{m_common.Understand(given), {}, given.Words(), given.HasUnrepeatableWords()};
    for (const auto& command : m_commands) {
      if (chosen.get_name() == command->Name()) line.command = command->Understand(given);
    }
    return line;
  }

 private:
  CommonDefinition m_common;
  std::array<std::unique_ptr<CommandDefinition>, 4> m_commands = {DefineGet(m_common), DefinePost(m_common),
                                                                  DefineMirror(m_common), DefineResolve(m_common)};
};

}  // namespace

std::variant<CommandLine, ExitCode> ParseCommandLine(int argc, const char* const* argv, Console& console) {
  Commands commands;
  CLI::App program("", "corvane");
  program.formatter(std::make_shared<HelpFormatter>(kProgramHelp));
  program.require_subcommand(1);
  AddInformationOptions(program);
  commands.AddTo(program, argc, argv);
  try {
    program.parse(argc, argv);
    return commands.Understand(*ChosenCommand(program));
  } catch (const CLI::CallForHelp&) {
    return Print(program.help(), console);
  } catch (const CLI::CallForVersion& version) {
    return Print(version.what() + std::string("\n"), console);
  } catch (const CLI::ParseError& error) {
    return TellUsage(program, DescribeMistake(program, error, argc > 1 ? argv[1] : nullptr), console);
  } catch (const Failure& failure) {
    return TellUsage(program, failure.what(), console);
  }
}

}  // namespace CorvaneCli
