// svg_path: the shapes of an SVG, written as they are drawn.
//
// A page has hundreds of pictures with clouds of points: their numbers go straight into the text,
// rounded to what a screen can show. Coordinates are first brought to 256th of a point, as the library
// of the other media does with all paths, so that every medium shows the same picture.
#pragma once
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "canvas.hpp"

namespace chart {

/// How a path is stroked.
struct svg_stroke {
  chart::ink ink = ink::text;
  double width = 1;  ///< [points]
  double opacity = 1;
  bool round_ends = false;
  bool round_joins = false;
  bool dashed = false;  ///< 4 points on, 3 off
};

/// A path under construction: corners in 256th of a point. A corner on a straight line is left out.
struct svg_path {
  struct step {
    char what = 'M';  ///< M: a new stroke; L: a line; Z: a line to the stroke's begin
    long x = 0, y = 0;
  };
  std::vector<step> steps;
};

/// A length rounded to 256th of a point, as corners are [points].
double in_steps(double length);

void move_to(svg_path& path, point to);
void line_to(svg_path& path, point to);
void close(svg_path& path);

/// Append the element of the whole path to an SVG's text.
void append_stroked(std::string& out, const svg_path& path, const svg_stroke& how);
void append_filled(std::string& out, const svg_path& path, ink colour, double opacity);

/// Appends round dots of that diameter, at these places in half points.
void append_dots(std::string& out, std::span<const std::pair<long, long>> halves,
                 const svg_stroke& how);

}  // namespace chart
