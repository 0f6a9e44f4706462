#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include <Corvane/Base/String.h>
#include <Corvane/Transfer/BodyImpl.h>
#include <Corvane/Transfer/ContentRangeImpl.h>
#include <Corvane/Transfer/CurlImpl.h>

namespace Corvane {

// A file that holds the beginning of a resource and is to be continued. It owns all that this takes to know: where the request
// begins, whether the answer is what was asked for, whether the rest has come, and what of the old file lies behind the new end.
class ResumedFile final : public FileBody {
 public:
  // `file` is open for reading and writing without truncation and holds `size` bytes; see IsResumable. Positions it.
  ResumedFile(const OpenFile& file, unsigned long long size);

  // From now on nothing is written before the bytes that are fetched again are known to be those in the file, and no answer is
  // taken that says it has another version than `validator`, unless that is empty. Returns the code of a file that cannot be read.
  [[nodiscard]] ZResult Check(std::string validator);

  // Whether a file of this size is continued: shorter ones are not worth the trouble.
  [[nodiscard]] static bool IsResumable(unsigned long long size) noexcept { return size > kThreshold; }

  [[nodiscard]] bool WantsAnswer() const noexcept override { return true; }
  // A server may refuse the range with a page of its own, which is no part of the file, or answer with something else than what
  // was asked for. Of the latter nothing is written, and nothing behind the end that the answer announced.
  void Judge(const Answer& answer) override;
  std::size_t Write(const char* data, std::size_t bytes) override;
  [[nodiscard]] unsigned long long Position() const noexcept override { return m_position; }

  // What the request ended with.
  struct End {
    bool isHttp = false;
    bool isFailed = false;
    bool isWriteError = false;    // libcurl's failure after a block was not taken
    bool hasContent = false;      // at least one block came
    double contentLength = -1.0;  // as libcurl tells it
  };
  // Why a resume that was answered acceptably is none all the same.
  struct Refusal {
    CURLcode code = CURLE_OK;
    ZString text;
  };
  // None when the rest has come, and when the request failed by itself.
  [[nodiscard]] std::optional<Refusal> Refuse(const End& end) const;
  // When the request was refused by libcurl, which takes the whole instead of a part for a server without ranges, but the answer
  // says that it is of another version.
  [[nodiscard]] std::optional<Refusal> RefuseVersion(std::string_view header) const;

  // After a success: cuts off what the old file held behind the end of the resource, if that is known to be reached.
  ZResult CutStaleTail(const End& end) const;

 private:
  static constexpr unsigned long long kThreshold = 64;  // bytes; a file must be larger to be resumed
  static constexpr unsigned long long kMargin = 32;     // bytes at the end of a partial file that are fetched again

  // Takes the bytes of a block that lie in the overlap. Returns how many; none when one differs.
  std::size_t Compare(const char* data, std::size_t bytes);
  [[nodiscard]] unsigned long long Reached() const noexcept { return m_position + m_received; }
  [[nodiscard]] std::optional<Refusal> RefuseRest(const End& end) const;
  [[nodiscard]] static Refusal Changed();
  [[nodiscard]] bool IsWholeWithoutContent(const End& end) const;
  [[nodiscard]] bool IsEndKnown(const End& end) const;

  unsigned long long m_size;
  unsigned long long m_position;
  unsigned long long m_received = 0;
  std::optional<ContentRange> m_range;  // what the answer announced
  bool m_refused = false;               // what comes is not the file's content
  bool m_rangeMissing = false;          // what comes does not begin at the position
  bool m_isTooMuch = false;             // more came than was announced
  bool m_isChecked = false;
  std::string m_validator;                // of the version that the file holds a part of, if known
  std::array<char, kMargin> m_overlap{};  // what the file holds from the position on
  bool m_isDifferent = false;             // what comes is of another version
};

}  // namespace Corvane
