#include "apps/corvane/OutputStream.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

#include "apps/corvane/Failure.h"
#include "apps/corvane/OutputFile.h"
#include "apps/corvane/Session.h"
#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

// A standard stream is written to as it is: its file opened anew would begin at the file's beginning.
int StandardStreamOf(const std::optional<std::string>& output) {
  return output ? OutputFile::StandardStream(*output) : STDOUT_FILENO;
}

// Opening a pipe that nobody reads waits for a reader, but not beyond a signal. Empty for a standard stream.
Descriptor OpenOutput(const std::optional<std::string>& output, const Interrupt& interrupt) {
  constexpr std::chrono::milliseconds kInterval{50};
  if (StandardStreamOf(output) != -1) return Descriptor();
  while (true) {
    Descriptor opened = Open(*output, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_APPEND);
    if (opened.IsOpen()) return opened;
    if (errno != ENXIO) {
      throw Failure(ExitCode::kLocal,
                    fmt::format("cannot write {}: {}; choose another file with -o, or change the permissions",
                                DisplayName(*output), SystemText(errno)));
    }
    if (!WaitFor(kInterval, interrupt)) throw Failure(ExitCode::kInterrupted, "interrupted; nothing was kept");
  }
}

}  // namespace

OutputStream::OutputStream(const std::optional<std::string>& output, const Environment& environment, bool decodesText)
    : m_output(output),
      m_environment(environment),
      m_decodesText(decodesText),
      m_opened(OpenOutput(output, *environment.interrupt)),
      m_writer(m_opened.IsOpen() ? m_opened.Get() : StandardStreamOf(output), &*environment.interrupt),
      m_isTerminal(isatty(m_opened.IsOpen() ? m_opened.Get() : StandardStreamOf(output)) == 1) {}

bool OutputStream::Write(std::string_view bytes) {
  if (m_decodesText) return Send(Shown(m_decoder.Decode(bytes)));
  m_isNoText = m_isTerminal && !m_check.Take(bytes);
  return !m_isNoText && Send(bytes);
}

bool OutputStream::Send(std::string_view bytes) {
  m_error = m_writer.Write(bytes);
  return m_error == 0;
}

bool OutputStream::Finish() {
  if (m_decodesText && !Send(Shown(m_decoder.Finish()))) return false;
  m_error = m_writer.Finish();
  if (m_error == 0 && m_decoder.HasReplaced()) {
    m_environment.console.Note(
        "what came is not all UTF-8 text, other bytes are shown as U+FFFD; leave out --text for binary data");
  }
  return m_error == 0;
}

std::string OutputStream::Shown(const std::string& text) const { return m_isTerminal ? WithoutControls(text) : text; }

std::string OutputStream::Name() const { return m_output ? DisplayName(*m_output) : "the standard output"; }

void OutputStream::Fail(const std::string& url) const {
  if (WasInterrupted(m_environment)) throw Failure(ExitCode::kInterrupted, "interrupted; not all was written");
  if (m_isNoText) {
    throw Failure(ExitCode::kLocal,
                  fmt::format("cannot show {} on a terminal: it is no plain text; use -o FILE, or a pipe such as "
                              "\"| less\", or --text to see what can be shown",
                              url));
  }
  if (m_error == EPIPE) throw Failure(ExitCode::kLocal, std::string());
  const std::string to = m_output ? Name() : "to " + Name();
  throw Failure(ExitCode::kLocal, fmt::format("cannot write {}: {}; check where it goes", to, SystemText(m_error)));
}

}  // namespace CorvaneCli
