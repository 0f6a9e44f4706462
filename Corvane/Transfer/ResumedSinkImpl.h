#pragma once

#include <string>
#include <utility>

#include <Corvane/Transfer/BodyImpl.h>
#include <Corvane/Transfer/RequestedPartImpl.h>

namespace Corvane {

// Hands the rest of a resource to an object of the host, which has the beginning already. Of anything else nothing is handed on.
class ResumedSink final : public Body {
 public:
  ResumedSink(ZTransferSink& sink, unsigned long long offset) : m_sink(sink), m_part(offset, offset) {}
  void Check(std::string validator) { m_part.Check(std::move(validator)); }
  [[nodiscard]] const RequestedPart& Part() const noexcept { return m_part; }

  [[nodiscard]] unsigned long long Position() const noexcept override { return m_part.Position(); }
  [[nodiscard]] bool WantsAnswer() const noexcept override { return true; }
  void Judge(const Answer& answer) override { m_part.Judge(answer); }
  std::size_t Write(const char* data, std::size_t bytes) override {
    if (m_part.IsRefused() || bytes == 0) return bytes;
    if (!m_part.Admits(bytes)) return 0;
    const std::size_t taken = m_sink.Write(data, bytes);
    m_part.Count(taken);
    return taken;
  }

 private:
  ZTransferSink& m_sink;
  RequestedPart m_part;
};

}  // namespace Corvane
