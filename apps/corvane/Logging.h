#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "apps/corvane/Console.h"

namespace CorvaneCli {

// Where log lines go, the libraries' and the program's own: to the console with -v, with their times to a file with
// --log-file. While one exists it is the libraries' logger.
// Thread safety: Tell and its kin from any thread. Errors: a line that cannot be written is lost, and the first such
// loss is told.
class Logging {
 public:
  // Throws Failure(kLocal) when the file cannot be opened. `console` must outlive this object.
  Logging(bool verbose, const std::optional<std::string>& file, Console& console);
  ~Logging();
  Logging(const Logging&) = delete;
  Logging& operator=(const Logging&) = delete;

  // Whether lines go anywhere.
  [[nodiscard]] bool IsOn() const noexcept { return m_bridge != nullptr; }
  // A line of the program's own, in UTF-8.
  void Tell(std::string_view text);
  // The same of what the console has been told already: into the file only.
  void Record(std::string_view text);
  void RecordError(std::string_view text);

 private:
  class Bridge;
  std::unique_ptr<Bridge> m_bridge;  // null when nothing is logged
};

}  // namespace CorvaneCli
