#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <utility>

#include <Corvane/Base/Result.h>
#include <Corvane/Base/String.h>

namespace Corvane {

// Names the UTF-8 encoding to ZStream::Read.
struct ZUtf8Encoding {};

// A sequence of bytes with a position.
// Thread safety: one thread at a time. Errors: codes; nothing throws.
class CORVANE_ZPS_API ZStream {
 public:
  virtual ~ZStream() = default;

  // Appends to `text` the characters that the next `bytes` bytes stand for; ill-formed input becomes U+FFFD.
  // Returns 0; BASE_E_END_OF_STREAM when fewer bytes are left (nothing is read then, and the position stays); the code
  // of ENOMEM when memory ran out (`text` then holds the beginning, and the position is behind all the bytes).
  [[nodiscard]] ZResult Read(ZString& text, std::size_t bytes, const ZUtf8Encoding& encoding);

 protected:
  // A view of the next `bytes` bytes, behind which the position moves; null when fewer are left. Valid until the stream changes.
  virtual const char* Take(std::size_t bytes) noexcept = 0;
};

// A stream in memory. The length only grows: seeking back and writing overwrites.
// Moving takes the content and the position along and leaves an empty stream that can be used again.
class CORVANE_ZPS_API ZMemoryStream : public ZStream {
 public:
  ZMemoryStream() noexcept = default;  // empty
  ZMemoryStream(ZMemoryStream&& other) noexcept
      : m_data(std::move(other.m_data)),
        m_length(std::exchange(other.m_length, 0)),
        m_position(std::exchange(other.m_position, 0)) {}
  ZMemoryStream& operator=(ZMemoryStream&& other) noexcept {
    m_data = std::move(other.m_data);
    m_length = std::exchange(other.m_length, 0);
    m_position = std::exchange(other.m_position, 0);
    return *this;
  }

  // Moves the position to `offset` bytes from the beginning. Returns BASE_E_END_OF_STREAM, and moves nothing, when the
  // stream is shorter.
  [[nodiscard]] ZResult Seek(std::size_t offset) noexcept;
  // Bytes of the whole, wherever the position is.
  [[nodiscard]] std::size_t Length() const noexcept { return m_length; }

 protected:
  const char* Take(std::size_t bytes) noexcept override;

  // What std::unique_ptr deletes with: the memory comes from realloc(3).
  struct Free {
    // Returns `memory` to the C library; null is nothing.
    void operator()(char* memory) const noexcept { std::free(memory); }  // NOLINT(cppcoreguidelines-no-malloc)
  };
  std::unique_ptr<char, Free> m_data;  // null before the first write
  std::size_t m_length = 0;            // bytes of m_data that are written
  std::size_t m_position = 0;          // never behind m_length
};

// A memory stream that grows by doubling. The memory is kept until the object is destroyed or moved from, so that a
// stream used again and again allocates once; large blocks are grown by realloc(3), which can remap pages instead of
// copying them.
class CORVANE_ZPS_API ZDynamicMemoryStream : public ZMemoryStream {
 public:
  // `initialBytes`: room to start with, at least 1. Nothing is allocated before the first write.
  explicit ZDynamicMemoryStream(std::size_t initialBytes) noexcept;
  ZDynamicMemoryStream(ZDynamicMemoryStream&& other) noexcept
      : ZMemoryStream(std::move(other)),
        m_initialBytes(other.m_initialBytes),
        m_capacity(std::exchange(other.m_capacity, 0)) {}
  ZDynamicMemoryStream& operator=(ZDynamicMemoryStream&& other) noexcept {
    m_initialBytes = other.m_initialBytes;
    m_capacity = std::exchange(other.m_capacity, 0);
    ZMemoryStream::operator=(std::move(other));
    return *this;
  }

  // Writes at the position and moves behind what was written. Returns the number of bytes stored: `bytes`, or 0 when
  // memory ran out.
  [[nodiscard]] std::size_t Write(const void* data, std::size_t bytes) noexcept;

 private:
  CORVANE_ZPS_HIDDEN bool Grow(std::size_t needed) noexcept;

  std::size_t m_initialBytes;
  std::size_t m_capacity = 0;
};

}  // namespace Corvane
