#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include <Corvane/Base/ErrorDict.h>
#include <Corvane/NumberTextImpl.h>
#include <Corvane/TreeDownload/FailureTextImpl.h>
#include <Corvane/TreeDownload/FileJobImpl.h>

// What became of a request for a file, and the file's way to its name.
namespace Corvane {
namespace {

using Statistics = ZTreeDownload::Statistics;

bool SetTime(const Descriptor& file, std::optional<long long> time) {
  if (!time) return true;
  const timespec times[2] = {{0, UTIME_OMIT}, {static_cast<std::time_t>(*time), 0}};
  return futimens(file.Get(), times) == 0;
}

}  // namespace

Corvane::Next TreeRun::FileJob::Finish(const Ending& ending) {
  constexpr long kNotModified = 304;
  constexpr long kNoSuchRange = 416;
  ++m_item.attempts;
  m_item.httpStatus = ending.reply.isHttp ? ending.reply.status : 0;
  if (m_failure) return End(m_failure->code, m_failure->text);
  if (m_requested) {
    if (ending.reply.isHttp && ending.reply.status == kNoSuchRange) return BeginAnew();
    if (const std::optional<Corvane::Next> next = JudgeRest(ending)) return *next;
  }
  if (ending.code == CURLE_OK && m_file.onlyIfModified && ending.reply.status == kNotModified && !m_requested) {
    m_item.action = Action::Keep;
    m_item.reason = Reason::NotModified;
    m_run.Finish(m_item, &Statistics::filesKept);
    m_run.m_unfinished.erase(m_item.path);
    return Corvane::Next::Done;
  }
  if (ending.IsGood()) return Complete(ending);
  if (ending.ShouldRepeat()) return Corvane::Next::Later;
  return End(CodeOfFailure(ending), TextOfFailure(ending));
}

// None when the rest has come, or the request failed by itself.
std::optional<Corvane::Next> TreeRun::FileJob::JudgeRest(const Ending& ending) {
  RequestedPart::End end;
  end.answer.isHttp = ending.reply.isHttp;
  end.answer.isAcceptable = ending.reply.IsAcceptable();
  end.answer.header = ending.reply.header;
  end.answer.fileVersion = m_validator;
  end.code = ending.code == CURLE_OK ? TRANSFER_S_FINISHED : CodeOf(ending.code);
  end.hasContent = m_hasBegun;
  end.contentLength = ending.reply.contentLength ? static_cast<double>(*ending.reply.contentLength) : -1.0;
  if (!end.answer.isAcceptable) return std::nullopt;
  const std::optional<RequestedPart::Refusal> refusal = m_requested->Refuse(end);
  if (!refusal) return std::nullopt;
  if (refusal->code != CURLE_PARTIAL_FILE) return BeginAnew();
  // The server ended before the end, and said so. What came counts.
  return ending.mayRepeat ? Corvane::Next::Later : End(CodeOf(refusal->code), refusal->text);
}

// What is there is of another version, or the server does not give the rest of it.
Corvane::Next TreeRun::FileJob::BeginAnew() {
  constexpr unsigned int kMostBeginnings = 5;
  m_part.Close();
  m_run.m_store.Discard(m_item.path);
  if (++m_begunAnew <= kMostBeginnings) return Corvane::Next::Again;
  return End(CodeOf(CURLE_RANGE_ERROR), L"The file on the server changes while it is fetched.");
}

Corvane::Next TreeRun::FileJob::End(ZResult code, const ZString& text) {
  m_part.Close();
  if (code == TRANSFER_E_SIZE_MISMATCH) {
    m_run.m_store.Discard(m_item.path);
    CountHere(0);
  }
  m_run.FailFile(m_item, code, text);
  if (m_run.m_isFull) m_run.m_isStopped = true;
  return Corvane::Next::Done;
}

Corvane::Next TreeRun::FileJob::Complete(const Ending& ending) {
  // Without content nobody has looked at the answer yet.
  if (!m_hasBegun && !m_requested && !BeginWhole(ending.reply)) return End(m_failure->code, m_failure->text);
  const unsigned long long size = m_requested ? m_requested->Reached() : m_received;
  if (!IsRight(size) || !HasChecksum()) return End(m_failure->code, m_failure->text);
  // A listing to the second tells the time, too.
  std::optional<long long> time = ending.reply.time;
  const FileThere& listed = m_run.FileOf(m_file).there;
  if (!time && listed.exactness <= 1) time = listed.time;
  if (!Place(time)) return End(m_failure->code, m_failure->text);
  m_item.size = size;
  if (m_run.m_settings.verify && !m_isChecked) {
    m_run.m_progress.Update([](Statistics& statistics) { ++statistics.filesWithoutChecksum; });
  }
  m_run.m_unfinished.erase(m_item.path);
  m_run.Finish(m_item, m_item.action == Action::Continue ? &Statistics::filesResumed : &Statistics::filesFetched);
  return Corvane::Next::Done;
}

bool TreeRun::FileJob::IsRight(unsigned long long size) {
  if (!m_item.size || size == *m_item.size) return true;
  return Fail(TRANSFER_E_SIZE_MISMATCH, ZString(L"The file is %1 bytes long, and the server lists %2.")
                                            .Arg(UnsignedNumber(size))
                                            .Arg(UnsignedNumber(*m_item.size)));
}

bool TreeRun::FileJob::HasChecksum() {
  const std::optional<Expected> expected = m_run.ExpectedChecksum(m_file);
  if (!expected) return true;
  m_isChecked = true;
  if (expected->isLost) return Fail(TRANSFER_E_DOWNLOAD, L"The list of its checksum could not be fetched.");
  const std::string digits =
      m_part.IsOpen() ? Checksum::OfFile(expected->kind, m_part) : Checksum::OfText(expected->kind, m_buffer);
  if (digits.empty()) return FailWriting(errno);
  if (digits == expected->digits) return true;
  return Fail(TRANSFER_E_SIZE_MISMATCH, L"The file has not the checksum that the server lists for it.");
}

bool TreeRun::FileJob::Place(std::optional<long long> time) {
  const LocalTree::Folder folder = m_run.m_local.Open(*m_run.m_tree, m_file.folder, true);
  if (folder == nullptr) return FailWriting(errno);
  return m_part.IsOpen() ? PlacePart(*folder, time) : PlaceBuffer(*folder, time);
}

bool TreeRun::FileJob::PlaceBuffer(const Descriptor& folder, std::optional<long long> time) {
  std::string name;
  const ZResult opened = m_run.m_store.OpenNew(m_part, name);
  if (IsFailure(opened)) return FailStoring(opened);
  const bool isWritten = Write(m_buffer.data(), m_buffer.size());
  const bool isThere = isWritten && ((SetTime(m_part, time) && m_part.Close()) || FailWriting(errno));
  m_part.Close();
  const ZResult placed =
      isThere ? m_run.m_store.Place(name, folder, m_run.FileOf(m_file).name, std::string()) : BASE_S_OK;
  if (isThere && !IsFailure(placed)) return true;
  m_run.m_store.Remove(name);
  return IsFailure(placed) ? FailStoring(placed) : false;
}

bool TreeRun::FileJob::PlacePart(const Descriptor& folder, std::optional<long long> time) {
  if (!SetTime(m_part, time)) return FailWriting(errno);
  if (!m_part.Close()) return FailWriting(errno);
  const ZResult placed =
      m_run.m_store.Place(PartStore::NameOfPart(m_item.path), folder, m_run.FileOf(m_file).name, m_item.path);
  return !IsFailure(placed) || FailStoring(placed);
}

}  // namespace Corvane
