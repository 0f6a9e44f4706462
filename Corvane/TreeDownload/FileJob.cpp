#include <Corvane/TreeDownload/FileJobImpl.h>

#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <utility>

#include <Corvane/Base/ErrorDict.h>
#include <Corvane/NumberTextImpl.h>
#include <Corvane/Transfer/AnswerHeaderImpl.h>
#include <Corvane/Transfer/FileVersionImpl.h>
#include <Corvane/TreeDownload/AddressImpl.h>

// What is asked for, and what comes of it.
namespace Corvane {
namespace {

using Statistics = ZTreeDownload::Statistics;

// So much of a file is kept in memory: what is smaller costs one file less, and is not worth being continued.
constexpr std::size_t kSmall = 65536;

// As an HTTP header has it (RFC 9110, section 5.6.7).
std::string HttpDate(long long time) {
  constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  const auto seconds = static_cast<std::time_t>(time);
  std::tm parts{};
  if (gmtime_r(&seconds, &parts) == nullptr) return {};
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%s, %02d %s %04d %02d:%02d:%02d GMT", kDays[parts.tm_wday], parts.tm_mday,
                kMonths[parts.tm_mon], parts.tm_year + 1900, parts.tm_hour, parts.tm_min, parts.tm_sec);
  return text.data();
}

std::string VersionOf(const Reply& reply, const std::optional<unsigned long long>& whole) {
  if (reply.isHttp) return ValidatorOf(reply.header);
  return whole && reply.time ? FileVersion(*whole, static_cast<long>(*reply.time)) : std::string();
}

}  // namespace

TreeRun::FileJob::FileJob(TreeRun& run, const Wanted& file) : m_run(run), m_file(file), m_item(run.ItemOf(file)) {
  m_url = m_run.m_tree->UrlOf(m_file.folder, m_run.FileOf(m_file).name);
}

Order TreeRun::FileJob::Ask() {
  m_buffer.clear();
  m_part.Close();
  m_requested.reset();
  m_received = 0;
  m_hasBegun = false;
  m_item.action = Action::Fetch;
  Order order;
  order.url = m_url;
  Continue(order);
  if (m_requested || !m_file.onlyIfModified) return order;
  const LocalTree::Folder folder = m_run.m_local.Open(*m_run.m_tree, m_file.folder, false);
  if (folder == nullptr) return order;
  const FileHere here = LocalTree::Look(*folder, m_run.FileOf(m_file).name.c_str());
  const std::string date = here.kind == FileHere::Kind::File ? HttpDate(here.time) : std::string();
  if (!date.empty() && !m_run.m_isFtp) order.headers.push_back("If-Modified-Since: " + date);
  return order;
}

// A part is worth something only when the server can prove that the rest belongs to it.
bool TreeRun::FileJob::IsContinued(const PartStore::Part& part) const {
  const std::optional<unsigned long long>& listed = m_item.size;
  const PartRecord& record = part.record;
  if (record.validator.empty() || record.url != WithoutLogin(m_url) || part.size <= 2 * kMargin) return false;
  if (record.size && (part.size > *record.size || (listed && *listed != *record.size))) return false;
  return !listed || part.size <= *listed;
}

void TreeRun::FileJob::Continue(Order& order) {
  std::optional<PartStore::Part> part = m_run.m_store.Find(m_item.path);
  if (!part) return;
  if (!IsContinued(*part)) return m_run.m_store.Discard(m_item.path);
  m_part = std::move(part->file);
  m_requested.emplace(part->size - kMargin, part->size);
  if (!ReadOverlap()) {
    m_part.Close();
    m_requested.reset();
    return m_run.m_store.Discard(m_item.path);
  }
  m_item.action = Action::Continue;
  m_validator = part->record.validator;
  m_requested->Check(m_validator);
  order.position = static_cast<curl_off_t>(m_requested->Position());
  if (!IsFileVersion(m_validator)) order.headers.push_back("If-Range: " + m_validator);
}

bool TreeRun::FileJob::ReadOverlap() {
  const ssize_t got = pread(m_part.Get(), m_overlap.data(), kMargin, static_cast<off_t>(m_requested->Position()));
  return got == static_cast<ssize_t>(kMargin) &&
         lseek(m_part.Get(), 0, SEEK_END) == static_cast<off_t>(m_requested->Held());
}

bool TreeRun::FileJob::Take(const Reply& reply, const char* data, std::size_t bytes) {
  if (!std::exchange(m_hasBegun, true) && !BeginContent(reply)) return false;
  return m_requested ? TakeRest(data, bytes) : TakeWhole(data, bytes);
}

