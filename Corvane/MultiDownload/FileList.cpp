#include <optional>
#include <string>
#include <utility>

#include <Corvane/Base/StringCoding.h>
#include <Corvane/MultiDownload/LocalFilesImpl.h>
#include <Corvane/MultiDownload/MultiDownloadImpl.h>
#include <Corvane/NumberTextImpl.h>
#include <Corvane/TransferOptions.h>

// The list of files: where it comes from when the host gave none, and what is known of each name.
namespace Corvane {

using Impl = ZMultiDownload::ZMultiDownloadImpl;

namespace {

// Of a listing, in bytes: what a directory of more than a million files needs. A listing lies in memory as a text,
// which takes four times its size.
constexpr unsigned long long kMostListingBytes = 128ULL << 20;
constexpr ZResult kTooLarge = TRANSFER_E_CURL_BASE | 63;  // libcurl's own code for more than was allowed

// Collects the listing as it comes, and no more of it than is allowed: a page without an end ends here.
class ListingBytes final : public ZTransferSink {
 public:
  std::size_t Write(const void* data, std::size_t bytes) override {
    m_isTooLarge = bytes > kMostListingBytes - m_bytes.size();
    if (m_isTooLarge) return 0;
    m_bytes.append(static_cast<const char*>(data), bytes);
    return bytes;
  }
  [[nodiscard]] bool IsTooLarge() const noexcept { return m_isTooLarge; }
  [[nodiscard]] ZString Text() const { return ZStringDecoder::FromUtf8(m_bytes.data(), m_bytes.size()); }

 private:
  std::string m_bytes;
  bool m_isTooLarge = false;
};

}  // namespace

ZResult Impl::FetchFileList() {
  m_fileSizes.clear();
  m_listing = true;
  Listing listing;
  const ZResult fetched = FetchListing(listing);
  if (!IsFailure(fetched) && !m_abort) TakeFiles(std::move(listing));
  UpdateStatus();
  m_listing = false;
  return fetched;
}

// The text of the listing is gone when this returns; only what was found in it stays.
ZResult Impl::FetchListing(Listing& listing) {
  std::optional<ListingBytes> bytes(std::in_place);
  const ZResult fetched = m_transfer.Download(m_url.ToString() + m_query, *bytes);
  if (bytes->IsTooLarge()) {
    const ZString text = ZString(L"The listing has more than %1 bytes").Arg(UnsignedNumber(kMostListingBytes));
    FailListing(kTooLarge, text);
    SetFailure(kTooLarge, text);  // and not the refused block with which the transfer ended
    return kTooLarge;
  }
  if (IsFailure(fetched)) return FailListing(fetched, m_transfer.GetError());
  if (m_abort) return fetched;
  ZString header;
  m_transfer.GetHeader(header);
  const ZString body = bytes->Text();
  bytes.reset();
  listing = IsHttp() ? ParseHttpListing(header, body) : ParseFtpListing(body);
  return fetched;
}

// An aborted listing leaves the status as it is: nothing has been started.
ZResult Impl::FailListing(ZResult code, const ZString& text) {
  KeepFailure();
  if (!m_abort) SetStatus(code, L"Failed to obtain the list of files to download: " + text);
  return code;
}

// Only files are fetched. The list is there as a whole or not at all: the next run would take a part of it for all there is.
void Impl::TakeFiles(Listing listing) {
  FileSizeList files;
  for (ListingEntry& entry : listing.entries) {
    switch (entry.kind) {
      case ListingKind::File:
        // Most listings are sorted; the hint then saves the search.
        files.insert_or_assign(files.end(), std::move(entry.name), entry.size);
        break;
      case ListingKind::Folder:
        LeaveOut(listing, entry.name.Str(), LeftOutReason::Folder);
        break;
      case ListingKind::Link:
        LeaveOut(listing, entry.name.Str(), LeftOutReason::Link);
        break;
      case ListingKind::Special:
        LeaveOut(listing, entry.name.Str(), LeftOutReason::Special);
        break;
    }
  }
  CountListing(listing);
  m_fileSizes = std::move(files);
}

// "https" too.
bool Impl::IsHttp() const { return m_url.GetProtocol().StartsWith(L"http", false); }

bool Impl::IsIgnored(const ZString& name) const {
  for (const ZString& ignored : m_ignoreList) {
    if (ignored.Compare(name) == 0) return true;
  }
  return false;
}

long Impl::GetFileTime(const ZString& name) const {
  const auto found = m_fileTimes.find(name);
  return found == m_fileTimes.end() ? 0 : found->second;
}

ZString Impl::GetFullPath(const ZString& name) const { return (m_targetDirectory / name).ToString(); }

// What is no regular file is planned for as if it were missing: the walk removes what it may (a link), the fetch
// refuses the rest.
FilePlan Impl::PlanFor(const ZString& name, unsigned long long expectedSize, const ZFileInfo& local) const {
  constexpr long kLatestEverywhere = 0x7FFFFFFF;  // in 2038; no file system in use ends earlier
  ExpectedFile expected{expectedSize, GetFileTime(name)};
  // A file cannot be given a time that its file system does not know, and would be stale for ever.
  if (expected.time > kLatestEverywhere && local.IsValid() && expected.time > local.ModTime()) {
    expected.time = TimeKeptFor(local.Name(), expected.time);
  }
  const FilePlan plan = PlanFile({local.IsValid(), local.Size(), local.ModTime()}, expected, m_resume);
  if (plan.action == FileAction::Replace || local.IsRegularFile()) return plan;
  return PlanFile({}, expected, m_resume);
}

}  // namespace Corvane
