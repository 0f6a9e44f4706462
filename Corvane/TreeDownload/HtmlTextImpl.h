#pragma once

#include <string>
#include <string_view>

namespace Corvane {

// Appends the text with its character references decoded, to UTF-8: the named ones that addresses and names need (amp,
// lt, gt, quot, apos, nbsp) and all numbers. `isAttribute`: in a value, where "&lt=" is no reference.
void AppendUnreferenced(std::string_view text, bool isAttribute, std::string& decoded);

}  // namespace Corvane
