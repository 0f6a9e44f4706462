#pragma once

#include <string>
#include <string_view>
#include <utility>

namespace CorvaneCli {

// Sole owner of a file descriptor; empty when Get() is -1.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int descriptor) noexcept : m_descriptor(descriptor) {}
  ~Descriptor() { Close(); }
  Descriptor(Descriptor&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept;

  [[nodiscard]] int Get() const noexcept { return m_descriptor; }
  [[nodiscard]] bool IsOpen() const noexcept { return m_descriptor >= 0; }
  void Close() noexcept;

  // A name under which this process, the libraries included, can open the same file again, and which nobody can remove.
  [[nodiscard]] std::string Name() const;

 private:
  int m_descriptor = -1;
};

// Opens `path` with flags O_... and O_CLOEXEC; empty, with errno set, on failure.
[[nodiscard]] Descriptor Open(const std::string& path, int flags, unsigned int mode = 0666);

// A file in memory without a name. Empty, with errno set, on failure.
[[nodiscard]] Descriptor OpenMemory(const char* purpose);

// Writes everything and returns 0, or the errno that stopped it. A signal does not stop it.
[[nodiscard]] int WriteAll(int descriptor, std::string_view bytes) noexcept;

// Appends what is left to read, and returns 0 or the errno that stopped it: ECANCELED when `stop`, a descriptor, became
// readable while there was nothing to read yet (-1: nothing stops it).
[[nodiscard]] int ReadAll(const Descriptor& file, int stop, std::string& bytes);

// What strerror says, in UTF-8.
[[nodiscard]] std::string SystemText(int error);

}  // namespace CorvaneCli
