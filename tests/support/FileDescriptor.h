#pragma once

#include <utility>

namespace CorvaneTest {

// Sole owner of a file descriptor; empty when Get() is -1.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int descriptor) : m_descriptor(descriptor) {}
  ~FileDescriptor() { Close(); }
  FileDescriptor(FileDescriptor&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    if (this != &other) {
      Close();
      m_descriptor = std::exchange(other.m_descriptor, -1);
    }
    return *this;
  }

  int Get() const { return m_descriptor; }
  bool IsOpen() const { return m_descriptor >= 0; }

  // Closes the descriptor; does nothing when empty.
  void Close();

 private:
  int m_descriptor = -1;
};

}  // namespace CorvaneTest
