#include "apps/corvane/Options/Given.h"

#include <fmt/core.h>

#include <algorithm>

#include "apps/corvane/Options/Values.h"

namespace CorvaneCli {

// Asked for dozens of options, of which few are there: it is these that are kept and searched.
Given::Given(const CLI::App& command) : m_command(command) {
  for (const CLI::Option* const option : command.get_options()) {
    if (option->count() > 0) m_options.push_back(option);
  }
}

bool Given::Has(const char* option) const {
  return std::any_of(m_options.begin(), m_options.end(),
                     [&](const CLI::Option* given) { return given->check_name(option); });
}

void Given::Exclude(std::initializer_list<const char*> options, const char* remedy) const {
  std::vector<const char*> given;
  for (const char* const option : options) {
    if (Has(option)) given.push_back(option);
  }
  if (given.size() > 1) RefuseUsage(fmt::format("{} and {} cannot be used together; {}", given[0], given[1], remedy));
}

void Given::Require(const char* option, const char* needed) const {
  if (Has(option) && !Has(needed)) {
    RefuseUsage(fmt::format("{0} needs {1}; give {1} too, or leave {0} out", option, needed));
  }
}

std::optional<std::string> Given::Path(const char* option, const std::string& value) const {
  if (!Has(option)) return std::nullopt;
  if (value.empty()) RefuseUsage(fmt::format("{} got an empty name; give the name of a file", option));
  return value;
}

bool Given::HasUnrepeatableWords() const {
  if (Has("--header")) return true;  // others could read it
  const std::vector<std::string> words = Words();
  // What the shell made of "<(...)".
  return std::any_of(words.begin(), words.end(),
                     [](const std::string& word) { return word.rfind("/dev/fd/", 0) == 0; });
}

std::vector<std::string> Given::Words() const {
  std::vector<std::string> words = {"corvane", m_command.get_name()};
  for (const CLI::Option* const option : m_options) {
    const bool isLeftOut =
        option->check_name("--output") || option->check_name("--resume") || option->check_name("--header");
    if (isLeftOut) continue;
    const bool isFlag = option->get_expected_max() == 0;
    for (const std::string& value : option->results()) {
      if (!option->get_positional()) words.push_back("--" + option->get_lnames().front());
      if (!isFlag) words.push_back(value);
    }
  }
  return words;
}

}  // namespace CorvaneCli
