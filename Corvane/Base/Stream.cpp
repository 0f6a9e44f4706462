#include <Corvane/Base/Stream.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <new>
#include <stdexcept>

#include <Corvane/Base/StringCoding.h>

namespace Corvane {

ZResult ZStream::Read(ZString& text, std::size_t bytes, const ZUtf8Encoding& /*encoding*/) {
  const char* const taken = Take(bytes);
  if (taken == nullptr) return BASE_E_END_OF_STREAM;
  try {
    AppendUtf8(text, taken, bytes);
  } catch (const std::bad_alloc&) {
    return ResultFromErrno(ENOMEM);
  } catch (const std::length_error&) {  // more characters than a string can ever hold
    return ResultFromErrno(ENOMEM);
  }
  return BASE_S_OK;
}

ZResult ZMemoryStream::Seek(std::size_t offset) noexcept {
  if (offset > m_length) return BASE_E_END_OF_STREAM;
  m_position = offset;
  return BASE_S_OK;
}

const char* ZMemoryStream::Take(std::size_t bytes) noexcept {
  if (bytes > m_length - m_position) return nullptr;
  if (bytes == 0) return "";  // there may be no memory yet, and null means failure
  const char* const taken = m_data.get() + m_position;
  m_position += bytes;
  return taken;
}

ZDynamicMemoryStream::ZDynamicMemoryStream(std::size_t initialBytes) noexcept
    : m_initialBytes(std::max<std::size_t>(initialBytes, 1)) {}

std::size_t ZDynamicMemoryStream::Write(const void* data, std::size_t bytes) noexcept {
  if (bytes == 0 || bytes > SIZE_MAX - m_position) return 0;
  const std::size_t end = m_position + bytes;
  if (end > m_capacity && !Grow(end)) return 0;
  std::memcpy(m_data.get() + m_position, data, bytes);
  m_position = end;
  m_length = std::max(m_length, end);
  return bytes;
}

// Makes room for `needed` bytes in all. On a failure everything stays as it was.
bool ZDynamicMemoryStream::Grow(std::size_t needed) noexcept {
  const std::size_t doubled = m_capacity > SIZE_MAX / 2 ? SIZE_MAX : 2 * m_capacity;
  const std::size_t capacity = std::max({needed, doubled, m_initialBytes});
  void* const memory = std::realloc(m_data.get(), capacity);  // NOLINT(cppcoreguidelines-no-malloc): may remap pages
  if (memory == nullptr) return false;
  static_cast<void>(m_data.release());  // realloc has freed or reused it
  m_data.reset(static_cast<char*>(memory));
  m_capacity = capacity;
  return true;
}

}  // namespace Corvane
