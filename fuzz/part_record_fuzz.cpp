// What the program keeps beside an incomplete file. The input is such a record, and three lines are what one is made of: a size, a URL, a
// validator. Whatever it is:
//   - what is written is read as the same;
//   - what is read is refused or, written again, read as the same; a key that nobody knows does not matter;
//   - what was cut off is no record.

#include "apps/corvane/PartRecord.h"
#include "fuzz/Input.h"
#include "fuzz/Require.h"

namespace {

using namespace CorvaneFuzz;
using CorvaneCli::ParsePartRecord;
using CorvaneCli::PartRecord;

// As records have it: UTF-8 without control characters.
std::string Usable(std::string_view bytes) {
  std::string text = Narrow(Wide(bytes));
  std::erase_if(text, [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
  return text;
}

void RequireKept(const PartRecord& record) {
  const std::string text = Format(record);
  Require(text.find('\n') == text.size() - 1, "a record is a line");
  Require(ParsePartRecord(text) == record, "what is written is read as the same");
  Require(!ParsePartRecord(std::string_view(text).substr(0, text.size() - 2)), "what was cut off is no record");
  const std::string more = text.substr(0, text.size() - 2) + ",\"more\":[{}]}";
  Require(ParsePartRecord(more) == record, "other keys do not matter");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = BytesOf(data, std::min<std::size_t>(size, 20000));
  if (const auto record = ParsePartRecord(text)) RequireKept(*record);

  std::string_view rest = text;
  PartRecord record;
  const std::string_view number = TakeLine(rest);
  if (!number.empty()) record.size = NumberIn(number);
  record.url = Usable(TakeLine(rest));
  record.validator = Usable(TakeLine(rest));
  RequireKept(record);
  return 0;
}
