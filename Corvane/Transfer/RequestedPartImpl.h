#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include <Corvane/Base/Result.h>
#include <Corvane/Base/String.h>
#include <Corvane/Transfer/BodyImpl.h>
#include <Corvane/Transfer/ContentRangeImpl.h>
#include <Corvane/Transfer/CurlImpl.h>

namespace Corvane {

// The rest of a resource whose beginning is there already: whether an answer is that part, of the version that is wanted, and
// whether all of it has come. Where the bytes go is its user's business.
class RequestedPart {
 public:
  // The part begins at `position`; the first `held` bytes of the resource are there, at least as many as lie before it.
  RequestedPart(unsigned long long position, unsigned long long held) noexcept : m_position(position), m_held(held) {}

  // From now on no answer is taken whose resource is shorter than what is held, nor one of another version than `validator` stands
  // for, unless that is empty.
  void Check(std::string validator);
  [[nodiscard]] bool IsChecked() const noexcept { return m_isChecked; }

  [[nodiscard]] unsigned long long Position() const noexcept { return m_position; }
  [[nodiscard]] unsigned long long Held() const noexcept { return m_held; }
  [[nodiscard]] unsigned long long Received() const noexcept { return m_received; }
  [[nodiscard]] unsigned long long Reached() const noexcept { return m_position + m_received; }

  // Called before the first block.
  void Judge(const Answer& answer);
  // Whether what comes is the page of a refusal, which is no content at all.
  [[nodiscard]] bool IsRefused() const noexcept { return m_isRefused; }
  // Whether a block of so many bytes belongs to the part. One that does not ends the transfer.
  [[nodiscard]] bool Admits(std::size_t bytes) noexcept;
  // Bytes of the part that have been taken.
  void Count(std::size_t bytes) noexcept { m_received += bytes; }
  // What came is not of the version that is held.
  void MarkChanged() noexcept { m_isChanged = true; }
  [[nodiscard]] bool IsChanged() const noexcept { return m_isChanged; }

  // What an acceptable answer ended with.
  struct End {
    Answer answer;
    ZResult code = 0;             // of the request
    bool hasContent = false;      // at least one block came
    double contentLength = -1.0;  // as libcurl tells it
  };
  // Why an answer that was acceptable is not the part all the same.
  struct Refusal {
    CURLcode code = CURLE_OK;
    ZString text;
  };
  // None when the rest has come, and when the request failed by itself.
  [[nodiscard]] std::optional<Refusal> Refuse(const End& end) const;
  // After a success: whether the end of the resource is known to be reached.
  [[nodiscard]] bool IsEndKnown(const End& end) const;

 private:
  [[nodiscard]] bool IsOtherVersion(const Answer& answer) const;
  [[nodiscard]] bool IsJudgedHere(const End& end) const;
  [[nodiscard]] std::optional<Refusal> RefuseRest(const End& end) const;
  [[nodiscard]] bool IsWholeWithoutContent(const End& end) const;

  unsigned long long m_position;
  unsigned long long m_held;
  unsigned long long m_received = 0;
  std::optional<ContentRange> m_range;  // what the answer announced
  bool m_isRefused = false;
  bool m_isRangeMissing = false;  // what comes does not begin at the position
  bool m_isTooMuch = false;       // more came than was announced
  bool m_isChecked = false;
  std::string m_validator;   // of the version that is held, if known
  bool m_isChanged = false;  // what comes is of another one
};

}  // namespace Corvane
