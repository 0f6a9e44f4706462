#pragma once

#include <array>
#include <string>

#include <Corvane/Transfer/BodyImpl.h>
#include <Corvane/Transfer/RequestedPartImpl.h>

namespace Corvane {

// A file that holds the beginning of a resource and is to be continued: where the request begins, whether the overlap is the same,
// and what of the old file lies behind the new end.
class ResumedFile final : public FileBody {
 public:
  // `file` is open for reading and writing without truncation and holds `size` bytes; see IsResumable. Positions it.
  ResumedFile(const OpenFile& file, unsigned long long size);

  // From now on nothing is written before the bytes that are fetched again are known to be those in the file, and no answer is
  // taken that RequestedPart::Check refuses. Returns the code of a file that cannot be read.
  [[nodiscard]] ZResult Check(std::string validator);

  // Whether a file of this size is continued: shorter ones are not worth the trouble.
  [[nodiscard]] static bool IsResumable(unsigned long long size) noexcept { return size > kThreshold; }

  [[nodiscard]] const RequestedPart& Part() const noexcept { return m_part; }

  [[nodiscard]] bool WantsAnswer() const noexcept override { return true; }
  // A server may refuse the range with a page of its own, which is no part of the file, or answer with something else than what
  // was asked for. Of the latter nothing is written, and nothing behind the end that the answer announced.
  void Judge(const Answer& answer) override { m_part.Judge(answer); }
  std::size_t Write(const char* data, std::size_t bytes) override;
  [[nodiscard]] unsigned long long Position() const noexcept override { return m_part.Position(); }

  // After a success: cuts off what the old file held behind the end of the resource, if that is known to be reached.
  ZResult CutStaleTail(const RequestedPart::End& end) const;

 private:
  static constexpr unsigned long long kThreshold = 64;  // bytes; a file must be larger to be resumed
  static constexpr unsigned long long kMargin = 32;     // bytes at the end of a partial file that are fetched again

  [[nodiscard]] unsigned long long WritePosition() const noexcept;
  bool Place() noexcept;
  // Takes the bytes of a block that lie in the overlap. Returns how many; none when one differs.
  std::size_t Compare(const char* data, std::size_t bytes);

  RequestedPart m_part;
  bool m_isPlaced;                        // the file is positioned where writing begins
  std::array<char, kMargin> m_overlap{};  // what the file holds from the position on
};

}  // namespace Corvane
