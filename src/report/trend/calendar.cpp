#include "calendar.hpp"

#include <fmt/format.h>

#include <chrono>
#include <cmath>
#include <cstddef>

namespace report {
namespace {

namespace ch = std::chrono;

constexpr int minutes_of_day = 24 * 60, seconds_of_day = 24 * 60 * 60;

// Takes a number of exactly so many digits from the front of the text, behind the character `mark`.
std::optional<int> take(std::string_view& text, char mark, std::size_t digits) {
  if (mark != 0) {
    if (text.empty() || text.front() != mark) return {};
    text.remove_prefix(1);
  }
  if (text.size() < digits) return {};
  int value = 0;
  for (const char c : text.substr(0, digits)) {
    if (c < '0' || c > '9') return {};
    value = 10 * value + (c - '0');
  }
  text.remove_prefix(digits);
  return value;
}

// Minutes by which the clock is ahead of UTC: "Z", "+01:00", "-0500" or nothing.
std::optional<int> take_offset(std::string_view& text) {
  if (text.empty()) return 0;
  if (text == "Z" || text == "z") {
    text = {};
    return 0;
  }
  const char sign = text.front();
  if (sign != '+' && sign != '-') return {};
  const auto hours = take(text, sign, 2);
  if (!hours) return {};
  const auto minutes = take(text, text.starts_with(':') ? ':' : '\0', 2);
  if (!minutes || *hours > 14 || *minutes > 59) return {};
  return (sign == '-' ? -1 : 1) * (60 * *hours + *minutes);
}

// "12:30" or "12:30:05", with parts of a second that do not count.
std::optional<int> take_seconds(std::string_view& text) {
  const auto hours = take(text, '\0', 2), minutes = take(text, ':', 2);
  if (!hours || !minutes || *hours > 23 || *minutes > 59) return {};
  int seconds = 0;
  if (text.starts_with(':')) {
    const auto found = take(text, ':', 2);
    if (!found || *found > 60) return {};  // 60: a leap second
    seconds = *found;
  }
  if (text.starts_with('.')) {
    text.remove_prefix(1);
    while (!text.empty() && text.front() >= '0' && text.front() <= '9') text.remove_prefix(1);
  }
  return 60 * (60 * *hours + *minutes) + seconds;
}

}  // namespace

std::optional<double> day_of(std::string_view text) {
  const auto year = take(text, '\0', 4), month = take(text, '-', 2), day = take(text, '-', 2);
  if (!year || !month || !day) return {};
  const ch::year_month_day date{ch::year{*year}, ch::month{static_cast<unsigned>(*month)},
                                ch::day{static_cast<unsigned>(*day)}};
  if (!date.ok()) return {};
  double moment = static_cast<double>(ch::sys_days{date}.time_since_epoch().count());
  if (text.empty()) return moment;
  if (text.front() != 'T' && text.front() != 't' && text.front() != ' ') return {};
  text.remove_prefix(1);
  const auto seconds = take_seconds(text);
  const auto offset = seconds ? take_offset(text) : std::nullopt;
  if (!offset || !text.empty()) return {};
  moment += static_cast<double>(*seconds) / seconds_of_day;
  return moment - static_cast<double>(*offset) / minutes_of_day;
}

std::string date_text(double day) {
  const ch::year_month_day date{ch::sys_days{ch::days{static_cast<int>(std::floor(day))}}};
  return fmt::format("{:04}-{:02}-{:02}", static_cast<int>(date.year()),
                     static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()));
}

std::string minute_text(double day) {
  const std::string text = iso_text(day);
  constexpr std::size_t date = 10, minute = 5;
  return text.substr(0, date) + ' ' + text.substr(date + 1, minute);
}

std::string iso_text(double day) {
  // Half a second more: moments that were whole seconds must not show as the second before.
  day += 0.5 / seconds_of_day;
  const double midnight = std::floor(day);
  const int second = static_cast<int>((day - midnight) * seconds_of_day);
  return fmt::format("{}T{:02}:{:02}:{:02}Z", date_text(midnight), second / 3600, second / 60 % 60,
                     second % 60);
}

}  // namespace report
