#include <Corvane/Transfer/BodyImpl.h>

#include <utility>

namespace Corvane {

ZResult MemoryBody::Read(ZString& text, std::size_t bytes) {
  text.Clear();
  const ZResult sought = m_stream.Seek(0);
  return sought == BASE_S_OK ? m_stream.Read(text, bytes, ZUtf8Encoding()) : sought;
}

ZResult OpenFile::Close() {
  return m_file == nullptr ? BASE_S_OK : Wrappers::Sys::Fclose(std::exchange(m_file, nullptr));
}

std::size_t FileBody::Write(const char* data, std::size_t bytes) {
  std::size_t written = 0;
  Wrappers::Sys::Fwrite(data, bytes, m_file.Get(), written);  // a short write is its own report
  return written;
}

}  // namespace Corvane
