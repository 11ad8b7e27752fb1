#include "quick_plot.hpp"

#include <algorithm>
#include <cmath>
#include <memory>
#include <utility>
#include <vector>

#include "axis_scale.hpp"
#include "page_file.hpp"
#include "page_pen.hpp"
#include "plot_page.hpp"
#include "run_time.hpp"
#include "screen_window.hpp"

namespace quick_plot {
namespace {

// Sizes [points], chosen by eye on screen and paper.
constexpr double paper_width = 792;  // letter, landscape: 11 by 8.5 inches
constexpr double paper_height = 612;
constexpr double curve_width = 0.7;  // thinner than a symbol, which must stand out from it
constexpr double symbol_width = 1.1;
constexpr double least_symbol_size = 3;  // a smaller plus is a dot
constexpr double symbol_room = 0.8;      // of the spacing: neighbours stay apart
constexpr double wedge_size = 7;
constexpr double note_size = 22;

std::unique_ptr<page_state> page;

[[noreturn]] void unknown(std::string_view what, std::string_view word) {
  page.reset();  // its scratch folder goes with it
  util::run_time_error(
      std::string{"plot "}.append(what).append(" \"").append(word).append("\" is unknown"));
}

page_state& open_page_state() {
  if (!page) util::run_time_error("drawing without an open plot page");
  return *page;
}

axis& axis_named(std::string_view name) {
  page_state& p = open_page_state();
  if (name == "X") return p.x;
  if (name == "Y") return p.y;
  unknown("axis", name);
}

// Widths given in a unit, in points.
sides in_points(double x1, double x2, double y1, double y2, std::string_view unit) {
  const page_state& p = open_page_state();
  if (unit == "POINTS") return {x1, x2, y1, y2};
  if (unit == "%PAGE") return {x1 * p.width, x2 * p.width, y1 * p.height, y2 * p.height};
  unknown("unit", unit);
}

// Size of a symbol that does not touch its nearest neighbour.
double symbol_size_here(const page_state& p) {
  // An axis of other numbers than counts tells no spacing.
  if (!p.x.counts) return p.symbol_size;
  const double spacing = x_of(p, steps_of(p.x, p.x.apart)) - x_of(p, 0);
  return std::min(p.symbol_size, std::max(least_symbol_size, symbol_room * spacing));
}

// One point of a curve on the page; y may lie beyond the axis.
struct place {
  double x = 0;
  double y = 0;
};

// Heights of the first and last tick of the Y axis on the page: curves end there.
struct y_limits {
  double lowest, highest;
};

// The points on the page, as many as the shorter of x and y has.
std::vector<place> places_of(const page_state& p, std::span<const double> x,
                             std::span<const double> y) {
  std::vector<place> places;
  for (std::size_t i = 0; i < std::min(x.size(), y.size()); ++i)
    places.push_back({x_of(p, steps_of(p.x, x[i])), y_of(p, steps_of(p.y, y[i]))});
  return places;
}

// Places that are not finite would become stray lines across the page.
bool drawable(const place& at) { return std::isfinite(at.x) && std::isfinite(at.y); }

// Draws the part of a line that is within the axis.
void draw_clipped(place from, place to, const y_limits& limits) {
  // Only Y is clipped: an X axis encloses its data. Turned upwards, so that `from` is the lower end.
  if (from.y > to.y) std::swap(from, to);
  if (to.y < limits.lowest || from.y > limits.highest) return;
  const double slope = from.y == to.y ? 0 : (to.x - from.x) / (to.y - from.y);
  const place start = from;
  if (from.y < limits.lowest) {
    from = {start.x + (slope * (limits.lowest - start.y)), limits.lowest};
  }
  if (to.y > limits.highest) {
    to = {start.x + (slope * (limits.highest - start.y)), limits.highest};
  }
  draw_line(from.x, from.y, to.x, to.y);
}

// A plus, or beyond the axis a wedge on the frame that points there.
void draw_symbol(const page_state& p, const place& at, const y_limits& limits) {
  // One point inside the frame, whose line stays whole at the tip.
  if (at.y > limits.highest) return draw_wedge(at.x, p.graph.top - 1, wedge_size, true);
  if (at.y < limits.lowest) return draw_wedge(at.x, p.graph.bottom + 1, wedge_size, false);
  draw_plus(at.x, at.y, symbol_size_here(p));
}

}  // namespace

std::string qp_open_page(std::string_view device_name, const std::string& name, double xlen,
                         double ylen, std::string_view unit) {
  page = std::make_unique<page_state>();
  page->name = name;
  page->width = paper_width;
  page->height = paper_height;
  // The display first, then the scratch folder, then the page: what fails is told as what it is.
  std::string reason;
  if (device_name == "X") {
    if (unit != "POINTS") unknown("unit", unit);
    page->on = device::screen;
    page->width = xlen;
    page->height = ylen;
    reason = open_screen();
  } else if (device_name == "PS-L") {
    page->on = device::postscript;
  } else if (device_name == "GIF-L") {
    page->on = device::gif;
  } else {
    unknown("device", device_name);
  }
  if (reason.empty()) reason = page->scratch.make();
  if (reason.empty()) {
    const bool paper = page->on == device::postscript;
    page->drawn = page->scratch.path() + (paper ? "/page.ps" : "/page.png");
    const auto medium = paper ? page_medium::postscript : page_medium::bit_map;
    if (!open_pen(medium, page->drawn, page->width, page->height)) {
      reason = "the drawing library cannot open a page";
    }
  }
  if (reason.empty()) {
    page->box = {0, page->width, 0, page->height};
  } else {
    page.reset();
  }
  return reason;
}

void qp_set_page_border(double x1, double x2, double y1, double y2, std::string_view unit) {
  page_state& p = open_page_state();
  // Boxes divide what the border leaves: the one chosen before is no box of this page any more.
  p.border = in_points(x1, x2, y1, y2, unit);
  qp_set_box(1, 1, 1, 1);
}

void qp_set_margin(double x1, double x2, double y1, double y2, std::string_view unit) {
  open_page_state().margin = in_points(x1, x2, y1, y2, unit);
}

// Boxes are counted from the lower left one.
void qp_set_box(int ix, int iy, int nx, int ny) {
  page_state& p = open_page_state();
  const double width = (p.width - p.border.left - p.border.right) / nx;
  const double height = (p.height - p.border.bottom - p.border.top) / ny;
  p.box = {p.border.left + ((ix - 1) * width), p.border.left + (ix * width),
           p.border.bottom + ((iy - 1) * height), p.border.bottom + (iy * height)};
}

void qp_set_axis_counts(std::string_view axis, double apart) {
  axis_named(axis).counts = true;
  axis_named(axis).apart = apart;
}

void qp_calc_and_set_axis(std::string_view axis, double data_min, double data_max, int least,
                          int most, std::string_view bounds) {
  auto& a = axis_named(axis);
  if (bounds != "GENERAL") unknown("axis bounds", bounds);
  a.scale = general_scale(data_min, data_max, least, most, a.counts);
}

void qp_draw_axes(std::string_view x_label, std::string_view y_label, std::string_view title) {
  draw_axes(open_page_state(), x_label, y_label, title);
}

void qp_draw_level(double value) {
  const page_state& p = open_page_state();
  const double y = y_of(p, steps_of(p.y, value));
  set_pen(ink::grey, frame_width);
  draw_dashed_line(p.graph.left + gutter, y, p.graph.right - gutter, y);  // leaves the ticks alone
}

void qp_draw_note(std::string_view text) {
  const page_state& p = open_page_state();
  const auto& [left, right, bottom, top] = p.graph;
  set_pen(ink::black, frame_width);
  draw_text(text, note_size, (left + right) / 2, (bottom + top) / 2, 0.5);
}

void qp_set_symbol_attrib(std::string_view symbol, double size, std::string_view colour) {
  page_state& p = open_page_state();
  if (symbol != "plus") unknown("symbol", symbol);
  if (colour != "red") unknown("colour", colour);
  p.symbol_size = size;
}

void qp_draw_data(std::span<const double> x, std::span<const double> y, bool draw_line,
                  int symbol_every) {
  const page_state& p = open_page_state();
  const y_limits limits{y_of(p, static_cast<double>(p.y.scale.first)),
                        y_of(p, static_cast<double>(last_tick(p.y)))};
  const std::vector<place> places = places_of(p, x, y);

  // The curve first: symbols stand on top of it.
  set_pen(ink::pale_red, curve_width);
  for (std::size_t i = 1; draw_line && i < places.size(); ++i) {
    if (drawable(places[i - 1]) && drawable(places[i])) {
      draw_clipped(places[i - 1], places[i], limits);
    }
  }
  set_pen(ink::red, symbol_width);
  for (std::size_t i = 0; symbol_every > 0 && i < places.size();
       i += static_cast<std::size_t>(symbol_every)) {
    if (drawable(places[i])) draw_symbol(p, places[i], limits);
  }
}

std::string qp_close_page() {
  open_page_state();
  close_pen();
  const auto closed = std::move(page);  // its scratch folder goes at the end
  if (closed->on == device::screen) return show_on_screen(closed->drawn, closed->name);
  if (closed->on == device::gif) return copy_as_gif(closed->drawn, closed->name);
  return copy_postscript(closed->drawn, closed->name, closed->name);
}

void qp_close_window() { close_screen(); }

}  // namespace quick_plot
