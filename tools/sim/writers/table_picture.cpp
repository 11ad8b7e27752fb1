#include "table_picture.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <vector>

#include "cell_kernel.hpp"
#include "file_units.hpp"
#include "table_cells.hpp"

namespace sim {
namespace {

using chamber_solver::button_on_wall;
using chamber_solver::point;
using chamber_solver::wall;
using chamber_solver::wall_sample;
using nonlin_bpm_mod::cell_values;
using nonlin_bpm_mod::grid_axis;
using nonlin_bpm_mod::table_node;

constexpr double picture_size = 780;  // pixels of the longer side, without the scales
constexpr double border = 40;         // pixels for the scales, and for buttons on the wall
constexpr double tick = 5;            // pixels
constexpr int wall_points = 400;
constexpr int levels = 9;  // of difference over sum, on either side of 0
constexpr double level_step = 0.1;
constexpr const char* horizontal_colour = "#1f5fa8";
constexpr const char* vertical_colour = "#b4501e";

/// The drawing and its frame.
struct drawing {
  int unit = 0;
  double half_width = 0, half_height = 0;  // [m]
  double scale = 0;                        // pixels per metre
};

// Where a place lies in the picture [pixels].
point pixel(const drawing& d, point z) {
  // Pixels count downwards, y upwards.
  return {border + (z.real() + d.half_width) * d.scale,
          border + (d.half_height - z.imag()) * d.scale};
}

std::string at(const drawing& d, point z) {
  const point p = pixel(d, z);
  return fmt::format("{:.1f},{:.1f}", p.real(), p.imag());
}

void draw_line(const drawing& d, const std::vector<point>& points, const std::string& style) {
  if (points.size() < 2) return;
  std::string path = R"(<polyline fill="none" )" + style + R"( points=")";
  for (const point z : points) path += at(d, z) + " ";
  util::write_line(d.unit, path + "\"/>");
}

// Text whose middle (or, for a label, whose lower left corner) lies at these pixels.
void draw_text(const drawing& d, point p, const char* colour, const std::string& text,
               bool centred = true) {
  util::write_line(d.unit,
                   fmt::format(R"(<text x="{:.1f}" y="{:.1f}" fill="{}"{}>{}</text>)", p.real(),
                               p.imag(), colour, centred ? R"( text-anchor="middle")" : "", text));
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
std::vector<point> crossings(const pictured_table& table, bool vertical, double level, int ix,
                             int iy) {
  constexpr std::array<std::array<int, 2>, 5> corners{{{0, 0}, {1, 0}, {1, 1}, {0, 1}, {0, 0}}};
  std::vector<point> found;
  for (std::size_t k = 0; k < 4; ++k) {
    const int ix0 = ix + corners[k][0], iy0 = iy + corners[k][1];
    const int ix1 = ix + corners[k + 1][0], iy1 = iy + corners[k + 1][1];
    const table_node &a = table.nodes.at(ix0, iy0), &b = table.nodes.at(ix1, iy1);
    if (a.out || b.out) return {};
    const double from = difference_over_sum(a, vertical) - level;
    const double to = difference_over_sum(b, vertical) - level;
    // A node that lies on the level counts as above it: a line through a node crosses each side
    // once, and the division below never sees two equal values.
    if ((from < 0) == (to < 0)) continue;
    const point za{table.nodes.x.at(ix0), table.nodes.y.at(iy0)};
    const point zb{table.nodes.x.at(ix1), table.nodes.y.at(iy1)};
    found.push_back(za + (zb - za) * (from / (from - to)));
  }
  return found;
}

// Where the linear formula, with its slope at the centre, puts a level [m]; infinite without a
// slope.
double linear_place(const cell_values& centre, bool vertical, double level) {
  const auto &b = centre.phi, &s = vertical ? centre.dy : centre.dx;
  const double sum = b[0] + b[1] + b[2] + b[3];
  const double slope = vertical ? s[2] + s[3] - s[0] - s[1] : s[1] + s[3] - s[0] - s[2];
  return level * sum / slope;
}

void draw_straight(const pictured_table& table, const drawing& d, bool vertical, double place) {
  const grid_axis &x = table.nodes.x, &y = table.nodes.y;
  const grid_axis& across = vertical ? y : x;
  // Asked in the positive: a level without a place, of a table without a centre, is none either.
  if (!(place > across.first && place < across.last)) return;
  draw_line(
      d,
      vertical ? std::vector<point>{{x.first, place}, {x.last, place}}
               : std::vector<point>{{place, y.first}, {place, y.last}},
      stroke(vertical ? vertical_colour : horizontal_colour, 0.6) + R"( stroke-dasharray="2,3")");
}

// The place where a piece of a level's line passes the axis along which the level is written.
std::optional<double> on_axis(point from, point to, bool vertical) {
  const double off_from = vertical ? from.real() : from.imag();
  const double off_to = vertical ? to.real() : to.imag();
  if (off_from * off_to > 0) return {};
  const double part = off_from == off_to ? 0 : off_from / (off_from - off_to);
  const point z = from + part * (to - from);
  return vertical ? z.imag() : z.real();
}

void draw_level(const pictured_table& table, const drawing& d, bool vertical, double level) {
  const char* const colour = vertical ? vertical_colour : horizontal_colour;
  std::string path;
  std::optional<double> label;  // of several places on the axis the one nearest the centre
  for (int iy = 1; iy < table.nodes.y.n; ++iy) {
    for (int ix = 1; ix < table.nodes.x.n; ++ix) {
      const std::vector<point> ends = crossings(table, vertical, level, ix, iy);
      // A saddle has four crossings: two pieces, and which pairs they are matters to no eye.
      for (std::size_t k = 0; k + 1 < ends.size(); k += 2) {
        path += "M" + at(d, ends[k]) + "L" + at(d, ends[k + 1]);
        const auto place = on_axis(ends[k], ends[k + 1], vertical);
        if (place && !(label && std::abs(*label) < std::abs(*place))) label = place;
      }
    }
  }
  if (path.empty()) return;
  util::write_line(d.unit,
                   R"(<path fill="none" )" + stroke(colour, 1.6) + R"( d=")" + path + R"("/>)");
  if (!label || (vertical && level == 0)) return;  // both zeros would stand in one place
  const point where = vertical ? point{0, *label} : point{*label, 0};
  draw_text(d, pixel(d, where) + point{3, -3}, colour, fmt::format("{:.1f}", level), false);
}

void draw_wall(const chamber_solver::chamber& c, const drawing& d) {
  const wall& w = c.contour;
  std::vector<point> outline;
  for (int i = 0; i <= wall_points; ++i) {
    outline.push_back(place_at(w, w.length * i / wall_points).z);
  }
  draw_line(d, outline, stroke("#444444", 2));
  for (std::size_t k = 0; k < c.button.size(); ++k) {
    const button_on_wall& b = c.button[k];
    std::vector<point> button;
    for (int i = -10; i <= 10; ++i) button.push_back(place_at(w, b.s + b.half * i / 10).z);
    draw_line(d, button, stroke("#000000", 7));
    const chamber_solver::wall_place middle = place_at(w, b.s);
    // Inside the wall, which lies to the left of the way along it; there is no room outside.
    const point inward = point{0, 1} * middle.tangent;
    draw_text(d, pixel(d, middle.z) + 14.0 * std::conj(inward) + point{0, 4}, "#000000",
              std::to_string(k + 1));
  }
}

// Without a wall: the border of the cells with data, and the buttons' numbers in their quadrants.
void draw_border(const pictured_table& table, const drawing& d) {
  const auto& nodes = table.nodes;
  const auto cell = [&nodes](int ix, int iy) {
    return nodes.usable(ix, iy) && nodes.usable(ix + 1, iy) && nodes.usable(ix, iy + 1) &&
           nodes.usable(ix + 1, iy + 1);
  };
  std::string path;
  for (int iy = 1; iy <= nodes.y.n; ++iy) {
    for (int ix = 1; ix <= nodes.x.n; ++ix) {
      const point corner{nodes.x.at(ix), nodes.y.at(iy)};
      // Between a cell with data and one without: every piece of the border is found once.
      if (ix < nodes.x.n && cell(ix, iy) != cell(ix, iy - 1)) {
        path += "M" + at(d, corner) + "L" + at(d, corner + nodes.x.step());
      }
      if (iy < nodes.y.n && cell(ix, iy) != cell(ix - 1, iy)) {
        path += "M" + at(d, corner) + "L" + at(d, corner + point{0, nodes.y.step()});
      }
    }
  }
  util::write_line(d.unit,
                   R"(<path fill="none" )" + stroke("#444444", 1) + R"( d=")" + path + R"("/>)");
  for (std::size_t k = 0; k < 4; ++k) {
    const point corner{k % 2 == 0 ? -d.half_width : d.half_width,
                       k < 2 ? -d.half_height : d.half_height};
    draw_text(d, pixel(d, 0.92 * corner), "#000000", std::to_string(k + 1));
  }
}

// A step of 1, 2 or 5 times a power of ten that makes about ten of the whole length.
double tick_step(double length) {
  const double power = std::pow(10, std::floor(std::log10(length / 10)));
  const double digit = length / 10 / power;
  return power * (digit < 1.5 ? 1 : digit < 3.5 ? 2 : digit < 7.5 ? 5 : 10);
}

void draw_scales(const drawing& d) {
  const double step = tick_step(2 * std::max(d.half_width, d.half_height));
  std::string path;
  // Rounded to a tenth of a micrometre: a multiple of 0.1 mm is not printed with its rounding.
  const auto label = [](double v) { return fmt::format("{:g}", std::round(v * 1e7) / 1e4); };
  // More than any picture has: a step makes fewer than eighteen of the length.
  for (int i = -20; i <= 20; ++i) {
    const double v = i * step;
    if (std::abs(v) <= d.half_width) {
      const point foot = pixel(d, {v, -d.half_height}) + point{0, 0.3 * border};
      path += fmt::format("M{:.1f},{:.1f}v{:.1f}", foot.real(), foot.imag(), -tick);
      draw_text(d, foot + point{0, 12}, "#444444", label(v));
    }
    if (std::abs(v) <= d.half_height) {
      const point foot = pixel(d, {-d.half_width, v}) - point{0.3 * border, 0};
      path += fmt::format("M{:.1f},{:.1f}h{:.1f}", foot.real(), foot.imag(), tick);
      draw_text(d, foot + point{-12, 4}, "#444444", label(v));
    }
  }
  util::write_line(d.unit,
                   R"(<path fill="none" )" + stroke("#444444", 1) + R"( d=")" + path + R"("/>)");
  draw_text(d, pixel(d, {0, -d.half_height}) + point{0, 0.3 * border + 25}, "#444444", "x / mm");
  draw_text(d, pixel(d, {-d.half_width, d.half_height}) + point{-0.3 * border, -12}, "#444444",
            "y / mm");
}

drawing make_frame(const pictured_table& table) {
  drawing d;
  if (table.chamber) {
    for (const wall_sample& sample : table.chamber->contour.sample) {
      d.half_width = std::max(d.half_width, std::abs(sample.z.real()));
      d.half_height = std::max(d.half_height, std::abs(sample.z.imag()));
    }
  } else {
    const grid_axis &x = table.nodes.x, &y = table.nodes.y;
    d.half_width = std::max(std::abs(x.first), std::abs(x.last));
    d.half_height = std::max(std::abs(y.first), std::abs(y.last));
  }
  // One scale for both axes: the chamber keeps its shape.
  d.scale = picture_size / (2 * std::max(d.half_width, d.half_height));
  return d;
}

// Signals and slopes at the centre, interpolated as the conversion does: a grid need not have a
// node there.
cell_values centre_of(const pictured_table& table) {
  nonlin_bpm_mod::table_struct cells;
  cell_values centre{};
  if (build_table(table.nodes, cells).empty()) {
    nonlin_bpm_mod::evaluate_cell<false>(cells, 0, 0, centre);
  }
  return centre;
}

}  // namespace

void write_picture(const pictured_table& table, const std::string& path) {
  const util::unit_handle unit{util::lunget()};
  util::open_whole_output(unit.number(), path);
  drawing d = make_frame(table);
  d.unit = unit.number();
  util::write_line(
      d.unit,
      fmt::format(R"(<svg xmlns="http://www.w3.org/2000/svg" width="{0:.0f}" height="{1:.0f}" )"
                  R"(viewBox="0 0 {0:.0f} {1:.0f}" font-family="sans-serif" font-size="11">)",
                  2 * (border + d.half_width * d.scale), 2 * (border + d.half_height * d.scale)));
  util::write_line(d.unit, R"(<rect width="100%" height="100%" fill="white"/>)");
  const cell_values centre = centre_of(table);
  // Levels below, wall and scales on top of them: what is drawn later covers the earlier.
  for (const bool vertical : {false, true}) {
    for (int i = -levels; i <= levels; ++i) {
      draw_straight(table, d, vertical, linear_place(centre, vertical, i * level_step));
      draw_level(table, d, vertical, i * level_step);
    }
  }
  if (table.chamber) {
    draw_wall(*table.chamber, d);
  } else {
    draw_border(table, d);
  }
  draw_scales(d);
  util::write_line(d.unit, "</svg>");
}

}  // namespace sim
