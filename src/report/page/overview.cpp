#include "overview.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "panel.hpp"
#include "symbols.hpp"

namespace report {
namespace {

using chart::ink;
using chart::point;

// Lengths of a row [points].
constexpr double left_margin = 46;  // numbers of the axes
constexpr double right_margin = 12;
constexpr double title_room = 20;  // title of the axis, above the box
constexpr double gains_height = 170;
constexpr double gap = 24;  // with the title of the errors' axis
constexpr double errors_height = 46;
constexpr double marks_height = 16;
constexpr double row_gap = 14;
constexpr double least_pitch = 23;  // four symbols that can still be told apart
constexpr double most_pitch = 92;
constexpr double least_width = 360;
constexpr double name_size = 10;
constexpr double longest_name = 84;  // upright [points]; longer ones are shortened
constexpr double legend_line = 17;

// Errors beyond which verdicts change; the calibration's own bounds.
constexpr double weak_above = 1e-3;
constexpr double open_above = 1e-2;

// Half of the range around gain 1 that the picture shows. Gains nobody may load do not choose it:
// one dead button would press all others onto a line.
double half_range(const std::vector<overview::entry>& all) {
  // At least what an error of a determined BPM may be: below it, the picture would be one of noise.
  // At most from 0 to 2, beyond which a value is told as a number.
  constexpr double least = 1e-3, most = 1.0;
  // All of them when none is usable: a picture of what went wrong is better than an empty one.
  for (const bool usable_only : {true, false}) {
    std::vector<double> distances;
    for (const overview::entry& e : all) {
      if (!e.gains || (usable_only && !e.gains->usable)) continue;
      const double bar = std::isfinite(e.gains->error) ? std::min(e.gains->error, open_above) : 0;
      for (const double t : e.gains->t) distances.push_back(std::abs(t - 1) + bar);
    }
    if (distances.empty()) continue;
    // Mirrored, so that the range is that of a spread around 0.
    std::vector<double> both{distances};
    for (const double d : distances) both.push_back(-d);
    return std::clamp(chart::robust_range(std::move(both)).high, least, most);
  }
  // No gains at all: any box will do.
  return 0.1;
}

void choose_decades(overview& o) {
  for (const overview::entry& e : o.bpm) {
    if (!e.gains || !(e.gains->error > 0) || !std::isfinite(e.gains->error)) continue;
    const int decade = static_cast<int>(std::floor(std::log10(e.gains->error)));
    o.low_decade = std::min(o.low_decade, decade);
    o.high_decade = std::max(o.high_decade, decade + 1);
  }
  // Readings without noise have errors next to 0: they would press what matters onto a line. Both
  // ends hold, and errors beyond stand at the edge.
  o.low_decade = std::max(o.low_decade, -7);
  o.high_decade = std::min(o.high_decade, 0);
}

const char* mark_of(verdict word) {
  switch (word) {
    case verdict::weak:
      return "w";
    case verdict::suspect:
      return "!";
    case verdict::not_determined:
      return "?";
    case verdict::not_fitted:  // the cross on the axis says it
    case verdict::determined:
      break;
  }
  return "";
}

// One row as it is drawn: its boxes and its BPMs.
// The gains and their errors share left and width, so that a BPM's mark is below its symbols.
struct row_frame {
  chart::panel gains, errors;
  std::size_t first = 0, count = 0;
};

double middle_of(const row_frame& f, const overview& o, std::size_t i) {
  return f.gains.left + (static_cast<double>(i) + 0.5) * o.pitch;
}

row_frame frame_of(const overview& o, std::size_t row, point corner) {
  row_frame f;
  f.first = row * o.in_row;
  f.count = std::min(o.in_row, o.bpm.size() - f.first);
  f.gains.left = corner.x + left_margin;
  f.gains.top = corner.y + title_room;
  f.gains.width = o.pitch * static_cast<double>(std::max<std::size_t>(f.count, 1));
  f.gains.height = gains_height;
  f.gains.y = chart::bounds_of(o.gain_scale);
  f.errors = f.gains;
  f.errors.top += gains_height + gap;
  f.errors.height = errors_height;
  f.errors.y = {static_cast<double>(o.low_decade), static_cast<double>(o.high_decade)};
  return f;
}

void draw_error_axis(chart::canvas& c, const overview& o, const chart::panel& p) {
  for (int decade = o.low_decade; decade <= o.high_decade; ++decade) {
    const double y = chart::down(p, decade);
    draw_line(c, {p.left, y}, {p.left + p.width, y}, ink::grid, 1);
    // Every other decade: numbers of a low box would touch.
    if ((o.high_decade - decade) % 2 == 1) continue;
    draw_text(c, decade == 0 ? "1" : fmt::format("1e{}", decade), {p.left - 4, y + 3.5},
              {.size = chart::small_text, .at = 1, .ink = ink::quiet});
  }
  draw_text(c, "error E", {p.left, p.top - 6}, {.size = chart::small_text, .ink = ink::quiet});
  for (const double bound : {weak_above, open_above}) {
    const double y = chart::down(p, std::log10(bound));
    draw_dashed_line(c, {p.left, y}, {p.left + p.width, y}, ink::quiet, 0.8);
  }
}

void draw_boxes(chart::canvas& c, const overview& o, const row_frame& f) {
  // Bands behind every other BPM: in a row of forty the eye loses the column without them.
  for (std::size_t i = 1; i < f.count; i += 2) {
    const double left = f.gains.left + static_cast<double>(i) * o.pitch;
    fill_box(c, {left, f.gains.top}, o.pitch, gains_height, ink::band);
    fill_box(c, {left, f.errors.top}, o.pitch, errors_height, ink::band);
  }
  draw_y_axis(c, f.gains, o.gain_scale, "button gain t");
  const double one = chart::down(f.gains, 1);
  draw_line(c, {f.gains.left, one}, {f.gains.left + f.gains.width, one}, ink::quiet, 1);
  draw_frame(c, f.gains);
  draw_error_axis(c, o, f.errors);
  draw_frame(c, f.errors);
}

// "1.37" at the frame, for a value beyond it; further ones of the same BPM below (above) it.
void write_off_scale(chart::canvas& c, const chart::panel& p, double x, double t, std::size_t k,
                     int& told) {
  constexpr double line = 11, pointer = 5, size = 9;
  const bool up = t > p.y.high;
  const double edge = up ? p.top : p.top + p.height;
  if (told == 0) draw_pointer(c, {x, up ? edge + 1 : edge - 1}, pointer, up, ink::quiet);
  const double base = up ? edge + pointer + size + line * told : edge - pointer - 3 - line * told;
  draw_text(c, fmt::format("{:.3g}", t), {x, base},
            {.size = size, .at = 0.5, .ink = chart::button_inks[k], .bold = true});
  ++told;
}

void draw_gains(chart::canvas& c, const chart::panel& p, const shown_gains& gains, double middle,
                double pitch) {
  const double step = std::min(0.21 * pitch, 6 + 0.1 * pitch);  // from symbol to symbol
  const double size = std::clamp(0.24 * pitch, 5.0, 8.0);
  int told_above = 0, told_below = 0;
  for (std::size_t k = 0; k < 4; ++k) {
    const double t = gains.t[k], x = middle + (static_cast<double>(k) - 1.5) * step;
    if (t > p.y.high || t < p.y.low) {
      // In the middle of the BPM, not below its own symbol: numbers are wider than a quarter of it.
      write_off_scale(c, p, middle, t, k, t > p.y.high ? told_above : told_below);
      continue;
    }
    if (gains.error > 0 && std::isfinite(gains.error)) {
      // E is an error of logarithms: bars of large ones are not symmetric.
      const double high = std::min(t * std::exp(gains.error), p.y.high);
      const double low = std::max(t * std::exp(-gains.error), p.y.low);
      draw_line(c, {x, chart::down(p, low)}, {x, chart::down(p, high)}, chart::button_inks[k], 1.4);
    }
    draw_symbol(c, k, {x, chart::down(p, t)}, size, gains.usable);
  }
}

void draw_error(chart::canvas& c, const chart::panel& p, const overview::entry& e, double middle) {
  if (!(e.gains->error > 0) || !std::isfinite(e.gains->error)) return;
  const bool good = e.row->verdict == verdict::determined;
  const double y = chart::down(p, std::clamp(std::log10(e.gains->error), p.y.low, p.y.high));
  draw_line(c, {middle, p.top + p.height}, {middle, y}, ink::quiet, 1);
  const point at{middle, y};
  // A thin stem, no bar: a logarithmic scale has no zero from which a length would count.
  draw_dots(c, {&at, 1}, good ? ink::text : ink::alarm, 5);
}

void draw_name(chart::canvas& c, const overview& o, const bpm_row& row, point under) {
  const bool good = row.verdict == verdict::determined;
  chart::text_style style{.size = name_size, .at = 0.5, .ink = good ? ink::text : ink::alarm};
  if (row.verdict == verdict::not_fitted) style.ink = ink::quiet;
  const std::string name = shortened(c, name_of(row), name_size, longest_name);
  if (o.upright_names) {
    style.upright = true;
    style.at = 1;
    draw_text(c, name, {under.x + 0.35 * name_size, under.y}, style);
  } else {
    draw_text(c, name, {under.x, under.y + name_size}, style);
  }
}

// The names' room below a row, and which way they run.
void place_names(chart::canvas& c, overview& o) {
  double widest = 0;
  for (const overview::entry& e : o.bpm) {
    widest = std::max(
        widest,
        text_width(c, chart::shortened(c, name_of(*e.row), name_size, longest_name), name_size));
  }
  // All or none: names that run both ways cannot be read along.
  o.upright_names = widest > o.pitch - 3;
  o.name_height = o.upright_names ? widest : name_size + 3;
}

}  // namespace

overview lay_out(const run_results& run, double width) {
  overview o;
  for (const bpm_row& row : run.bpm) o.bpm.push_back({&row, gains_shown(row)});
  const double room = width - left_margin - right_margin;
  const auto n = std::max<std::size_t>(o.bpm.size(), 1);
  const auto most = std::max<std::size_t>(static_cast<std::size_t>(room / least_pitch), 1);
  o.rows = (n + most - 1) / most;
  // Rows of equal length: with as many as fit, the last could hold one BPM in an empty box.
  o.in_row = (n + o.rows - 1) / o.rows;
  const auto columns = static_cast<double>(o.in_row);
  const double needed = left_margin + columns * most_pitch + right_margin;
  o.width = std::min(std::max(needed, least_width), width);
  o.pitch = (o.width - left_margin - right_margin) / columns;
  const double half = half_range(o.bpm);
  o.gain_scale = quick_plot::general_scale(1 - half, 1 + half, 4, 8, false);
  choose_decades(o);
  chart::canvas measure = chart::open_canvas(chart::medium::svg, 1, 1);
  // Nothing is drawn there: texts need a pen to be measured, and the real sheet's height is not
  // known yet.
  place_names(measure, o);
  return o;
}

double row_height(const overview& o) {
  return title_room + gains_height + gap + errors_height + marks_height + o.name_height + row_gap;
}

void draw_row(chart::canvas& c, const overview& o, std::size_t row, point corner) {
  const row_frame f = frame_of(o, row, corner);
  draw_boxes(c, o, f);
  for (std::size_t i = 0; i < f.count; ++i) {
    const overview::entry& e = o.bpm[f.first + i];
    const double middle = middle_of(f, o, i), foot = f.gains.top + gains_height;
    if (e.gains) {
      draw_gains(c, f.gains, *e.gains, middle, o.pitch);
      draw_error(c, f.errors, e, middle);
    } else {
      draw_cross(c, {middle, foot}, 8, ink::alarm);
    }
    const double marks = f.errors.top + errors_height + marks_height - 4;
    draw_text(c, mark_of(e.row->verdict), {middle, marks},
              {.size = 11, .at = 0.5, .ink = ink::alarm, .bold = true});
    draw_name(c, o, *e.row, {middle, marks + 4});
  }
}

namespace {

// The legend's words; symbols stand before the first five.
struct legend_word {
  int symbol = -1;  // 0..3 a button's, 4 hollow, 5 error bar, 6 cross, 7 dashes, 8 none
  const char* text = "";
};

// The two bounds stand here once more, in words: weak_above and open_above.
constexpr std::array<legend_word, 11> legend{{{0, "BI"},
                                              {1, "BO"},
                                              {2, "TI"},
                                              {3, "TO"},
                                              {4, "hollow: do not use"},
                                              {5, "bar: ± error E"},
                                              {6, "not fitted, no gains"},
                                              {7, "E above 1e-3 weak, 1e-2 not determined"},
                                              {8, "w weak"},
                                              {8, "! suspect"},
                                              {8, "? not determined"}}};

constexpr double symbol_room = 14, word_gap = 14;

// Goes through the legend's words, wrapped into the width; returns the height that they take.
// One procedure measures and draws, so that the height is that of what will be drawn.
template <class draw>
double walk_legend(chart::canvas& c, double width, const draw& at_place) {
  double x = 0, y = legend_line;
  for (const legend_word& word : legend) {
    const double symbol = word.symbol == 8 ? 0 : symbol_room;
    const double length = symbol + text_width(c, word.text, chart::small_text);
    if (x > 0 && x + length > width) {
      x = 0;
      y += legend_line;
    }
    at_place(word, point{x, y}, symbol);
    x += length + word_gap;
  }
  return y;
}

void draw_legend_symbol(chart::canvas& c, const legend_word& word, point at) {
  if (word.symbol <= 3) draw_symbol(c, static_cast<std::size_t>(word.symbol), at, 8);
  if (word.symbol == 4) draw_symbol(c, 0, at, 8, false);
  if (word.symbol == 5) draw_line(c, {at.x, at.y - 5}, {at.x, at.y + 5}, ink::button_1, 1.4);
  if (word.symbol == 6) draw_cross(c, at, 8, ink::alarm);
  if (word.symbol == 7) {
    draw_dashed_line(c, {at.x - 5, at.y}, {at.x + 6, at.y}, ink::quiet, 1);
  }
}

}  // namespace

double legend_height(const overview& o) {
  chart::canvas measure = chart::open_canvas(chart::medium::svg, 1, 1);
  return 6 + walk_legend(measure, o.width - 8, [](const legend_word&, point, double) {});
}

void draw_legend(chart::canvas& c, const overview& o, point corner) {
  walk_legend(c, o.width - 8, [&](const legend_word& word, point at, double symbol) {
    const point place{corner.x + 4 + at.x, corner.y + at.y - 4};
    draw_legend_symbol(c, word, {place.x + 4, place.y});
    draw_text(c, word.text, {place.x + symbol, place.y + 3.5}, {.size = chart::small_text});
  });
}

std::string overview_in_words(const run_results& run) {
  return fmt::format("Button gains of {} with their errors: {}. The table below has the numbers.",
                     bpms_in_words(run.bpm.size()), counts_in_words(run));
}

}  // namespace report
