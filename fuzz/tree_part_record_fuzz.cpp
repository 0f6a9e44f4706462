// What is kept beside a file of a tree that is under way. The input is such a record, and three lines and the rest are what one is made of:
// a size, a URL, a validator and the path. Whatever it is:
//   - what is written is read as the same, whatever bytes are in it;
//   - what is read is refused, or is letter for letter what would be written;
//   - what was cut off is no record.

#include <Corvane/TreeDownload/PartRecordImpl.h>

#include "fuzz/Input.h"
#include "fuzz/Require.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace CorvaneFuzz;
  const std::string_view text = BytesOf(data, size);
  if (const auto read = Corvane::ParsePartRecord(text)) Require(TextOf(*read) == text, "a record has one form");

  std::string_view rest = text;
  Corvane::PartRecord record;
  const std::string_view number = TakeLine(rest);
  if (!number.empty()) record.size = NumberIn(number);
  record.url = TakeLine(rest);
  record.validator = TakeLine(rest);
  record.path = rest;
  const std::string written = TextOf(record);
  Require(Corvane::ParsePartRecord(written) == record, "what is written is read as the same");
  for (std::size_t length = 0; length < written.size(); length += 1 + written.size() / 64) {
    Require(!Corvane::ParsePartRecord(written.substr(0, length)), "what was cut off is no record");
  }
  for (const char byte : written) {
    Require(byte == '\n' || (byte >= ' ' && byte <= '~'), "a record is made of lines of printing characters");
  }
  return 0;
}
