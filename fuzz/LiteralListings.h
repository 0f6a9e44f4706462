#pragma once

#include <string>
#include <utility>
#include <vector>

#include <Corvane/Base/String.h>

// The readers of listings once more: step by step as the rules say it, without a thought for speed, and as far apart from the library's
// as that goes. They know nothing of what the library does besides, such as names that it refuses.
namespace CorvaneFuzz {

// Files with their sizes in the order of the text.
using ListedFiles = std::vector<std::pair<std::wstring, unsigned long long>>;

ListedFiles ReadHttpLiterally(const Corvane::ZString& text);
ListedFiles ReadFtpLiterally(const Corvane::ZString& text);

// The number that the text begins with, white space skipped; the largest one instead of a larger one.
unsigned long long NumberLiterally(const std::wstring& text);

}  // namespace CorvaneFuzz
