#pragma once

#include <CLI/CLI.hpp>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

namespace CorvaneCli {

// The options of a command as they were given, and the checks that concern more than one of them. What fails throws
// Failure(kUsage).
class Given {
 public:
  // `command` has been parsed, and must outlive this object.
  explicit Given(const CLI::App& command);

  [[nodiscard]] bool Has(const char* option) const;

  // At most one of them may be given.
  void Exclude(std::initializer_list<const char*> options, const char* remedy) const;
  // With `option`, `needed` has to be given, too.
  void Require(const char* option, const char* needed) const;

  // `value`, which the option's name for a file was read into; nullopt when the option was not given.
  [[nodiscard]] std::optional<std::string> Path(const char* option, const std::string& value) const;

  // The command and its options as words, see CommandLine::words.
  [[nodiscard]] std::vector<std::string> Words() const;
  // Whether they could not be typed again as they are, or should not.
  [[nodiscard]] bool HasUnrepeatableWords() const;

 private:
  const CLI::App& m_command;
  std::vector<const CLI::Option*> m_options;  // those that were given, in the order of their definition
};

}  // namespace CorvaneCli
