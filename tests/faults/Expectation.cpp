#include "tests/faults/Expectation.h"

#include <algorithm>

namespace CorvaneTest {

using namespace Corvane;

namespace {

bool IsGood(long status) { return status >= 200 && status <= 299; }

ZResult CauseOf(const Told& told) { return told.curl == 0 ? TRANSFER_S_FINISHED : CurlFailure(told.curl); }

// Builds an outcome in the order in which an operation comes to it.
class Derivation {
 public:
  Derivation(const Told& told, Op op, const Targets& targets, const std::string& content, const std::string& header)
      : m_told(told), m_op(op), m_targets(targets), m_header(header), m_content(told.content) {
    if (m_content.empty()) m_content = content;
    // libcurl does not read the page of a refusal when it has asked for a part.
    if (IsResumed(op) && told.status != 0 && !IsGood(told.status) && told.curl == 0 && told.upTo != 0) {
      m_told.curl = kRangeError;
      m_told.upTo = 0;
    }
  }

  Outcome Derive() {
    SetEnds();
    const bool isByChance = !m_told.alternatives.empty() || IsAborted();
    if (!isByChance) m_outcome.cause = CauseOf(m_told);
    m_outcome.isEndless = m_told.isEndless;
    const std::size_t position = IsResumed(m_op) ? kResumedAt : 0;
    m_hasContent = m_told.upTo > position || m_told.isBlockRefused;
    m_outcome.contentSize = m_hasContent ? m_told.size : kUnknownSize;
    m_outcome.downloadSize = std::max(position, m_told.upTo);
    if (m_hasContent) AddEvent(IsGood(m_told.status));
    switch (m_op) {
      case Op::kGet:
      case Op::kGetChecked:
      case Op::kPostFields:
      case Op::kPostData:
        m_outcome.received = Received();
        break;
      case Op::kPostFile:
        m_outcome.file = Received();
        break;
      case Op::kFile:
      case Op::kFileResumed:
        m_outcome.file = FileLeft();
        break;
      case Op::kMirrorPage:
        DeriveMirrorPage();
        break;
      case Op::kMirrorFile:
      case Op::kMirrorResumed:
        DeriveMirrorFile();
        break;
      case Op::kTreePage:
        DeriveTreePage();
        break;
      case Op::kTreeFile:
        DeriveTreeFile();
        break;
    }
    return m_outcome;
  }

 private:
  // Whether libcurl and the library alike are content.
  [[nodiscard]] bool IsFetched() const {
    return m_told.curl == 0 && IsGood(m_told.status) && (!m_told.verdict || !IsFailure(m_told.verdict->code));
  }

  // libcurl then ends in one of several ways.
  [[nodiscard]] bool IsAborted() const {
    return m_told.verdict &&
           (m_told.verdict->code == TRANSFER_E_ABORTED || m_told.verdict->code == TRANSFER_E_NOT_STARTED);
  }

  [[nodiscard]] std::string Received() const { return m_content.substr(0, m_told.upTo); }

  void SetEnds() {
    m_outcome.ends = {OwnEnd()};
    for (const Told::Alternative& other : m_told.alternatives) {
      const Told before = m_told;
      m_told.curl = other.curl;
      m_told.text = other.text;
      m_outcome.ends.push_back(OwnEnd());
      m_told = before;
    }
  }

  [[nodiscard]] Ending OwnEnd() const {
    Ending failed = m_told.curl != 0 ? Ending{CurlFailure(m_told.curl), m_told.text}
                                     : Ending{TRANSFER_S_FINISHED, "Transfer has finished successfully"};
    const std::string refused = "Failed to connect to the specified URL, ";
    switch (m_op) {
      case Op::kGet:
        return m_told.verdict.value_or(failed);
      case Op::kGetChecked:
        if (m_told.verdict) return *m_told.verdict;
        return m_told.curl == 0 && !IsGood(m_told.status) ? Ending{TRANSFER_E_CONNECT, refused + m_targets.file}
                                                          : failed;
      case Op::kPostFields:
      case Op::kPostData:
      case Op::kPostFile:
        if (m_told.verdict) return *m_told.verdict;
        return m_told.curl == 0 && !IsGood(m_told.status) ? Ending{TRANSFER_E_POST, "Post failed, " + m_targets.file}
                                                          : failed;
      case Op::kFile:
      case Op::kFileResumed:
      case Op::kMirrorFile:
      case Op::kMirrorResumed:
        if (!IsGood(m_told.status)) return {TRANSFER_E_CONNECT, refused + m_targets.file + "\n" + m_header};
        return m_told.verdict.value_or(failed);
      case Op::kMirrorPage: {
        Ending end = m_told.verdict.value_or(failed);
        if (!m_told.verdict && m_told.curl == 0 && !IsGood(m_told.status))
          end = {TRANSFER_E_CONNECT, refused + m_targets.page};
        if (IsFailure(end.code) && !IsAborted())
          end.text = "Failed to obtain the list of files to download: " + end.text;
        return end;
      }
      case Op::kTreePage:
      case Op::kTreeFile:
        return TreeEnd(failed);
    }
    return failed;
  }

