// The reader of Retry-After. The first line of the input is the time now in seconds, the rest the field's value. Whatever it is:
//   - a wait is 0 to 2^31 - 1 seconds, and blanks around the value do not matter;
//   - digits alone are that number, as far as it goes;
//   - a date that is taken is, but for the day's name, letter for letter what the system writes for its time in one of HTTP's forms;
//   - whatever the system writes for a time is taken.

#include <ctime>

#include "apps/corvane/HttpDate.h"
#include "apps/corvane/Retry.h"
#include "fuzz/Input.h"
#include "fuzz/Require.h"

namespace {

using namespace CorvaneFuzz;
using CorvaneCli::ParseHttpDate, CorvaneCli::RetryAfter;

// The last may have a blank or a zero before the day.
constexpr const char* kForms[] = {"%a, %d %b YEAR %H:%M:%S GMT", "%A, %d-%b-%y %H:%M:%S GMT", "%a %b %e %H:%M:%S YEAR",
                                  "%a %b %d %H:%M:%S YEAR"};

// In one of the forms; the system would not write a year of less than four digits with four.
std::string Written(std::time_t time, const char* form) {
  std::tm fields{};
  Require(gmtime_r(&time, &fields) != nullptr, "the time is in the calendar");
  std::string date(64, '\0');
  date.resize(std::strftime(date.data(), date.size(), form, &fields));
  const std::string year = std::to_string(fields.tm_year + 1900);
  if (date.find("YEAR") != date.npos) date.replace(date.find("YEAR"), 4, std::string(4 - year.size(), '0') + year);
  return date;
}

std::string_view BehindDay(std::string_view date) { return date.substr(std::min(date.find(' '), date.size())); }

bool IsDate(std::string date, long long seconds) {
  const std::size_t leap = date.find(":60");
  const bool isLeap = leap != date.npos && date.find(':') < leap;  // the 60th second is that of the next minute
  if (isLeap) date.replace(leap, 3, ":59");
  return std::any_of(std::begin(kForms), std::end(kForms), [&](const char* form) {
    return BehindDay(date) == BehindDay(Written(seconds - (isLeap ? 1 : 0), form));
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view value = BytesOf(data, size);
  const auto now = static_cast<std::time_t>(NumberIn(TakeLine(value)) % 250000000000ULL);
  const auto wait = RetryAfter(value, now);
  Require(!wait || (wait->count() >= 0 && wait->count() <= 0x7FFFFFFF), "a wait is in its bounds");
  Require(RetryAfter(" \t" + std::string(value) + "\t ", now) == wait, "blanks do not matter");
  if (!value.empty() && value.size() < 19 && value.find_first_not_of("0123456789") == value.npos) {
    Require(wait->count() == static_cast<long long>(std::min(NumberIn(value), 0x7FFFFFFFULL)), "the number counts");
  }
  const auto date = ParseHttpDate(value, now);
  Require(!date || IsDate(std::string(value), *date), "a date is what the system writes");
  Require(!date || wait->count() == std::clamp(*date - static_cast<long long>(now), 0LL, 0x7FFFFFFFLL), "until then");
  for (const char* const form : kForms) Require(ParseHttpDate(Written(now, form), now) == now, "every date is taken");
  return 0;
}
