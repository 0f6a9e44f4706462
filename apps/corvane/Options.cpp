#include "apps/corvane/Options.h"

#include <fmt/core.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <memory>

#include "apps/corvane/Failure.h"
#include "apps/corvane/Files.h"
#include "apps/corvane/Options/ArgumentWords.h"
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
  // words: see Scope. Of the commands, too, only those that are named are added.
  void AddTo(CLI::App& program, const ArgumentWords* words) {
    for (const auto& definition : m_commands) {
      if (words != nullptr && !words->Hold(definition->Name())) continue;
      const Scope scope{definition->AddTo(program), words};
      definition->AddOptions(scope);
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
  std::array<std::unique_ptr<CommandDefinition>, 5> m_commands = {
      DefineGet(m_common), DefinePost(m_common), DefineMirror(m_common), DefineSync(m_common), DefineResolve(m_common)};
};

// Parses one command line.
class Parser {
 public:
  explicit Parser(const ArgumentWords* words) : m_program("", "corvane") {
    m_program.formatter(std::make_shared<HelpFormatter>(kProgramHelp));
    m_program.require_subcommand(1);
    AddInformationOptions({m_program, words});
    m_commands.AddTo(m_program, words);
  }

  // Throws CLI::Error.
  void Parse(int argc, const char* const* argv) { m_program.parse(argc, argv); }

  [[nodiscard]] std::variant<CommandLine, ExitCode> Understand(Console& console) const {
    try {
      return m_commands.Understand(*ChosenCommand(m_program));
    } catch (const Failure& failure) {
      return TellUsage(m_program, failure.what(), console);
    }
  }

  [[nodiscard]] const CLI::App& Program() const noexcept { return m_program; }

 private:
  Commands m_commands;
  CLI::App m_program;
};

std::variant<CommandLine, ExitCode> ParseWithAllOptions(int argc, const char* const* argv, Console& console) {
  Parser parser(nullptr);
  try {
    parser.Parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    return Print(parser.Program().help(), console);
  } catch (const CLI::CallForAllHelp&) {
    return Print(parser.Program().help("", CLI::AppFormatMode::All), console);
  } catch (const CLI::CallForVersion& version) {
    return Print(version.what() + std::string("\n"), console);
  } catch (const CLI::ParseError& error) {
    return TellUsage(parser.Program(), DescribeMistake(parser.Program(), error, argc > 1 ? argv[1] : nullptr), console);
  }
  return parser.Understand(console);
}

}  // namespace

// An option that is not given takes as much time to define as one that is. How a line is taken apart does not depend on them, so
// they are defined only when they are to be told of: in the help, or after a mistake.
std::variant<CommandLine, ExitCode> ParseCommandLine(int argc, const char* const* argv, Console& console) {
  const ArgumentWords words(argc, argv);
  Parser parser(&words);
  try {
    parser.Parse(argc, argv);
  } catch (const CLI::Error&) {
    return ParseWithAllOptions(argc, argv, console);
  }
  return parser.Understand(console);
}

}  // namespace CorvaneCli
