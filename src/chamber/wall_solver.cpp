#include "wall_solver.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "linear_algebra.hpp"
#include "quadrature.hpp"
#include "run_time.hpp"

namespace chamber_solver {
namespace {

constexpr double pi = std::numbers::pi;
constexpr double same_place = 1e-9;  // of the wall's length: cuts nearer than this are one
constexpr int curvature_samples = 32;
// A panel halved so often is 1e-12 of its length: a place on the wall itself ends there.
constexpr int max_splits = 40;  // of a panel near the place asked for

/// Where the wall is cut.
struct cut {
  double s = 0;
  bool graded = false;  // direction or curvature jumps here
};

/// A stretch of wall with one voltage law, in the coordinate in which it is smooth.
struct stretch {
  double from = 0, to = 0;  // s [m]; on a disc the angle a [rad]
  bool graded_from = false, graded_to = false;
  int button = -1;  // index, -1: between buttons
  bool disc = false;
  std::size_t piece = 0;
  double shift = 0;  // taken from s to come back to the first turn around the wall
};

bool jumps(const wall& w, std::size_t joint) {
  const std::size_t before = (joint + w.piece.size() - 1) % w.piece.size();
  const double end = w.start[before] + w.piece[before].s.back();
  const wall_place a = place_on_piece(w, before, end);
  const wall_place b = place_on_piece(w, joint, w.start[joint]);
  // Above the rounding of slopes and of second derivatives: arcs that meet a line do jump in
  // curvature, quarters of an ellipse do not.
  return std::abs(a.tangent - b.tangent) > 1e-9 ||
         std::abs(a.curvature - b.curvature) * w.length > 1e-6;
}

// Distance along the wall from a to b, the short way, with sign.
double along(const wall& w, double a, double b) {
  const double d = b - a;
  return d - w.length * std::round(d / w.length);
}

// Button edges and joints, ascending. A joint at a button edge gives its jump to the edge.
std::vector<cut> find_cuts(const chamber& c) {
  const wall& w = c.contour;
  const auto onto_wall = [&w](double s) { return s - w.length * std::floor(s / w.length); };
  std::vector<cut> cuts;
  for (const button_on_wall& b : c.button) {
    cuts.push_back({onto_wall(b.s - b.half), false});
    cuts.push_back({onto_wall(b.s + b.half), false});
  }
  for (std::size_t k = 0; k < w.piece.size(); ++k) {
    const cut joint{w.start[k], jumps(w, k)};
    const auto edge = std::find_if(cuts.begin(), cuts.end(), [&](const cut& known) {
      return std::abs(along(w, known.s, joint.s)) < same_place * w.length;
    });
    if (edge == cuts.end()) {
      cuts.push_back(joint);
    } else {
      edge->graded = edge->graded || joint.graded;
    }
  }
  std::sort(cuts.begin(), cuts.end(), [](const cut& a, const cut& b) { return a.s < b.s; });
  return cuts;
}

stretch make_stretch(const chamber& c, const cut& first, const cut& last, double s_last) {
  const wall& w = c.contour;
  stretch part;
  const double middle = (first.s + s_last) / 2;
  part.from = first.s;
  part.to = s_last;
  part.graded_from = first.graded;
  part.graded_to = last.graded;
  part.piece = piece_at(w, middle);
  part.shift = w.length * std::floor(middle / w.length);
  for (std::size_t k = 0; k < c.button.size(); ++k) {
    const button_on_wall& b = c.button[k];
    const double off = along(w, b.s, middle);
    // The middle decides: cuts stand at all button edges, so a stretch lies within one or in none.
    if (std::abs(off) >= b.half) continue;
    part.button = static_cast<int>(k);
    part.disc = b.shape == button_shape::disc;
    if (!part.disc) continue;
    const double centre = middle - off;
    const auto angle = [&](double s) {
      // An edge lies at 1 only to rounding, and asin beyond it is no number.
      return std::asin(std::clamp((s - centre) / b.half, -1.0, 1.0));
    };
    part.from = angle(first.s);
    part.to = angle(s_last);
    part.shift -= centre;
  }
  return part;
}

// No panel longer than its share of the wall, nor than the radius of curvature along it.
int count_panels(const chamber& c, const stretch& part, double s_from, double s_to) {
  double limit = c.contour.length / c.solver.panels;
  for (int i = 0; i <= curvature_samples; ++i) {
    const double s = s_from + (s_to - s_from) * i / curvature_samples;
    const double curvature = std::abs(place_on_piece(c.contour, part.piece, s).curvature);
    if (curvature * limit > 1) limit = 1 / curvature;
  }
  return std::max(1, static_cast<int>(std::ceil((s_to - s_from) / limit - same_place)));
}

// Ends of the panels of a stretch, ascending in its coordinate.
std::vector<double> panel_ends(const chamber& c, const stretch& part, int n) {
  const double width = (part.to - part.from) / n;
  std::vector<double> ends;
  ends.reserve(static_cast<std::size_t>(n) + 1);
  for (int i = 0; i < n; ++i) ends.push_back(part.from + i * width);
  ends.push_back(part.to);
  double halved = width;
  for (int level = 0; level < c.solver.levels; ++level) {
    halved /= 2;
    if (part.graded_from) ends.push_back(part.from + halved);
    // A single panel graded at both ends has its middle already.
    if (part.graded_to && !(n == 1 && level == 0 && part.graded_from)) {
      ends.push_back(part.to - halved);
    }
  }
  std::sort(ends.begin(), ends.end());
  return ends;
}

void add_panel(const chamber& c, const gauss_rule& rule, const stretch& part, int run, double from,
               double to, std::vector<wall_node>& nodes) {
  const double half = (to - from) / 2;
  for (std::size_t j = 0; j < rule.node.size(); ++j) {
    const double v = from + half * (1 + rule.node[j]);
    wall_node node;
    node.run = run;
    double s = v;
    node.ds = rule.weight[j] * half;
    if (part.disc) {
      const double radius = c.button[static_cast<std::size_t>(part.button)].half;
      s = radius * std::sin(v);
      // ds = R cos(a) da: towards the edges of a disc the nodes crowd by themselves.
      node.ds *= radius * std::cos(v);
    }
    if (part.button >= 0) node.voltage.v[part.button] = part.disc ? std::cos(v) : 1;
    node.place = place_on_piece(c.contour, part.piece, s - part.shift);
    nodes.push_back(node);
  }
}

// --- panels and their halves --------------------------------------------------------------------

struct panel_view {
  const point* z;
  const point* dz;
  const lanes* density;
  std::size_t n;
};

double nearest_node2(const panel_view& p, point z) {
  double least = HUGE_VAL;
  for (std::size_t j = 0; j < p.n; ++j) least = std::min(least, std::norm(p.z[j] - z));
  return least;
}

// Adds the panel's part of 2 pi phi and of its slopes, from the nodes as they are. The quotients
// are written with squared distances: a complex division would cost more than all the rest.
void add_far(const panel_view& p, point z, signals& sum) {
  for (std::size_t j = 0; j < p.n; ++j) {
    const double dx = p.z[j].real() - z.real();
    const double dy = p.z[j].imag() - z.imag();
    const double inverse = 1 / (dx * dx + dy * dy);
    const double re = (p.dz[j].real() * dx + p.dz[j].imag() * dy) * inverse;
    const double im = (p.dz[j].imag() * dx - p.dz[j].real() * dy) * inverse;
    const four& mu = p.density[j].v;
    sum.phi += im * mu;
    sum.dx += (im * dx - re * dy) * inverse * mu;
    sum.dy += (re * dx + im * dy) * inverse * mu;
  }
}

// One half of a panel, through the polynomials of its nodes. dz is taken without its weights. A
// panel without density gives halves without density.
wall_nodes half_panel(const gauss_rule& rule, const panel_view& p,
                      const std::vector<double>& matrix) {
  wall_nodes half;
  half.z.resize(p.n);
  half.dz.resize(p.n);
  if (p.density != nullptr) half.density.resize(p.n);
  for (std::size_t i = 0; i < p.n; ++i) {
    for (std::size_t j = 0; j < p.n; ++j) {
      const double m = matrix[i * p.n + j];
      half.z[i] += m * p.z[j];
      half.dz[i] += m / rule.weight[j] * p.dz[j];
      if (p.density != nullptr) half.density[i].v += m * p.density[j].v;
    }
    half.dz[i] *= rule.weight[i] / 2;
  }
  return half;
}

panel_view view_of(const wall_nodes& nodes, std::size_t first, std::size_t n) {
  return {&nodes.z[first], &nodes.dz[first],
          nodes.density.empty() ? nullptr : &nodes.density[first], n};
}

// A panel nearer to z than its length is looked at in halves.
void add_panel_at(const solved_wall& w, const panel_view& p, double length, point z, int splits,
                  signals& sum) {
  if (splits == 0 || nearest_node2(p, z) > length * length) {
    add_far(p, z, sum);
    return;
  }
  for (const auto* matrix : {&w.left, &w.right}) {
    // A new set of nodes each time: places near the wall are few, and all halves kept would be
    // many.
    const wall_nodes half = half_panel(w.rule, p, *matrix);
    add_panel_at(w, view_of(half, 0, p.n), length / 2, z, splits - 1, sum);
  }
}

// --- the system ---------------------------------------------------------------------------------

// What a source node adds to the potential of a wall point, per density.
// The angle under which z sees the piece: bounded along a smooth wall, which makes the diagonal a
// curvature, but not across a corner.
double kernel(point dz, point d) {
  return (dz.imag() * d.real() - dz.real() * d.imag()) / (2 * pi * std::norm(d));
}

// Adds the panel's elements in the row of wall point z, through its parts. `from_whole` turns
// densities at the nodes of the whole panel into those at the nodes of this part.
void add_row(const solved_wall& w, const panel_view& p, const std::vector<double>& from_whole,
             double length, point z, int splits, std::vector<double>& row) {
  if (splits == 0 || nearest_node2(p, z) > length * length) {
    for (std::size_t i = 0; i < p.n; ++i) {
      const double k = kernel(p.dz[i], p.z[i] - z);
      for (std::size_t j = 0; j < p.n; ++j) row[j] += k * from_whole[i * p.n + j];
    }
    return;
  }
  for (const auto* matrix : {&w.left, &w.right}) {
    std::vector<double> to_half(p.n * p.n);
    for (std::size_t i = 0; i < p.n; ++i) {
      for (std::size_t k = 0; k < p.n; ++k) {
        const double m = (*matrix)[i * p.n + k];
        for (std::size_t j = 0; j < p.n; ++j) to_half[i * p.n + j] += m * from_whole[k * p.n + j];
      }
    }
    add_row(w, view_of(half_panel(w.rule, p, *matrix), 0, p.n), to_half, length / 2, z, splits - 1,
            row);
  }
}

// The elements of near panels across a jump, again and better.
void mend_rows(const solved_wall& w, const std::vector<wall_node>& nodes,
               std::vector<double>& matrix) {
  const std::size_t n = nodes.size();
  const std::size_t p = w.rule.node.size();
  std::vector<double> unit(p * p);
  for (std::size_t j = 0; j < p; ++j) unit[j * p + j] = 1;
  for (std::size_t q = 0; q < w.panel_length.size(); ++q) {
    const double length = w.panel_length[q];
    const panel_view panel = view_of(w.nodes, q * p, p);
    for (std::size_t i = 0; i < n; ++i) {
      const point z = nodes[i].place.z;
      // Where the wall is smooth the nodes as they are do well. The stretch across s = 0 has two
      // numbers when there is no jump there; it is mended without need, and no worse for it.
      if (nodes[i].run == nodes[q * p].run ||
          std::norm(w.panel_middle[q] - z) > 4 * length * length) {
        continue;
      }
      std::vector<double> row(p);
      add_row(w, panel, unit, length, z, max_splits, row);
      for (std::size_t j = 0; j < p; ++j) matrix[(q * p + j) * n + i] = row[j];
    }
  }
}

std::vector<double> wall_matrix(const solved_wall& w, const std::vector<wall_node>& nodes) {
  const std::size_t n = nodes.size();
  std::vector<double> matrix(n * n);
  for (std::size_t j = 0; j < n; ++j) {
    for (std::size_t i = 0; i < n; ++i) {
      // Columns first, as the solver takes them.
      matrix[j * n + i] = i == j ? 0.5 + nodes[j].place.curvature * nodes[j].ds / (4 * pi)
                                 : kernel(w.nodes.dz[j], w.nodes.z[j] - w.nodes.z[i]);
    }
  }
  mend_rows(w, nodes, matrix);
  return matrix;
}

// Everything but the density.
solved_wall place_panels(const std::vector<wall_node>& nodes, int p) {
  solved_wall w;
  w.rule = make_gauss_rule(p);
  std::vector<double> lower, upper;
  for (const double v : w.rule.node) {
    lower.push_back((v - 1) / 2);
    upper.push_back((v + 1) / 2);
  }
  w.left = interpolation_matrix(w.rule.node, lower);
  w.right = interpolation_matrix(w.rule.node, upper);
  for (const wall_node& node : nodes) {
    w.nodes.z.push_back(node.place.z);
    w.nodes.dz.push_back(node.ds * node.place.tangent);
  }
  for (std::size_t first = 0; first < nodes.size(); first += w.rule.node.size()) {
    double length = 0;
    point middle;
    for (std::size_t j = first; j < first + w.rule.node.size(); ++j) {
      length += nodes[j].ds;
      middle += nodes[j].ds * nodes[j].place.z;
    }
    w.panel_length.push_back(length);
    w.panel_middle.push_back(middle / length);
  }
  return w;
}

}  // namespace

std::vector<wall_node> cut_wall(const chamber& c) {
  const gauss_rule rule = make_gauss_rule(c.solver.nodes);
  const std::vector<cut> cuts = find_cuts(c);
  std::vector<wall_node> nodes;
  int run = 0;
  for (std::size_t k = 0; k < cuts.size(); ++k) {
    const cut& first = cuts[k];
    if (first.graded) ++run;
    const cut& last = cuts[(k + 1) % cuts.size()];
    // The last stretch runs on beyond the wall's end instead of starting again at 0: middles and
    // lengths need no case of their own.
    const double s_last = k + 1 < cuts.size() ? last.s : last.s + c.contour.length;
    const stretch part = make_stretch(c, first, last, s_last);
    const double turn = c.contour.length * std::floor((first.s + s_last) / 2 / c.contour.length);
    const int n = count_panels(c, part, first.s - turn, s_last - turn);
    const std::vector<double> ends = panel_ends(c, part, n);
    for (std::size_t i = 0; i + 1 < ends.size(); ++i) {
      add_panel(c, rule, part, run, ends[i], ends[i + 1], nodes);
    }
  }
  return nodes;
}

solved_wall solve_wall(const chamber& c, const std::vector<wall_node>& nodes) {
  const std::size_t n = nodes.size();
  solved_wall w = place_panels(nodes, c.solver.nodes);
  std::vector<double> matrix = wall_matrix(w, nodes);
  // Four voltages, one matrix: it is factorised once for all buttons.
  std::vector<double> side(4 * n);
  for (std::size_t k = 0; k < 4; ++k) {
    for (std::size_t i = 0; i < n; ++i) side[k * n + i] = nodes[i].voltage.v[k];
  }
  if (!linear_algebra::solve_linear(matrix, side, static_cast<int>(n), 4)) {
    util::run_time_error("the wall of chamber " + c.name + " gives a singular system");
  }
  w.nodes.density.resize(n);
  for (std::size_t k = 0; k < 4; ++k) {
    for (std::size_t i = 0; i < n; ++i) w.nodes.density[i].v[k] = side[k * n + i];
  }
  return w;
}

signals signals_at(const solved_wall& w, point z) {
  const std::size_t p = w.rule.node.size();
  signals sum;
  for (std::size_t i = 0; i < w.panel_length.size(); ++i) {
    const double length = w.panel_length[i];
    const panel_view panel = view_of(w.nodes, i * p, p);
    // No node is further from the middle than the length of its panel.
    if (std::norm(w.panel_middle[i] - z) > 4 * length * length) {
      add_far(panel, z, sum);
    } else {
      add_panel_at(w, panel, length, z, max_splits, sum);
    }
  }
  sum.phi /= 2 * pi;
  sum.dx /= 2 * pi;
  sum.dy /= 2 * pi;
  return sum;
}

}  // namespace chamber_solver
