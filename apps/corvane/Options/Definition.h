#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "apps/corvane/Options.h"
#include "apps/corvane/Options/ArgumentWords.h"
#include "apps/corvane/Options/Given.h"
#include "apps/corvane/Options/HelpTexts.h"

// How a command's options are defined: each command in a source of its own, which keeps what the parser reads, and
// makes of it what Options.h tells the rest of the program.
namespace CorvaneCli {

class CommonDefinition;

// A command whose options are being defined, for a command line of these words: of the options only those that it names. Null:
// for the help, with all of them.
struct Scope {
  CLI::App& command;
  const ArgumentWords* words;

  [[nodiscard]] bool Wants(std::string_view names) const { return words == nullptr || words->MayName(names); }
};

// One command of the program.
class CommandDefinition {
 public:
  CommandDefinition() = default;
  virtual ~CommandDefinition() = default;
  CommandDefinition(const CommandDefinition&) = delete;  // the parser keeps pointers into it
  CommandDefinition& operator=(const CommandDefinition&) = delete;

  // Adds the command to `program`, without its options.
  virtual CLI::App& AddTo(CLI::App& program) = 0;
  // Adds them to the command, which reads them into this object until it is destroyed.
  virtual void AddOptions(const Scope& scope) = 0;
  [[nodiscard]] virtual const char* Name() const = 0;
  // What was read. Throws Failure(kUsage).
  [[nodiscard]] virtual AnyCommand Understand(const Given& given) const = 0;
};

// `common` must outlive the result.
[[nodiscard]] std::unique_ptr<CommandDefinition> DefineGet(CommonDefinition& common);
[[nodiscard]] std::unique_ptr<CommandDefinition> DefinePost(CommonDefinition& common);
[[nodiscard]] std::unique_ptr<CommandDefinition> DefineMirror(CommonDefinition& common);
[[nodiscard]] std::unique_ptr<CommandDefinition> DefineSync(CommonDefinition& common);
[[nodiscard]] std::unique_ptr<CommandDefinition> DefineResolve(CommonDefinition& common);

// Adds a command without options.
CLI::App& AddCommand(CLI::App& program, const char* name, const char* summary, const HelpTexts& texts);

// Adds options to one group of a command's help.
class Group {
 public:
  Group(const Scope& scope, const char* name) : m_scope(scope), m_name(name) {}

  void Add(const char* names, std::string& value, const char* type, const char* help);
  void AddList(const char* names, std::vector<std::string>& values, const char* type, const char* help);
  void AddFlag(const char* names, bool& value, const char* help);

 private:
  Scope m_scope;
  const char* m_name;
};

}  // namespace CorvaneCli
