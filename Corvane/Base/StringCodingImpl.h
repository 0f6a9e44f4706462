#pragma once

#include <cstddef>
#include <string>

#include <Corvane/Base/String.h>

namespace Corvane::Coding {

// Appends the characters that the `length` bytes at `bytes` stand for in the local multibyte encoding, as
// ZStringDecoder::FromLocal describes it. Throws only std::bad_alloc.
void AppendLocal(ZString& text, const char* bytes, std::size_t length);

// Whether the text is ASCII alone, without zeros. Nearly all names and URLs are; such a text is the same in every
// encoding. This and the copying compile to vector instructions.
bool IsPlainAscii(const std::wstring& text) noexcept;
// Writes text.size() bytes. For plain ASCII only.
void CopyAscii(const std::wstring& text, char* bytes) noexcept;

}  // namespace Corvane::Coding
