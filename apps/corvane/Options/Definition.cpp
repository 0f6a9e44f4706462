#include "apps/corvane/Options/Definition.h"

#include "apps/corvane/Options/HelpFormatter.h"

namespace CorvaneCli {

CLI::App& AddCommand(CLI::App& program, const char* name, const char* summary, const HelpTexts& texts) {
  CLI::App& command = *program.add_subcommand(name, summary);
  command.formatter(std::make_shared<HelpFormatter>(texts));
  return command;
}

void Group::Add(const char* names, std::string& value, const char* type, const char* help) {
  if (!m_scope.Wants(names)) return;
  m_scope.command.add_option(names, value, help)->type_name(type)->group(m_name)->expected(1);
}

void Group::AddList(const char* names, std::vector<std::string>& values, const char* type, const char* help) {
  if (!m_scope.Wants(names)) return;
  m_scope.command.add_option(names, values, help)->type_name(type)->group(m_name)->allow_extra_args(false);
}

void Group::AddFlag(const char* names, bool& value, const char* help) {
  if (!m_scope.Wants(names)) return;
  m_scope.command.add_flag(names, value, help)->group(m_name);
}

}  // namespace CorvaneCli
