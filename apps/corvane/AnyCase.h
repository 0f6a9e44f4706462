#pragma once

#include <strings.h>

#include <string_view>

// Names that know no upper and lower case: of fields, of parameters, of schemes.
namespace CorvaneCli {

[[nodiscard]] inline bool IsSame(std::string_view a, std::string_view b) noexcept {
  return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

[[nodiscard]] inline bool BeginsWith(std::string_view text, std::string_view beginning) noexcept {
  return text.size() >= beginning.size() && IsSame(text.substr(0, beginning.size()), beginning);
}

}  // namespace CorvaneCli
