#include "symbols.hpp"

#include <cmath>
#include <numbers>

namespace chart {
namespace {

// Corners chosen so that the four have about the same area: none looks more important.
std::vector<point> outline(std::size_t button, point at, double size) {
  const double half = size / 2;
  // In units of half squared: circle 3.0 (of 12 corners), square 3.2, triangle 3.0, diamond 3.1.
  std::vector<point> corners;
  if (button == 1) {
    const double side = 0.89 * half;
    return {{at.x - side, at.y - side},
            {at.x + side, at.y - side},
            {at.x + side, at.y + side},
            {at.x - side, at.y + side}};
  }
  if (button == 2) {
    const double side = 1.3 * half;
    return {
        {at.x, at.y - side}, {at.x + side, at.y + 0.75 * side}, {at.x - side, at.y + 0.75 * side}};
  }
  if (button == 3) {
    const double side = 1.25 * half;
    return {{at.x, at.y - side}, {at.x + side, at.y}, {at.x, at.y + side}, {at.x - side, at.y}};
  }
  constexpr int n_corners = 12;  // of a circle of a few pixels
  for (int i = 0; i < n_corners; ++i) {
    const double angle = 2 * std::numbers::pi * i / n_corners;
    corners.push_back({at.x + half * std::cos(angle), at.y + half * std::sin(angle)});
  }
  return corners;
}

}  // namespace

void draw_symbol(canvas& c, std::size_t button, point at, double size, bool full) {
  std::vector<point> corners = outline(button, at, size);
  // A hollow symbol is filled with paper, so that the grid and its error bar do not run through it.
  fill_area(c, corners, full ? button_inks[button] : ink::paper);
  if (full) return;
  corners.push_back(corners[0]);
  corners.push_back(corners[1]);  // beyond the start, so that the last corner is joined as well
  draw_lines(c, corners, button_inks[button], 1);
}

void draw_cross(canvas& c, point at, double size, ink colour) {
  const double half = size / 2;
  const std::array<point, 4> ends{{{at.x - half, at.y - half},
                                   {at.x + half, at.y + half},
                                   {at.x - half, at.y + half},
                                   {at.x + half, at.y - half}}};
  // Heavier than a grid's lines of 1 point, on which crosses stand.
  draw_strokes(c, ends, colour, 1.6);
}

void draw_pointer(canvas& c, point tip, double size, bool up, ink colour) {
  const double base = up ? tip.y + size : tip.y - size;
  const std::array<point, 3> corners{{tip, {tip.x - 0.6 * size, base}, {tip.x + 0.6 * size, base}}};
  fill_area(c, corners, colour);
}

}  // namespace chart
