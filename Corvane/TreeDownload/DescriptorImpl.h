#pragma once

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <utility>

namespace Corvane {

// An open file or folder; closed with the object, which somebody who has to know of a failure does before.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int number) noexcept : m_number(number) {}
  ~Descriptor() { Close(); }
  Descriptor(Descriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) {
      Close();
      m_number = std::exchange(other.m_number, -1);
    }
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  [[nodiscard]] int Get() const noexcept { return m_number; }
  [[nodiscard]] bool IsOpen() const noexcept { return m_number >= 0; }
  // Writes all of it. 0, or why not all of it is written, as an errno.
  [[nodiscard]] int Write(const char* data, std::size_t bytes) const noexcept {
    while (bytes != 0) {
      const ssize_t written = write(m_number, data, bytes);
      if (written < 0 && errno == EINTR) continue;
      if (written <= 0) return written < 0 ? errno : ENOSPC;
      data += written;
      bytes -= static_cast<std::size_t>(written);
    }
    return 0;
  }
  // Somebody else closes it.
  void Release() noexcept { m_number = -1; }
  // False when what was written is not all there, with the reason in errno. It is closed all the same (close(2)).
  bool Close() noexcept { return m_number < 0 || close(std::exchange(m_number, -1)) == 0; }

 private:
  int m_number = -1;
};

}  // namespace Corvane
