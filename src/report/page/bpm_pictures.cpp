#include "bpm_pictures.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <numbers>
#include <vector>

#include "panel.hpp"
#include "symbols.hpp"
#include "words.hpp"

namespace report {
namespace {

using chart::ink;
using chart::point;

constexpr double width = 330, height = 250;  // of a picture [points]
// Around the box: the numbers and the title of the left axis, half a number at the right end,
// numbers and title below.
constexpr double left = 44, top = 22, right = 16, bottom = 34;

chart::canvas open_picture() {
  chart::canvas c = chart::open_canvas(chart::medium::svg, width, height);
  // 478 points: three pictures side by side then fill the widest page that the style sheet makes.
  c.growth = 1.45;
  return c;
}

chart::panel usual_panel() {
  return {.left = left,
          .top = top,
          .width = width - left - right,
          .height = height - top - bottom,
          .x = {},
          .y = {}};
}

std::string figure(const std::string& svg, std::string_view caption) {
  // A page without one picture is still a page; an empty frame would be a riddle.
  if (svg.empty()) return {};
  return fmt::format("<figure>{}<figcaption>{}</figcaption></figure>\n", svg, caption);
}

// The pen after its last stroke: an element with this for those who do not see it.
std::string figure(chart::canvas& c, std::string_view title, std::string_view caption) {
  return figure(finish(c, title), caption);
}

// A power of a thousand that makes numbers of this size readable.
struct unit {
  double factor = 1;
  std::string text;  // "1e-3"
};

unit unit_of(double largest) {
  if (!(largest > 0) || !std::isfinite(largest)) largest = 1;
  const int power = 3 * static_cast<int>(std::floor(std::log10(largest) / 3));
  // Parts of the signal: what is not small is read as it is.
  if (power >= 0) return {1, "1"};
  return {std::pow(10.0, -power), fmt::format("1e{}", power)};
}

// --- point clouds ---------------------------------------------------------------------------------

// Apart from each other because they are drawn apart, and because outliers must not choose the
// scales.
struct cloud {
  std::vector<point> used, left_out;  // in the data's units
};

// Every so many-th point, so that no more than this many are left. Evenly over the orbits: the first
// so many would show one moment of a drift.
void thin(std::vector<point>& points, std::size_t most) {
  const std::size_t step = (points.size() + most - 1) / std::max<std::size_t>(most, 1);
  if (step <= 1) return;
  std::size_t kept = 0;
  for (std::size_t i = 0; i < points.size(); i += step) points[kept++] = points[i];
  points.resize(kept);
}

chart::span_of_axis range_of(const std::vector<point>& points, double point::*side) {
  std::vector<double> values;
  values.reserve(points.size());
  for (const point& p : points) values.push_back(p.*side);
  return chart::robust_range(std::move(values));
}

// Points in the box; those beyond it are counted.
std::size_t draw_cloud(chart::canvas& c, const chart::panel& p, const std::vector<point>& points,
                       ink colour, double size) {
  std::vector<point> dots;
  for (const point& at : points) {
    if (inside(p, at.x, at.y)) dots.push_back(place(p, at.x, at.y));
  }
  // Not quite opaque, so that the grid, and a cloud below this one, can be seen through it.
  draw_dots(c, dots, colour, size, 0.75);
  return points.size() - dots.size();
}

std::size_t draw_crosses(chart::canvas& c, const chart::panel& p,
                         const std::vector<point>& points) {
  std::size_t beyond = 0;
  for (const point& at : points) {
    if (inside(p, at.x, at.y)) {
      // One by one and by another shape: an outlier must be found among thousands of dots.
      draw_cross(c, place(p, at.x, at.y), 5, ink::alarm);
    } else {
      ++beyond;
    }
  }
  return beyond;
}

void tell_beyond(chart::canvas& c, const chart::panel& p, std::size_t beyond) {
  if (beyond == 0) return;
  draw_text(c, fmt::format("{} beyond the frame", beyond), {p.left + p.width, p.top - 6},
            {.size = chart::small_text, .at = 1, .ink = ink::alarm});
}

// A box whose scales hold nearly all of the points.
void draw_box(chart::canvas& c, chart::panel& p, const chart::span_of_axis& x,
              const chart::span_of_axis& y, std::string_view title_x, std::string_view title_y) {
  // Fewer ticks sideways: numbers are wider than high, and would touch.
  const auto scale_x = quick_plot::general_scale(x.low, x.high, 3, 7, false);
  const auto scale_y = quick_plot::general_scale(y.low, y.high, 3, 8, false);
  p.x = chart::bounds_of(scale_x);
  p.y = chart::bounds_of(scale_y);
  draw_x_axis(c, p, scale_x, title_x);
  draw_y_axis(c, p, scale_y, title_y);
  draw_frame(c, p);
}

// --- residuals -----------------------------------------------------------------------------------

// X, Y and Q of one orbit with its gains taken out.
struct combined {
  double x = 0, y = 0, q = 0;
};

// The combinations that the fits work with, so that u here is the u of the model curve. The signal
// is t times the beam, so t is divided out.
combined combine(const four& signal, const four& t) {
  four b{};
  for (std::size_t k = 0; k < 4; ++k) b[k] = signal[k] / t[k];
  const double sum = b[0] + b[1] + b[2] + b[3];
  return {(b[0] - b[1] + b[2] - b[3]) / sum, (b[0] + b[1] - b[2] - b[3]) / sum,
          (b[0] - b[1] - b[2] + b[3]) / sum};
}

bool has_residuals(const bpm_row& row) {
  return std::any_of(row.orbit.begin(), row.orbit.end(),
                     [](const orbit_row& o) { return o.used && std::isfinite(o.residual); });
}

// Outliers apart: what was left out of the calibration does not speak for it.
double rms_residual(const bpm_row& row) {
  double sum = 0;
  std::size_t n = 0;
  for (const orbit_row& o : row.orbit) {
    if (!o.used || !std::isfinite(o.residual)) continue;
    sum += o.residual * o.residual;
    ++n;
  }
  return n == 0 ? 0 : std::sqrt(sum / static_cast<double>(n));
}

// Residuals as they go over the orbits, or over u.
cloud residual_cloud(const bpm_row& row, double factor, const four* t) {
  cloud all;
  for (const orbit_row& o : row.orbit) {
    if (!std::isfinite(o.residual)) continue;
    double x = o.orbit;
    if (t != nullptr) {
      const combined at = combine(o.signal, *t);
      x = at.x * at.y;
    }
    // Signals whose sum is 0 have no place.
    if (!std::isfinite(x)) continue;
    (o.used ? all.used : all.left_out).push_back({x, o.residual * factor});
  }
  return all;
}

// Room for bars of 40 points: less, and their shape could not be told from the curve's.
constexpr double histogram_room = 44;  // beside the box

// How the residuals are spread, beside the box, with the normal curve of their rms.
void draw_histogram(chart::canvas& c, const chart::panel& p, const std::vector<point>& points,
                    double rms) {
  constexpr std::size_t n_bins = 32;
  constexpr double longest = histogram_room - 4;
  std::array<double, n_bins> count{};
  for (const point& at : points) {
    // Points beyond the box have no bar; the curve still counts them.
    const double bin = (at.y - p.y.low) / (p.y.high - p.y.low) * n_bins;
    if (bin >= 0 && bin < n_bins) ++count[static_cast<std::size_t>(bin)];
  }
  const double step = (p.y.high - p.y.low) / n_bins;
  // Height of the normal density for so many points in bins of this width: a comparison without a
  // free factor. Were the curve fitted to the bars, heavy tails would not be seen.
  const double peak =
      static_cast<double>(points.size()) * step / (rms * std::sqrt(2 * std::numbers::pi));
  const double scale = longest / std::max(*std::max_element(count.begin(), count.end()), peak);
  const double edge = p.left + p.width + 4;
  std::vector<point> curve;
  for (std::size_t i = 0; i < n_bins; ++i) {
    const double middle = p.y.low + (static_cast<double>(i) + 0.5) * step;
    const double y = chart::down(p, middle), thick = p.height / n_bins;
    if (count[i] > 0) {
      // A gap of 0.8 points keeps the bars apart.
      fill_box(c, {edge, y - thick / 2 + 0.4}, scale * count[i], thick - 0.8, ink::quiet, 0.55);
    }
    const double expected = peak * std::exp(-0.5 * middle * middle / (rms * rms));
    curve.push_back({edge + scale * expected, y});
  }
  draw_lines(c, curve, ink::text, 1);
}

// Thinned last: what is worked out from a cloud is worked out from all of it.
void draw_residuals(chart::canvas& c, const chart::panel& p, cloud& all, std::size_t most) {
  thin(all.used, most);
  thin(all.left_out, most);
  std::size_t beyond = draw_cloud(c, p, all.used, ink::button_1, 2.2);
  beyond += draw_crosses(c, p, all.left_out);
  tell_beyond(c, p, beyond);
}

std::string residuals_over_orbits(const bpm_row& row, std::size_t most) {
  const double rms = rms_residual(row);
  const unit in = unit_of(rms);
  cloud all = residual_cloud(row, in.factor, nullptr);
  if (all.used.empty() || !(rms > 0)) return {};
  chart::canvas c = open_picture();
  chart::panel p = usual_panel();
  p.width -= histogram_room;
  const chart::span_of_axis x{0, static_cast<double>(row.orbit.back().orbit)};
  draw_box(c, p, x, range_of(all.used, &point::y), "orbit", fmt::format("residual [{}]", in.text));
  // Before the points are thinned: the spread is that of all orbits.
  draw_histogram(c, p, all.used, rms * in.factor);
  draw_residuals(c, p, all, most);
  return figure(c, "Residual against orbit",
                "What each orbit says about the BPM alone, in parts of the signal; right, its "
                "spread beside the "
                "normal curve. Red crosses: left out.");
}

// Against the orbit a wrong model may look like noise; against u, over which the model runs, it is
// a curve.
std::string residuals_over_u(const bpm_row& row, const shown_gains& gains, std::size_t most) {
  const unit in = unit_of(rms_residual(row));
  cloud all = residual_cloud(row, in.factor, &gains.t);
  if (all.used.size() < 2) return {};
  chart::canvas c = open_picture();
  chart::panel p = usual_panel();
  draw_box(c, p, range_of(all.used, &point::x), range_of(all.used, &point::y), "u = X Y",
           fmt::format("residual [{}]", in.text));
  draw_residuals(c, p, all, most);
  return figure(c, "Residual against u",
                "The same against u, the product of the two plane combinations: a curve or a "
                "tilt here means gains or chamber are off.");
}

// Without residuals the skew combination tells: with true gains it is one curve of u.
std::string skew_over_u(const bpm_row& row, const shown_gains& gains, std::size_t most) {
  std::vector<point> points;
  for (const orbit_row& o : row.orbit) {
    const combined at = combine(o.signal, gains.t);
    if (std::isfinite(at.q)) points.push_back({at.x * at.y, at.q});
  }
  // One point has no range, and makes no curve.
  if (points.size() < 2) return {};
  chart::canvas c = open_picture();
  chart::panel p = usual_panel();
  draw_box(c, p, range_of(points, &point::x), range_of(points, &point::y), "u = X Y", "Q");
  thin(points, most);
  tell_beyond(c, p, draw_cloud(c, p, points, ink::button_1, 2.2));
  return figure(c, "Skew combination against u",
                "The skew combination Q with the fitted gains: right gains bring all orbits onto "
                "one curve through the origin.");
}

// --- places --------------------------------------------------------------------------------------

// The smaller of the two scales for both sides: a millimetre is as long upwards as sideways.
void make_round(chart::span_of_axis& x, chart::span_of_axis& y, double shape) {
  const double half_x = (x.high - x.low) / 2, half_y = (y.high - y.low) / 2;
  // At least a micrometre: a beam that stood still has no range of its own.
  const double half = std::max({half_x / shape, half_y, 1e-3});
  x = {(x.low + x.high) / 2 - half * shape, (x.low + x.high) / 2 + half * shape};
  y = {(y.low + y.high) / 2 - half, (y.low + y.high) / 2 + half};
}

// Both clouds share the scales: what the correction moved, and how far, is what the picture is for.
std::string places(const bpm_row& row, bool corrected, std::size_t most) {
  std::vector<point> before, after;
  for (const orbit_row& o : row.orbit) {
    if (std::isfinite(o.before_x_mm) && std::isfinite(o.before_y_mm)) {
      before.push_back({o.before_x_mm, o.before_y_mm});
    }
    if (corrected && std::isfinite(o.after_x_mm) && std::isfinite(o.after_y_mm)) {
      after.push_back({o.after_x_mm, o.after_y_mm});
    }
  }
  if (before.empty() && after.empty()) return {};
  std::vector<point> all{before};
  all.insert(all.end(), after.begin(), after.end());
  chart::canvas c = open_picture();
  chart::panel p = usual_panel();
  auto x = range_of(all, &point::x), y = range_of(all, &point::y);
  make_round(x, y, p.width / p.height);
  // Ticks of the shorter side for both; the box keeps its shape, so bounds are not moved to ticks.
  const auto scale_x = quick_plot::general_scale(x.low, x.high, 4, 10, false);
  const auto scale_y = quick_plot::general_scale(y.low, y.high, 3, 8, false);
  p.x = x;
  p.y = y;
  draw_x_axis(c, p, scale_x, "x [mm]");
  draw_y_axis(c, p, scale_y, "y [mm]");
  draw_frame(c, p);
  thin(before, most);
  thin(after, most);
  // The corrected ones last, on top: they are the answer.
  std::size_t beyond = draw_cloud(c, p, before, ink::button_2, 2);
  beyond += draw_cloud(c, p, after, ink::button_1, 2);
  tell_beyond(c, p, beyond);
  return figure(c, "Places before and after correction",
                "Where the beam was: <b class=\"c2\">orange</b> by difference over sum of the raw "
                "signals, <b class=\"c1\">blue</b> with the fitted gains.");
}

// --- signals -------------------------------------------------------------------------------------

// Lowest, highest and mean signal of a stretch of orbits.
struct stretch {
  double low = 0, high = 0, mean = 0, middle = 0;
};

std::vector<stretch> stretches_of(const bpm_row& row, std::size_t button, double factor) {
  // Stretches of 2.7 points on the sheet: finer ones would be more bytes and no more to see.
  constexpr std::size_t most = 100;
  const std::size_t n = row.orbit.size(), bins = std::min(n, most);
  std::vector<stretch> all;
  for (std::size_t i = 0; i < bins; ++i) {
    const std::size_t begin = i * n / bins, end = (i + 1) * n / bins;
    // Lowest and highest beside the mean: one bad orbit of a stretch would drown in it.
    stretch s{HUGE_VAL, -HUGE_VAL, 0, 0};
    std::size_t count = 0;
    for (std::size_t j = begin; j < end; ++j) {
      const double signal = factor * row.orbit[j].signal[button];
      if (!std::isfinite(signal)) continue;
      s.low = std::min(s.low, signal);
      s.high = std::max(s.high, signal);
      s.mean += signal;
      s.middle += row.orbit[j].orbit;
      ++count;
    }
    if (count == 0) continue;
    s.mean /= static_cast<double>(count);
    s.middle /= static_cast<double>(count);
    all.push_back(s);
  }
  return all;
}

void draw_strip(chart::canvas& c, const chart::panel& p, const std::vector<stretch>& all,
                std::size_t button) {
  std::vector<point> band, line;
  // Held to the box: the next button's strip lies right below.
  const auto at = [&p](double x, double y) {
    return place(p, x, std::clamp(y, p.y.low, p.y.high));
  };
  for (const stretch& s : all) {
    band.push_back(at(s.middle, s.high));
    line.push_back(at(s.middle, s.mean));
  }
  std::transform(all.rbegin(), all.rend(), std::back_inserter(band),
                 [&at](const stretch& s) { return at(s.middle, s.low); });
  fill_area(c, band, chart::button_inks[button], 0.35);
  draw_lines(c, line, chart::button_inks[button], 1.2);
}

// A power of a thousand that keeps the numbers of counts short.
unit unit_of_counts(const bpm_row& row) {
  double largest = 0;
  for (const orbit_row& o : row.orbit) {
    for (const double signal : o.signal) {
      if (std::isfinite(signal)) largest = std::max(largest, std::abs(signal));
    }
  }
  // Up to four digits need no power: they are read as counts at once.
  const int power = largest >= 1e4 ? 3 * static_cast<int>(std::floor(std::log10(largest) / 3)) : 0;
  return {std::pow(10.0, -power), power == 0 ? "counts" : fmt::format("1e{} counts", power)};
}

std::string signals(const bpm_row& row) {
  const unit in = unit_of_counts(row);
  std::array<std::vector<stretch>, 4> all;
  std::vector<double> values;
  for (std::size_t k = 0; k < 4; ++k) {
    all[k] = stretches_of(row, k, in.factor);
    for (const stretch& s : all[k]) values.insert(values.end(), {s.low, s.high});
  }
  if (values.empty()) return {};
  const auto range = chart::robust_range(values);
  // One scale for the four: which button is weak is seen by comparing them.
  const auto scale = quick_plot::general_scale(std::max(0.0, range.low), range.high, 2, 3, false);
  const auto time = quick_plot::general_scale(0, row.orbit.back().orbit, 3, 6, false);
  chart::canvas c = open_picture();
  constexpr double gap = 14;  // the numbers of two boxes stand above each other
  chart::panel p = usual_panel();
  p.x = chart::bounds_of(time);
  p.y = chart::bounds_of(scale);
  // Whole counts of five digits need more room than other numbers.
  const double room =
      text_width(c, axis_number(scale, scale.first + scale.divisions), chart::small_text);
  p.width -= std::max(0.0, room + 8 - p.left);
  p.left = std::max(p.left, room + 8);
  p.height = (p.height - 3 * gap) / 4;
  for (std::size_t k = 0; k < 4; ++k) {
    draw_y_axis(c, p, scale, k == 0 ? fmt::format("signal [{}]", in.text) : std::string{});
    if (k == 3) draw_x_axis(c, p, time, "orbit");
    draw_frame(c, p);
    draw_strip(c, p, all[k], k);
    draw_text(c, chart::button_names[k], {p.left + p.width - 3, p.top + 10},
              {.size = chart::small_text, .at = 1, .ink = chart::button_inks[k], .bold = true});
    p.top += p.height + gap;
  }
  return figure(c, "Signals over time",
                "The four signals in time: mean of a few orbits, and lowest to highest as a band.");
}

// --- gains and pedestals -------------------------------------------------------------------------

// A box with one column a button.
chart::panel button_panel(chart::canvas& c, double from, double to,
                          const std::vector<double>& values, std::string_view title) {
  chart::panel p = usual_panel();
  p.left = from;
  p.width = to - from;
  // The buttons are at 0 to 3; what is beyond keeps error bars and marks of true gains inside.
  p.x = {-0.6, 3.6};
  const auto [low, high] = std::minmax_element(values.begin(), values.end());
  const auto scale = quick_plot::general_scale(*low, *high, 3, 8, false);
  p.y = chart::bounds_of(scale);
  draw_y_axis(c, p, scale, title);
  draw_frame(c, p);
  for (std::size_t k = 0; k < 4; ++k) {
    draw_text(c, chart::button_names[k],
              {chart::across(p, static_cast<double>(k)), p.top + p.height + 14},
              {.size = chart::small_text, .at = 0.5, .ink = chart::button_inks[k], .bold = true});
  }
  return p;
}

void draw_value(chart::canvas& c, const chart::panel& p, std::size_t k, double value,
                double sigma) {
  const double x = chart::across(p, static_cast<double>(k));
  if (sigma > 0) {
    draw_line(c, {x, chart::down(p, std::max(value - sigma, p.y.low))},
              {x, chart::down(p, std::min(value + sigma, p.y.high))}, chart::button_inks[k], 1.6);
  }
  draw_symbol(c, k, {x, chart::down(p, value)}, 8);
}

void draw_gains(chart::canvas& c, const bpm_row& row, const shown_gains& gains, double from,
                double to) {
  std::vector<double> values;
  // An error that is not known has no bar, and takes no room on the scale.
  const double error = std::isfinite(gains.error) ? gains.error : 0;
  const four truth = true_gains_shown(row);
  for (std::size_t k = 0; k < 4; ++k) {
    values.insert(values.end(), {gains.t[k] - error, gains.t[k] + error});
    if (std::isfinite(truth[k])) values.push_back(truth[k]);
  }
  const chart::panel p = button_panel(c, from, to, values, "button gain t");
  for (std::size_t k = 0; k < 4; ++k) {
    const double x = chart::across(p, static_cast<double>(k));
    if (std::isfinite(truth[k])) {
      const double y = chart::down(p, truth[k]);
      draw_line(c, {x - 11, y}, {x + 11, y}, ink::text, 1.2);
    }
    draw_value(c, p, k, gains.t[k], error);
  }
}

void draw_pedestals(chart::canvas& c, const bpm_row& row, double from, double to) {
  // With 0 in the scale: whether a pedestal differs from it is the question.
  std::vector<double> values{0};
  double largest = 0;
  for (std::size_t k = 0; k < 4; ++k) {
    // Three pedestals without the fourth say little: the gains then stand alone.
    if (!std::isfinite(row.pedestal[k])) return;
    const double sigma = std::isfinite(row.pedestal_sigma[k]) ? row.pedestal_sigma[k] : 0;
    values.insert(values.end(), {row.pedestal[k] - sigma, row.pedestal[k] + sigma});
    largest = std::max(largest, std::abs(row.pedestal[k]) + sigma);
  }
  const unit in = unit_of(largest);
  for (double& v : values) v *= in.factor;
  const chart::panel p = button_panel(c, from, to, values, fmt::format("pedestal [{}]", in.text));
  const double zero = chart::down(p, 0);
  draw_line(c, {p.left, zero}, {p.left + p.width, zero}, ink::quiet, 1);
  for (std::size_t k = 0; k < 4; ++k) {
    draw_value(c, p, k, row.pedestal[k] * in.factor, row.pedestal_sigma[k] * in.factor);
  }
}

std::string gains_and_pedestals(const bpm_row& row, const shown_gains& gains) {
  chart::canvas c = open_picture();
  constexpr double middle = width / 2;
  draw_gains(c, row, gains, left, middle - 6);
  draw_pedestals(c, row, middle + 36, width - right);
  const bool truth = std::isfinite(true_gains_shown(row)[0]);
  return figure(c, "Gains and pedestals",
                truth ? "Gains, and pedestals in parts of the signal, with their errors; a line is "
                        "the true gain."
                      : "Gains, and pedestals in parts of the signal, with their errors.");
}

}  // namespace

std::string bpm_pictures(const bpm_row& row, std::size_t most_points) {
  std::string all;
  const auto gains = gains_shown(row);
  // What was worked out with gains means nothing where there are none.
  if (gains && has_residuals(row)) {
    all += residuals_over_orbits(row, most_points);
    all += residuals_over_u(row, *gains, most_points);
  } else if (gains) {
    all += skew_over_u(row, *gains, most_points);
  }
  all += places(row, gains.has_value(), most_points);
  if (!row.orbit.empty()) all += signals(row);
  if (gains) all += gains_and_pedestals(row, *gains);
  return all;
}

}  // namespace report
