// ZString::Arg. The first line of the input is a text with placeholders, each further one what is done to it, by its first letter: "a"
// fills a placeholder with the rest of the line, "p" appends it, "d" appends the text to itself, "s" keeps a part, "t" trims, "l" and "u"
// change the case, "v" fills a placeholder with a value that was filled itself. Whatever it is:
//   - the text is that of a literal second implementation, in which every character knows whether it was inserted.

#include <Corvane/Base/String.h>

#include "fuzz/ArgModel.h"
#include "fuzz/Input.h"
#include "fuzz/Require.h"

namespace {

using namespace CorvaneFuzz;
using Corvane::ZString;

void Apply(std::string_view line, ZString& text, ArgModel& model) {
  const char operation = line.empty() ? 'a' : line[0];
  const ZString rest = Wide(line.substr(line.empty() ? 0 : 1));
  if (operation == 'p') {
    text.Append(rest);
    model.Append(rest.Str());
  } else if (operation == 'd') {
    text.Append(text);
    model.Append(ArgModel(model));
  } else if (operation == 's') {
    const std::size_t from = line.size() > 1 ? static_cast<unsigned char>(line[1]) % 16 : 0;
    const std::size_t count = line.size() > 2 ? static_cast<unsigned char>(line[2]) : ZString::npos;
    if (from >= text.Length()) return;
    text = text.Substr(from, count);
    model.Keep(from, count);
  } else if (operation == 't') {
    text.TrimLeft().TrimRight();
    model.TrimBlanks();
  } else if (operation == 'l' || operation == 'u') {
    // Changes no character of a placeholder, so that the model may take the new text for the old one later.
    Require((operation == 'l' ? text.Lower() : text.Upper()).Arg(L"x").Length() == text.Arg(L"x").Length(),
            "the case changes no placeholder");
  } else {
    const ZString value = operation == 'v' ? ZString(L"%1%2").Arg(rest) : rest;
    text = text.Arg(value);
    model.Arg(value.Str());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view rest = BytesOf(data, size);
  const ZString first = Wide(TakeLine(rest));
  ZString text = first;
  ArgModel model(first.Str());
  for (int steps = 0; steps < 30 && !rest.empty() && text.Length() < 10000; ++steps) {
    Apply(TakeLine(rest), text, model);
    Require(text.Str() == model.Text(), "the text is that of the rules");
  }
  return 0;
}