bool TreeRun::FileJob::BeginContent(const Reply& reply) {
  constexpr long kWhole = 200;
  if (!m_requested) return BeginWhole(reply);
  if (reply.isHttp && reply.status == kWhole && !AnnouncedRange(reply.header)) {
    // It is another version now, or the server knows no ranges. What comes is as good.
    m_requested.reset();
    m_part.Close();
    m_run.m_store.Discard(m_item.path);
    m_item.action = Action::Fetch;
    return BeginWhole(reply);
  }
  const std::optional<unsigned long long> whole =
      reply.contentLength ? std::optional(*reply.contentLength + m_requested->Position()) : std::nullopt;
  m_requested->Judge({reply.isHttp, true, reply.header, VersionOf(reply, whole), reply.status});
  CountHere(m_requested->Held());
  return IsRoomFor(reply.contentLength.value_or(0));
}

bool TreeRun::FileJob::BeginWhole(const Reply& reply) {
  CountHere(0);
  if (!reply.IsWhole())
    return Fail(TRANSFER_E_CONNECT,
                ZString(L"The server answered %1, which is not the file.").Arg(Number(reply.status)));
  m_length = reply.contentLength;
  m_validator = VersionOf(reply, m_length);
  if (m_length && m_item.size && *m_length != *m_item.size) {
    return Fail(TRANSFER_E_SIZE_MISMATCH, ZString(L"The server sends %1 bytes, and lists %2.")
                                              .Arg(UnsignedNumber(*m_length))
                                              .Arg(UnsignedNumber(*m_item.size)));
  }
  return IsRoomFor(m_length.value_or(0));
}

bool TreeRun::FileJob::IsRoomFor(unsigned long long bytes) {
  struct statvfs status {};
  // Small ones find out when they are written.
  if (bytes <= kSmall || fstatvfs(m_run.m_local.Top()->Get(), &status) != 0) return true;
  const unsigned long long blocks = (bytes - 1) / status.f_frsize + 1;
  return blocks <= status.f_bavail || FailWriting(ENOSPC);
}

bool TreeRun::FileJob::TakeWhole(const char* data, std::size_t bytes) {
  m_received += bytes;
  Count(bytes);
  if (m_item.size && m_received > *m_item.size) {
    return Fail(TRANSFER_E_SIZE_MISMATCH,
                ZString(L"The server sends more than the %1 bytes that it lists.").Arg(UnsignedNumber(*m_item.size)));
  }
  if (!m_part.IsOpen() && m_buffer.size() + bytes <= kSmall) {
    m_buffer.append(data, bytes);
    return true;
  }
  return (m_part.IsOpen() || MoveToDisk()) && Write(data, bytes);
}

bool TreeRun::FileJob::MoveToDisk() {
  const ZResult begun = m_run.m_store.Begin({m_item.path, WithoutLogin(m_url), m_validator, m_length}, m_part);
  if (IsFailure(begun)) return FailStoring(begun);
  const std::string collected = std::exchange(m_buffer, std::string());
  return Write(collected.data(), collected.size());
}

bool TreeRun::FileJob::Write(const char* data, std::size_t bytes) {
  const int error = m_part.Write(data, bytes);
  return error == 0 || FailWriting(error);
}

bool TreeRun::FileJob::TakeRest(const char* data, std::size_t bytes) {
  if (!m_requested->Admits(bytes)) return false;
  const std::size_t compared = Compare(data, bytes);
  if (m_requested->IsChanged()) return false;
  const std::size_t rest = bytes - compared;
  Count(rest);
  if (rest != 0 && !Write(data + compared, rest)) return false;
  m_requested->Count(rest);
  return true;
}

// Takes the bytes of a block that lie in the overlap. Returns how many; they differ where the part is marked as changed.
std::size_t TreeRun::FileJob::Compare(const char* data, std::size_t bytes) {
  const unsigned long long received = m_requested->Received();
  if (received >= kMargin) return 0;
  const auto compared = static_cast<std::size_t>(std::min<unsigned long long>(bytes, kMargin - received));
  if (std::memcmp(m_overlap.data() + received, data, compared) != 0) {
    m_requested->MarkChanged();
  } else {
    m_requested->Count(compared);
  }
  return compared;
}

void TreeRun::FileJob::Count(std::size_t received) {
  m_here += received;
  m_run.m_progress.Update([&](Statistics& statistics) {
    statistics.receivedBytes += received;
    statistics.bytesHere += received;
  });
}

void TreeRun::FileJob::CountHere(unsigned long long bytes) {
  const unsigned long long before = std::exchange(m_here, bytes);
  if (before == bytes) return;
  m_run.m_progress.Update([&](Statistics& statistics) { statistics.bytesHere += bytes - before; });
}

bool TreeRun::FileJob::Fail(ZResult code, const ZString& text) {
  m_failure = Failure{code, text};
  return false;
}

bool TreeRun::FileJob::FailWriting(int error) { return FailStoring(ResultFromErrno(error)); }

bool TreeRun::FileJob::FailStoring(ZResult reason) {
  const bool isFull = reason == ResultFromErrno(ENOSPC) || reason == ResultFromErrno(EDQUOT);
  // What does not fit now will not fit later in this run.
  if (isFull) m_run.m_isFull = true;
  return Fail(isFull ? TRANSFER_E_DISK_SPACE : TRANSFER_E_DOWNLOAD, ZGetErrorMsg(reason));
}

}  // namespace Corvane
