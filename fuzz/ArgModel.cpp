#include "fuzz/ArgModel.h"

#include <cstddef>

namespace CorvaneFuzz {

void ArgModel::Append(const std::wstring& text) {
  for (const wchar_t character : text) m_cells.push_back({character, false});
}

unsigned int ArgModel::DigitAt(std::size_t position) const {
  if (position >= m_cells.size() || m_cells[position].isFilled) return 10;
  const wchar_t character = m_cells[position].character;
  return character >= L'0' && character <= L'9' ? static_cast<unsigned int>(character - L'0') : 10;
}

unsigned int ArgModel::NumberAt(std::size_t position, std::size_t& length) const {
  const Cell& cell = m_cells[position];
  if (cell.isFilled || cell.character != L'%') return 0;
  const unsigned int first = DigitAt(position + 1);
  if (first == 0 || first == 10) return 0;
  const unsigned int second = DigitAt(position + 2);
  length = second == 10 ? 2 : 3;
  return second == 10 ? first : first * 10 + second;
}

void ArgModel::Arg(const std::wstring& value) {
  unsigned int lowest = 100;
  std::size_t length = 0;
  for (std::size_t i = 0; i < m_cells.size(); ++i) {
    const unsigned int number = NumberAt(i, length);
    if (number != 0 && number < lowest) lowest = number;
  }
  std::vector<Cell> cells;
  for (std::size_t i = 0; i < m_cells.size(); ++i) {
    if (NumberAt(i, length) != lowest) {
      cells.push_back(m_cells[i]);
      continue;
    }
    cells.push_back({L'\0', true, true});
    for (const wchar_t character : value) cells.push_back({character, true});
    cells.push_back({L'\0', true, true});
    i += length - 1;
  }
  m_cells = cells;
}

void ArgModel::Keep(std::size_t from, std::size_t count) {
  std::vector<Cell> cells;
  std::size_t position = 0;  // of the character that comes
  for (const Cell& cell : m_cells) {
    const std::size_t end = cell.isMark && count != std::wstring::npos ? count + 1 : count;
    if (position >= from && position - from < end) cells.push_back(cell);
    if (!cell.isMark) ++position;
  }
  m_cells = cells;
}

void ArgModel::TrimBlanks() {
  const std::wstring text = Text();
  const std::wstring blanks = L" \t\n\v\f\r";
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == text.npos) return Keep(text.size(), 0);
  Keep(first, text.find_last_not_of(blanks) - first + 1);
}

std::wstring ArgModel::Text() const {
  std::wstring text;
  for (const Cell& cell : m_cells) {
    if (!cell.isMark) text += cell.character;
  }
  return text;
}

}  // namespace CorvaneFuzz
