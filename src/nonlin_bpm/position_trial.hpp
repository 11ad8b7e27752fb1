// position_trial: one reading, one place, and the step from there: what a position fit is made of.
//
// Drawn into its callers, each for one kind of processor (position_fit.cpp).
#pragma once
#include <array>
#include <cmath>

#include "cell_kernel.hpp"
#include "lookup_table.hpp"

namespace nonlin_bpm_mod {

// Three steps are the rule, and no reading inside a table was seen to take more than eleven.
inline constexpr int max_steps = 30;
inline constexpr int max_halvings = 12;  // the smallest part of a step tried is 2^-12: micrometres
// [m] A full step below this ends the fit and is still taken: what then remains is of second order.
inline constexpr double small_step = 1e-7;
// chi2 may rise by rounding: relative, and absolute as the square of 1e-14 of signals of sum 1.
inline constexpr double chi2_slack = 1e-12;
inline constexpr double chi2_floor = 1e-28;
// Determinant against the product of the diagonal: a thousand roundings, below it noise.
inline constexpr double singular_limit = 1e-13;

inline double sum(const four& a) { return a[0] + a[1] + a[2] + a[3]; }

/// One reading as the fit sees it.
struct reading {
  const table_struct* table = nullptr;
  four v{};        // calibrated signals scaled to sum 1; 0 for the bad button
  four used{};     // 1, and 0 for the bad button
  double sum = 0;  // of the calibrated signals before scaling
  int bad = 0;     // bad button, 0 for none
};

/// A place, the best scale there, and what is left of the readings. Several are made per reading,
/// so what `evaluate` fills in any case has no first value.
struct trial {
  double x, y;        // [m]
  cell_values model;  // of the used buttons
  four residual{};
  double scale = 0;
  double chi2 = 0;
};

struct plane_step {
  double x = 0, y = 0;  // [m]
};

// The best scale of the model for this reading, and chi2 with it. False when the model gives no
// signals.
inline bool judge(const reading& read, trial& at) {
  at.model.phi *= read.used;
  at.model.dx *= read.used;
  at.model.dy *= read.used;
  const double size2 = sum(at.model.phi * at.model.phi);
  if (size2 == 0) return false;
  at.scale = sum(at.model.phi * read.v) / size2;
  at.residual = at.scale * at.model.phi - read.v;
  at.chi2 = sum(at.residual * at.residual);
  return true;
}

// False when the place gives no signals: outside the table or in a cell without data.
inline bool evaluate(const reading& read, double x, double y, trial& at) {
  at.x = x;
  at.y = y;
  return evaluate_cell<false>(*read.table, x, y, at.model) && judge(read, at);
}
// A start from the table's node, where the fit does not begin with the node's linear answer: that
// needs all four buttons, and must fit better.
inline void start_at_node(const reading& read, std::size_t nearest, trial& start) {
  const table_struct& table = *read.table;
  const auto [ix, iy] = table.start[nearest];
  const grid_struct& node = table.grid(ix, iy);
  start.x = table.x(ix);
  start.y = table.y(iy);
  // What the interpolation gives at a node is what the table holds there.
  start.model = {node.b.phi.v, node.b.dphi_dx.v, node.b.dphi_dy.v};
  judge(read, start);
}
// Full Gauss-Newton step in x, y and scale, of which only x and y are taken: the scale of the next
// trial is exact anyway. `length` brings the columns to a common size. The 3 x 3 system is solved
// by its adjugate. Returns false when it is singular.
inline bool full_step(const trial& at, double length, plane_step& step) {
  const four a = length * at.scale * at.model.dx;
  const four b = length * at.scale * at.model.dy;
  const four& c = at.model.phi;
  const double aa = sum(a * a), ab = sum(a * b), ac = sum(a * c);
  const double bb = sum(b * b), bc = sum(b * c), cc = sum(c * c);
  const double ar = sum(a * at.residual), br = sum(b * at.residual), cr = sum(c * at.residual);
  const double m11 = bb * cc - bc * bc;
  const double m12 = ac * bc - ab * cc;
  const double m13 = ab * bc - ac * bb;
  const double m22 = aa * cc - ac * ac;
  const double m23 = ab * ac - aa * bc;
  const double determinant = aa * m11 + ab * m12 + ac * m13;
  if (!(determinant > singular_limit * aa * bb * cc)) return false;
  step.x = -length * (m11 * ar + m12 * br + m13 * cr) / determinant;
  step.y = -length * (m12 * ar + m22 * br + m23 * cr) / determinant;
  return true;
}

// Takes the step or its largest half, quarter... that does not fit worse. `left_table` tells
// whether one of them had no signals.
inline bool take_step(const reading& read, const plane_step& step, trial& at, bool& left_table) {
  const double limit = at.chi2 * (1 + chi2_slack) + chi2_floor;
  double part = 1;
  for (int i = 0; i <= max_halvings; ++i, part /= 2) {
    trial next;
    if (!evaluate(read, at.x + part * step.x, at.y + part * step.y, next)) {
      left_table = true;
    } else if (next.chi2 <= limit) {
      at = next;
      return true;
    }
  }
  return false;
}

}  // namespace nonlin_bpm_mod
