#include <Corvane/Transfer/ResumedFileImpl.h>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace Corvane {

ResumedFile::ResumedFile(const OpenFile& file, unsigned long long size)
    : FileBody(file), m_part(size - kMargin, size), m_isPlaced(Place()) {}

// The overlap of a checked file is compared, not written, so that writing begins behind it.
unsigned long long ResumedFile::WritePosition() const noexcept {
  return m_part.IsChecked() ? m_part.Held() : m_part.Position();
}

bool ResumedFile::Place() noexcept {
  return Wrappers::Sys::Fseek(File().Get(), static_cast<long>(WritePosition()), SEEK_SET) == BASE_S_OK;
}

ZResult ResumedFile::Check(std::string validator) {
  m_part.Check(std::move(validator));
  const ssize_t got = pread(fileno(File().Get()), m_overlap.data(), kMargin, static_cast<off_t>(Position()));
  if (got != static_cast<ssize_t>(kMargin)) return ResultFromErrno(got < 0 ? errno : EIO);
  m_isPlaced = Place();
  return BASE_S_OK;
}

std::size_t ResumedFile::Write(const char* data, std::size_t bytes) {
  if (m_part.IsRefused()) return bytes;
  if (!m_part.Admits(bytes)) return 0;
  const std::size_t compared = m_part.IsChecked() ? Compare(data, bytes) : 0;
  if (m_part.IsChanged() || compared == bytes) return compared;
  // What cannot be written where it belongs must not be written at all: the file would be no version of anything.
  m_isPlaced = m_isPlaced || Place();
  if (!m_isPlaced) return compared;
  const std::size_t written = FileBody::Write(data + compared, bytes - compared);
  m_part.Count(written);
  return compared + written;
}

std::size_t ResumedFile::Compare(const char* data, std::size_t bytes) {
  const unsigned long long received = m_part.Received();
  if (received >= kMargin) return 0;
  const auto compared = static_cast<std::size_t>(std::min<unsigned long long>(bytes, kMargin - received));
  if (std::memcmp(m_overlap.data() + received, data, compared) != 0) {
    m_part.MarkChanged();
    return 0;
  }
  m_part.Count(compared);
  return compared;
}

ZResult ResumedFile::CutStaleTail(const RequestedPart::End& end) const {
  if (m_part.Held() <= m_part.Reached() || !m_part.IsEndKnown(end)) return BASE_S_OK;
  return Wrappers::Sys::Ftruncate(File().Get(), m_part.Reached());
}

}  // namespace Corvane
