#include <string_view>

#include <Corvane/NumberTextImpl.h>
#include <Corvane/TreeDownload/PageBuilderImpl.h>
#include <Corvane/TreeDownload/PageLinesImpl.h>
#include <Corvane/TreeDownload/PageTimeImpl.h>

namespace Corvane {
namespace {

enum class MlsdType { None, File, Folder, Itself, Other };

struct Facts {
  MlsdType type = MlsdType::None;
  std::optional<unsigned long long> size;
  std::optional<long long> time;
};

MlsdType TypeOf(std::string_view value) {
  if (IsLowered(value, "file")) return MlsdType::File;
  if (IsLowered(value, "dir")) return MlsdType::Folder;
  if (IsLowered(value, "cdir") || IsLowered(value, "pdir")) return MlsdType::Itself;
  return MlsdType::Other;  // links and special files, as "OS.unix=slink:/target"
}

// YYYYMMDDHHMMSS, perhaps with a fraction, which is no second of its own.
std::optional<long long> TimeOf(std::string_view value) {
  constexpr std::size_t kLength = 14;
  if (value.size() > kLength && (value[kLength] != '.' || !IsAllDigits(value.substr(kLength + 1)))) return std::nullopt;
  if (value.size() < kLength) return std::nullopt;
  PageTime time;
  time.SetYear(value.substr(0, 4));
  time.SetMonth(value.substr(4, 2));
  time.SetDay(value.substr(6, 2));
  time.SetHour(value.substr(8, 2));
  time.SetMinute(value.substr(10, 2));
  time.SetSecond(value.substr(12, 2));
  return time.ToSeconds();
}

// `text`: facts, each ended by a semicolon.
Facts FactsOf(std::string_view text) {
  Facts facts;
  while (!text.empty()) {
    const std::size_t end = text.find(';');
    const std::string_view fact = text.substr(0, end);
    text.remove_prefix(end == text.npos ? text.size() : end + 1);
    const std::size_t equals = fact.find('=');
    if (equals == fact.npos) continue;
    const std::string_view name = fact.substr(0, equals);
    const std::string_view value = fact.substr(equals + 1);
    if (IsLowered(name, "type")) facts.type = TypeOf(value);
    if (IsLowered(name, "size")) facts.size = NumberOf(value);
    if (IsLowered(name, "modify")) facts.time = TimeOf(value);
  }
  return facts;
}

// False when the line is in no format.
bool ReadLine(std::string_view line, PageBuilder& builder) {
  // The first blank ends the facts, of which no value has one; whatever follows it is the name, blanks and semicolons
  // included.
  const std::size_t blank = line.find(' ');
  if (blank == line.npos || blank == 0 || line[blank - 1] != ';') return false;
  const Facts facts = FactsOf(line.substr(0, blank));
  if (facts.type == MlsdType::None) return false;
  if (facts.type == MlsdType::Itself) return true;
  const std::string_view name = line.substr(blank + 1);
  const bool isFolder = facts.type == MlsdType::Folder;
  if (!isFolder && facts.type != MlsdType::File) {
    builder.LeaveOut(name);
    return true;
  }
  const std::size_t place = builder.Add(name, isFolder);
  if (place == PageBuilder::kNone) return true;
  PageEntry& entry = builder.At(place);
  if (!isFolder) entry.size = facts.size;
  entry.time = facts.time;
  entry.timeExactness = facts.time ? 1 : 0;
  return true;
}

}  // namespace

Page ReadMlsd(std::string_view text, std::size_t mostEntries) { return ReadLines(text, mostEntries, &ReadLine); }

}  // namespace Corvane
