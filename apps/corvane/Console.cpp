#include "apps/corvane/Console.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>

#include "apps/corvane/Files.h"
#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

// Back to the first column, then erase to the end of the line: understood by every terminal of today but those that say that they
// understand nothing.
constexpr std::string_view kErase = "\r\x1b[K";

void Emit(const std::string& bytes) { static_cast<void>(WriteAll(STDERR_FILENO, bytes)); }

bool IsDumb() {
  const char* const kind = std::getenv("TERM");  // NOLINT(concurrency-mt-unsafe): nobody sets variables
  return kind != nullptr && std::string_view(kind) == "dumb";
}

}  // namespace

Console::Console() : m_isTerminal(isatty(STDERR_FILENO) == 1) {}
Console::~Console() { EraseStatus(); }

std::size_t Console::Columns() const {
  winsize size{};
  if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return 80;
  return size.ws_col;
}

void Console::Error(std::string_view text) { WriteLine(std::string("corvane: ").append(text)); }

void Console::Note(std::string_view text) {
  if (!m_quiet) Error(text);
}

void Console::Line(std::string_view text) { WriteLine(text); }

void Console::WriteLine(std::string_view text) {
  const std::lock_guard guard(m_mutex);
  std::string bytes(m_status.empty() ? std::string_view() : kErase);
  Emit(bytes.append(Printable(text)).append("\n").append(m_status));
}

void Console::ShowStatus(std::string_view text) {
  if (!m_isTerminal || IsDumb()) return;
  const std::lock_guard guard(m_mutex);
  m_status = Printable(text);
  Emit(std::string(kErase) + m_status);
}

void Console::EraseStatus() {
  const std::lock_guard guard(m_mutex);
  if (m_status.empty()) return;
  m_status.clear();
  Emit(std::string(kErase));
}

void Console::FinishStatus(std::string_view text) {
  EraseStatus();
  if (m_isTerminal) WriteLine(text);
}

}  // namespace CorvaneCli
