#pragma once

#include <string_view>

namespace CorvaneCli {

// The words of a command line, before it is parsed.
class ArgumentWords {
 public:
  // They must outlive this object.
  ArgumentWords(int argc, const char* const* argv) : m_begin(argv), m_end(argv + argc) {}

  [[nodiscard]] bool Hold(std::string_view word) const;
  // Whether one of them may be an option of these names, such as "-o,--output": the long one, perhaps with "=VALUE" behind it,
  // or the letter, perhaps among others. What only looks like it counts, too.
  [[nodiscard]] bool MayName(std::string_view names) const;
  // What a program would take for the value of the option with this letter if it had one: what stands behind the letter in its
  // word, "-" in "-qO-", or else the next word. Empty when the letter is in no word like that.
  [[nodiscard]] std::string_view Behind(char letter) const;

 private:
  const char* const* m_begin;
  const char* const* m_end;
};

}  // namespace CorvaneCli
