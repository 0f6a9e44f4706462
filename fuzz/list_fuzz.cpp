// The reader of LIST listings. The input is a listing. Whatever it is:
//   - every name is a plain file name, is there once, and what is left out is bounded (see NamesOf);
//   - as many entries as there are may be allowed, and not one less;
//   - lines stand for themselves: a listing cut in two between lines gives the names of the whole;
//   - empty lines do not matter;
//   - nothing has a time.

#include "fuzz/Pages.h"

namespace {

Corvane::Page Read(std::string_view text, std::size_t mostEntries) { return Corvane::ReadList(text, 0, mostEntries); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace CorvaneFuzz;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  RequireLines(text, &Read);
  for (const PageEntry& entry : Read(text, kAnyNumber).entries) Require(!entry.time, "nothing has a time");
  return 0;
}
