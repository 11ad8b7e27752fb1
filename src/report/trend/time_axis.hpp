// time_axis: dates along a picture.
#pragma once
#include <string>
#include <vector>

#include "panel.hpp"

namespace report {

struct time_tick {
  double day = 0;
  std::string text;
};

/// Ticks at the beginnings of years, months, days or hours, whichever have room.
/// given    width  of the axis [points]
std::vector<time_tick> time_ticks(double first, double last, double width);

/// The range of these moments with some room at both ends, for a panel.
chart::span_of_axis time_span(double first, double last);

/// Grid lines, and dates below the box where asked for.
void draw_time_axis(chart::canvas& c, const chart::panel& p, bool dates);

}  // namespace report
