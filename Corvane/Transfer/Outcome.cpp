#include <Corvane/Transfer/OutcomeImpl.h>

#include <Corvane/Base/ErrorDict.h>

namespace Corvane {

void Outcome::Reset() {
  const std::lock_guard guard(m_mutex);
  m_current = OutcomeSnapshot();
  m_code = m_current.code;
  m_textOf = m_current.code;
  m_makeText = nullptr;
  m_published.reset();
}

void Outcome::Set(ZResult code) {
  const std::lock_guard guard(m_mutex);
  m_code = m_current.code = code;
  m_textOf = code;
  m_makeText = nullptr;
  m_published.reset();
}

void Outcome::Set(ZResult code, ZString text) {
  const std::lock_guard guard(m_mutex);
  m_code = m_current.code = code;
  m_current.text = std::move(text);
  m_textOf.reset();
  m_makeText = nullptr;
  m_published.reset();
}

void Outcome::SetLater(ZResult code, std::function<ZString()> text) {
  const std::lock_guard guard(m_mutex);
  m_code = m_current.code = code;
  m_textOf.reset();
  m_makeText = std::move(text);
  m_published.reset();
}

void Outcome::SetCause(ZResult cause, ZString text) {
  const std::lock_guard guard(m_mutex);
  m_current.cause = cause;
  m_current.causeText = std::move(text);
  m_published.reset();
}

void Outcome::SetHeader(std::string header) {
  const std::lock_guard guard(m_mutex);
  m_current.header = std::move(header);
  m_published.reset();
}

void Outcome::SetSource(AnswerSource source) {
  const std::lock_guard guard(m_mutex);
  m_current.source = std::move(source);
  m_published.reset();
}

std::shared_ptr<const OutcomeSnapshot> Outcome::Snapshot() const {
  const std::lock_guard guard(m_mutex);
  return Publish();
}

const ZString& Outcome::TextForThisThread() const {
  const std::lock_guard guard(m_mutex);
  ThreadText& mine = m_texts[std::this_thread::get_id()];
  if (mine.from == nullptr || mine.from != m_published) {
    mine.from = Publish();
    if (mine.text != mine.from->text) mine.text = mine.from->text;
  }
  return mine.text;
}

const Outcome::SnapshotPointer& Outcome::Publish() const {
  if (m_published == nullptr) {
    auto snapshot = std::make_shared<OutcomeSnapshot>(m_current);
    if (m_textOf) snapshot->text = ZGetErrorMsg(*m_textOf);
    if (m_makeText) snapshot->text = m_makeText();
    m_published = std::move(snapshot);
  }
  return m_published;
}

}  // namespace Corvane
