#include "apps/corvane/Options/ArgumentWords.h"

#include <algorithm>

namespace CorvaneCli {
namespace {

// name: "-o" or "--output".
bool MayBe(std::string_view word, std::string_view name) {
  const bool isLong = word.substr(0, 2) == "--";
  if (name.substr(0, 2) == "--") return isLong && word.substr(0, word.find('=')) == name;
  return !isLong && word.substr(0, 1) == "-" && word.find(name.back()) != std::string_view::npos;
}

}  // namespace

bool ArgumentWords::Hold(std::string_view word) const { return std::find(m_begin, m_end, word) != m_end; }

bool ArgumentWords::MayName(std::string_view names) const {
  while (!names.empty()) {
    const std::string_view name = names.substr(0, names.find(','));
    if (std::any_of(m_begin, m_end, [&](std::string_view word) { return MayBe(word, name); })) return true;
    names.remove_prefix(std::min(names.size(), name.size() + 1));
  }
  return false;
}

std::string_view ArgumentWords::Behind(char letter) const {
  for (const char* const* word = m_begin; word != m_end; ++word) {
    const std::string_view text = *word;
    const std::size_t at = text.find(letter);
    if (text.size() < 2 || text[0] != '-' || text[1] == '-' || at == std::string_view::npos) continue;
    if (at + 1 < text.size()) return text.substr(at + 1);
    return word + 1 == m_end ? std::string_view() : std::string_view(word[1]);
  }
  return {};
}

}  // namespace CorvaneCli
