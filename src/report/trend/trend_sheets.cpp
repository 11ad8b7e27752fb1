// The two pictures that stand by themselves: all BPMs small, and those that changed large.
#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "panel.hpp"
#include "symbols.hpp"
#include "time_axis.hpp"
#include "trend_pictures.hpp"
#include "trend_words.hpp"

namespace report {
namespace {

using chart::ink;
using chart::panel;

constexpr double margin = 16, pixels_a_point = 1.5;

void draw_head(chart::canvas& c, const trend_result& r, std::string_view title, double width) {
  draw_text(c, title, {margin, 28}, {.size = 14, .bold = true});
  // Texts of a picture do not wrap: what does not fit stands in the page.
  draw_text(c, shortened(c, trend_sentence(r), 11, width - 2 * margin), {margin, 46},
            {.size = 11, .ink = ink::quiet});
}

constexpr double cell_width = 200, cell_height = 118, axis_room = 40, head_room = 84;

void draw_cell(chart::canvas& c, const trend_result& r, const bpm_trend& b, const panel& p,
               const quick_plot::axis_scale& scale) {
  for (int i = 0; i <= scale.divisions; ++i) {
    const double y = chart::down(p, axis_value(scale, static_cast<double>(scale.first + i)));
    draw_line(c, {p.left, y}, {p.left + p.width, y}, ink::grid, 1);
    draw_text(c, axis_number(scale, scale.first + i), {p.left - 4, y + 3.5},
              {.size = 9, .at = 1, .ink = ink::quiet});
  }
  draw_time_axis(c, p, true);
  draw_frame(c, p);
  for (std::size_t k = 0; k < 4; ++k) {
    std::vector<chart::point> dots;
    for (std::size_t i = 0; i < b.used.size(); ++i) {
      const double day = r.data.run[b.series->point[b.used[i]].run].day;
      if (inside(p, day, 100 * b.shown[i][k])) dots.push_back(place(p, day, 100 * b.shown[i][k]));
    }
    draw_dots(c, dots, chart::button_inks[k], 2);
  }
  const bool red = changed(b) || b.word == trend_word::never;
  std::string name = short_name(*b.series);
  if (changed(b)) name += ": " + changes_in_words(b, r.data, false).front();
  if (b.word == trend_word::never) name += ": never determined";
  if (b.word == trend_word::few) name += ": too few runs";
  draw_text(c, shortened(c, name, 10, p.width * (red ? 0.93 : 1)), {p.left, p.top - 4},
            {.ink = red ? ink::alarm : ink::text, .bold = red});
}

void draw_legend(chart::canvas& c) {
  double x = margin;
  for (std::size_t k = 0; k < 4; ++k) {
    fill_box(c, {x, 58}, 9, 9, chart::button_inks[k]);
    draw_text(c, chart::button_names[k], {x + 13, 66});
    x += 44;
  }
}

}  // namespace

std::string trend_png(const trend_result& r) {
  const std::size_t n = std::max<std::size_t>(r.bpm.size(), 1);
  const auto columns = std::clamp<std::size_t>(
      static_cast<std::size_t>(std::ceil(std::sqrt(static_cast<double>(n)))), 3, 8);
  const std::size_t rows = (n + columns - 1) / columns;
  const double width = 2 * margin + cell_width * static_cast<double>(columns);
  chart::canvas c = chart::open_canvas(chart::medium::png, width,
                                       head_room + margin + cell_height * static_cast<double>(rows),
                                       pixels_a_point);
  draw_head(c, r, "Change of the button gains [%] against time, worst first", width);
  draw_legend(c);
  const auto order = worst_first(r);
  for (std::size_t i = 0; i < order.size(); ++i) {
    const std::size_t column = i % columns, row = i / columns;
    // A scale of its own each: a drift over years would flatten every step.
    const auto scale = scale_of_trend(r.bpm[order[i]]);
    const panel p{.left = margin + axis_room + cell_width * static_cast<double>(column),
                  .top = head_room + 8 + cell_height * static_cast<double>(row),
                  .width = cell_width - axis_room - 6,
                  .height = cell_height - 40,
                  .x = time_span(r.data.run.front().day, r.data.run.back().day),
                  .y = chart::bounds_of(scale)};
    draw_cell(c, r, r.bpm[order[i]], p, scale);
  }
  return finish(c);
}

std::string changes_png(const trend_result& r) {
  std::vector<const bpm_trend*> shown;
  constexpr std::size_t most = 12, two = 2;
  for (const std::size_t i : worst_first(r)) {
    if (changed(r.bpm[i]) && shown.size() < most) shown.push_back(&r.bpm[i]);
  }
  constexpr double each = 520, title_room = 26;
  const std::size_t columns = shown.size() < two ? 1 : two, rows = (shown.size() + 1) / columns;
  const double width = std::max(700.0, 2 * margin + each * static_cast<double>(columns));
  const double row_height = bpm_trend_height + title_room;
  chart::canvas c =
      chart::open_canvas(chart::medium::png, width,
                         62 + margin + row_height * static_cast<double>(rows), pixels_a_point);
  draw_head(c, r, "BPMs that changed: gain of each button [%] against time", width);
  for (std::size_t i = 0; i < shown.size(); ++i) {
    const std::size_t column = i % columns, row = i / columns;
    const double x = margin + each * static_cast<double>(column);
    const double y = 62 + row_height * static_cast<double>(row);
    const std::string title =
        fmt::format("{}: {}", short_name(*shown[i]->series),
                    fmt::join(changes_in_words(*shown[i], r.data, false), "; "));
    draw_text(c, shortened(c, title, 12, 0.9 * each), {x, y + 16}, {.size = 12, .bold = true});
    draw_bpm_trend(c, r, *shown[i], {x, y + title_room}, each - margin, 250);
  }
  return finish(c);
}

}  // namespace report
