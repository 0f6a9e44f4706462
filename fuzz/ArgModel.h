#pragma once

#include <string>
#include <vector>

// ZString::Arg once more, as its header tells it: a text is a row of cells, each of which knows whether an Arg put it there.
namespace CorvaneFuzz {

class ArgModel {
 public:
  explicit ArgModel(const std::wstring& text) { Append(text); }

  void Append(const std::wstring& text);
  void Append(const ArgModel& other) { m_cells.insert(m_cells.end(), other.m_cells.begin(), other.m_cells.end()); }
  void Arg(const std::wstring& value);
  void Keep(std::size_t from, std::size_t count);
  void TrimBlanks();  // on both sides, and nothing but blanks, tabs and line ends

  [[nodiscard]] std::wstring Text() const;

 private:
  struct Cell {
    wchar_t character;
    bool isFilled;
    bool isMark = false;  // no character: an end of what an Arg put there, so that the two sides of nothing do not join
  };

  // The number of the placeholder at the position, and its length in cells; 0 when there is none.
  [[nodiscard]] unsigned int NumberAt(std::size_t position, std::size_t& length) const;
  [[nodiscard]] unsigned int DigitAt(std::size_t position) const;  // 10 when it is none

  std::vector<Cell> m_cells;
};

}  // namespace CorvaneFuzz
