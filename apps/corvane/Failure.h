#pragma once

#include <stdexcept>
#include <string>
#include <utility>

#include "apps/corvane/ExitCode.h"

namespace CorvaneCli {

// Ends a command before or after its transfer, with the one line that tells the user why and what to do.
// The text is UTF-8: the thing, the reason, "; ", the remedy.
class Failure : public std::runtime_error {
 public:
  Failure(ExitCode code, const std::string& text) : std::runtime_error(text), m_code(code) {}

  [[nodiscard]] ExitCode Code() const noexcept { return m_code; }

 private:
  ExitCode m_code;
};

}  // namespace CorvaneCli
