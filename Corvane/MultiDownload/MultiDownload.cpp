#include <Corvane/MultiDownload.h>

#include <utility>

#include <Corvane/MultiDownload/MultiDownloadImpl.h>

// The public class: its settings are checked against a running Download here, everything else is the implementation's.
namespace Corvane {

ZMultiDownload::ZMultiDownload() : m_impl(std::make_unique<ZMultiDownloadImpl>()) {}

ZMultiDownload::~ZMultiDownload() {
  Abort();
  // An abort that met a run at its very beginning is lost; asking again once a second keeps the wait short.
  while (!Wait(1000)) Abort();
}

ZResult ZMultiDownload::SetCredentials(const ZString& user, const ZString& password) {
  return m_impl->WhenIdle([&] { return m_impl->m_transfer.SetCredentials(user, password); });
}

ZResult ZMultiDownload::Attach(ZTransfer::Observer* observer) {
  return m_impl->WhenIdle([&] { return m_impl->m_transfer.Attach(observer); });
}

ZResult ZMultiDownload::Detach(ZTransfer::Observer* observer) {
  return m_impl->WhenIdle([&] { return m_impl->m_transfer.Detach(observer); });
}

void ZMultiDownload::Notify(int event, long value) { m_impl->m_transfer.Notify(event, value); }

ZResult ZMultiDownload::UseThrottling(bool use) {
  return m_impl->WhenIdle([&] { return m_impl->m_transfer.UseThrottling(use); });
}

ZResult ZMultiDownload::SetTimeout(unsigned long seconds) {
  return m_impl->WhenIdle([&] { return m_impl->m_transfer.SetTimeout(seconds); });
}

// Takes no lock: it only looks at the flag, as ZTransfer::SetSSL does.
ZResult ZMultiDownload::SetSSL(bool verifyHost, bool verifyPeer, const ZString& caFile, const ZString& caDir) {
  if (m_impl->m_inProgress) return BASE_E_BUSY;
  return m_impl->m_transfer.SetSSL(verifyHost, verifyPeer, caFile, caDir);
}

ZResult ZMultiDownload::SetIgnoreList(const Container::ZStringList& names) {
  return m_impl->WhenIdle([&] {
    m_impl->m_ignoreList = names;
    return BASE_S_OK;
  });
}

ZResult ZMultiDownload::SetFileSizeList(const FileSizeList& sizes) {
  return m_impl->WhenIdle([&] {
    m_impl->m_fileSizes = sizes;
    return BASE_S_OK;
  });
}

ZResult ZMultiDownload::SetFileSizeList(const Container::ZMap<ZString, ZString, ZLtstr>& sizes) {
  return m_impl->WhenIdle([&] {
    FileSizeList numbers;
    for (const auto& [name, size] : sizes) numbers[name] = size.ToULongLong(10);
    m_impl->m_fileSizes = std::move(numbers);
    return BASE_S_OK;
  });
}

ZResult ZMultiDownload::SetFileTimeList(const FileTimeList& times) {
  return m_impl->WhenIdle([&] {
    m_impl->m_fileTimes = times;
    return BASE_S_OK;
  });
}

ZResult ZMultiDownload::SetFileTimeList(const Container::ZMap<ZString, ZString, ZLtstr>& times) {
  return m_impl->WhenIdle([&] {
    FileTimeList numbers;
    for (const auto& [name, time] : times) numbers[name] = static_cast<long>(time.ToULong(10));
    m_impl->m_fileTimes = std::move(numbers);
    return BASE_S_OK;
  });
}

long long ZMultiDownload::GetDownloadTime() const { return m_impl->GetDownloadTime(); }
unsigned long long ZMultiDownload::GetDownloadSize() const { return m_impl->GetDownloadSize(); }
unsigned long long ZMultiDownload::GetTransferSize() const { return m_impl->GetTransferSize(); }
unsigned int ZMultiDownload::GetTransferRate() const { return m_impl->GetTransferRate(); }
ZResult ZMultiDownload::GetStatus() const { return m_impl->m_status; }
const ZString& ZMultiDownload::GetError() const { return m_impl->m_error.ForThisThread(); }

ZMultiDownload::Statistics ZMultiDownload::GetStatistics() const { return m_impl->GetStatistics(); }
std::vector<LeftOut> ZMultiDownload::GetLeftOut() const { return m_impl->GetLeftOut(); }
ZResult ZMultiDownload::GetCause(ZString& text, ZString& header) const { return m_impl->GetCause(text, header); }

ZResult ZMultiDownload::Abort() {
  m_impl->Abort();
  return BASE_S_OK;
}

bool ZMultiDownload::Wait(unsigned long milliseconds) { return m_impl->WaitUntilIdle(milliseconds); }

ZResult ZMultiDownload::Download(const ZString& url, const ZString& dir, bool resume) {
  return m_impl->Download(url, dir, resume);
}

}  // namespace Corvane
