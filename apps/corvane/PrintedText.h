#pragma once

#include <string>
#include <string_view>

#include "apps/corvane/Utf8.h"

// Texts that reach a terminal, or the output of --text, in blocks as they come. A character may be split over blocks anywhere.
namespace CorvaneCli {

// Makes well-formed UTF-8 of any bytes: each maximal ill-formed piece becomes one U+FFFD, as the library decodes texts
// (ZStringDecoder::FromUtf8).
class TextDecoder {
 public:
  // The text of what came so far and has not been returned yet, but for a character that is not complete.
  [[nodiscard]] std::string Decode(std::string_view bytes);
  // The end of the text: U+FFFD when a character is not complete, else empty. The next text may follow.
  [[nodiscard]] std::string Finish();
  // Whether a piece was replaced in what has been returned. Stays so.
  [[nodiscard]] bool HasReplaced() const noexcept { return m_hasReplaced; }

 private:
  std::string Convert(std::string_view bytes);

  std::string m_incomplete;  // the beginning of a character, 0 to 3 bytes
  bool m_hasReplaced = false;
};

// Watches a stream for what is no plain text, and what is not safe to show on a terminal. Allowed is well-formed UTF-8 without
// control characters, but for backspace, tab, line feed, form feed and carriage return.
class TextCheck {
 public:
  // False as soon as the stream so far is no such text, and ever after. A character that is not complete is not wrong yet.
  [[nodiscard]] bool Take(std::string_view bytes) noexcept;

 private:
  bool TakeByte(unsigned char byte) noexcept;

  Utf8Lead m_expected = {0};  // of the character that has begun
  bool m_isText = true;
};

// `text`, which is UTF-8, with U+FFFD for the control characters that a TextCheck does not allow.
[[nodiscard]] std::string WithoutControls(std::string_view text);

}  // namespace CorvaneCli
