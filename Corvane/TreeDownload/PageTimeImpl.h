#pragma once

#include <chrono>
#include <optional>
#include <string_view>

#include <Corvane/NumberTextImpl.h>
#include <Corvane/TreeDownload/PageTextImpl.h>

namespace Corvane {

// Reads the digits of dates in fixed places.
class PageTime {
 public:
  // `digits` are looked at together: one that is none spoils the time.
  void SetYear(std::string_view digits) { m_year = Read(digits); }
  void SetMonth(std::string_view digits) { m_month = Read(digits); }
  // "Jan" to "Dec", as the servers write them in every locale that is not their own.
  void SetMonthName(std::string_view name) {
    constexpr std::string_view kNames = "JanFebMarAprMayJunJulAugSepOctNovDec";
    const std::size_t place = name.size() == 3 ? kNames.find(name) : kNames.npos;
    if (place == kNames.npos || place % 3 != 0) m_isRight = false;
    m_month = static_cast<int>(place / 3 + 1);
  }
  void SetDay(std::string_view digits) { m_day = Read(digits); }
  void SetHour(std::string_view digits) { m_hour = Read(digits); }
  void SetMinute(std::string_view digits) { m_minute = Read(digits); }
  void SetSecond(std::string_view digits) { m_second = Read(digits); }

  // Seconds since 1970 when these are the parts of a time in UTC; nothing for a day or hour that does not exist. The
  // second 60 is a leap second, which the clocks of files do not have: it counts as the next minute's first.
  [[nodiscard]] std::optional<long long> ToSeconds() const noexcept {
    using namespace std::chrono;
    const year_month_day date(year(m_year), month(static_cast<unsigned>(m_month)), day(static_cast<unsigned>(m_day)));
    if (!m_isRight || !date.ok() || m_hour > 23 || m_minute > 59 || m_second > 60) return std::nullopt;
    return duration_cast<seconds>(sys_days(date).time_since_epoch()).count() + m_hour * 3600LL + m_minute * 60LL +
           m_second;
  }

 private:
  int Read(std::string_view digits) noexcept {
    const std::optional<unsigned long long> number = digits.size() <= 4 ? NumberOf(digits) : std::nullopt;
    if (!number) m_isRight = false;
    return static_cast<int>(number.value_or(0));
  }

  int m_year = 0;
  int m_month = 0;
  int m_day = 0;
  int m_hour = 0;
  int m_minute = 0;
  int m_second = 0;
  bool m_isRight = true;
};

}  // namespace Corvane
