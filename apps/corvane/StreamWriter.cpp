#include "apps/corvane/StreamWriter.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>

namespace CorvaneCli {
namespace {

constexpr int kLastWordsMs = 500;

}  // namespace

StreamWriter::StreamWriter(int descriptor, const Interrupt* interrupt) : m_given(descriptor), m_interrupt(interrupt) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0 || S_ISREG(status.st_mode)) return;
  // What is open for reading only is no output, although its file may take bytes: the next write tells.
  if ((fcntl(descriptor, F_GETFL) & O_ACCMODE) == O_RDONLY) return;
  if (S_ISSOCK(status.st_mode)) {
    m_kind = Kind::kSocket;
    return;
  }
  // Switching the descriptor itself would switch it for everybody who shares it, the shell included.
  m_own = Open(fmt::format("/proc/self/fd/{}", descriptor), O_WRONLY | O_NONBLOCK | O_NOCTTY);
  m_kind = m_own.IsOpen() ? Kind::kWhole : Kind::kPieces;
}

int StreamWriter::Write(std::string_view bytes) {
  while (!bytes.empty()) {
    if (m_kind == Kind::kPieces) {
      const int error = AwaitRoom();
      if (error != 0) return error;
    }
    const long written = WriteSome(bytes);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0 && errno == EAGAIN) {
      const int error = AwaitRoom();
      if (error != 0) return error;
      continue;
    }
    if (written < 0) return errno;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return 0;
}

long StreamWriter::WriteSome(std::string_view bytes) const {
  switch (m_kind) {
    case Kind::kSocket:
      return send(m_given, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    case Kind::kPieces:
      return write(m_given, bytes.data(), std::min<std::size_t>(bytes.size(), PIPE_BUF));
    case Kind::kWhole:
      return write(m_own.Get(), bytes.data(), bytes.size());
    case Kind::kPlain:
      break;
  }
  return write(m_given, bytes.data(), bytes.size());
}

int StreamWriter::AwaitRoom() const {
  const bool isLate = m_interrupt != nullptr && m_interrupt->HasHappened();
  const int stop = m_interrupt == nullptr || isLate ? -1 : m_interrupt->PollDescriptor();
  std::array<pollfd, 2> sources = {pollfd{m_own.IsOpen() ? m_own.Get() : m_given, POLLOUT, 0}, pollfd{stop, POLLIN, 0}};
  while (true) {
    const int ready = poll(sources.data(), sources.size(), isLate ? kLastWordsMs : -1);
    if (ready < 0 && errno == EINTR) continue;
    if (ready < 0) return errno;
    if (sources[0].revents != 0) return 0;  // room, or an error that the next write tells
    return ECANCELED;
  }
}

int StreamWriter::Finish() const {
  const int copy = dup(m_given);
  return copy < 0 || close(copy) != 0 ? errno : 0;
}

}  // namespace CorvaneCli
