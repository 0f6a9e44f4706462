// The reader of MLSD listings. The input is a listing. Whatever it is:
//   - every name is a plain file name, is there once, and what is left out is bounded (see NamesOf);
//   - as many entries as there are may be allowed, and not one less;
//   - lines stand for themselves: a listing cut in two between lines gives the names of the whole;
//   - empty lines do not matter;
//   - times are seconds of the years 0 to 9999.

#include "fuzz/Pages.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace CorvaneFuzz;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  RequireLines(text, &Corvane::ReadMlsd);
  constexpr long long kFirst = -62167219200;
  constexpr long long kLast = 253402300800;
  for (const PageEntry& entry : Corvane::ReadMlsd(text, kAnyNumber).entries) {
    Require(!entry.time || (*entry.time >= kFirst && *entry.time <= kLast), "times are in the calendar");
    Require(entry.timeExactness <= 1, "times are exact to the second");
  }
  return 0;
}
