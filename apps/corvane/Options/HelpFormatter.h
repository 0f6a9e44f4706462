#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "apps/corvane/Options/HelpTexts.h"

namespace CorvaneCli {

// Prints the help of the program or of one command: usage, description, commands, options by their groups, footer; or, where there
// is one and not all is asked for, the short help with the most used options.
class HelpFormatter : public CLI::Formatter {
 public:
  // `texts` must outlive this object.
  explicit HelpFormatter(const HelpTexts& texts) : m_texts(texts) {}

  [[nodiscard]] std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override;

 private:
  [[nodiscard]] std::string Brief(const CLI::App& command) const;
  [[nodiscard]] std::string Full(const CLI::App& program) const;

  const HelpTexts& m_texts;
};

}  // namespace CorvaneCli
