#include <Corvane/Transfer/ResumedFileImpl.h>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include <Corvane/NumberTextImpl.h>
#include <Corvane/Transfer/AnswerHeaderImpl.h>

namespace Corvane {

ResumedFile::ResumedFile(const OpenFile& file, unsigned long long size)
    : FileBody(file), m_size(size), m_position(size - kMargin) {
  Wrappers::Sys::Fseek(file.Get(), static_cast<long>(m_position), SEEK_SET);
}

ZResult ResumedFile::Check(std::string validator) {
  m_isChecked = true;
  m_validator = std::move(validator);
  const ssize_t got = pread(fileno(File().Get()), m_overlap.data(), kMargin, static_cast<off_t>(m_position));
  if (got != static_cast<ssize_t>(kMargin)) return ResultFromErrno(got < 0 ? errno : EIO);
  // The overlap is compared, not written, so that writing begins behind it.
  return Wrappers::Sys::Fseek(File().Get(), static_cast<long>(m_size), SEEK_SET);
}

// libcurl compares only where the range begins, and hands on whatever body comes after "bytes */N" as if the whole had been asked
// for.
void ResumedFile::Judge(const Answer& answer) {
  m_refused = !answer.isAcceptable;
  if (m_refused || !answer.isHttp) return;
  m_range = AnnouncedRange(answer.header);
  m_rangeMissing = !m_range || m_range->first != m_position;
  if (!m_isChecked || m_rangeMissing) return;
  // A server may leave If-Range aside and splice two versions together; the beginning of a shorter one may be the same.
  m_isDifferent = IsOtherVersion(answer.header, m_validator) || (m_range->total && *m_range->total < m_size);
}

std::size_t ResumedFile::Write(const char* data, std::size_t bytes) {
  if (m_refused) return bytes;
  if (m_rangeMissing || m_isDifferent) return 0;
  m_isTooMuch = m_range && m_range->last && bytes > *m_range->last + 1 - Reached();
  if (m_isTooMuch) return 0;
  const std::size_t compared = m_isChecked ? Compare(data, bytes) : 0;
  if (m_isDifferent || compared == bytes) return compared;
  const std::size_t written = FileBody::Write(data + compared, bytes - compared);
  m_received += written;
  return compared + written;
}

std::size_t ResumedFile::Compare(const char* data, std::size_t bytes) {
  if (m_received >= kMargin) return 0;
  const auto compared = static_cast<std::size_t>(std::min<unsigned long long>(bytes, kMargin - m_received));
  m_isDifferent = std::memcmp(m_overlap.data() + m_received, data, compared) != 0;
  if (m_isDifferent) return 0;
  m_received += compared;
  return compared;
}

// Without any content the old file is all there is only when the server said so: when the resource ends where the resume was to
// begin. An HTTP server then sends the whole again, which libcurl does not read; over FTP the size is asked for first.
bool ResumedFile::IsWholeWithoutContent(const End& end) const {
  return !end.hasContent && end.contentLength == static_cast<double>(m_position);
}

std::optional<ResumedFile::Refusal> ResumedFile::Refuse(const End& end) const {
  if (m_refused) return std::nullopt;
  const bool isOurs = end.isWriteError && (m_rangeMissing || m_isTooMuch || m_isDifferent);
  if (end.isFailed && !isOurs) return std::nullopt;
  if (m_isDifferent) return Changed();
  std::optional<Refusal> refusal = RefuseRest(end);
  // What is shorter than the file is another version, too.
  if (!refusal && m_isChecked && Reached() < m_size) return Changed();
  return refusal;
}

std::optional<ResumedFile::Refusal> ResumedFile::RefuseRest(const End& end) const {
  const Refusal noRest{CURLE_RANGE_ERROR, L"The server did not send the rest of the file. Cannot resume."};
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

std::optional<ResumedFile::Refusal> ResumedFile::RefuseVersion(std::string_view header) const {
  if (!m_isChecked || !IsOtherVersion(header, m_validator)) return std::nullopt;
  return Changed();
}

ResumedFile::Refusal ResumedFile::Changed() {
  return {CURLE_RANGE_ERROR, L"The file on the server has changed. Cannot resume."};
}

bool ResumedFile::IsEndKnown(const End& end) const { return !end.isHttp || !end.hasContent || m_range->total; }

ZResult ResumedFile::CutStaleTail(const End& end) const {
  if (m_size <= Reached() || !IsEndKnown(end)) return BASE_S_OK;
  return Wrappers::Sys::Ftruncate(File().Get(), Reached());
}

}  // namespace Corvane
