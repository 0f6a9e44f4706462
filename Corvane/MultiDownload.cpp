#include <Corvane/MultiDownload.h>

#include <algorithm>
#include <array>
#include <limits>
#include <string_view>
#include <utility>

#include <Corvane/Base/Dir.h>
#include <Corvane/Base/ErrorDict.h>
#include <Corvane/Base/TokenScannerImpl.h>
#include <Corvane/LogLineImpl.h>
#include <Corvane/MultiDownloadImpl.h>

// This source holds, in this order: the object and its run guard, the fetch of the listing, the check of what is there and of the disk
// space, the fetch loop with its verification, the two listing parsers, and the public class.

namespace Corvane {
namespace {

using ObjectGuard = ZGuardImpl<ZRecursiveMutex>;
using Impl = ZMultiDownload::ZMultiDownloadImpl;

ZString UnsignedNumber(unsigned long long number) { return ZString().SetNum(number, 'u'); }

// Sizes come from servers: a sum that would wrap stays at its largest value, so that no listing can talk the space check out.
unsigned long long AddSaturated(unsigned long long a, unsigned long long b) noexcept {
  return a + b < a ? std::numeric_limits<unsigned long long>::max() : a + b;
}

}  // namespace

// ---------------------------------------------------------------------------------------------------------------------
// Object and run guard
// ---------------------------------------------------------------------------------------------------------------------

Impl::ZMultiDownloadImpl() {
  m_transfer.DetectHttpError(true);  // an error page is no listing
  m_transfer.FollowAbort(m_abort);
  Reset();
}

void Impl::Reset() {
  const ObjectGuard guard(*this);
  m_resumeOffset = 0;
  m_completedBytes = 0;
  m_transferredBytes = 0;
  m_transferRate = 0;
  m_resume = false;
  m_abort = false;
  m_listing = false;
  m_statistics = Statistics();
  m_failure = Failure();
  m_startTime = ZDateTime::Now();
  m_elapsed.Set(0, 0, 0, 0, 0);
  SetStatus(TRANSFER_E_NOT_STARTED, ZGetErrorMsg(TRANSFER_E_NOT_STARTED));
  m_idle.Set();
  m_inProgress = false;
  m_transfer.Reset();
}

// A run that another thread has started since the caller looked is refused, not run over.
template <>
bool ZGuardImpl<Impl>::ZDoLock(Impl& run) {
  const ObjectGuard guard(run);
  if (run.m_inProgress) return false;
  run.Reset();
  run.m_inProgress = true;
  run.m_idle.Reset();
  run.m_startTime = ZDateTime::Now();
  return true;
}

template <>
void ZGuardImpl<Impl>::ZDoUnlock(Impl& run) {
  const ObjectGuard guard(run);
  run.m_idle.Set();
  run.m_inProgress = false;
}

template <class Set>
ZResult Impl::WhenIdle(Set set) {
  const ObjectGuard guard(*this);
  return m_inProgress ? BASE_E_BUSY : set();
}

ZResult Impl::Download(const ZString& url, const ZString& dir, bool resume) {
  if (m_inProgress) return BASE_E_BUSY;
  const ZInitGuard<Impl> run(*this);
  if (!run.IsHeld()) return BASE_E_BUSY;
  if (IsFailure(Config(url, dir, resume))) return m_status;
  // A list that is there already, the host's or that of an earlier run, is the set of files.
  if (m_fileSizes.empty() && IsFailure(FetchFileList())) return m_status;
  return FetchFiles();
}

ZResult Impl::Config(const ZString& url, const ZString& dir, bool resume) {
  m_targetDirectory = dir;
  m_resume = resume;
  m_url = url + L"/";
  if (m_url.GetProtocol().Length() == 0) m_url.SetProtocol(L"http");
  if (m_url.IsValid()) return BASE_S_OK;
  SetStatus(TRANSFER_E_INVALID_URL, ZGetErrorMsg(TRANSFER_E_INVALID_URL) + L", " + url);
  return m_status;
}

void Impl::Abort() {
  const ObjectGuard guard(*this);
  m_abort = true;
  m_transfer.Abort();
}

bool Impl::WaitUntilIdle(unsigned long milliseconds) {
  if (m_idle.Wait(milliseconds) != BASE_S_OK) return false;
  // The running thread may still hold the lock in its end step. Once it has let go it does not touch the object again.
  const ObjectGuard handshake(*this);
  return true;
}

void Impl::SetStatus(ZResult status, ZString text) {
  m_status = status;
  m_error.Set(std::move(text));
}

void Impl::AddCompleted(unsigned long long bytes) {
  const ObjectGuard guard(*this);
  m_completedBytes += bytes;
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

// Keeps what is lost when the bookkeeping resets the transfer.
void Impl::KeepFailure() {
  const ObjectGuard guard(*this);
  m_failure.cause = m_transfer.GetCause(m_failure.text);
  m_transfer.GetHeader(m_failure.header);
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

// ---------------------------------------------------------------------------------------------------------------------
// Listing, decisions and disk space
// ---------------------------------------------------------------------------------------------------------------------

ZResult Impl::FetchFileList() {
  m_fileSizes.clear();
  m_listing = true;
  ZString body;
  const ZResult fetched = m_transfer.Download(m_url.ToString(), body);
  if (IsFailure(fetched)) {
    KeepFailure();
    // An aborted listing leaves the status as it is: nothing has been started.
    if (!m_abort) SetStatus(fetched, L"Failed to obtain the list of files to download: " + m_transfer.GetError());
  } else if (!m_abort) {
    if (IsHttp()) {
      ZString page;
      m_transfer.GetHeader(page);
      ParseHttpListing(page.Append(body));
    } else {
      ParseFtpListing(body);
    }
  }
  UpdateStatus();
  m_listing = false;
  return fetched;
}

FileState Impl::GetFileState(const ZFileInfo& local, unsigned long long expectedSize, long expectedTime) {
  if (!local.IsValid()) return FILE_REFETCH;
  if (expectedTime > 0 && expectedTime > local.ModTime()) return FILE_REFETCH;
  if (local.Size() > expectedSize) return FILE_REFETCH;
  if (expectedSize == 0) return FILE_REFETCH;
  if (local.Size() == expectedSize) return FILE_COMPLETE;
  return FILE_PARTIAL;
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

// Counts what is present already, removes what is stale, and compares the space that the rest needs with what is free.
bool Impl::CheckFreeSpaceAndUpdateCurSize() {
  const ZString& directory = m_targetDirectory.ToString();
  ZDir::CreateR(directory);
  unsigned long long required = 0;
  for (const auto& [name, expectedSize] : m_fileSizes) {
    if (m_abort) return true;
    if (!IsIgnored(name)) required = AddSaturated(required, PrepareFile(name, expectedSize));
  }
  unsigned long long availableKb = 0;
  const ZResult asked = ZDir::GetFreeSpace(directory, availableKb);
  if (IsFailure(asked)) {
    SetStatus(TRANSFER_E_DISK_SPACE, ZString(L"Cannot obtain disk space required for downloading %1 to %2 (%3, %4)")
                                         .Arg(m_url.ToString())
                                         .Arg(directory)
                                         .Arg(UnsignedNumber(asked))
                                         .Arg(ZGetErrorMsg(asked)));
    return false;
  }
  const unsigned long long requiredKb = required >> 10;
  if (requiredKb <= availableKb) return true;
  SetStatus(TRANSFER_E_DISK_SPACE,
            ZString(L"Insufficient disk space to download %1 to %2. Required: %3 Kb. Available: %4 Kb.")
                .Arg(m_url.ToString())
                .Arg(directory)
                .Arg(UnsignedNumber(requiredKb))
                .Arg(UnsignedNumber(availableKb)));
  return false;
}

// The space in bytes that the file will need. A complete file stays in any case: without resume it is overwritten in place.
unsigned long long Impl::PrepareFile(const ZString& name, unsigned long long expectedSize) {
  const ZFileInfo local(GetFullPath(name), 0);
  const FileState state = GetFileState(local, expectedSize, GetFileTime(name));
  if (state == FILE_COMPLETE) {
    if (m_resume) AddCompleted(local.Size());
    return 0;
  }
  if (state == FILE_PARTIAL && m_resume) {
    AddCompleted(local.Size());
    return expectedSize - local.Size();
  }
  ZFile::Remove(local.Name(), 0);
  return expectedSize;
}

// ---------------------------------------------------------------------------------------------------------------------
// Fetch loop
// ---------------------------------------------------------------------------------------------------------------------

ZResult Impl::FetchFiles() {
  CountKnownFiles();
  if (!CheckFreeSpaceAndUpdateCurSize()) return m_status;
  SetStatus(TRANSFER_S_FINISHED, ZGetErrorMsg(TRANSFER_S_FINISHED));
  FileTimeList fetched;  // full path to expected time
  for (const auto& [name, expectedSize] : m_fileSizes) {
    if (m_abort || !FetchFile(name, expectedSize, fetched)) break;
  }
  // Also after a failure or an abort, for what was fetched until then.
  for (const auto& [path, time] : fetched) UpdateTimeStamp(path, time);
  UpdateStatus();
  if (m_abort && !IsFailure(m_status)) SetStatus(TRANSFER_E_ABORTED, ZGetErrorMsg(TRANSFER_E_ABORTED));
  return m_status;
}

// False ends the loop.
bool Impl::FetchFile(const ZString& name, unsigned long long expectedSize, FileTimeList& fetched) {
  if (IsIgnored(name)) {
    UpdateStatus();
    return true;
  }
  FileState state = FILE_REFETCH;
  const ZString path = GetFullPath(name);
  ZFileInfo local(path, 0);
  const long time = GetFileTime(name);
  if (m_resume) state = GetFileState(local, expectedSize, time);
  if (state == FILE_COMPLETE) {
    EndFile(&Statistics::filesSkipped);
    return true;
  }
  BeginFile(name, state == FILE_PARTIAL ? local.Size() : 0);
  m_status = m_transfer.DownloadFile((m_url / name).ToString(), path, state == FILE_PARTIAL);
  if (IsFailure(m_status)) {
    m_error.Set(m_transfer.GetError());
    KeepFailure();
    return false;
  }
  fetched.insert_or_assign(fetched.end(), path, time);  // the hint saves the search: names come in order
  if (!VerifyFile(local, expectedSize != 0 ? expectedSize : SizeToldByServer())) return false;
  ZFile::Chmod(path, 0755, 0);
  EndFile(state == FILE_PARTIAL ? &Statistics::filesResumed : &Statistics::filesFetched);
  return true;
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

// 0 when the server has not told it.
unsigned long long Impl::SizeToldByServer() const {
  const unsigned long long size = m_transfer.GetContentSize();
  return size == std::numeric_limits<unsigned long long>::max() ? 0 : size;
}

// A size that differs is reported but does not end the run: the file is kept, and the next file's result replaces the status. Only a
// file that cannot be read ends it.
bool Impl::VerifyFile(ZFileInfo& local, unsigned long long expected) {
  if (expected == 0) return true;
  const ZResult read = local.Update();
  if (IsFailure(read)) {
    SetStatus(TRANSFER_E_SIZE_MISMATCH, ZString(L"%1, cannot get file %2 size: %3")
                                            .Arg(ZGetErrorMsg(TRANSFER_E_SIZE_MISMATCH))
                                            .Arg(local.Name())
                                            .Arg(ZGetErrorMsg(read)));
    return false;
  }
  if (local.Size() == expected) return true;
  {
    const ObjectGuard guard(*this);
    ++m_statistics.filesMismatched;
  }
  SetStatus(TRANSFER_E_SIZE_MISMATCH, ZString(L"%1, File: %2 Size: %3 Expected size: %4")
                                          .Arg(ZGetErrorMsg(TRANSFER_E_SIZE_MISMATCH))
                                          .Arg(local.Name())
                                          .Arg(UnsignedNumber(local.Size()))
                                          .Arg(UnsignedNumber(expected)));
  return true;
}

bool Impl::UpdateTimeStamp(const ZString& path, long time) {
  if (time == 0) return true;
  const ZResult set = ZFile::SetTime(path, time, time);
  if (!IsFailure(set)) return true;
  LogLine(
      ZLogLevel::Critical, kMultiDownloadArea,
      [&] {
        return ZString(L"Failed to set file %1 time (%2, %3).")
            .Arg(path)
            .Arg(UnsignedNumber(set))
            .Arg(ZGetErrorMsg(set));
      },
      1276);
  return false;
}

// ---------------------------------------------------------------------------------------------------------------------
// Listing parsers
// ---------------------------------------------------------------------------------------------------------------------

namespace {

constexpr ZString::size_type npos = ZString::npos;

// The character as ZString::Lower maps it.
wchar_t LowerOf(wchar_t character) {
  if (character >= L'A' && character <= L'Z') return static_cast<wchar_t>(character - L'A' + L'a');
  return character >= 0 && character < 0x80 ? character : ZString(&character, 1).Lower()[0];
}

bool BeginsLowered(std::wstring_view text, std::wstring_view pattern) {
  return text.size() >= pattern.size() &&
         std::equal(pattern.begin(), pattern.end(), text.begin(), [](wchar_t a, wchar_t b) { return a == LowerOf(b); });
}

// The next place at or after `from` where `text`, in lower case, has `pattern`. A page may be very large, so it is not copied for
// that: what the system's search looks for is the pattern's punctuation mark, which no other character maps to.
ZString::size_type FindLowered(std::wstring_view text, std::wstring_view pattern, ZString::size_type from) {
  const ZString::size_type mark = pattern.find_first_of(L"<:");
  for (from = text.find(pattern[mark], from + mark); from != npos; from = text.find(pattern[mark], from + 1)) {
    if (BeginsLowered(text.substr(from - mark), pattern)) return from - mark;
  }
  return npos;
}

// Finds the next occurrence of one character at or after positions that only grow. The last find is remembered, so that all
// searches together scan the text once, also for a character that does not occur.
class ForwardFinder {
 public:
  ForwardFinder(std::wstring_view text, wchar_t character) : m_text(text), m_character(character) {}

  ZString::size_type At(ZString::size_type from) {
    if (!m_searched || (m_found != npos && m_found < from)) m_found = m_text.find(m_character, from);
    m_searched = true;
    return m_found;
  }

 private:
  std::wstring_view m_text;
  wchar_t m_character;
  ZString::size_type m_found = 0;
  bool m_searched = false;
};

struct Anchor {
  ZString::size_type begin = 0;  // of "<a"
  ZString::size_type end = 0;    // of "</a>"
  std::wstring_view target;      // the first quoted value, decoded; valid until the next anchor is read
  std::wstring_view label;       // the text
};

// Walks over the anchors between the first "<pre>" and the first "</pre>" of a directory page. Tags are found in any case; what is
// taken comes from the text as received. Nothing is copied but a target that has something to decode.
class AnchorReader {
 public:
  explicit AnchorReader(std::wstring_view text) : m_text(text), m_doubleQuote(text, L'"'), m_singleQuote(text, L'\'') {
    m_position = FindLowered(text, L"<pre>", 0);
    m_end = FindLowered(text, L"</pre>", 0);
    m_iis = FindLowered(text, L"server: microsoft-iis", 0) != npos;
  }

  [[nodiscard]] bool HasListing() const noexcept { return m_position != npos && m_end != npos; }
  [[nodiscard]] bool IsIis() const noexcept { return m_iis; }

  // False at the end, and at an anchor that is not quoted as directory pages quote them.
  bool Next(Anchor& anchor) {
    anchor.begin = FindLowered(m_text, L"<a", m_position);
    if (anchor.begin == npos || anchor.begin > m_end) return false;
    anchor.end = FindLowered(m_text, L"</a>", anchor.begin);
    if (anchor.end == npos || anchor.end > m_end) return false;
    m_position = anchor.end;
    const ZString::size_type quote = std::min(m_doubleQuote.At(anchor.begin), m_singleQuote.At(anchor.begin));
    if (quote == npos || quote > anchor.end) return false;
    const ZString::size_type quoteEnd = m_text.find(m_text[quote], quote + 1);
    if (quoteEnd == npos || quoteEnd > anchor.end) return false;
    const ZString::size_type tagEnd = m_text.find(L'>', quoteEnd);
    if (tagEnd == npos || tagEnd > anchor.end) return false;
    anchor.target = Decoded(m_text.substr(quote + 1, quoteEnd - quote - 1));
    anchor.label = m_text.substr(tagEnd + 1, anchor.end - tagEnd - 1);
    return true;
  }

 private:
  // Only a "%" begins what decodes to something else.
  std::wstring_view Decoded(std::wstring_view target) {
    if (target.find(L'%') == npos) return target;
    ZUrl::Decode(ZString(target.data(), target.size()), m_decoded);
    return m_decoded.Str();
  }

  std::wstring_view m_text;
  ForwardFinder m_doubleQuote;
  ForwardFinder m_singleQuote;
  ZString m_decoded;
  ZString::size_type m_position = 0;
  ZString::size_type m_end = 0;
  bool m_iis = false;
};

// The label shows the target's name, with or without its extension. Sort links, parent links and shortened labels do not.
bool IsFileLink(const Anchor& anchor) {
  return anchor.target.ends_with(anchor.label) ||
         anchor.target.substr(0, anchor.target.rfind(L'.')).ends_with(anchor.label);
}

// What follows the last slash; empty for a directory.
std::wstring_view FileNameOf(std::wstring_view path) { return path.substr(path.rfind(L'/') + 1); }  // npos + 1 is 0

constexpr bool IsDigit(wchar_t character) noexcept { return character >= L'0' && character <= L'9'; }

// The digits of the size that an IIS page shows in the column before the anchor at `anchor`; empty when it shows none. The column is
// the 14 characters that end two places before the anchor. The result lies in `column`, which keeps its memory from call to call.
std::wstring_view IisSize(std::wstring_view text, ZString::size_type anchor, ZString& column) {
  constexpr ZString::size_type kColumn = 14;
  const std::wstring_view shown =
      anchor < kColumn + 2 ? text.substr(0, anchor - 1) : text.substr(anchor - kColumn - 1, kColumn);
  const std::wstring_view trimmed = column.Clear().Append(shown.data(), shown.size()).TrimLeft().TrimRight().Str();
  const auto last = std::find_if_not(trimmed.rbegin(), trimmed.rend(), IsDigit);
  return last == trimmed.rend() ? std::wstring_view() : trimmed.substr(static_cast<std::size_t>(trimmed.rend() - last));
}

// The number that `text` begins with. `memory` saves an allocation for each call.
unsigned long long NumberIn(std::wstring_view text, ZString& memory) {
  return memory.Clear().Append(text.data(), text.size()).ToULongLong(10);
}

void LogEntry(const wchar_t* message, std::wstring_view name, int line) {
  LogLine(
      ZLogLevel::Information, kMultiDownloadArea,
      [&] { return ZString(message).Arg(ZString(name.data(), name.size())); }, line);
}

// Servers are not trusted: a name must stay inside the target directory.
bool IsPlainFileName(std::wstring_view name) {
  return !name.empty() && name != L"." && name != L".." && name.find(L'/') == npos && name.find(L'\0') == npos;
}

}  // namespace

void Impl::StoreEntry(std::wstring_view name, unsigned long long size) {
  // Most listings are sorted; the hint then saves the search.
  if (IsPlainFileName(name)) m_fileSizes.insert_or_assign(m_fileSizes.end(), ZString(name.data(), name.size()), size);
}

void Impl::ParseHttpListing(const ZString& text) {
  AnchorReader reader(text.Str());
  if (!reader.HasListing()) return;
  Anchor anchor;
  ZString column;
  ZString number;
  while (reader.Next(anchor)) {
    if (!IsFileLink(anchor)) continue;
    const std::wstring_view name = FileNameOf(anchor.target);
    if (name.empty()) continue;
    std::wstring_view size;
    if (!reader.IsIis()) {
      LogEntry(L"Found valid non IIS HTTP directory entry. Name = %1. Size = unknown (will determine from header)",
               name, 1413);
    } else if ((size = IisSize(text.Str(), anchor.begin, column)).empty()) {
      LogEntry(L"Found valid IIS HTTP directory entry. Name = %1. Size = unknown (will determine from header)", name,
               1432);
    }
    StoreEntry(name, NumberIn(size, number));
  }
}

// Takes regular files from listings in the Unix long format and in the DOS format; other lines are skipped.
void Impl::ParseFtpListing(const ZString& text) {
  constexpr std::size_t kMostFields = 9;
  const DelimiterSet lineEnds(L"\n\r");
  const DelimiterSet blanks(L" \t");
  ZString line;
  ZString number;
  TokenScanner lines(text.Str(), lineEnds);
  while (lines.HasMore()) {
    const std::wstring_view received = lines.Next();
    line.Clear().Append(received.data(), received.size()).TrimLeft().TrimRight();
    const bool dos = !line.IsEmpty() && IsDigit(line[0]);
    if (!dos && !line.Str().starts_with(L'-')) continue;
    const std::size_t fieldCount = dos ? 4 : kMostFields;  // the last field is the name, blanks included
    std::array<std::wstring_view, kMostFields> fields;
    TokenScanner scanner(line.Str(), blanks);
    for (std::size_t i = 0; i + 1 < fieldCount; ++i) fields[i] = scanner.Next();
    const std::wstring_view name = scanner.Remainder();
    if (name.empty()) continue;  // fields are missing
    const std::wstring_view size = fields[dos ? 2 : 4];
    // The third field of a DOS line is a size or a marker such as <DIR>.
    if (dos && !std::all_of(size.begin(), size.end(), IsDigit)) continue;
    StoreEntry(FileNameOf(name), NumberIn(size, number));
  }
}

// ---------------------------------------------------------------------------------------------------------------------
// Public class
// ---------------------------------------------------------------------------------------------------------------------

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
    m_impl->m_fileSizes.clear();
    for (const auto& [name, size] : sizes) m_impl->m_fileSizes[name] = size.ToULongLong(10);
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
    m_impl->m_fileTimes.clear();
    for (const auto& [name, time] : times) m_impl->m_fileTimes[name] = static_cast<long>(time.ToULong(10));
    return BASE_S_OK;
  });
}

long long ZMultiDownload::GetDownloadTime() const {
  const ObjectGuard guard(*m_impl);
  return static_cast<long long>(static_cast<double>(m_impl->m_elapsed.GetTotalMicroSeconds()) / 1000.0);
}

// While the transfer has counted fewer bytes than the file that it resumes holds, that file counts as it is.
unsigned long long ZMultiDownload::GetDownloadSize() const {
  const ObjectGuard guard(*m_impl);
  const unsigned long long downloaded = m_impl->m_transfer.GetDownloadSize();
  const unsigned long long offset = m_impl->m_resumeOffset;
  return m_impl->m_completedBytes + (downloaded >= offset ? downloaded - offset : offset);
}

unsigned long long ZMultiDownload::GetTransferSize() const {
  const ObjectGuard guard(*m_impl);
  return m_impl->m_transfer.GetTransferSize() + m_impl->m_transferredBytes;
}

unsigned int ZMultiDownload::GetTransferRate() const {
  const ObjectGuard guard(*m_impl);
  return m_impl->m_transferRate;
}

ZResult ZMultiDownload::GetStatus() const { return m_impl->m_status; }
const ZString& ZMultiDownload::GetError() const { return m_impl->m_error.ForThisThread(); }

ZResult ZMultiDownload::Abort() {
  m_impl->Abort();
  return BASE_S_OK;
}

ZMultiDownload::Statistics ZMultiDownload::GetStatistics() const { return m_impl->GetStatistics(); }

ZResult ZMultiDownload::GetCause(ZString& text, ZString& header) const {
  const ObjectGuard guard(*m_impl);
  text = m_impl->m_failure.text;
  header = m_impl->m_failure.header;
  return m_impl->m_failure.cause;
}

bool ZMultiDownload::Wait(unsigned long milliseconds) { return m_impl->WaitUntilIdle(milliseconds); }

ZResult ZMultiDownload::Download(const ZString& url, const ZString& dir, bool resume) {
  return m_impl->Download(url, dir, resume);
}

}  // namespace Corvane
