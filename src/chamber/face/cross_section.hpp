// cross_section: the wall of a vacuum chamber as a closed curve in the plane, by arc length.
//
// A point of the plane is the complex number x + iy [m]. The wall runs counter-clockwise and is
// made of smooth pieces, each a function z(t), t in 0..1. Arc length is integrated per piece, so
// that every shape answers the same question: where is the wall at s metres from its beginning?
#pragma once
#include <array>
#include <complex>
#include <string>
#include <vector>

namespace chamber_solver {

using point = std::complex<double>;

/// A place on the wall.
struct wall_place {
  point z;               ///< [m]
  point tangent;         ///< unit length, along the wall
  double curvature = 0;  ///< [1/m], positive where the chamber is convex
};

enum class piece_kind { line, ellipse_arc, cubic };

/// One smooth piece.
struct wall_piece {
  piece_kind kind = piece_kind::line;
  std::array<point, 4> c{};  ///< line and cubic: z = c0 + c1 t + c2 t^2 + c3 t^3
  point centre;              ///< arc: z = centre + a cos(w) + i b sin(w), w = w0 + (w1 - w0) t
  double a = 0, b = 0;       ///< [m]
  double w0 = 0, w1 = 0;     ///< [rad]
  std::vector<double> s;     ///< arc length at t = 0, 1/n .. 1 [m]
};

/// A sample of the wall, for searches.
struct wall_sample {
  double s = 0;
  point z;
};

/// The closed wall.
struct wall {
  std::vector<wall_piece> piece;
  std::vector<double> start;        ///< arc length at the beginning of each piece [m]
  double length = 0;                ///< of the whole wall [m]
  std::vector<wall_sample> sample;  ///< ascending in s
};

/// A corner of a polygon and the radius that rounds it [m]; 0 leaves it sharp.
struct polygon_corner {
  point z;
  double radius = 0;
};

wall circle_wall(double radius);
wall ellipse_wall(double a, double b);
/// Box of these half sizes with rounded corners; radius = half height gives a racetrack.
wall box_wall(double half_width, double half_height, double radius);
/// Convex polygon, counter-clockwise.
/// returns  a wall without pieces when the corners are not convex or their arcs do not fit; `fault`
///          then tells why
wall polygon_wall(const std::vector<polygon_corner>& corners, std::string& fault);
/// Smooth closed curve through at least four points, counter-clockwise: a periodic cubic spline
/// over chord length. Errors as for polygon_wall.
wall spline_wall(const std::vector<point>& points, std::string& fault);

/// The same wall drawn wider and higher by these factors, both above 0.
wall scaled_wall(const wall& w, double by_x, double by_y);

/// The wall at arc length s of one piece (counted along the whole wall; a little beyond the piece's
/// ends is allowed).
wall_place place_on_piece(const wall& w, std::size_t ix_piece, double s);
/// The piece at arc length s; any s, the wall is closed.
std::size_t piece_at(const wall& w, double s);
wall_place place_at(const wall& w, double s);

/// The nearest wall point of z, as arc length, and the distance [m], positive inside.
struct nearest_wall {
  double s = 0;
  double distance = 0;
};
nearest_wall find_nearest(const wall& w, point z);

}  // namespace chamber_solver
