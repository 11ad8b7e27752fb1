#include "time_axis.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>

#include "calendar.hpp"

namespace report {
namespace {

namespace ch = std::chrono;

ch::year_month month_of(double day) {
  const ch::year_month_day date{ch::sys_days{ch::days{static_cast<int>(std::floor(day))}}};
  return date.year() / date.month();
}

// Every so many months, counted from January of year 0.
std::vector<time_tick> by_months(double first, double last, int step) {
  std::vector<time_tick> ticks;
  const ch::year_month begin = month_of(first);
  const int months = 12 * static_cast<int>(begin.year()) +
                     static_cast<int>(static_cast<unsigned>(begin.month())) - 1;
  for (int m = months / step * step;; m += step) {
    const ch::year_month_day date{ch::year{m / 12}, ch::month{static_cast<unsigned>(m % 12 + 1)},
                                  ch::day{1}};
    const auto day = static_cast<double>(ch::sys_days{date}.time_since_epoch().count());
    if (day > last) return ticks;
    if (day < first) continue;
    ticks.push_back({day, date_text(day).substr(0, step % 12 == 0 ? 4 : 7)});
  }
}

// Every so many days; below one, with the time of day.
std::vector<time_tick> by_days(double first, double last, double step) {
  std::vector<time_tick> ticks;
  for (double n = std::ceil(first / step); n * step <= last; ++n) {
    const double day = n * step;
    constexpr std::size_t month = 5, time = 11;  // where they begin in 2026-03-04 12:30
    ticks.push_back({day, step < 1 ? minute_text(day).substr(last - first < 1 ? time : month)
                                   : date_text(day).substr(month)});
  }
  return ticks;
}

}  // namespace

std::vector<time_tick> time_ticks(double first, double last, double width) {
  std::vector<time_tick> ticks;
  // A digit is some 6 points wide; a tick's text and some air must fit between two ticks.
  constexpr double digit = 6.2, air = 14;
  const auto fits = [&ticks, width] {
    return !ticks.empty() && static_cast<double>(ticks.size()) *
                                     (digit * static_cast<double>(ticks[0].text.size()) + air) <=
                                 width;
  };
  const double days = last - first, room = width / (4 * digit + air);
  constexpr double minute = 1.0 / 24 / 60, hour = 1.0 / 24;
  for (const double step : {minute, 5 * minute, 15 * minute, hour, 3 * hour, 6 * hour, 12 * hour,
                            1.0, 2.0, 7.0, 14.0}) {
    if (days / step > room + 1) continue;  // a century of minutes is not tried
    ticks = by_days(first, last, step);
    if (fits()) return ticks;
  }
  for (const int step : {1, 3, 6, 12, 24, 60, 120, 600, 1200}) {
    ticks = by_months(first, last, step);
    if (fits()) return ticks;
  }
  return {{first, date_text(first)}};
}

chart::span_of_axis time_span(double first, double last) {
  const double room = last > first ? 0.02 * (last - first) : 0.5;
  return {first - room, last + room};
}

void draw_time_axis(chart::canvas& c, const chart::panel& p, bool dates) {
  std::vector<chart::point> lines;  // in one path: a page has hundreds of axes
  for (const time_tick& tick : time_ticks(p.x.low, p.x.high, p.width)) {
    const double x = chart::across(p, tick.day);
    lines.push_back({x, p.top});
    lines.push_back({x, p.top + p.height});
    if (!dates) continue;
    draw_text(c, tick.text, {x, p.top + p.height + 1.3 * chart::small_text},
              {.size = chart::small_text, .at = 0.5, .ink = chart::ink::quiet});
  }
  draw_strokes(c, lines, chart::ink::grid, 1);
}

}  // namespace report
