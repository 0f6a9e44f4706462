#pragma once

#include <optional>
#include <string>

#include <Corvane/Base/String.h>

#include "apps/corvane/Interrupt.h"

namespace CorvaneCli {

// The password for --user `user` (UTF-8): the first line of `passwordFile` when one was named, else the environment variable
// CORVANE_PASSWORD, else what the user types at the terminal, where it does not show. It never comes from the command line,
// which everyone on the machine can read.
// Returns nullopt when the user interrupted the question. Throws Failure: kSecurity when the file cannot be read, kUsage when
// there is no terminal to ask at.
[[nodiscard]] std::optional<Corvane::ZString> ObtainPassword(const std::string& user,
                                                             const std::optional<std::string>& passwordFile,
                                                             const Interrupt& interrupt);

}  // namespace CorvaneCli
