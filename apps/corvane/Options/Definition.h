#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "apps/corvane/Options.h"
#include "apps/corvane/Options/Given.h"
#include "apps/corvane/Options/HelpTexts.h"

// How a command's options are defined: each command in a source of its own, which keeps what the parser reads, and
// makes of it what Options.h tells the rest of the program.
namespace CorvaneCli {

class CommonDefinition;

// One command of the program.
class CommandDefinition {
 public:
  CommandDefinition() = default;
  virtual ~CommandDefinition() = default;
  CommandDefinition(const CommandDefinition&) = delete;  // the parser keeps pointers into it
  CommandDefinition& operator=(const CommandDefinition&) = delete;

  // Adds the command to `program`, without its options.
  virtual CLI::App& AddTo(CLI::App& program) = 0;
  // Adds them to `command`, which reads them into this object until it is destroyed.
  virtual void AddOptions(CLI::App& command) = 0;
  [[nodiscard]] virtual const char* Name() const = 0;
  // What was read. Throws Failure(kUsage).
  [[nodiscard]] virtual AnyCommand Understand(const Given& given) const = 0;
};

// `common` must outlive the result.
[[nodiscard]] std::unique_ptr<CommandDefinition> DefineGet(CommonDefinition& common);
[[nodiscard]] std::unique_ptr<CommandDefinition> DefinePost(CommonDefinition& common);
[[nodiscard]] std::unique_ptr<CommandDefinition> DefineMirror(CommonDefinition& common);
[[nodiscard]] std::unique_ptr<CommandDefinition> DefineResolve(CommonDefinition& common);

// Adds a command without options.
CLI::App& AddCommand(CLI::App& program, const char* name, const char* summary, const HelpTexts& texts);

// Adds options to one group of a command's help.
class Group {
 public:
  Group(CLI::App& command, const char* name) : m_command(command), m_name(name) {}

  void Add(const char* names, std::string& value, const char* type, const char* help);
  void AddList(const char* names, std::vector<std::string>& values, const char* type, const char* help);
  void AddFlag(const char* names, bool& value, const char* help);

 private:
  CLI::App& m_command;
  const char* m_name;
};

}  // namespace CorvaneCli
