#include "panel.hpp"

#include <algorithm>
#include <cmath>

namespace chart {

double across(const panel& p, double x) {
  return p.left + p.width * (x - p.x.low) / (p.x.high - p.x.low);
}

double down(const panel& p, double y) {
  return p.top + p.height * (p.y.high - y) / (p.y.high - p.y.low);
}

bool inside(const panel& p, double x, double y) {
  return x >= p.x.low && x <= p.x.high && y >= p.y.low && y <= p.y.high;
}

span_of_axis bounds_of(const quick_plot::axis_scale& scale) {
  return {axis_value(scale, static_cast<double>(scale.first)),
          axis_value(scale, static_cast<double>(scale.first + scale.divisions))};
}

void draw_y_axis(canvas& c, const panel& p, const quick_plot::axis_scale& scale,
                 std::string_view title) {
  for (int i = 0; i <= scale.divisions; ++i) {
    const double y = down(p, axis_value(scale, static_cast<double>(scale.first + i)));
    // Ticks beyond the box belong to scales whose bounds were not taken over. Half a point, because
    // a tick on the frame itself may lie a rounding outside.
    if (y < p.top - 0.5 || y > p.top + p.height + 0.5) continue;
    draw_line(c, {p.left, y}, {p.left + p.width, y}, ink::grid, 1);
    // A digit is 0.7 of its size high: half of that below the line, the number stands beside it.
    draw_text(c, axis_number(scale, scale.first + i), {p.left - 4, y + 0.35 * small_text},
              {.size = small_text, .at = 1, .ink = ink::quiet});
  }
  draw_text(c, title, {p.left, p.top - 6}, {.size = small_text, .ink = ink::quiet});
}

void draw_x_axis(canvas& c, const panel& p, const quick_plot::axis_scale& scale,
                 std::string_view title) {
  const double under = p.top + p.height + 1.3 * small_text;
  for (int i = 0; i <= scale.divisions; ++i) {
    const double x = across(p, axis_value(scale, static_cast<double>(scale.first + i)));
    if (x < p.left - 0.5 || x > p.left + p.width + 0.5) continue;
    draw_line(c, {x, p.top}, {x, p.top + p.height}, ink::grid, 1);
    draw_text(c, axis_number(scale, scale.first + i), {x, under},
              {.size = small_text, .at = 0.5, .ink = ink::quiet});
  }
  draw_text(c, title, {p.left + p.width, under + 1.25 * small_text},
            {.size = small_text, .at = 1, .ink = ink::quiet});
}

// Left and below only, where the numbers stand: symbols at the other two sides stay whole.
void draw_frame(canvas& c, const panel& p) {
  const double right = p.left + p.width, bottom = p.top + p.height;
  draw_line(c, {p.left, p.top}, {p.left, bottom}, ink::quiet, 1);
  draw_line(c, {p.left, bottom}, {right, bottom}, ink::quiet, 1);
}

span_of_axis robust_range(std::vector<double> values) {
  values.erase(std::remove_if(values.begin(), values.end(),
                              [](double value) { return !std::isfinite(value); }),
               values.end());
  if (values.empty()) return {-1, 1};
  std::sort(values.begin(), values.end());
  // Of a handful of values none is "the few".
  constexpr std::size_t enough = 16;
  // A tenth at each end is passed over; of 16 values that is one, and none decides by itself. Three
  // times what holds the rest is 3.8 sigma of a normal spread: one value in 8000 lies beyond.
  constexpr double most_stretch = 3;
  span_of_axis whole{values.front(), values.back()};
  if (values.size() < enough) return whole;
  const std::size_t few = values.size() / 10;
  const double low = values[few], high = values[values.size() - 1 - few];
  const double room = (most_stretch - 1) / 2 * (high - low);
  // When eight in ten are the same value, nothing says how far is too far: the whole range then.
  if (high > low) {
    whole.low = std::max(whole.low, low - room);
    whole.high = std::min(whole.high, high + room);
  }
  return whole;
}

}  // namespace chart
