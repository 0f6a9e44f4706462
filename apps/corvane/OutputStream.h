#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "apps/corvane/Command.h"
#include "apps/corvane/Files.h"
#include "apps/corvane/PrintedText.h"
#include "apps/corvane/StreamWriter.h"

namespace CorvaneCli {

// The standard output, or a pipe or device that -o names: takes bytes as they come and gives none back. A terminal gets
// plain text only.
// Thread safety: one thread.
class OutputStream {
 public:
  // output: a path for which OutputFile::IsStream holds; unset: the standard output. Waits for the reader of a pipe.
  // Throws Failure.
  OutputStream(const std::optional<std::string>& output, const Environment& environment, bool decodesText);

  // False when the bytes are not all taken: Fail tells why.
  [[nodiscard]] bool Write(std::string_view bytes);
  // What is still held back, and what shows only at the end. False as above.
  [[nodiscard]] bool Finish();

  // Whether a write has failed.
  [[nodiscard]] bool IsBroken() const noexcept { return m_error != 0 || m_isNoText; }
  // Ends the command after a failed write. url: what was fetched. Throws Failure, one without text when whoever read
  // from a pipe has enough.
  [[noreturn]] void Fail(const std::string& url) const;

  // "the standard output", or the path, in UTF-8.
  [[nodiscard]] std::string Name() const;
  // Whether it is not the standard output, on which a progress line would be in the way.
  [[nodiscard]] bool IsElsewhere() const noexcept { return m_output.has_value(); }

 private:
  bool Send(std::string_view bytes);
  [[nodiscard]] std::string Shown(const std::string& text) const;

  const std::optional<std::string> m_output;
  const Environment& m_environment;
  const bool m_decodesText;
  Descriptor m_opened;  // unless it is a standard stream
  StreamWriter m_writer;
  bool m_isTerminal;
  TextCheck m_check;
  TextDecoder m_decoder;
  bool m_isNoText = false;
  int m_error = 0;
};

}  // namespace CorvaneCli
