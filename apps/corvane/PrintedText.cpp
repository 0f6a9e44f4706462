#include "apps/corvane/PrintedText.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

constexpr std::size_t kLongestCharacter = 4;

// Where the last character of `bytes` begins if it is not complete; else the end.
std::size_t EndOfComplete(std::string_view bytes) {
  const std::size_t most = std::min(bytes.size(), kLongestCharacter - 1);
  for (std::size_t length = 1; length <= most; ++length) {
    if (IsIncompleteUtf8(bytes.substr(bytes.size() - length))) return bytes.size() - length;
  }
  return bytes.size();
}

bool IsAllowedControl(unsigned char byte) {
  return byte == '\b' || byte == '\t' || byte == '\n' || byte == '\f' || byte == '\r';
}

}  // namespace

std::string WithoutControls(std::string_view text) {
  constexpr std::string_view kReplacement = "\xEF\xBF\xBD";
  std::string shown;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const bool isC1 = byte == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) < 0xA0;
    const bool isC0 = (byte < 0x20 && !IsAllowedControl(byte)) || byte == 0x7F;
    if (!isC0 && !isC1) {
      shown += text[i];
      continue;
    }
    shown += kReplacement;
    if (isC1) ++i;
  }
  return shown;
}

std::string TextDecoder::Decode(std::string_view bytes) {
  if (m_incomplete.empty()) {
    const std::size_t end = EndOfComplete(bytes);
    m_incomplete = bytes.substr(end);
    return Convert(bytes.substr(0, end));
  }
  std::string all = std::exchange(m_incomplete, {});
  all += bytes;
  const std::size_t end = EndOfComplete(all);
  m_incomplete = all.substr(end);
  return Convert(std::string_view(all).substr(0, end));
}

std::string TextDecoder::Finish() { return Convert(std::exchange(m_incomplete, {})); }

std::string TextDecoder::Convert(std::string_view bytes) {
  std::string text = ToUtf8(FromUtf8(bytes));
  m_hasReplaced = m_hasReplaced || text != bytes;
  return text;
}

bool TextCheck::Take(std::string_view bytes) noexcept {
  m_isText = m_isText && std::all_of(bytes.begin(), bytes.end(), [this](char character) {
               return TakeByte(static_cast<unsigned char>(character));
             });
  return m_isText;
}

bool TextCheck::TakeByte(unsigned char byte) noexcept {
  if (m_expected.following > 0) {
    const bool isGood = byte >= m_expected.low && byte <= m_expected.high;
    m_expected = {m_expected.following - 1};
    return isGood;
  }
  if (byte < 0x20 || byte == 0x7F) return IsAllowedControl(byte);
  m_expected = Utf8LeadOf(byte);
  if (byte == 0xC2) m_expected.low = 0xA0;  // less would be a control character of the second set
  return m_expected.following >= 0;
}

}  // namespace CorvaneCli
