#include "trend_pictures.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "calendar.hpp"
#include "panel.hpp"
#include "symbols.hpp"
#include "time_axis.hpp"
#include "trend_words.hpp"

namespace report {
namespace {

using chart::ink;
using chart::panel;
using chart::point;

// What is drawn of one button: means of runs that lie side by side.
struct mark {
  double day = 0, value = 0, error = 0;
};

double day_of_used(const trend_result& r, const bpm_trend& b, std::size_t used) {
  return r.data.run[b.series->point[b.used[used]].run].day;
}

// Which of the used points are wild, and behind which a step lies.
std::vector<bool> wild_points(const bpm_trend& b) {
  std::vector<bool> wild(b.used.size());
  std::size_t next = 0;
  for (std::size_t i = 0; i < b.used.size() && next < b.wild.size(); ++i) {
    if (b.series->point[b.used[i]].run != b.wild[next].run) continue;
    wild[i] = true;
    ++next;
  }
  return wild;
}

// Runs in groups that no step divides.
std::vector<std::vector<std::size_t>> groups_of(const bpm_trend& b, std::size_t most) {
  const std::vector<bool> wild = wild_points(b);
  const std::size_t each = (b.used.size() + most - 1) / std::max<std::size_t>(most, 1);
  std::vector<std::vector<std::size_t>> groups;
  std::size_t step = 0;
  bool begin = true;
  for (std::size_t i = 0; i < b.used.size(); ++i) {
    const std::size_t run = b.series->point[b.used[i]].run;
    while (step < b.steps.size() && run >= b.steps[step].behind) {
      ++step;
      begin = true;
    }
    if (wild[i]) continue;
    if (begin || groups.back().size() >= each) groups.emplace_back();
    begin = false;
    groups.back().push_back(i);
  }
  return groups;
}

std::vector<mark> marks_of(const trend_result& r, const bpm_trend& b, std::size_t k,
                           const std::vector<std::vector<std::size_t>>& groups) {
  std::vector<mark> marks;
  for (const auto& group : groups) {
    mark m;
    double weights = 0;
    for (const std::size_t i : group) {
      const double weight = 1 / (b.scatter[i] * b.scatter[i]);
      weights += weight;
      m.day += weight * day_of_used(r, b, i);
      m.value += weight * b.shown[i][k];
    }
    marks.push_back({m.day / weights, 100 * m.value / weights, 100 / std::sqrt(weights)});
  }
  return marks;
}

chart::span_of_axis span_of_runs(const trend_result& r) {
  if (r.data.run.empty()) return {0, 1};
  return time_span(r.data.run.front().day, r.data.run.back().day);
}

// The level along the runs, broken at steps.
void draw_levels(chart::canvas& c, const panel& p, const trend_result& r, const bpm_trend& b,
                 std::size_t k, const std::vector<std::vector<std::size_t>>& groups) {
  std::vector<point> corners;
  std::size_t step = 0;
  const auto end_line = [&] {
    if (corners.size() > 1) draw_lines(c, corners, chart::button_inks[k], 1.4);
    corners.clear();
  };
  for (const auto& group : groups) {
    while (step < b.steps.size() &&
           b.series->point[b.used[group.front()]].run >= b.steps[step].behind) {
      end_line();
      ++step;
    }
    for (const std::size_t i : {group.front(), group.back()}) {
      corners.push_back(place(p, day_of_used(r, b, i), 100 * b.explained[i][k]));
    }
  }
  end_line();
}

void draw_wild(chart::canvas& c, const panel& p, const trend_result& r, const bpm_trend& b,
               std::size_t k) {
  const std::vector<bool> wild = wild_points(b);
  for (std::size_t i = 0; i < b.used.size(); ++i) {
    if (!wild[i]) continue;
    const double value = 100 * b.shown[i][k], x = chart::across(p, day_of_used(r, b, i));
    if (value >= p.y.low && value <= p.y.high) {
      draw_cross(c, {x, chart::down(p, value)}, 6, ink::alarm);
    } else {
      const bool up = value > p.y.high;
      draw_pointer(c, {x, up ? p.top : p.top + p.height}, 5, up, ink::alarm);
    }
  }
}

void draw_marks(chart::canvas& c, const panel& p, const std::vector<mark>& marks, std::size_t k) {
  std::vector<point> bars, dots;
  for (const mark& m : marks) {
    const double high = std::min(m.value + m.error, p.y.high);
    const double low = std::max(m.value - m.error, p.y.low);
    if (high > low) {
      bars.push_back(place(p, m.day, low));
      bars.push_back(place(p, m.day, high));
    }
    if (inside(p, m.day, m.value)) dots.push_back(place(p, m.day, m.value));
  }
  draw_strokes(c, bars, chart::button_inks[k], 1);
  draw_dots(c, dots, chart::button_inks[k], 3.2);
}

// What a button did, beside its name.
std::string strip_title(const bpm_trend& b, std::size_t k) {
  std::string text;
  for (const trend_step& step : b.steps) {
    if (step.moved.change[k] == 0) continue;
    text += (text.empty() ? "" : ", ") + percent(step.moved.change[k]);
  }
  if (b.slow.told && b.slow.moved.change[k] != 0) {
    text += (text.empty() ? "slowly " : ", slowly ") + percent(b.slow.moved.change[k]);
  }
  if (b.drift.told && b.drift.moved.change[k] != 0) {
    text += (text.empty() ? "" : ", ") + percent(b.drift.moved.change[k]) + " a month";
  }
  return text;
}

void draw_strip(chart::canvas& c, const panel& p, const trend_result& r, const bpm_trend& b,
                std::size_t k, const quick_plot::axis_scale& scale,
                const std::vector<std::vector<std::size_t>>& groups) {
  draw_time_axis(c, p, k == 3);
  draw_y_axis(c, p, scale, {});
  draw_frame(c, p);
  for (const trend_step& step : b.steps) {
    const double day = (r.data.run[step.before].day + r.data.run[step.behind].day) / 2;
    const double x = chart::across(p, day);
    const bool here = step.moved.change[k] != 0;
    draw_dashed_line(c, {x, p.top}, {x, p.top + p.height}, here ? ink::alarm : ink::quiet, 1);
  }
  draw_levels(c, p, r, b, k, groups);
  draw_marks(c, p, marks_of(r, b, k, groups), k);
  draw_wild(c, p, r, b, k);
  // Above the strip, where no data are.
  draw_symbol(c, k, {p.left + 4, p.top - 7}, 7);
  draw_text(c, chart::button_names[k], {p.left + 12, p.top - 3.5}, {.bold = true});
  draw_text(c, strip_title(b, k), {p.left + 32, p.top - 3.5}, {.ink = ink::alarm, .bold = true});
}

constexpr double left_room = 48, right_room = 12, strip_pitch = 76, strip_height = 56;

}  // namespace

// In per cent: levels and the bulk of the scatter; wild runs do not choose it.
quick_plot::axis_scale scale_of_trend(const bpm_trend& b) {
  // Gains that hold still would fill any scale with their scatter; what counts as a change begins
  // at 0.05 per cent.
  double low = -0.03, high = 0.03;
  const std::vector<bool> wild = wild_points(b);
  for (std::size_t i = 0; i < b.used.size(); ++i) {
    if (wild[i]) continue;
    constexpr double room = 2.5;
    for (std::size_t k = 0; k < 4; ++k) {
      const double bar = 100 * room * std::min(b.scatter[i], 2 * b.usual_scatter);
      low = std::min(low, 100 * b.explained[i][k] - bar);
      high = std::max(high, 100 * b.explained[i][k] + bar);
    }
  }
  return quick_plot::general_scale(low, high, 2, 4, false);
}

void draw_bpm_trend(chart::canvas& c, const trend_result& r, const bpm_trend& b, point corner,
                    double width, std::size_t most_points) {
  const quick_plot::axis_scale scale = scale_of_trend(b);
  const auto groups = groups_of(b, most_points);
  for (std::size_t k = 0; k < 4; ++k) {
    const panel p{.left = corner.x + left_room,
                  .top = corner.y + 18 + strip_pitch * static_cast<double>(k),
                  .width = width - left_room - right_room,
                  .height = strip_height,
                  .x = span_of_runs(r),
                  .y = chart::bounds_of(scale)};
    draw_strip(c, p, r, b, k, scale, groups);
  }
}

std::string bpm_trend_svg(const trend_result& r, const bpm_trend& b, double width,
                          std::size_t most_points) {
  chart::canvas c = chart::open_canvas(chart::medium::svg, width, bpm_trend_height);
  c.growth = 1.25;
  draw_bpm_trend(c, r, b, {0, 0}, width, most_points);
  const auto words = changes_in_words(b, r.data, false);
  return finish(
      c, fmt::format(
             "Change of the four gains of {} against time, in per cent: {}", short_name(*b.series),
             words.empty() ? "no step, no drift" : fmt::format("{}", fmt::join(words, "; "))));
}

namespace {

// --- when what changed --------------------------------------------------------------------------

constexpr double row_height = 22, head_height = 8, foot_height = 34;

void draw_step_mark(chart::canvas& c, const panel& p, const trend_result& r, const trend_step& step,
                    double y, double& free_from, double free_to) {
  const double before = chart::across(p, r.data.run[step.before].day);
  const double behind = chart::across(p, r.data.run[step.behind].day);
  // As wide as nobody knows better.
  fill_box(c, {before, y - 5}, std::max(behind - before, 1.0), 10, ink::alarm, 0.25);
  const double x = (before + behind) / 2;
  draw_symbol(c, step.moved.button, {x, y}, 9);
  const std::string text = moved_in_words(step.moved, false);
  const double length = text_width(c, text, 10, true);
  // Beside its mark, left of it where there is no room on the right, or nowhere: the card has it.
  double begin = x + 9;
  if (begin + length > free_to) begin = x - 9 - length;
  const bool fits = begin >= free_from;
  free_from = std::max(free_from, x + 8);
  if (!fits) return;
  free_from = std::max(free_from, begin + length + 6);
  draw_text(c, text, {begin, y + 3.5},
            {.ink = chart::button_inks[step.moved.button], .bold = true});
}

// What changed in the course of time: up or down from here to there.
void draw_wedge(chart::canvas& c, const moved_gains& moved, double from, double to, double y,
                const std::string& text, double& free_from) {
  const std::size_t k = moved.button;
  const double foot = moved.change[k] > 0 ? 5 : -5;
  const std::array<point, 3> wedge{{{from, y + foot}, {to, y + foot}, {to, y - foot}}};
  fill_area(c, wedge, chart::button_inks[k], 0.35);
  if (from + 2 < free_from) return;
  draw_text(c, text, {from + 2, y - 1}, {.ink = chart::button_inks[k], .bold = true});
  free_from = from + text_width(c, text, 10, true) + 8;
}

void draw_row_of_changes(chart::canvas& c, const panel& p, const trend_result& r,
                         const bpm_trend& b, double y) {
  const double first = chart::across(p, day_of_used(r, b, 0));
  const double last = chart::across(p, day_of_used(r, b, b.used.size() - 1));
  draw_line(c, {first, y}, {last, y}, ink::grid, 2);
  double free_from = p.left;
  if (b.drift.told) {
    draw_wedge(c, b.drift.moved, first, last, y, moved_in_words(b.drift.moved, false) + " a month",
               free_from);
  }
  if (b.slow.told) {
    draw_wedge(c, b.slow.moved, chart::across(p, r.data.run[b.slow.from].day),
               chart::across(p, r.data.run[b.slow.to].day), y,
               moved_in_words(b.slow.moved, false) + " slowly", free_from);
  }
  for (std::size_t i = 0; i < b.steps.size(); ++i) {
    double free_to = p.left + p.width;
    if (i + 1 < b.steps.size())
      free_to = chart::across(p, r.data.run[b.steps[i + 1].before].day) - 6;
    draw_step_mark(c, p, r, b.steps[i], y, free_from, free_to);
  }
}

// A tick a run: gaps in time are seen.
void draw_runs(chart::canvas& c, const panel& p, const trend_result& r) {
  std::vector<point> ends;
  double last = -1;
  const double y = p.top + p.height;
  for (const trend_run& run : r.data.run) {
    const double x = chart::across(p, run.day);
    if (x - last < 0.7) continue;  // on the same spot of any screen
    last = x;
    ends.push_back({x, y});
    ends.push_back({x, y + 5});
  }
  draw_strokes(c, ends, ink::quiet, 0.8);
}

}  // namespace

std::string time_line_svg(const trend_result& r, double width) {
  std::vector<const bpm_trend*> rows;
  constexpr std::size_t most_rows = 30;
  double name_room = 30;
  chart::canvas measure = chart::open_canvas(chart::medium::svg, 1, 1);
  for (const std::size_t i : worst_first(r)) {
    if (!changed(r.bpm[i]) || rows.size() == most_rows) break;
    rows.push_back(&r.bpm[i]);
    const std::string name = shortened(measure, short_name(*r.bpm[i].series), 10, 90);
    name_room = std::max(name_room, text_width(measure, name, 10) + 10);
  }
  if (rows.empty()) return {};
  const double height = row_height * static_cast<double>(rows.size());
  chart::canvas c =
      chart::open_canvas(chart::medium::svg, width, head_height + height + foot_height);
  c.growth = 1.25;
  const panel p{.left = name_room,
                .top = head_height,
                .width = width - name_room - right_room,
                .height = height,
                .x = span_of_runs(r),
                .y = {0, 1}};
  for (std::size_t i = 1; i < rows.size(); i += 2) {
    fill_box(c, {p.left, p.top + row_height * static_cast<double>(i)}, p.width, row_height,
             ink::band);
  }
  draw_time_axis(c, {p.left, p.top, p.width, p.height + 8, p.x, p.y}, true);
  draw_frame(c, p);
  draw_runs(c, p, r);
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const double y = p.top + row_height * (static_cast<double>(i) + 0.5);
    draw_text(c, shortened(c, short_name(*rows[i]->series), 10, 90), {p.left - 6, y + 3.5},
              {.at = 1});
    draw_row_of_changes(c, p, r, *rows[i], y);
  }
  return finish(c, "When the gains of which BPM changed: " + trend_sentence(r));
}

}  // namespace report
