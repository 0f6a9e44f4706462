#include "apps/corvane/HttpDate.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <iterator>

namespace CorvaneCli {
namespace {

constexpr std::array<std::string_view, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr std::array<std::string_view, 7> kDays = {"Monday", "Tuesday",  "Wednesday", "Thursday",
                                                   "Friday", "Saturday", "Sunday"};

// Reads a date piece by piece. After a piece that is not there everything else is not there, either.
class DateReader {
 public:
  explicit DateReader(std::string_view text) : m_rest(text) {}

  DateReader& Skip(std::string_view expected) {
    if (m_rest.starts_with(expected)) {
      m_rest.remove_prefix(expected.size());
    } else {
      m_isGood = false;
    }
    return *this;
  }

  // length: of the names' beginnings that are read; 0: all of them.
  template <std::size_t count>
  int Name(const std::array<std::string_view, count>& names, std::size_t length) {
    const auto found = std::find_if(names.begin(), names.end(), [&](std::string_view name) {
      return m_rest.starts_with(length == 0 ? name : name.substr(0, length));
    });
    if (found == names.end()) {
      m_isGood = false;
      return 0;
    }
    m_rest.remove_prefix(length == 0 ? found->size() : length);
    return static_cast<int>(std::distance(names.begin(), found));
  }

  int Digits(std::size_t count) {
    int number = 0;
    for (; count > 0; --count) {
      if (m_rest.empty() || m_rest.front() < '0' || m_rest.front() > '9') {
        m_isGood = false;
        return 0;
      }
      number = number * 10 + (m_rest.front() - '0');
      m_rest.remove_prefix(1);
    }
    return number;
  }

  // Two digits, or a blank and one.
  int PaddedDay() {
    if (!m_rest.starts_with(' ')) return Digits(2);
    return Skip(" ").Digits(1);
  }

  [[nodiscard]] bool IsGoodToItsEnd() const { return m_isGood && m_rest.empty(); }

 private:
  std::string_view m_rest;
  bool m_isGood = true;
};

struct Date {
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;  // the first month is 0
};

void ReadTime(DateReader& reader, Date& date) {
  date.hour = reader.Digits(2);
  date.minute = reader.Skip(":").Digits(2);
  date.second = reader.Skip(":").Digits(2);
}

bool ReadNewForm(std::string_view text, Date& date) {
  DateReader reader(text);
  static_cast<void>(reader.Name(kDays, 3));
  date.day = reader.Skip(", ").Digits(2);
  date.month = reader.Skip(" ").Name(kMonths, 3);
  date.year = reader.Skip(" ").Digits(4);
  reader.Skip(" ");
  ReadTime(reader, date);
  return reader.Skip(" GMT").IsGoodToItsEnd();
}

// Leaves a year from 0 to 99.
bool ReadRfc850Form(std::string_view text, Date& date) {
  DateReader reader(text);
  static_cast<void>(reader.Name(kDays, 0));
  date.day = reader.Skip(", ").Digits(2);
  date.month = reader.Skip("-").Name(kMonths, 3);
  date.year = reader.Skip("-").Digits(2);
  reader.Skip(" ");
  ReadTime(reader, date);
  return reader.Skip(" GMT").IsGoodToItsEnd();
}

bool ReadAsctimeForm(std::string_view text, Date& date) {
  DateReader reader(text);
  static_cast<void>(reader.Name(kDays, 3));
  date.month = reader.Skip(" ").Name(kMonths, 3);
  date.day = reader.Skip(" ").PaddedDay();
  reader.Skip(" ");
  ReadTime(reader, date);
  date.year = reader.Skip(" ").Digits(4);
  return reader.IsGoodToItsEnd();
}

std::optional<long long> SecondsOf(const Date& date) {
  using namespace std::chrono;
  const year_month_day day(year(date.year), month(static_cast<unsigned int>(date.month) + 1),
                           std::chrono::day(static_cast<unsigned int>(date.day)));
  if (!day.ok() || date.hour > 23 || date.minute > 59 || date.second > 60) return std::nullopt;
  const auto time = sys_seconds(sys_days(day)) + hours(date.hour) + minutes(date.minute) + seconds(date.second);
  return static_cast<long long>(time.time_since_epoch().count());
}

int YearOf(std::time_t time) {
  std::tm fields{};
  return gmtime_r(&time, &fields) == nullptr ? 1970 : fields.tm_year + 1900;
}

// The latest year with these two digits that is at most 50 years ahead.
int FullYear(int twoDigits, int thisYear) {
  const int latest = thisYear + 50;
  return latest - (latest - twoDigits) % 100;
}

}  // namespace

std::optional<long long> ParseHttpDate(std::string_view text, std::time_t now) {
  Date date;
  if (ReadNewForm(text, date) || ReadAsctimeForm(text, date)) return SecondsOf(date);
  if (!ReadRfc850Form(text, date)) return std::nullopt;
  date.year = FullYear(date.year, std::clamp(YearOf(now), 1900, 9900));
  return SecondsOf(date);
}

}  // namespace CorvaneCli
