#include <Corvane/Transfer/ResumedFileImpl.h>

#include <Corvane/NumberTextImpl.h>

namespace Corvane {

ResumedFile::ResumedFile(const OpenFile& file, unsigned long long size)
    : FileBody(file), m_size(size), m_position(size - kMargin) {
  Wrappers::Sys::Fseek(file.Get(), static_cast<long>(m_position), SEEK_SET);
}

// libcurl compares only where the range begins, and hands on whatever body comes after "bytes */N" as if the whole had been asked
// for.
void ResumedFile::Judge(const Answer& answer) {
  m_refused = !answer.isAcceptable;
  if (m_refused || !answer.isHttp) return;
  m_range = AnnouncedRange(answer.header);
  m_rangeMissing = !m_range || m_range->first != m_position;
}

std::size_t ResumedFile::Write(const char* data, std::size_t bytes) {
  if (m_refused) return bytes;
  if (m_rangeMissing) return 0;
  m_isTooMuch = m_range && m_range->last && bytes > *m_range->last + 1 - Reached();
  if (m_isTooMuch) return 0;
  const std::size_t written = FileBody::Write(data, bytes);
  m_received += written;
  return written;
}

// Without any content the old file is all there is only when the server said so: when the resource ends where the resume was to
// begin. An HTTP server then sends the whole again, which libcurl does not read; over FTP the size is asked for first.
bool ResumedFile::IsWholeWithoutContent(const End& end) const {
  return !end.hasContent && end.contentLength == static_cast<double>(m_position);
}

std::optional<ResumedFile::Refusal> ResumedFile::Refuse(const End& end) const {
  const Refusal noRest{CURLE_RANGE_ERROR, L"The server did not send the rest of the file. Cannot resume."};
  if (m_refused) return std::nullopt;
  if (end.isFailed && !(end.isWriteError && (m_rangeMissing || m_isTooMuch))) return std::nullopt;
  if (m_isTooMuch)
    return Refusal{CURLE_RANGE_ERROR, L"The server sent more than the range it announced. Cannot resume."};
  if (!end.hasContent) return IsWholeWithoutContent(end) ? std::nullopt : std::optional(noRest);
  if (!end.isHttp)
    return std::nullopt;  // libcurl compares what came with the size, and a server says when it has sent all
  if (m_rangeMissing) return noRest;

  const unsigned long long announcedEnd = m_range->last ? *m_range->last + 1 : Reached();
  const unsigned long long total = m_range->total.value_or(announcedEnd);
  if (Reached() < total || Reached() < announcedEnd) {
    return Refusal{CURLE_PARTIAL_FILE,
                   ZString(L"The server sent only %1 of the file's %2 bytes. The rest is still missing.")
                       .Arg(UnsignedNumber(Reached()))
                       .Arg(UnsignedNumber(total))};
  }
  // Whether the old file's tail belongs to a resource of unknown length, nobody can tell.
  if (!m_range->total && m_size > Reached()) return noRest;
  return std::nullopt;
}

bool ResumedFile::IsEndKnown(const End& end) const { return !end.isHttp || !end.hasContent || m_range->total; }

ZResult ResumedFile::CutStaleTail(const End& end) const {
  if (m_size <= Reached() || !IsEndKnown(end)) return BASE_S_OK;
  return Wrappers::Sys::Ftruncate(File().Get(), Reached());
}

}  // namespace Corvane
