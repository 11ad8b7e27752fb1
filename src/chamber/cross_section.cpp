#include "cross_section.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "linear_algebra.hpp"
#include "quadrature.hpp"

namespace chamber_solver {
namespace {

constexpr double pi = std::numbers::pi;
// 32 intervals of 16 nodes measure an ellipse of 45 by 25 mm to 1e-15 m (test).
constexpr int length_intervals = 32;  // of the arc-length table of a piece
// A tenth of a millimetre apart on the usual walls: near enough for Newton to find the foot.
constexpr int samples_per_wall = 2000;

// Sixteen nodes on a thirty-second of a smooth piece: the error is rounding.
const gauss_rule& length_rule() {
  static const gauss_rule rule = make_gauss_rule(16);
  return rule;
}

// z and its first two derivatives by t.
std::array<point, 3> curve(const wall_piece& p, double t) {
  if (p.kind == piece_kind::ellipse_arc) {
    const double rate = p.w1 - p.w0;
    const double w = p.w0 + rate * t;
    const point z{p.a * std::cos(w), p.b * std::sin(w)};
    const point by_w{-p.a * std::sin(w), p.b * std::cos(w)};
    return {p.centre + z, rate * by_w, -rate * rate * z};
  }
  return {p.c[0] + t * (p.c[1] + t * (p.c[2] + t * p.c[3])),
          p.c[1] + t * (2.0 * p.c[2] + 3 * t * p.c[3]), 2.0 * p.c[2] + 6 * t * p.c[3]};
}

// Arc length of the piece from t0 to t1.
double arc_length(const wall_piece& p, double t0, double t1) {
  const gauss_rule& rule = length_rule();
  double sum = 0;
  for (std::size_t i = 0; i < rule.node.size(); ++i) {
    const double t = t0 + (t1 - t0) * (1 + rule.node[i]) / 2;
    sum += rule.weight[i] * std::abs(curve(p, t)[1]);
  }
  return sum * (t1 - t0) / 2;
}

// The t at arc length s from the piece's beginning: Newton from the table.
double parameter_at(const wall_piece& p, double s) {
  // The table brings the start within a 32nd of the piece; from there Newton converges for any
  // smooth speed along it.
  const double step = 1.0 / length_intervals;
  // Without the two ends: an s a little beyond the piece, as panels at a joint ask for, still falls
  // into its first or last interval.
  const auto above = std::upper_bound(p.s.begin() + 1, p.s.end() - 1, s);
  const auto i = static_cast<std::size_t>(above - p.s.begin()) - 1;
  const double t0 = static_cast<double>(i) * step;
  double t = t0 + step * (s - p.s[i]) / (p.s[i + 1] - p.s[i]);
  for (int n = 0; n < 6; ++n) {
    const double correction = (p.s[i] + arc_length(p, t0, t) - s) / std::abs(curve(p, t)[1]);
    t -= correction;
    if (std::abs(correction) < 1e-15) break;  // at once on lines and circles
  }
  return t;
}

wall_piece line_piece(point from, point to) {
  wall_piece p;
  p.c = {from, to - from, 0, 0};
  return p;
}

wall_piece arc_piece(point centre, double a, double b, double w0, double w1) {
  wall_piece p;
  p.kind = piece_kind::ellipse_arc;
  p.centre = centre;
  p.a = a;
  p.b = b;
  p.w0 = w0;
  p.w1 = w1;
  return p;
}

void add_samples(wall& w) {
  for (std::size_t k = 0; k < w.piece.size(); ++k) {
    const double length = w.piece[k].s.back();
    // At least two: a rounding of tiny radius would have none by its length. The piece's end is
    // left to the next piece, which begins there.
    const int n = 2 + static_cast<int>(samples_per_wall * length / w.length);
    for (int i = 0; i < n; ++i) {
      const double s = w.start[k] + length * i / n;
      w.sample.push_back({s, place_on_piece(w, k, s).z});
    }
  }
}

wall close_wall(std::vector<wall_piece> pieces) {
  wall w;
  w.piece = std::move(pieces);
  for (wall_piece& p : w.piece) {
    p.s.assign(1, 0);
    for (int i = 0; i < length_intervals; ++i) {
      p.s.push_back(p.s.back() + arc_length(p, i / double{length_intervals},
                                            (i + 1) / double{length_intervals}));
    }
    w.start.push_back(w.length);
    w.length += p.s.back();
  }
  add_samples(w);
  return w;
}

// Complex numbers as vectors; cross(a, b) is positive when b points to the left of a.
double cross(point a, point b) { return a.real() * b.imag() - a.imag() * b.real(); }
double dot(point a, point b) { return a.real() * b.real() + a.imag() * b.imag(); }

/// A corner with what its rounding takes from the two edges.
struct rounded_corner {
  point into, out_of;  // unit directions of the edges
  double turn = 0;     // [rad]
  double taken = 0;    // [m]
};

rounded_corner round_corner(point before, const polygon_corner& corner, point after) {
  rounded_corner r;
  r.into = (corner.z - before) / std::abs(corner.z - before);
  r.out_of = (after - corner.z) / std::abs(after - corner.z);
  // atan2 keeps its sign where the corner is nearly straight.
  r.turn = std::atan2(cross(r.into, r.out_of), dot(r.into, r.out_of));
  // From the corner to where a circle of this radius touches both edges.
  r.taken = corner.radius * std::tan(r.turn / 2);
  return r;
}

double enclosed_area(const std::vector<point>& z) {
  double area = 0;
  for (std::size_t i = 0; i < z.size(); ++i) area += cross(z[i], z[(i + 1) % z.size()]) / 2;
  return area;
}

}  // namespace

wall circle_wall(double radius) { return ellipse_wall(radius, radius); }

wall ellipse_wall(double a, double b) {
  std::vector<wall_piece> pieces;
  pieces.reserve(4);
  for (int k = 0; k < 4; ++k) pieces.push_back(arc_piece(0, a, b, k * pi / 2, (k + 1) * pi / 2));
  return close_wall(std::move(pieces));
}

wall box_wall(double half_width, double half_height, double radius) {
  // Not looked at: four right angles are convex, and the caller bounds the radius.
  std::string fault;
  return polygon_wall({{{half_width, -half_height}, radius},
                       {{half_width, half_height}, radius},
                       {{-half_width, half_height}, radius},
                       {{-half_width, -half_height}, radius}},
                      fault);
}

wall polygon_wall(const std::vector<polygon_corner>& corners, std::string& fault) {
  const std::size_t n = corners.size();
  std::vector<rounded_corner> rounded;
  double turns = 0;
  for (std::size_t i = 0; i < n; ++i) {
    rounded.push_back(round_corner(corners[(i + n - 1) % n].z, corners[i], corners[(i + 1) % n].z));
    // A straight corner is refused as well: it has no turn to round.
    if (!(rounded[i].turn > 1e-9)) {
      fault = fmt::format("corner {} is not convex (corners run counter-clockwise)", i + 1);
      return {};
    }
    turns += rounded[i].turn;
  }
  // Convex corners that turn twice around make a star.
  if (std::abs(turns - 2 * pi) > 1e-6) {
    fault = "the polygon runs more than once around";
    return {};
  }
  std::vector<wall_piece> pieces;
  for (std::size_t i = 0; i < n; ++i) {
    const std::size_t j = (i + 1) % n;
    const double edge = std::abs(corners[j].z - corners[i].z);
    const double left = edge - rounded[i].taken - rounded[j].taken;
    // A racetrack's roundings meet exactly; rounding errors must not part them.
    if (left < -1e-9 * edge) {
      fault =
          fmt::format("the roundings of corners {} and {} do not fit on their edge", i + 1, j + 1);
      return {};
    }
    const point begin = corners[i].z + rounded[i].taken * rounded[i].out_of;
    if (corners[i].radius > 0) {
      // The normal points outward, a right angle back from the edge that leaves the arc; the centre
      // lies to the left of that edge, by the radius.
      const double w1 = std::arg(rounded[i].out_of) - pi / 2;
      const point centre = begin + corners[i].radius * point{0, 1} * rounded[i].out_of;
      pieces.push_back(
          arc_piece(centre, corners[i].radius, corners[i].radius, w1 - rounded[i].turn, w1));
    }
    // A racetrack's short sides have nothing left between their arcs.
    if (left > 1e-9 * edge) {
      pieces.push_back(line_piece(begin, corners[j].z - rounded[j].taken * rounded[i].out_of));
    }
  }
  return close_wall(std::move(pieces));
}

wall spline_wall(const std::vector<point>& points, std::string& fault) {
  const std::size_t n = points.size();
  std::vector<double> h(n);  // chord from point i to the next
  for (std::size_t i = 0; i < n; ++i) {
    h[i] = std::abs(points[(i + 1) % n] - points[i]);
    if (!(h[i] > 0)) {
      fault = fmt::format("points {} and {} are the same", i + 1, (i + 1) % n + 1);
      return {};
    }
  }
  if (!(enclosed_area(points) > 0)) {
    fault = "the points do not run counter-clockwise";
    return {};
  }
  // Slopes m by chord length at the points, such that second derivatives are continuous:
  // m[i-1]/h[i-1] + 2 m[i] (1/h[i-1] + 1/h[i]) + m[i+1]/h[i] = 3 (d[i-1]/h[i-1] + d[i]/h[i]),
  // d the slope of a chord. Real and imaginary parts are two right-hand sides.
  // A full matrix, columns first, for a cyclic band: a thousand points at most are solved once.
  std::vector<double> a(n * n), m(2 * n);
  for (std::size_t i = 0; i < n; ++i) {
    const std::size_t before = (i + n - 1) % n, after = (i + 1) % n;
    a[before * n + i] += 1 / h[before];
    a[i * n + i] += 2 / h[before] + 2 / h[i];
    a[after * n + i] += 1 / h[i];
    const point right = 3.0 * ((points[i] - points[before]) / (h[before] * h[before]) +
                               (points[after] - points[i]) / (h[i] * h[i]));
    m[i] = right.real();
    m[n + i] = right.imag();
  }
  if (!linear_algebra::solve_linear(a, m, static_cast<int>(n), 2)) {
    fault = "no smooth curve runs through the points";
    return {};
  }
  std::vector<wall_piece> pieces;
  for (std::size_t i = 0; i < n; ++i) {
    const std::size_t j = (i + 1) % n;
    const point chord = points[j] - points[i];
    const point from = h[i] * point{m[i], m[n + i]};
    const point to = h[i] * point{m[j], m[n + j]};
    wall_piece p;
    p.kind = piece_kind::cubic;
    p.c = {points[i], from, 3.0 * chord - 2.0 * from - to, from + to - 2.0 * chord};
    pieces.push_back(p);
  }
  return close_wall(std::move(pieces));
}

wall scaled_wall(const wall& w, double by_x, double by_y) {
  const auto scaled = [by_x, by_y](point z) { return point{by_x * z.real(), by_y * z.imag()}; };
  std::vector<wall_piece> pieces = w.piece;
  for (wall_piece& p : pieces) {
    for (point& c : p.c) c = scaled(c);
    p.centre = scaled(p.centre);
    // An arc's axes lie along x and y, and w is its parameter, not an angle seen from the centre:
    // scaled by two factors it remains an arc from w0 to w1.
    p.a *= by_x;
    p.b *= by_y;
  }
  return close_wall(std::move(pieces));
}

wall_place place_on_piece(const wall& w, std::size_t ix_piece, double s) {
  const wall_piece& p = w.piece[ix_piece];
  const auto [z, by_t, by_tt] = curve(p, parameter_at(p, s - w.start[ix_piece]));
  const double speed = std::abs(by_t);
  return {z, by_t / speed, cross(by_t, by_tt) / (speed * speed * speed)};
}

std::size_t piece_at(const wall& w, double s) {
  const double on_wall = s - w.length * std::floor(s / w.length);
  const auto above = std::upper_bound(w.start.begin() + 1, w.start.end(), on_wall);
  return static_cast<std::size_t>(above - w.start.begin()) - 1;
}

wall_place place_at(const wall& w, double s) {
  return place_on_piece(w, piece_at(w, s), s - w.length * std::floor(s / w.length));
}

nearest_wall find_nearest(const wall& w, point z) {
  // A table asks for thousands of places: the distance of each sample is worked out once.
  const wall_sample* nearest = w.sample.data();
  double least = std::numeric_limits<double>::infinity();
  for (const wall_sample& sample : w.sample) {
    const double squared = std::norm(sample.z - z);
    if (squared < least) {
      least = squared;
      nearest = &sample;
    }
  }
  // Newton on the foot of the perpendicular, never further than the neighbouring samples.
  const double spacing = w.length / samples_per_wall;
  double s = nearest->s;
  wall_place at = place_at(w, s);
  for (int n = 0; n < 4; ++n) {
    const double along = dot(z - at.z, at.tangent);
    // Beyond the centre of curvature the foot of the perpendicular is no nearest point any more.
    const double bend = 1 - at.curvature * dot(z - at.z, point{0, 1} * at.tangent);
    if (!(bend > 0)) break;
    s = std::clamp(s + along / bend, nearest->s - spacing, nearest->s + spacing);
    at = place_at(w, s);
  }
  const double distance = std::abs(z - at.z);
  const double side = cross(at.tangent, z - at.z);
  return {s, side < 0 ? -distance : distance};
}

}  // namespace chamber_solver
