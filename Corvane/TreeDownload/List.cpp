#include <algorithm>
#include <string_view>

#include <Corvane/NumberTextImpl.h>
#include <Corvane/TreeDownload/PageBuilderImpl.h>
#include <Corvane/TreeDownload/PageLinesImpl.h>
#include <Corvane/TreeDownload/PageTextImpl.h>

namespace Corvane {
namespace {

constexpr bool IsBlank(char c) noexcept { return c == ' ' || c == '\t'; }

// Walks over the fields of a line, which blanks separate.
class Fields {
 public:
  explicit Fields(std::string_view line) : m_rest(line) {}

  std::string_view Next() {
    while (!m_rest.empty() && IsBlank(m_rest.front())) m_rest.remove_prefix(1);
    std::size_t length = 0;
    while (length < m_rest.size() && !IsBlank(m_rest[length])) ++length;
    const std::string_view field = m_rest.substr(0, length);
    m_rest.remove_prefix(length);
    return field;
  }

  // What follows the blank behind the last field. Names may begin with blanks: one alone separates them.
  [[nodiscard]] std::string_view Name() const { return m_rest.substr(m_rest.empty() ? 0 : 1); }

 private:
  std::string_view m_rest;
};

bool IsDay(std::string_view field) {
  if (field.ends_with('.')) field.remove_suffix(1);
  return field.size() <= 2 && IsAllDigits(field);
}

// A word in whatever language.
bool IsMonth(std::string_view field) {
  return !field.empty() && std::none_of(field.begin(), field.end(), IsAsciiDigit);
}

bool IsTimeOfDay(std::string_view field) {
  const std::size_t colon = field.find(':');
  return colon <= 2 && IsAllDigits(field.substr(0, colon)) && field.size() > colon + 2 &&
         IsAllDigits(field.substr(colon + 1, 2));
}

bool IsYearOrTime(std::string_view field) { return (field.size() == 4 && IsAllDigits(field)) || IsTimeOfDay(field); }

// "2026-11-22"
bool IsIsoDate(std::string_view field) {
  return field.size() == 10 && field[4] == '-' && field[7] == '-' && IsAllDigits(field.substr(0, 4));
}

// "11-20-26"
bool IsDosDate(std::string_view field) {
  const auto isDash = [](char c) { return c == '-' || c == '/'; };
  return std::count_if(field.begin(), field.end(), isDash) == 2 &&
         std::all_of(field.begin(), field.end(), [&](char c) { return IsAsciiDigit(c) || isDash(c); });
}

struct UnixLine {
  std::string_view size;
  std::string_view name;
};

// Which field is the size depends on the server: some show no group or no number of links. It is the number before the
// date, and the name is what follows the date.
bool ReadUnixLine(std::string_view line, UnixLine& read) {
  constexpr int kMostFields = 7;  // before the date; group names may hold a blank
  Fields fields(line);
  fields.Next();  // the mode
  std::string_view field = fields.Next();
  for (int i = 1; i < kMostFields; ++i) {
    read.size = field;
    field = fields.Next();
    if (!IsAllDigits(read.size)) continue;
    Fields date = fields;
    const std::string_view second = date.Next();
    if (IsIsoDate(field) && IsTimeOfDay(second)) {
      read.name = date.Name();
      return true;
    }
    const bool isDate = (IsMonth(field) && IsDay(second)) || (IsDay(field) && IsMonth(second));
    if (isDate && IsYearOrTime(date.Next())) {
      read.name = date.Name();
      return true;
    }
  }
  return false;
}

// Folders show themselves and their parent, too.
bool IsItself(std::string_view name) { return name == "." || name == ".."; }

void AddEntry(PageBuilder& builder, std::string_view name, bool isFolder, std::string_view size) {
  const std::size_t place = builder.Add(name, isFolder);
  if (place != PageBuilder::kNone && !isFolder) builder.At(place).size = NumberOf(size);
}

bool ReadUnix(std::string_view line, PageBuilder& builder) {
  UnixLine read;
  if (!ReadUnixLine(line, read) || read.name.empty()) return line.starts_with("total ");
  const bool isFolder = line[0] == 'd';
  if (isFolder && IsItself(read.name)) return true;
  if (isFolder || line[0] == '-') {
    AddEntry(builder, read.name, isFolder, read.size);
  } else {
    builder.LeaveOut(read.name.substr(0, line[0] == 'l' ? read.name.find(" -> ") : read.name.npos));
  }
  return true;
}

// Date, time, a size or a marker such as <DIR>, name. Behind a marker blanks fill the column.
bool ReadDos(std::string_view line, PageBuilder& builder) {
  Fields fields(line);
  if (!IsDosDate(fields.Next()) || !IsTimeOfDay(fields.Next())) return false;
  const std::string_view size = fields.Next();
  const bool isFile = IsAllDigits(size);
  if (!isFile && !size.starts_with('<')) return false;
  std::string_view name = fields.Name();
  while (!isFile && name.starts_with(' ')) name.remove_prefix(1);
  if (name.empty()) return false;
  const bool isFolder = IsLowered(size, "<dir>");
  if (isFolder && IsItself(name)) return true;
  if (isFile || isFolder) {
    AddEntry(builder, name, isFolder, size);
  } else {
    builder.LeaveOut(name);
  }
  return true;
}

bool ReadLine(std::string_view line, PageBuilder& builder) {
  if (IsAsciiDigit(line[0])) return ReadDos(line, builder);
  constexpr std::string_view kUnixTypes = "-dlbcpst";  // "t" begins "total", too
  return kUnixTypes.find(line[0]) != kUnixTypes.npos && ReadUnix(line, builder);
}

}  // namespace

Page ReadList(std::string_view text, long long /*now*/, std::size_t mostEntries) {
  return ReadLines(text, mostEntries, &ReadLine);
}

}  // namespace Corvane
