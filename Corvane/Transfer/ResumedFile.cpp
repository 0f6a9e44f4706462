#include <Corvane/Transfer/ResumedFileImpl.h>

namespace Corvane {
namespace {

// The offset at which the answer's body begins. libcurl compares the numbers, but after "bytes */N" it hands on whatever body comes
// as if the whole had been asked for. 0, which no resume begins at, when there is no number.
unsigned long long BeginningOf(const ZString& headerText) {
  const ZString header = headerText.Lower();
  const ZString::size_type field = header.FindR(L"\ncontent-range:");
  const ZString::size_type number = field == ZString::npos ? field : header.FindFirstOf(L"0123456789*", field);
  return header.Substr(number).ToULongLong();
}

}  // namespace

ResumedFile::ResumedFile(const OpenFile& file, unsigned long long size)
    : FileBody(file), m_size(size), m_position(size - kMargin) {
  Wrappers::Sys::Fseek(file.Get(), static_cast<long>(m_position), SEEK_SET);
}

void ResumedFile::Judge(const Answer& answer) {
  m_refused = !answer.isAcceptable;
  m_rangeMissing = answer.isHttp && !m_refused && BeginningOf(answer.header) != m_position;
}

std::size_t ResumedFile::Write(const char* data, std::size_t bytes) {
  if (m_refused) return bytes;
  return m_rangeMissing ? 0 : FileBody::Write(data, bytes);
}

bool ResumedFile::IsRestMissing(const End& end) const {
  if (!end.isHttp || !end.isAcceptable) return false;
  if (m_rangeMissing) return end.isWriteError;
  return !end.isFailed && !end.hasContent && end.contentLength != static_cast<double>(m_position);
}

ZResult ResumedFile::CutStaleTail(unsigned long long length) const {
  return m_size > length ? Wrappers::Sys::Ftruncate(File().Get(), length) : BASE_S_OK;
}

}  // namespace Corvane
