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

 private:
  const char* const* m_begin;
  const char* const* m_end;
};

}  // namespace CorvaneCli
