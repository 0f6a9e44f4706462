#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include <Corvane/Base/String.h>

namespace Corvane {

// A sequence of tokens, numbered from 0. NextToken walks through it once; GetToken reaches any of them at any time.
// Thread safety: as ZString; NextToken changes the object. Errors: only std::bad_alloc.
class CORVANE_ZPS_API ZTokenizer {
 public:
  virtual ~ZTokenizer() = default;

  // How many tokens there are in all.
  [[nodiscard]] virtual std::size_t CountTokens() const noexcept = 0;
  // Token number `index`, an empty string when there are not so many.
  [[nodiscard]] virtual ZString GetToken(std::size_t index) const = 0;

  // Whether NextToken has one left.
  [[nodiscard]] bool HasMoreTokens() const noexcept { return m_next < CountTokens(); }
  // The next token of the walk, an empty string when there is none left.
  ZString NextToken() { return GetToken(m_next++); }

 private:
  std::size_t m_next = 0;
};

// Splits a text at any of the characters of `delimiters`; runs of delimiters count as one, and none gives an empty
// token. The split happens once, in the constructor, in time linear in the text; the object keeps the text.
class CORVANE_ZPS_API ZStringTokenizer : public ZTokenizer {
 public:
  // All tokens of `text`.
  ZStringTokenizer(ZString text, const ZString& delimiters);
  // At most `most` tokens (0 = as many as there are); the last one is the remainder of the text from its first
  // character on, delimiters included. `flags` is reserved and must be 0.
  ZStringTokenizer(ZString text, const ZString& delimiters, int flags, std::size_t most);

  [[nodiscard]] std::size_t CountTokens() const noexcept override { return m_tokens.size(); }
  [[nodiscard]] ZString GetToken(std::size_t index) const override;

 private:
  ZString m_text;
  std::vector<std::pair<std::size_t, std::size_t>> m_tokens;  // position and length
};

}  // namespace Corvane