  [[nodiscard]] Ending TreeEnd(const Ending& failed) const {
    Ending end = m_told.verdict.value_or(failed);
    const std::string status = "The server answered " + std::to_string(m_told.status);
    if (!m_told.verdict && m_told.curl == 0) {
      const bool isWhole = m_told.status == 200 || m_told.status == 203;
      if (!IsGood(m_told.status)) {
        end = {TRANSFER_E_CONNECT, status + "."};
      } else if (!isWhole) {
        end = {TRANSFER_E_CONNECT, status + ", which is not the " + (m_op == Op::kTreeFile ? "file." : "page.")};
      } else if (m_op == Op::kTreePage && m_told.upTo == 0) {
        end = {TRANSFER_E_DOWNLOAD, "The page is no listing of a directory."};
      }
    }
    const std::string name = m_op == Op::kTreePage ? m_targets.page : std::string(kFileName);
    if (IsFailure(end.code) && !IsAborted()) end.text = name + ": " + end.text;
    return end;
  }

  void AddEvent(bool isGood) { m_outcome.events.emplace_back(1, isGood ? TRANSFER_E_IN_PROGRESS : TRANSFER_E_CONNECT); }

  // A page that is refused leaves nothing, what came of a file stays.
  [[nodiscard]] std::optional<std::string> FileLeft() const {
    if (!IsResumed(m_op)) return IsGood(m_told.status) ? std::optional(Received()) : std::nullopt;
    if (m_told.isTailCut) return HeldContent().substr(0, kResumedAt);
    if (m_told.upTo <= kResumedAt || !IsGood(m_told.status)) return HeldContent();
    std::string file = HeldContent();
    file.replace(kResumedAt, std::min(m_told.upTo, kHeld) - kResumedAt, "");
    return file.insert(kResumedAt, m_content.substr(kResumedAt, m_told.upTo - kResumedAt));
  }

  void DeriveMirrorPage() {
    m_outcome.contentSize = 0;
    m_outcome.downloadSize = 0;  // pages do not count
    if (!IsFetched()) {
      m_outcome.counts = "known 0, fetched 0, resumed 0, mismatched 0, listing unknown, received 0";
      return;
    }
    m_outcome.cause = TRANSFER_E_NOT_STARTED;
    if (m_told.upTo == 0) {
      const std::string listing = m_told.isEmptyListing ? "yes" : "no";
      m_outcome.counts = "known 0, fetched 0, resumed 0, mismatched 0, listing " + listing + ", received 0";
      return;
    }
    AddEvent(true);  // of the file, on which nothing is wrong
    m_outcome.file = FileContent();
    m_outcome.downloadSize = kContentSize;
    m_outcome.counts = "known 1, fetched 1, resumed 0, mismatched 0, listing yes, received 1000";
  }

  void DeriveMirrorFile() {
    m_outcome.contentSize = 0;
    m_outcome.file = FileLeft();
    const std::size_t held = IsResumed(m_op) ? kHeld : 0;
    const std::size_t received = m_outcome.downloadSize > held ? m_outcome.downloadSize - held : 0;
    const bool isFetched = IsFetched() || (m_told.verdict && m_told.verdict->code == TRANSFER_E_SIZE_MISMATCH);
    const bool isMismatched = isFetched && !IsFetched();
    if (isFetched) m_outcome.cause = TRANSFER_E_NOT_STARTED;
    m_outcome.counts = std::string("known 1, fetched ") + (isFetched && held == 0 ? "1" : "0") + ", resumed " +
                       (isFetched && held != 0 ? "1" : "0") + ", mismatched " + (isMismatched ? "1" : "0") +
                       ", listing unknown, received " + std::to_string(received);
  }

  void DeriveTreePage() {
    ForgetTransfer();
    // What came of a page counts unless it is that of a refusal.
    const std::string listed = std::to_string(IsGood(m_told.status) ? m_told.upTo : 0);
    if (IsFailure(m_outcome.ends[0].code)) {
      m_outcome.counts = std::string("known 0, fetched 0, failed 0, folders failed ") + (IsAborted() ? "0" : "1") +
                         ", listed " + listed + ", received 0";
      return;
    }
    m_outcome.file = FileContent();
    m_outcome.counts = "known 1, fetched 1, failed 0, folders failed 0, listed " + listed + ", received 1000";
  }

  void DeriveTreeFile() {
    const bool isFile = m_told.status == 200 || m_told.status == 203;
    const bool isFetched = !IsFailure(m_outcome.ends[0].code);
    if (isFetched) m_outcome.file = Received();
    ForgetTransfer();
    m_outcome.counts = std::string("known 1, fetched ") + (isFetched ? "1" : "0") + ", failed " +
                       (isFetched || IsAborted() ? "0" : "1") + ", folders failed 0, listed 1000, received " +
                       std::to_string(isFile ? m_told.upTo : 0);
  }

  // Trees have no transfer that could be asked.
  void ForgetTransfer() {
    m_outcome.cause.reset();
    m_outcome.contentSize = 0;
    m_outcome.downloadSize = 0;
    m_outcome.events.clear();
  }

  Told m_told;
  const Op m_op;
  const Targets& m_targets;
  const std::string& m_header;
  std::string m_content;
  bool m_hasContent = false;
  Outcome m_outcome;
};

}  // namespace

Outcome Expect(const Told& told, Op op, const Targets& targets, const std::string& content, const std::string& header) {
  return Derivation(told, op, targets, content, header).Derive();
}

}  // namespace CorvaneTest
