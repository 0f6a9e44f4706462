#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>

namespace CorvaneCli {

// What people see: lines on standard error and, on a terminal, one status line below them that is redrawn in place. Lines push
// the status line down instead of running into it. Texts are UTF-8 and are made safe for the terminal here.
// Thread safety: all operations from any thread. Errors: a standard error that takes nothing is no reason to stop.
class Console {
 public:
  Console();
  ~Console();  // erases the status line
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;

  // Suppresses Note. Set before other threads start.
  void SetQuiet(bool quiet) { m_quiet = quiet; }

  [[nodiscard]] bool IsTerminal() const noexcept { return m_isTerminal; }
  // Width of the terminal at this moment; 80 when it does not tell.
  [[nodiscard]] std::size_t Columns() const;

  // "corvane: TEXT".
  void Error(std::string_view text);
  // The same, unless quiet: what is worth knowing but no failure.
  void Note(std::string_view text);
  // TEXT alone.
  void Line(std::string_view text);

  // Draws the status line, which must fit into Columns(), or replaces it. Not on a dumb terminal or none.
  void ShowStatus(std::string_view text);
  void EraseStatus();
  // Turns `text` into an ordinary line in the place of the status line.
  void FinishStatus(std::string_view text);

 private:
  void WriteLine(std::string_view text);

  const bool m_isTerminal;
  bool m_quiet = false;
  std::mutex m_mutex;
  std::string m_status;  // guarded by m_mutex; what is drawn, in the locale's encoding
};

}  // namespace CorvaneCli
