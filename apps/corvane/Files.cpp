#include "apps/corvane/Files.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include <Corvane/Base/ErrorDict.h>

#include "apps/corvane/Text.h"

namespace CorvaneCli {

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  if (this != &other) {
    Close();
    m_descriptor = std::exchange(other.m_descriptor, -1);
  }
  return *this;
}

void Descriptor::Close() noexcept {
  if (m_descriptor >= 0) close(std::exchange(m_descriptor, -1));
}

std::string Descriptor::Name() const { return fmt::format("/proc/self/fd/{}", m_descriptor); }

Descriptor Open(const std::string& path, int flags, unsigned int mode) {
  return Descriptor(open(path.c_str(), flags | O_CLOEXEC, static_cast<mode_t>(mode)));
}

Descriptor OpenMemory(const char* purpose) { return Descriptor(memfd_create(purpose, MFD_CLOEXEC)); }

namespace {

// A terminal or pipe that another process made non-blocking is not an error but full for the moment.
bool AwaitRoom(int descriptor) noexcept {
  pollfd room{descriptor, POLLOUT, 0};
  return poll(&room, 1, -1) == 1 || errno == EINTR;
}

}  // namespace

int WriteAll(int descriptor, std::string_view bytes) noexcept {
  while (!bytes.empty()) {
    const ssize_t written = write(descriptor, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0 && errno == EAGAIN && AwaitRoom(descriptor)) continue;
    if (written < 0) return errno;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return 0;
}

int ReadAll(const Descriptor& file, int stop, std::string& bytes) {
  std::array<char, 65536> block;
  std::array<pollfd, 2> sources = {pollfd{file.Get(), POLLIN, 0}, pollfd{stop, POLLIN, 0}};
  while (true) {
    if (poll(sources.data(), sources.size(), -1) < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    if (sources[1].revents != 0) return ECANCELED;
    const ssize_t count = read(file.Get(), block.data(), block.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    if (count == 0) return 0;
    bytes.append(block.data(), static_cast<std::size_t>(count));
  }
}

std::string SystemText(int error) { return ToUtf8(Corvane::ZGetErrorMsg(Corvane::ResultFromErrno(error))); }

}  // namespace CorvaneCli
