#include <Corvane/TreeDownload/PartRecordImpl.h>

#include <utility>

#include <Corvane/NumberTextImpl.h>
#include <Corvane/TreeDownload/EscapingImpl.h>

namespace Corvane {
namespace {

constexpr std::string_view kFormat = "corvane-part 1\n";
constexpr std::string_view kEnd = "end\n";

// Takes the line "NAME VALUE" off `text`.
std::optional<std::string> TakeValue(std::string_view& text, std::string_view name) {
  const std::size_t end = text.find('\n');
  if (end == text.npos || !text.starts_with(name) || text.size() <= name.size() || text[name.size()] != ' ')
    return std::nullopt;
  std::string value = Unescaped(text.substr(name.size() + 1, end - name.size() - 1));
  text.remove_prefix(end + 1);
  return value;
}

bool TakeExactly(std::string_view& text, std::string_view line) {
  if (!text.starts_with(line)) return false;
  text.remove_prefix(line.size());
  return true;
}

}  // namespace

std::string TextOf(const PartRecord& record) {
  std::string text(kFormat);
  text += "path " + Escaped(record.path) + '\n';
  text += "url " + Escaped(record.url) + '\n';
  text += "validator " + Escaped(record.validator) + '\n';
  text += "size " + (record.size ? std::to_string(*record.size) : std::string("unknown")) + '\n';
  text += kEnd;
  return text;
}

std::optional<PartRecord> ParsePartRecord(std::string_view text) {
  const std::string_view whole = text;
  if (!TakeExactly(text, kFormat)) return std::nullopt;
  std::optional<std::string> path = TakeValue(text, "path");
  std::optional<std::string> url = path ? TakeValue(text, "url") : std::nullopt;
  std::optional<std::string> validator = url ? TakeValue(text, "validator") : std::nullopt;
  const std::optional<std::string> size = validator ? TakeValue(text, "size") : std::nullopt;
  if (!size) return std::nullopt;
  PartRecord record{*std::move(path), *std::move(url), *std::move(validator), NumberOf(*size)};
  return TextOf(record) == whole ? std::optional(std::move(record)) : std::nullopt;
}

}  // namespace Corvane
