// The names that servers and URLs suggest for files. The input is the value of a Content-Disposition field, and a URL. Whatever it is:
//   - a name is the plain name of one file, in UTF-8 (see RequirePlain);
//   - what a server suggests hides no file and is no option;
//   - a name that is suggested again, in either form, is the same;
//   - what surrounds a suggestion does not matter.

#include "apps/corvane/Get/FileName.h"
#include "apps/corvane/Text.h"
#include "fuzz/Input.h"
#include "fuzz/Require.h"

namespace {

using namespace CorvaneFuzz;
using CorvaneCli::NameFromDisposition;

void RequirePlain(const std::string& name) {
  Require(!name.empty() && name != "." && name != "..", "a name names a file");
  Require(name.size() <= 200, "a name is short");
  Require(name.find('/') == name.npos && name.find('\0') == name.npos, "a name stays in its folder");
  Require(name.find_last_not_of(" \t.") == name.size() - 1, "neither blanks nor dots end a name");
  const Corvane::ZString wide = Wide(name);
  Require(Narrow(wide) == name, "a name is UTF-8");
  for (const wchar_t character : wide.Str()) {
    Require(character >= 0x20 && !(character >= 0x7F && character < 0xA0), "no control characters");
    Require(character != 0x2028 && character != 0x2029, "no line ends");
    Require(character != 0x200E && character != 0x200F && !(character >= 0x202A && character <= 0x202E) &&
                !(character >= 0x2066 && character <= 0x2069),
            "no text direction marks");
  }
}

std::string Quoted(const std::string& text) {
  std::string quoted = "\"";
  for (const char character : text) {
    if (character == '"' || character == '\\') quoted += '\\';
    quoted += character;
  }
  return quoted + '"';
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(BytesOf(data, size));
  RequirePlain(CorvaneCli::NameFromUrl(text));
  RequirePlain(CorvaneCli::NameFromUrl("http://host/" + text));
  const std::optional<std::string> name = NameFromDisposition(text);
  if (!name) return 0;
  RequirePlain(*name);
  Require(name->front() != '.' && name->front() != '-', "no hidden file and no option");
  Require(NameFromDisposition("attachment; filename*=utf-8'de'" + AllEscaped(*name)) == name, "the same again");
  // What is behind a backslash counts, also in quotes, where it has to be doubled: a name with one cannot come in this form.
  const bool hasBackslash = name->find('\\') != name->npos;
  Require(hasBackslash || NameFromDisposition("attachment; filename=" + Quoted(*name)) == name, "the same in quotes");
  Require(NameFromDisposition(" \t; attachment;" + text) == name, "what stands before does not matter");
  return 0;
}
