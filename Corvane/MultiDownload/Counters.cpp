#include <Corvane/MultiDownload/MultiDownloadImpl.h>

// What the getters tell, and the bookkeeping that feeds it. All of it happens under the lock.
namespace Corvane {

using Impl = ZMultiDownload::ZMultiDownloadImpl;

long long Impl::GetDownloadTime() {
  const ObjectGuard guard(*this);
  return static_cast<long long>(static_cast<double>(m_elapsed.GetTotalMicroSeconds()) / 1000.0);
}

// While the transfer has counted fewer bytes than the file that it resumes holds, that file counts as it is.
unsigned long long Impl::GetDownloadSize() {
  const ObjectGuard guard(*this);
  const unsigned long long downloaded = m_transfer.GetDownloadSize();
  return m_completedBytes + (downloaded >= m_resumeOffset ? downloaded - m_resumeOffset : m_resumeOffset);
}

unsigned long long Impl::GetTransferSize() {
  const ObjectGuard guard(*this);
  return m_transfer.GetTransferSize() + m_transferredBytes;
}

unsigned int Impl::GetTransferRate() {
  const ObjectGuard guard(*this);
  return m_transferRate;
}

// What the running transfer has received of a file, without the part that was there.
unsigned long long Impl::BytesReceivedByTransfer() const {
  const unsigned long long size = m_listing ? 0 : m_transfer.GetDownloadSize();
  return size > m_resumeOffset ? size - m_resumeOffset : 0;
}

ZMultiDownload::Statistics Impl::GetStatistics() {
  const ObjectGuard guard(*this);
  Statistics statistics = m_statistics;
  statistics.receivedBytes += BytesReceivedByTransfer();
  return statistics;
}

std::vector<LeftOut> Impl::GetLeftOut() {
  const ObjectGuard guard(*this);
  return m_leftOut;
}

ZResult Impl::GetCause(ZString& text, ZString& header) {
  const ObjectGuard guard(*this);
  text = m_failure.text;
  header = m_failure.header;
  return m_failure.cause;
}

void Impl::CountListing(const Listing& listing) {
  const ObjectGuard guard(*this);
  m_statistics.isListing = listing.recognised;
  m_statistics.leftOut = listing.leftOut;
  m_leftOut = listing.leftOutNames;
}

// For the statistics. 0 stands for a size that is not known, but over FTP for that of an empty file.
void Impl::CountKnownFiles() {
  std::size_t files = 0;
  std::optional<unsigned long long> bytes = 0;
  const bool isHttp = IsHttp();
  for (const auto& [name, size] : m_fileSizes) {
    if (IsIgnored(name)) continue;
    ++files;
    if (size == 0 && isHttp) bytes.reset();
    if (bytes) bytes = AddSaturated(*bytes, size);
  }
  const ObjectGuard guard(*this);
  m_statistics.filesKnown = files;
  m_statistics.totalBytes = bytes;
}

void Impl::AddCompleted(unsigned long long bytes) {
  const ObjectGuard guard(*this);
  m_completedBytes += bytes;
  m_statistics.presentBytes += bytes;
}

void Impl::BeginFile(const ZString& name, unsigned long long resumeOffset) {
  const ObjectGuard guard(*this);
  m_statistics.fileName = name;
  m_resumeOffset = resumeOffset;
}

// Counts a file that is done.
void Impl::EndFile(std::size_t Statistics::*count) {
  const ObjectGuard guard(*this);
  ++(m_statistics.*count);
  m_statistics.fileName = ZString();
  UpdateStatus();
}

// The bookkeeping after each transfer; the transfer's counters start from 0 again.
void Impl::UpdateStatus() {
  const ObjectGuard guard(*this);
  const ZDateTime now = ZDateTime::Now();
  m_elapsed = now.Compare(m_startTime) > 0 ? now - m_startTime : ZTimeSpan();
  m_transferredBytes += m_transfer.GetTransferSize();
  const auto elapsed = static_cast<long double>(m_elapsed.GetTotalMicroSeconds());
  const long double rate =
      elapsed > 0 ? static_cast<long double>(m_transferredBytes) / elapsed / 1024 * 1000 * 1000 : 0;  // KiB per second
  // Of a rate beyond the 64-bit range nothing is kept, of one beyond 32 bits the low half.
  m_transferRate = rate < 9223372036854775808.0L ? static_cast<unsigned int>(static_cast<long long>(rate)) : 0;
  m_statistics.receivedBytes += BytesReceivedByTransfer();
  if (!m_listing) m_completedBytes += m_transfer.GetDownloadSize();
  // A resumed transfer counts the part that was there, which CheckFreeSpaceAndUpdateCurSize has counted already.
  m_completedBytes -= m_resumeOffset;
  m_resumeOffset = 0;
  m_transfer.Reset();
}

void Impl::SetFailure(ZResult cause, const ZString& text) {
  const ObjectGuard guard(*this);
  m_failure.cause = cause;
  m_failure.text = text;
}

// Keeps what is lost when the bookkeeping resets the transfer.
void Impl::KeepFailure() {
  const ObjectGuard guard(*this);
  m_failure.cause = m_transfer.GetCause(m_failure.text);
  m_transfer.GetHeader(m_failure.header);
}

}  // namespace Corvane
