#pragma once

#include <Corvane/Transfer/BodyImpl.h>

namespace Corvane {

// A file that holds the beginning of a resource and is to be continued. It owns all that this takes to know: where the request
// begins, whether the answer is what was asked for, and what of the old file lies behind the new end.
class ResumedFile final : public FileBody {
 public:
  // `file` is open for writing without truncation and holds `size` bytes; see IsResumable. Positions it.
  ResumedFile(const OpenFile& file, unsigned long long size);

  // Whether a file of this size is continued: shorter ones are not worth the trouble.
  [[nodiscard]] static bool IsResumable(unsigned long long size) noexcept { return size > kThreshold; }

  [[nodiscard]] bool WantsAnswer() const noexcept override { return true; }
  // A server may refuse the range with a page of its own, which is no part of the file, or answer with something else than what
  // was asked for.
  void Judge(const Answer& answer) override;
  std::size_t Write(const char* data, std::size_t bytes) override;
  [[nodiscard]] unsigned long long Position() const noexcept override { return m_position; }

  // What the transfer ended with.
  struct End {
    bool isHttp = false;
    bool isAcceptable = false;  // as in Answer
    bool isFailed = false;
    bool isWriteError = false;   // libcurl's failure after a block was not taken
    bool hasContent = false;     // at least one block came
    double contentLength = 0.0;  // as libcurl tells it, that is of what was sent
  };
  // Whether the answer was acceptable and yet does not continue the file, as those without any content do not. The one exception is
  // the whole content when it ends where the resume was to begin: libcurl takes that for complete.
  [[nodiscard]] bool IsRestMissing(const End& end) const;

  // Cuts off what the old file held behind the end of the content, which is `length` bytes long.
  ZResult CutStaleTail(unsigned long long length) const;

 private:
  static constexpr unsigned long long kThreshold = 64;  // bytes; a file must be larger to be resumed
  static constexpr unsigned long long kMargin = 32;     // bytes at the end of a partial file that are fetched again

  unsigned long long m_size;
  unsigned long long m_position;
  bool m_refused = false;       // what comes is not the file's content
  bool m_rangeMissing = false;  // what comes does not begin at the position
};

}  // namespace Corvane
