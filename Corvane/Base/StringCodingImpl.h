#pragma once

#include <cstddef>

#include <Corvane/Base/String.h>

namespace Corvane::Coding {

// Appends the characters that the `length` bytes at `bytes` stand for in the local multibyte encoding, as
// ZStringDecoder::FromLocal describes it. Throws only std::bad_alloc.
void AppendLocal(ZString& text, const char* bytes, std::size_t length);

}  // namespace Corvane::Coding
