#pragma once

#include <ostream>

#include <Corvane/Base/StringCoding.h>

namespace Corvane {

// Lets the assertions show strings as UTF-8 text.
inline void PrintTo(const ZString& text, std::ostream* stream) {
  const ZStringEncoder utf8(text, ZStringEncoder::Utf8);
  *stream << '"';
  stream->write(utf8.CStr(), static_cast<std::streamsize>(utf8.Length()));
  *stream << '"';
}

}  // namespace Corvane
