#include <Corvane/Transfer/RequestedPartImpl.h>

#include <string_view>
#include <utility>

#include <Corvane/NumberTextImpl.h>
#include <Corvane/Transfer/AnswerHeaderImpl.h>
#include <Corvane/Transfer/FileVersionImpl.h>

namespace Corvane {
namespace {

constexpr long kWhole = 200;

// How many bytes the answer says its body has. None when it does not say so, and when that would not hold: a transfer coding replaces
// the length (RFC 9112, section 6.3).
std::optional<unsigned long long> AnnouncedLength(std::string_view header) {
  const std::optional<std::string_view> value = FieldOf(header, "Content-Length");
  return value && !FieldOf(header, "Transfer-Encoding") ? NumberOf(*value) : std::nullopt;
}

// A Content-Range means nothing in an answer that says that it is the whole (RFC 9110, section 14.4). Servers that forget the status 206
// are known all the same: they are believed when the body is just as long as the range.
bool IsOfThisRange(const Answer& answer, const ContentRange& range) {
  if (answer.status != kWhole) return true;
  std::optional<unsigned long long> end = range.total;
  if (range.last) end = *range.last + 1;
  const std::optional<unsigned long long> length = AnnouncedLength(answer.header);
  return end && length && *length == *end - range.first;
}

}  // namespace

void RequestedPart::Check(std::string validator) {
  m_isChecked = true;
  m_validator = std::move(validator);
}

// libcurl compares only where the range begins, and hands on whatever body comes after "bytes */N" as if the whole had been asked
// for.
void RequestedPart::Judge(const Answer& answer) {
  m_isRefused = !answer.isAcceptable;
  if (m_isRefused) return;
  if (answer.isHttp) {
    m_range = AnnouncedRange(answer.header);
    m_isRangeMissing = !m_range || m_range->first != m_position || !IsOfThisRange(answer, *m_range);
  }
  if (!m_isChecked) return;
  // A server may leave If-Range aside and splice two versions together; the beginning of a shorter one may be the same.
  const bool isShorter = !m_isRangeMissing && m_range && m_range->total && *m_range->total < m_held;
  m_isChanged = isShorter || IsOtherVersion(answer);
}

// A validator of the other protocol proves nothing.
bool RequestedPart::IsOtherVersion(const Answer& answer) const {
  if (m_validator.empty()) return false;
  if (!answer.isHttp) return answer.fileVersion != m_validator;
  return IsFileVersion(m_validator) || Corvane::IsOtherVersion(answer.header, m_validator);
}

bool RequestedPart::Admits(std::size_t bytes) noexcept {
  if (m_isRangeMissing || m_isChanged) return false;
  m_isTooMuch = m_range && m_range->last && bytes > *m_range->last + 1 - Reached();
  return !m_isTooMuch;
}

// Without any content what is held is all there is only when the server said so: when the resource ends where the part was to
// begin. An HTTP server then sends the whole again, which libcurl does not read; over FTP the size is asked for first.
bool RequestedPart::IsWholeWithoutContent(const End& end) const {
  return !end.hasContent && end.contentLength == static_cast<double>(m_position);
}

// Other failures are the request's own. libcurl itself refuses an HTTP server that sends the whole instead of a part, and an FTP
// server whose file ends before the part.
bool RequestedPart::IsJudgedHere(const End& end) const {
  if (end.code == CodeOf(CURLE_WRITE_ERROR)) return m_isRangeMissing || m_isTooMuch || m_isChanged;
  if (end.code == CodeOf(CURLE_RANGE_ERROR) || end.code == CodeOf(CURLE_BAD_DOWNLOAD_RESUME)) return m_isChecked;
  return !IsFailure(end.code);
}

std::optional<RequestedPart::Refusal> RequestedPart::Refuse(const End& end) const {
  if (m_isRefused || !IsJudgedHere(end)) return std::nullopt;
  const Refusal changed{CURLE_RANGE_ERROR, L"The file on the server has changed. Cannot resume."};
  // Without content nobody has looked at the answer yet.
  const bool isOther = m_isChecked && !end.hasContent && IsOtherVersion(end.answer);
  if (m_isChanged || isOther || end.code == CodeOf(CURLE_BAD_DOWNLOAD_RESUME)) return changed;
  if (end.code == CodeOf(CURLE_RANGE_ERROR)) return std::nullopt;
  std::optional<Refusal> refusal = RefuseRest(end);
  // What is shorter than what is held is another version, too.
  if (!refusal && m_isChecked && Reached() < m_held) return changed;
  return refusal;
}

std::optional<RequestedPart::Refusal> RequestedPart::RefuseRest(const End& end) const {
  const Refusal noRest{CURLE_RANGE_ERROR, L"The server did not send the rest of the file. Cannot resume."};
  if (m_isTooMuch)
    return Refusal{CURLE_RANGE_ERROR, L"The server sent more than the range it announced. Cannot resume."};
  if (!end.hasContent) return IsWholeWithoutContent(end) ? std::nullopt : std::optional(noRest);
  if (!end.answer.isHttp)
    return std::nullopt;  // libcurl compares what came with the size, and a server says when it has sent all
  if (m_isRangeMissing) return noRest;

  const unsigned long long announcedEnd = m_range->last ? *m_range->last + 1 : Reached();
  const unsigned long long total = m_range->total.value_or(announcedEnd);
  if (Reached() < total || Reached() < announcedEnd) {
    return Refusal{CURLE_PARTIAL_FILE,
                   ZString(L"The server sent only %1 of the file's %2 bytes. The rest is still missing.")
                       .Arg(UnsignedNumber(Reached()))
                       .Arg(UnsignedNumber(total))};
  }
  // Whether what is held behind it belongs to a resource of unknown length, nobody can tell.
  if (!m_range->total && m_held > Reached()) return noRest;
  return std::nullopt;
}

bool RequestedPart::IsEndKnown(const End& end) const { return !end.answer.isHttp || !end.hasContent || m_range->total; }

}  // namespace Corvane
