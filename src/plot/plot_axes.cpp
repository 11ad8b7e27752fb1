#include <algorithm>

#include "page_pen.hpp"
#include "plot_page.hpp"

namespace quick_plot {
namespace {

// Sizes [points], chosen by eye on screen and paper.
constexpr double number_size = 11;
constexpr double label_size = 13;
constexpr double title_size = 14;
constexpr double least_title_size = 6;
constexpr double grid_width = 0.5;
constexpr double tick_length = 6;
constexpr double minor_tick_length = 3.5;
constexpr double gap = 6;  // between frame and numbers, numbers and labels
// Of DejaVu Sans, in font sizes: capitals, and what hangs below the line (483 of 2048 units).
constexpr double cap_height = 0.73;
constexpr double descent = 0.24;

double widest_number(const axis& a) {
  double widest = 0;
  for (long long k = a.scale.first; k <= last_tick(a); ++k)
    widest = std::max(widest, text_width(axis_number(a.scale, k), number_size));
  return widest;
}

// The frame: the box without its margins, each at least as wide as its texts.
rectangle fit_graph(const page_state& p, std::string_view title) {
  const double label_room = ((cap_height + descent) * label_size) + gap;
  const double left = gap + widest_number(p.y) + label_room;
  const double bottom = gap + (cap_height * number_size) + gap + label_room;
  const double top = title.empty() ? 0 : title_size + gap;
  // Half of the last number stands beyond the end of the X axis.
  const double right = text_width(axis_number(p.x.scale, last_tick(p.x)), number_size) / 2;
  return {p.box.left + std::max(p.margin.left, left), p.box.right - std::max(p.margin.right, right),
          p.box.bottom + std::max(p.margin.bottom, bottom),
          p.box.top - std::max(p.margin.top, top)};
}

// First of all, so that everything else stands on top of it.
void draw_grid(const page_state& p) {
  set_pen(ink::light_grey, grid_width);
  for (long long k = p.x.scale.first; k <= last_tick(p.x); ++k) {
    const double x = x_of(p, static_cast<double>(k));
    draw_line(x, p.graph.bottom, x, p.graph.top);
  }
  for (long long k = p.y.scale.first; k <= last_tick(p.y); ++k) {
    const double y = y_of(p, static_cast<double>(k));
    draw_line(p.graph.left, y, p.graph.right, y);
  }
}

// Four single lines: a polygon would not be moved to the middle of its pixels.
void draw_frame(const page_state& p) {
  const auto& [left, right, bottom, top] = p.graph;
  set_pen(ink::black, frame_width);
  draw_line(left, bottom, right, bottom);
  draw_line(right, bottom, right, top);
  draw_line(right, top, left, top);
  draw_line(left, top, left, bottom);
}

// Ticks inside the frame, on all four sides.
void draw_ticks(const page_state& p) {
  const auto& [left, right, bottom, top] = p.graph;
  // Counted in small intervals, places from whole numbers: no sum of steps drifts off its tick.
  for (int i = 0; i <= p.x.scale.divisions * p.x.scale.minor; ++i) {
    const double length = i % p.x.scale.minor == 0 ? tick_length : minor_tick_length;
    const double steps = static_cast<double>(i) / p.x.scale.minor;
    const double x = x_of(p, static_cast<double>(p.x.scale.first) + steps);
    draw_line(x, bottom, x, bottom + length);
    draw_line(x, top, x, top - length);
  }
  for (int i = 0; i <= p.y.scale.divisions * p.y.scale.minor; ++i) {
    const double length = i % p.y.scale.minor == 0 ? tick_length : minor_tick_length;
    const double steps = static_cast<double>(i) / p.y.scale.minor;
    const double y = y_of(p, static_cast<double>(p.y.scale.first) + steps);
    draw_line(left, y, left + length, y);
    draw_line(right, y, right - length, y);
  }
}

// Ours, not the drawing library's: with a step of 25 or 0.25 its numbers are wrong.
void draw_numbers(const page_state& p) {
  const double digit_height = cap_height * number_size;
  for (long long k = p.x.scale.first; k <= last_tick(p.x); ++k) {
    draw_text(axis_number(p.x.scale, k), number_size, x_of(p, static_cast<double>(k)),
              p.graph.bottom - gap - digit_height, 0.5);
  }
  for (long long k = p.y.scale.first; k <= last_tick(p.y); ++k) {
    draw_text(axis_number(p.y.scale, k), number_size, p.graph.left - gap,
              y_of(p, static_cast<double>(k)) - (digit_height / 2), 1);
  }
}

void draw_labels(const page_state& p, std::string_view x_label, std::string_view y_label,
                 std::string_view title) {
  const double middle = (p.graph.left + p.graph.right) / 2;
  const double below = gap + (cap_height * number_size) + gap + (cap_height * label_size);
  draw_text(x_label, label_size, middle, p.graph.bottom - below, 0.5);
  const double beside = gap + widest_number(p.y) + gap + (descent * label_size);
  draw_text(y_label, label_size, p.graph.left - beside, (p.graph.bottom + p.graph.top) / 2, 0.5,
            90);
  // Centred over the frame, but never beyond the box.
  const double room = 2 * std::min(middle - p.box.left, p.box.right - middle);
  // Names of runs and of the directory make it long: smaller letters, down to what can be read.
  const double width = text_width(title, title_size);
  const double size =
      width <= room ? title_size : std::max(least_title_size, title_size * room / width);
  draw_text(title, size, middle, p.graph.top + gap + (descent * title_size), 0.5);
}

}  // namespace

double x_of(const page_state& p, double k) {
  const double part = (k - static_cast<double>(p.x.scale.first)) / p.x.scale.divisions;
  return p.graph.left + gutter + (part * (p.graph.right - p.graph.left - (2 * gutter)));
}

double y_of(const page_state& p, double k) {
  const double part = (k - static_cast<double>(p.y.scale.first)) / p.y.scale.divisions;
  return p.graph.bottom + gutter + (part * (p.graph.top - p.graph.bottom - (2 * gutter)));
}

void draw_axes(page_state& p, std::string_view x_label, std::string_view y_label,
               std::string_view title) {
  p.graph = fit_graph(p, title);
  draw_grid(p);
  draw_frame(p);
  draw_ticks(p);
  draw_numbers(p);
  draw_labels(p, x_label, y_label, title);
}

}  // namespace quick_plot
