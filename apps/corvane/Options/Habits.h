#pragma once

#include <string_view>

namespace CorvaneCli {

// What to do instead of an option that other programs have, in one sentence without a capital and a period; empty when
// there is nothing to say. name: "-O" or "--output-document"; command: the one that was named, or empty.
[[nodiscard]] std::string_view RemedyForOption(std::string_view name, std::string_view command) noexcept;

// The command that does what others call `word`; empty when there is none.
[[nodiscard]] std::string_view CommandMeantBy(std::string_view word) noexcept;

}  // namespace CorvaneCli
