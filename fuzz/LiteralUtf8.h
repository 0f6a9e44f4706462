#pragma once

#include <string>
#include <string_view>

// UTF-8 once more: by the numbers that bits make, and not by the bytes that may follow each other.
namespace CorvaneFuzz {

std::wstring DecodeLiterally(std::string_view bytes);
std::string EncodeLiterally(const std::wstring& text);

}  // namespace CorvaneFuzz
