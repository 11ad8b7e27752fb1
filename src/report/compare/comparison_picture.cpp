// Small pictures side by side, one for each BPM, all with the same scales: what moved is seen at
// once among what did not.
#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "compare_runs.hpp"
#include "panel.hpp"
#include "symbols.hpp"

namespace report {
namespace {

using chart::ink;

// Wider than high, for the runs stand side by side; nine of them are 2100 pixels.
constexpr double cell_width = 150, cell_height = 128;  // [points]
constexpr double margin = 16, axis_room = 40, title_size = 10;

const bpm_row* first_usable(const compared_bpm& b) {
  const auto found = std::find_if(b.row.begin(), b.row.end(), takes_part);
  return found == b.row.end() ? nullptr : *found;
}

// In logarithms like the changes of the text; for changes of some per cent that is the same.
double percent_change(const bpm_row& row, const bpm_row& first, std::size_t k) {
  return 100 * std::log(row.gain[k] / first.gain[k]);
}

quick_plot::axis_scale scale_of(const comparison& c) {
  // Runs that agree to the last digit still need a range, and one that does not make mountains of
  // it; what counts as a change begins at 0.05 per cent.
  constexpr double least = 0.02;  // per cent
  std::vector<double> values;
  for (const compared_bpm& b : c.bpm) {
    const bpm_row* first = first_usable(b);
    for (const bpm_row* row : b.row) {
      if (!takes_part(row)) continue;
      for (std::size_t k = 0; k < 4; ++k) {
        const double size = std::abs(percent_change(*row, *first, k)) + 100 * row->error;
        values.insert(values.end(), {size, -size});
      }
    }
  }
  // What changed must be seen: up to this many times what holds the rest.
  constexpr double most_stretch = 4;
  const double rest = values.empty() ? 1 : std::max(chart::robust_range(values).high, least);
  double half = least;
  for (const double v : values) half = v <= most_stretch * rest ? std::max(half, v) : half;
  return quick_plot::general_scale(-half, half, 4, 6, false);
}

void draw_run(chart::canvas& c, const chart::panel& p, const bpm_row& row, const bpm_row& first,
              double run) {
  // The four symbols of a run side by side, and beside those of the next run with some room
  // between.
  const double step = std::min(6.0, 0.18 * p.width / (p.x.high - p.x.low));
  for (std::size_t k = 0; k < 4; ++k) {
    const double value = percent_change(row, first, k), bar = 100 * row.error;
    const double x = chart::across(p, run) + (static_cast<double>(k) - 1.5) * step;
    // Beyond the scale the number itself stands at the frame: nothing is left out in silence.
    if (value < p.y.low || value > p.y.high) {
      const bool up = value > p.y.high;
      const double edge = up ? p.top : p.top + p.height;
      draw_pointer(c, {x, edge}, 5, up, chart::button_inks[k]);
      draw_text(c, fmt::format("{:+.2g}", value), {x, up ? edge + 14 : edge - 7},
                {.size = 8, .at = 0.5, .ink = chart::button_inks[k], .bold = true});
      continue;
    }
    draw_line(c, {x, chart::down(p, std::max(value - bar, p.y.low))},
              {x, chart::down(p, std::min(value + bar, p.y.high))}, chart::button_inks[k], 1.2);
    draw_symbol(c, k, {x, chart::down(p, value)}, 5);
  }
}

void draw_bpm(chart::canvas& c, const compared_bpm& b, chart::panel p,
              const quick_plot::axis_scale& scale, bool numbers) {
  const bool changed = !b.disagree.empty();
  for (int i = 0; i <= scale.divisions; ++i) {
    const double y = chart::down(p, axis_value(scale, static_cast<double>(scale.first + i)));
    draw_line(c, {p.left, y}, {p.left + p.width, y}, ink::grid, 1);
    if (numbers) {
      draw_text(c, axis_number(scale, scale.first + i), {p.left - 4, y + 3.5},
                {.size = 9, .at = 1, .ink = ink::quiet});
    }
  }
  draw_line(c, {p.left, chart::down(p, 0)}, {p.left + p.width, chart::down(p, 0)}, ink::quiet, 1);
  draw_frame(c, p);
  const bpm_row* first = first_usable(b);
  const std::size_t every = 1 + b.row.size() / 12;  // numbers of more runs would touch
  for (std::size_t run = 0; run < b.row.size(); ++run) {
    const double x = chart::across(p, static_cast<double>(run + 1));
    if (run % every == 0) {
      draw_text(c, std::to_string(run + 1), {x, p.top + p.height + 11},
                {.size = 9, .at = 0.5, .ink = ink::quiet});
    }
    if (takes_part(b.row[run])) {
      draw_run(c, p, *b.row[run], *first, static_cast<double>(run + 1));
    } else {
      // An empty place would leave open whether the run has no gains or the picture no room for
      // them.
      draw_cross(c, {x, p.top + p.height}, 6, ink::quiet);
    }
  }
  // In words as well as in red: not everybody sees it, and printers are black.
  const std::string name = b.name.empty() ? std::to_string(b.bpm) : b.name;
  draw_text(c, shortened(c, changed ? name + ": changed" : name, title_size, p.width),
            {p.left, p.top - 4},
            {.size = title_size, .ink = changed ? ink::alarm : ink::text, .bold = changed});
}

double draw_head(chart::canvas& c, const comparison& all, double width) {
  draw_text(c, "Change of the button gains since the first run [%], against the run",
            {margin, margin + 12}, {.size = 13, .bold = true});
  double x = margin, y = margin + 32;
  for (std::size_t k = 0; k < 4; ++k) {
    draw_symbol(c, k, {x + 4, y - 4}, 8);
    draw_text(c, chart::button_names[k], {x + 14, y});
    x += 44;
  }
  draw_text(c, "bar: ± error E", {x, y});
  draw_cross(c, {x + 92, y - 4}, 6, ink::quiet);
  draw_text(c, "no gains", {x + 102, y});
  for (std::size_t i = 0; i < all.run.size(); ++i) {
    y += 14;
    const read_run& run = all.run[i];
    draw_text(c,
              shortened(c, fmt::format("{}  {}  {}", i + 1, run.directory, run.started), 10, width),
              {margin, y}, {.ink = ink::quiet});
  }
  return y + 14;
}

}  // namespace

std::string comparison_png(const comparison& c) {
  const std::size_t n = c.bpm.size();
  // With 1.3 a sheet of many cells is about three to two, like a screen. Fewer than three columns
  // would not hold the head; with more than nine one would scroll both ways.
  const auto columns = std::clamp<std::size_t>(
      static_cast<std::size_t>(std::ceil(std::sqrt(1.3 * static_cast<double>(n)))), 3, 9);
  const std::size_t rows = (n + columns - 1) / columns;
  // What draw_head takes, a line of 14 points a run, and some air: known before the sheet is.
  const double head = margin + 60 + 14 * static_cast<double>(c.run.size());
  const double width = 2 * margin + axis_room + cell_width * static_cast<double>(columns);
  chart::canvas sheet = chart::open_canvas(
      chart::medium::png, width, head + margin + cell_height * static_cast<double>(rows), 1.5);
  draw_head(sheet, c, width - 2 * margin);
  const auto scale = scale_of(c);
  for (std::size_t i = 0; i < n; ++i) {
    const std::size_t column = i % columns, row = i / columns;
    chart::panel p{.left = margin + axis_room + cell_width * static_cast<double>(column),
                   .top = head + 14 + cell_height * static_cast<double>(row),
                   .width = cell_width - 14,
                   .height = cell_height - 40,
                   .x = {0.5, static_cast<double>(c.run.size()) + 0.5},
                   .y = chart::bounds_of(scale)};
    draw_bpm(sheet, c.bpm[i], p, scale, column == 0);
  }
  return finish(sheet);
}

}  // namespace report
