#include "apps/corvane/Options/HelpFormatter.h"

#include <fmt/core.h>

#include <algorithm>
#include <string_view>

namespace CorvaneCli {
namespace {

constexpr std::size_t kHelpColumns = 80;
constexpr std::size_t kTextColumn = 26;

// "  NAME      text", the text wrapped at kHelpColumns.
std::string FormatEntry(const std::string& name, std::string_view text) {
  std::string entry = "  " + name;
  std::size_t column = entry.size();
  if (column + 2 > kTextColumn) {
    entry += '\n';
    column = 0;
  }
  entry.append(kTextColumn - column, ' ');
  column = kTextColumn;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(' '), text.size());
    if (column > kTextColumn && column + 1 + end > kHelpColumns) {
      entry.append("\n").append(kTextColumn, ' ');
      column = kTextColumn;
    } else if (column > kTextColumn) {
      entry += ' ';
      ++column;
    }
    entry.append(text.substr(0, end));
    column += end;
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return entry + '\n';
}

std::string FormatOption(const CLI::Option& option, std::string_view text) {
  std::string name = option.get_snames().empty() ? "    " : "-" + option.get_snames().front() + ", ";
  name += "--" + option.get_lnames().front();
  if (option.get_expected_max() > 0 && !option.get_type_name().empty()) name += " " + option.get_type_name();
  return FormatEntry(name, text);
}

}  // namespace

std::string HelpFormatter::make_help(const CLI::App* app, std::string /*name*/, CLI::AppFormatMode mode) const {
  const bool isBrief = mode != CLI::AppFormatMode::All && !m_texts.brief.options.empty();
  return isBrief ? Brief(*app) : Full(*app);
}

std::string HelpFormatter::Brief(const CLI::App& command) const {
  const HelpTexts::Brief& brief = m_texts.brief;
  std::string help = fmt::format("Usage: corvane {}\n\n{}\n\nMost used options:\n", m_texts.usage, brief.description);
  for (const BriefOption& shown : brief.options) {
    const CLI::Option* const option = command.get_option_no_throw(shown.name);
    if (option != nullptr) help += FormatOption(*option, shown.text);
  }
  return help + fmt::format("\n{}\n\nAll options: corvane {} --help-all; see also corvane-{}(1)\n", brief.footer,
                            command.get_name(), command.get_name());
}

std::string HelpFormatter::Full(const CLI::App& program) const {
  const CLI::App* const app = &program;
  std::string help = fmt::format("Usage: corvane {}\n\n{}\n", m_texts.usage, m_texts.description);
  const auto all = [](const CLI::App*) { return true; };
  if (!app->get_subcommands(all).empty()) help += "\nCommands:\n";
  for (const CLI::App* const command : app->get_subcommands(all)) {
    help += FormatEntry(command->get_name(), command->get_description());
  }
  for (const std::string& group : app->get_groups()) {
    const auto options = app->get_options(
        [&](const CLI::Option* option) { return option->get_group() == group && !option->get_positional(); });
    if (!options.empty()) help += fmt::format("\n{}:\n", group);
    for (const CLI::Option* const option : options) help += FormatOption(*option, option->get_description());
  }
  return fmt::format("{}\n{}\n", help, m_texts.footer);
}

}  // namespace CorvaneCli
