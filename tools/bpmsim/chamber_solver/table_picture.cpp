#include "table_picture.hpp"

#include <fmt/format.h>

#include <cmath>
#include <optional>

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
  std::string path = "<polyline fill=\"none\" " + style + " points=\"";
  for (const point z : points) path += at(d, z) + " ";
  util::write_line(d.unit, path + "\"/>");
}

void draw_text(const drawing& d, point z, const char* colour, const std::string& text) {
  util::write_line(d.unit,
                   fmt::format("<text x=\"{:.1f}\" y=\"{:.1f}\" fill=\"{}\">{}</text>",
                               (z.real() + d.half_width) * pixels_per_metre,
                               (d.half_height - z.imag()) * pixels_per_metre, colour, text));
}

std::string stroke(const char* colour, double width) {
  return fmt::format("stroke=\"{}\" stroke-width=\"{}\"", colour, width);
}

double difference_over_sum(const table_node& n, bool vertical) {
  const auto& b = n.phi;
  const double sum = b[0] + b[1] + b[2] + b[3];
  return vertical ? (b[2] + b[3] - b[0] - b[1]) / sum : (b[1] + b[3] - b[0] - b[2]) / sum;
}

/// One family of lines: along `across` the value grows, line points are looked for row by row of
/// `along`.
struct family {
  bool vertical = false;
  const grid_axis* across = nullptr;
  const grid_axis* along = nullptr;
};

const table_node& node_of(const table_work& work, const family& f, int across, int along) {
  return f.vertical ? work.nodes.at(along, across) : work.nodes.at(across, along);
}

// Where a row of nodes passes the level, between two neighbours with data.
std::optional<point> crossing(const table_work& work, const family& f, int along, double level) {
  for (int i = 1; i < f.across->n; ++i) {
    const table_node& before = node_of(work, f, i, along);
    const table_node& after = node_of(work, f, i + 1, along);
    if (before.out || after.out) continue;
    const double low = difference_over_sum(before, f.vertical);
    const double high = difference_over_sum(after, f.vertical);
    if (!(low <= level && level < high)) continue;
    const double place = f.across->at(i) + f.across->step() * (level - low) / (high - low);
    return f.vertical ? point{f.along->at(along), place} : point{place, f.along->at(along)};
  }
  return {};
}

// Slope of difference over sum at the centre: where the linear formula puts a level [m].
double linear_place(const table_work& work, bool vertical, double level) {
  const signals s = signals_at(work.solved, 0);
  const double sum = s.phi[0] + s.phi[1] + s.phi[2] + s.phi[3];
  const double slope =
      vertical ? s.dy[2] + s.dy[3] - s.dy[0] - s.dy[1] : s.dx[1] + s.dx[3] - s.dx[0] - s.dx[2];
  return level * sum / slope;
}

void draw_level(const table_work& work, const drawing& d, const family& f, double level) {
  const char* const colour = f.vertical ? vertical_colour : horizontal_colour;
  const double linear = linear_place(work, f.vertical, level);
  if (linear > f.across->first && linear < f.across->last) {
    const double from = f.along->first, to = f.along->last;
    draw_line(d,
              f.vertical ? std::vector<point>{{from, linear}, {to, linear}}
                         : std::vector<point>{{linear, from}, {linear, to}},
              stroke(colour, 0.6) + " stroke-dasharray=\"2,3\"");
  }
  std::vector<point> line;
  for (int along = 1; along <= f.along->n; ++along) {
    if (const auto z = crossing(work, f, along, level)) {
      line.push_back(*z);
    } else {
      draw_line(d, line, stroke(colour, 1.6));
      line.clear();
    }
  }
  draw_line(d, line, stroke(colour, 1.6));
  const int middle = (f.along->n + 1) / 2;
  if (const auto z = crossing(work, f, middle, level)) {
    draw_text(d, *z + point{0.0003, 0.0003}, colour, fmt::format("{:.1f}", level));
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
      fmt::format("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0:.0f}\" height=\"{1:.0f}\" "
                  "viewBox=\"0 0 {0:.0f} {1:.0f}\" font-family=\"sans-serif\" font-size=\"11\">",
                  2 * d.half_width * pixels_per_metre, 2 * d.half_height * pixels_per_metre));
  util::write_line(d.unit, "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>");
  const family families[] = {{false, &work.nodes.x, &work.nodes.y},
                             {true, &work.nodes.y, &work.nodes.x}};
  for (const family& f : families) {
    for (int i = -levels; i <= levels; ++i) draw_level(work, d, f, i * level_step);
  }
  draw_wall(work, d);
  util::write_line(d.unit, "</svg>");
}

}  // namespace chamber_solver
