#include "table_picture.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <vector>

#include "file_units.hpp"

namespace chamber_solver {
namespace {

using nonlin_bpm_mod::grid_axis;
using nonlin_bpm_mod::table_node;

constexpr double pixels_per_metre = 8000;
constexpr double border = 0.004;  // [m] around the wall
constexpr int wall_points = 400;
constexpr int levels = 9;  // of difference over sum, on either side of 0
constexpr double level_step = 0.1;
constexpr const char* horizontal_colour = "#1f5fa8";
constexpr const char* vertical_colour = "#b4501e";

/// The drawing and its frame: half sizes in metres.
struct drawing {
  int unit = 0;
  double half_width = 0, half_height = 0;
};

std::string at(const drawing& d, point z) {
  return fmt::format("{:.1f},{:.1f}", (z.real() + d.half_width) * pixels_per_metre,
                     (d.half_height - z.imag()) * pixels_per_metre);
}

void draw_line(const drawing& d, const std::vector<point>& points, const std::string& style) {
  if (points.size() < 2) return;
  std::string path = R"(<polyline fill="none" )" + style + R"( points=")";
  for (const point z : points) path += at(d, z) + " ";
  util::write_line(d.unit, path + "\"/>");
}

void draw_text(const drawing& d, point z, const char* colour, const std::string& text) {
  util::write_line(d.unit,
                   fmt::format(R"(<text x="{:.1f}" y="{:.1f}" fill="{}">{}</text>)",
                               (z.real() + d.half_width) * pixels_per_metre,
                               (d.half_height - z.imag()) * pixels_per_metre, colour, text));
}

std::string stroke(const char* colour, double width) {
  return fmt::format(R"(stroke="{}" stroke-width="{}")", colour, width);
}

double difference_over_sum(const table_node& n, bool vertical) {
  const auto& b = n.phi;
  const double sum = b[0] + b[1] + b[2] + b[3];
  return vertical ? (b[2] + b[3] - b[0] - b[1]) / sum : (b[1] + b[3] - b[0] - b[2]) / sum;
}

// The points where the sides of the cell (ix, iy) pass the level; none in a cell without data.
std::vector<point> crossings(const table_work& work, bool vertical, double level, int ix, int iy) {
  constexpr std::array<std::array<int, 2>, 5> corners{{{0, 0}, {1, 0}, {1, 1}, {0, 1}, {0, 0}}};
  std::vector<point> found;
  for (std::size_t k = 0; k < 4; ++k) {
    const int ix0 = ix + corners[k][0], iy0 = iy + corners[k][1];
    const int ix1 = ix + corners[k + 1][0], iy1 = iy + corners[k + 1][1];
    const table_node &a = work.nodes.at(ix0, iy0), &b = work.nodes.at(ix1, iy1);
    if (a.out || b.out) return {};
    const double from = difference_over_sum(a, vertical) - level;
    const double to = difference_over_sum(b, vertical) - level;
    if ((from < 0) == (to < 0)) continue;
    const point za{work.nodes.x.at(ix0), work.nodes.y.at(iy0)};
    const point zb{work.nodes.x.at(ix1), work.nodes.y.at(iy1)};
    found.push_back(za + (zb - za) * (from / (from - to)));
  }
  return found;
}

// Slope of difference over sum at the centre: where the linear formula puts a level [m].
double linear_place(const table_work& work, bool vertical, double level) {
  const signals s = signals_at(work.solved, 0);
  const double sum = s.phi[0] + s.phi[1] + s.phi[2] + s.phi[3];
  const double slope =
      vertical ? s.dy[2] + s.dy[3] - s.dy[0] - s.dy[1] : s.dx[1] + s.dx[3] - s.dx[0] - s.dx[2];
  return level * sum / slope;
}

void draw_level(const table_work& work, const drawing& d, bool vertical, double level) {
  const char* const colour = vertical ? vertical_colour : horizontal_colour;
  const grid_axis &x = work.nodes.x, &y = work.nodes.y;
  const double linear = linear_place(work, vertical, level);
  const grid_axis& across = vertical ? y : x;
  if (linear > across.first && linear < across.last) {
    draw_line(d,
              vertical ? std::vector<point>{{x.first, linear}, {x.last, linear}}
                       : std::vector<point>{{linear, y.first}, {linear, y.last}},
              stroke(colour, 0.6) + R"( stroke-dasharray="2,3")");
  }
  std::string path;
  point label{0, 0};  // where the line passes an axis of the chamber
  for (int iy = 1; iy < y.n; ++iy) {
    for (int ix = 1; ix < x.n; ++ix) {
      const std::vector<point> ends = crossings(work, vertical, level, ix, iy);
      for (std::size_t k = 0; k + 1 < ends.size(); k += 2) {
        path += "M" + at(d, ends[k]) + "L" + at(d, ends[k + 1]);
        const double off_axis = vertical ? ends[k].real() : ends[k].imag();
        if (std::abs(off_axis) < 1e-9) label = ends[k];
      }
    }
  }
  if (path.empty()) return;
  util::write_line(d.unit,
                   R"(<path fill="none" )" + stroke(colour, 1.6) + R"( d=")" + path + R"("/>)");
  if (label != point{0, 0} || level == 0) {
    draw_text(d, label + point{0.0003, 0.0003}, colour, fmt::format("{:.1f}", level));
  }
}

void draw_wall(const table_work& work, const drawing& d) {
  const wall& w = work.c.contour;
  std::vector<point> outline;
  for (int i = 0; i <= wall_points; ++i) {
    outline.push_back(place_at(w, w.length * i / wall_points).z);
  }
  draw_line(d, outline, stroke("#444444", 2));
  for (const button_on_wall& b : work.c.button) {
    std::vector<point> button;
    for (int i = -10; i <= 10; ++i) button.push_back(place_at(w, b.s + b.half * i / 10).z);
    draw_line(d, button, stroke("#000000", 7));
  }
}

}  // namespace

void write_picture(const table_work& work, const std::string& path) {
  const util::unit_handle unit{util::lunget()};
  util::open_output(unit.number(), path);
  drawing d{unit.number(), 0, 0};
  for (const wall_sample& sample : work.c.contour.sample) {
    d.half_width = std::max(d.half_width, std::abs(sample.z.real()) + border);
    d.half_height = std::max(d.half_height, std::abs(sample.z.imag()) + border);
  }
  util::write_line(
      d.unit,
      fmt::format(R"(<svg xmlns="http://www.w3.org/2000/svg" width="{0:.0f}" height="{1:.0f}" )"
                  R"(viewBox="0 0 {0:.0f} {1:.0f}" font-family="sans-serif" font-size="11">)",
                  2 * d.half_width * pixels_per_metre, 2 * d.half_height * pixels_per_metre));
  util::write_line(d.unit, R"(<rect width="100%" height="100%" fill="white"/>)");
  for (const bool vertical : {false, true}) {
    for (int i = -levels; i <= levels; ++i) draw_level(work, d, vertical, i * level_step);
  }
  draw_wall(work, d);
  util::write_line(d.unit, "</svg>");
}

}  // namespace chamber_solver
