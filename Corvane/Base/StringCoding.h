#pragma once

#include <cstddef>
#include <string>

#include <Corvane/Base/String.h>

namespace Corvane {

// Converts a wide string to a narrow one and owns the result.
//
//   ZStringEncoder local(fileName, ZStringEncoder::Local);
//   if (local.CStr() == nullptr) ... the name cannot be expressed in the host's locale ...
//
// Thread safety: objects are independent. Local reads the process's (or the calling thread's, see uselocale(3))
// LC_CTYPE; no environment variable is read. Errors: only std::bad_alloc.
class CORVANE_ZPS_API ZStringEncoder {
 public:
  // What to convert to.
  enum Encoding {
    Local,  // the multibyte encoding of the current LC_CTYPE
    Utf8    // characters that are no Unicode scalar values become U+FFFD
  };

  // Converts `text`, which need not live on.
  ZStringEncoder(const ZString& text, Encoding encoding);

  // The narrow string, terminated by a zero byte, valid until this object is destroyed. Null when a character cannot be
  // expressed in the local encoding; a zero character in the middle counts as such, since a C string would end there.
  // Never null for Utf8.
  [[nodiscard]] const char* CStr() const noexcept { return m_representable ? m_bytes.c_str() : nullptr; }
  // Bytes of CStr() without the terminating zero; 0 when CStr() is null.
  [[nodiscard]] std::size_t Length() const noexcept { return m_representable ? m_bytes.size() : 0; }

 private:
  std::string m_bytes;
  bool m_representable = true;
};

// Converts narrow strings to wide ones. A null pointer gives an empty string; a length of all ones means up to the
// terminating zero byte. Nothing that cannot be decoded is an error. Thread safety and errors: as ZStringEncoder.
class CORVANE_ZPS_API ZStringDecoder {
 public:
  // A byte that the local multibyte encoding does not decode becomes the character of the same number.
  [[nodiscard]] static ZString FromLocal(const char* text, std::size_t length = ZString::npos);
  // Ill-formed input becomes U+FFFD.
  [[nodiscard]] static ZString FromUtf8(const char* text, std::size_t length = ZString::npos);
};

// Appends the characters that the `length` UTF-8 bytes at `bytes` stand for. ASCII runs at memory speed; each maximal
// ill-formed piece (as in the Unicode standard, section 3.9) becomes one U+FFFD. Throws only std::bad_alloc.
CORVANE_ZPS_API void AppendUtf8(ZString& text, const char* bytes, std::size_t length);

}  // namespace Corvane
