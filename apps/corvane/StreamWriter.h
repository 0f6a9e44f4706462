#pragma once

#include <string>
#include <string_view>

#include "apps/corvane/Files.h"
#include "apps/corvane/Interrupt.h"

namespace CorvaneCli {

// Writes to a pipe, terminal, socket, device or file that is open already, so that a reader who has stopped reading
// holds nothing up: a signal ends the wait. What the writer needs for that is its own; the descriptor that was given,
// which other processes may share, stays as it is.
// Thread safety: one thread.
class StreamWriter {
 public:
  // `descriptor` and `interrupt` (null: nothing ends a wait) must outlive this object.
  StreamWriter(int descriptor, const Interrupt* interrupt);

  // Writes everything and returns 0, or the errno that stopped it: ECANCELED after a signal. Once a signal has come, at
  // most half a second is waited for the reader, so that a last message still gets through to one who reads.
  [[nodiscard]] int Write(std::string_view bytes);

  // Returns 0 or an errno. Some file systems tell of a full disk only when a file is closed.
  [[nodiscard]] int Finish() const;

 private:
  enum class Kind {
    kPlain,   // a regular file: never blocks for long
    kWhole,   // does not block, and takes any number of bytes
    kSocket,  // the same, by a flag of each call
    kPieces   // may block, but not for a piece of what a pipe takes at once, after a poll
  };

  [[nodiscard]] int AwaitRoom() const;
  [[nodiscard]] long WriteSome(std::string_view bytes) const;

  const int m_given;
  const Interrupt* const m_interrupt;
  Descriptor m_own;  // the same file, opened anew without blocking
  Kind m_kind = Kind::kPlain;
};

}  // namespace CorvaneCli
