// The position fit: Gauss-Newton steps in x and y; the scale follows from them in closed form.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>

#include "cell_kernel.hpp"
#include "nonlin_bpm_mod.hpp"

namespace nonlin_bpm_mod {
namespace {

// Three steps are the rule, and no reading inside a table was seen to take more than eleven.
constexpr int max_steps = 30;
constexpr int max_halvings = 12;  // the smallest part of a step tried is 2^-12: micrometres
// [m] A full step below this ends the fit and is still taken: what then remains is of second order.
constexpr double small_step = 1e-7;
// chi2 may rise by rounding: relative, and absolute as the square of 1e-14 of signals of sum 1.
constexpr double chi2_slack = 1e-12;
constexpr double chi2_floor = 1e-28;
// Determinant against the product of the diagonal: a thousand roundings, below it noise.
constexpr double singular_limit = 1e-13;

using two_words [[gnu::vector_size(16)]] = std::int64_t;  // a comparison of four floats at once

double sum(const four& a) { return a[0] + a[1] + a[2] + a[3]; }

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
  four residual;
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
bool evaluate(const reading& read, double x, double y, trial& at) {
  at.x = x;
  at.y = y;
  return evaluate_cell<false>(*read.table, x, y, at.model) && judge(read, at);
}

/// Cosines between the reading and the eight nodes of a group.
struct group_cosines {
  four_floats low, high;
};
inline void find_cosines(const start_group& group, const std::array<float, 4>& v,
                         group_cosines& c) {
  const auto& f = group.f;
  c.low = f[0].low * v[0] + f[1].low * v[1] + f[2].low * v[2] + f[3].low * v[3];
  c.high = f[0].high * v[0] + f[1].high * v[1] + f[2].high * v[2] + f[3].high * v[3];
}

// The start node whose signals point most nearly in the direction of the readings; the first of
// equals. Looking for the largest cosine, and then for its place, is cheaper than carrying places
// along.
std::size_t nearest_start(const table_struct& table, const reading& read) {
  std::array<float, 4> v{};
  for (int k = 0; k < 4; ++k) v[static_cast<std::size_t>(k)] = static_cast<float>(read.v[k]);
  const std::vector<start_group>& groups = table.cosines[static_cast<std::size_t>(read.bad)];
  group_cosines c;
  four_floats low = four_floats{} - 1, high = low;
  for (const start_group& group : groups) {
    find_cosines(group, v, c);
    low = c.low > low ? c.low : low;
    high = c.high > high ? c.high : high;
  }
  low = low > high ? low : high;
  const float largest = std::max({low[0], low[1], low[2], low[3]});
  for (std::size_t g = 0; g < groups.size(); ++g) {
    find_cosines(groups[g], v, c);
    const auto same = reinterpret_cast<two_words>((c.low == largest) | (c.high == largest));
    if ((same[0] | same[1]) == 0) continue;
    // One subscript a vector: gcc 12 under its sanitizers reads wrong lanes of a chosen one.
    for (std::size_t i = 0; i < 4; ++i) {
      if (c.low[i] == largest) return g * start_group::size + i;
    }
    for (std::size_t i = 0; i < 4; ++i) {
      if (c.high[i] == largest) return g * start_group::size + 4 + i;
    }
  }
  return 0;  // only for readings that are no numbers
}

// Start: the nearest node, or where its linear answer leads when that fits better. The linear
// answer needs all four buttons. Earlier readings play no part: a result never depends on history.
trial first_trial(const table_struct& table, const reading& read) {
  const auto [ix, iy] = table.start[nearest_start(table, read)];
  const grid_struct& node = table.grid(ix, iy);
  trial start;
  start.x = table.x(ix);
  start.y = table.y(iy);
  // What the interpolation gives at a node is what the table holds there.
  start.model = {node.b.phi.v, node.b.dphi_dx.v, node.b.dphi_dy.v};
  judge(read, start);
  if (read.bad != 0) return start;
  const four& v = read.v;
  const std::array<double, 3> q{v[1] + v[3] - v[0] - v[2], v[2] + v[3] - v[0] - v[1], sum(v)};
  const auto answer = [&](int i) {
    const auto& response = node.response_mat;
    return response(i, 1) * q[0] + response(i, 2) * q[1] + response(i, 3) * q[2];
  };
  const double scale = answer(3);
  trial linear;
  const bool good =
      evaluate(read, start.x + answer(1) / scale, start.y + answer(2) / scale, linear);
  return good && linear.chi2 < start.chi2 ? linear : start;
}

// Full Gauss-Newton step in x, y and scale, of which only x and y are taken: the scale of the next
// trial is exact anyway. `length` brings the columns to a common size. The 3 x 3 system is solved
// by its adjugate. Returns false when it is singular.
bool full_step(const trial& at, double length, plane_step& step) {
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
bool take_step(const reading& read, const plane_step& step, trial& at, bool& left_table) {
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

void fail(fit_failure reason, position& x, double& chi2_out) {
  x.fill(0);
  chi2_out = -static_cast<double>(reason);
}

}  // namespace

void fit_position(const table_struct& table, const calib_struct& calib,
                  const button_signals& but_in, position& x, double& chi2_out) {
  reading read;
  read.table = &table;
  read.bad = calib.ix_bad_button;
  for (int k = 1; k <= 4; ++k) {
    if (k == read.bad) continue;
    read.v[k - 1] = calib.coeff(k) * but_in(k);
    read.used[k - 1] = 1;
  }
  read.sum = sum(read.v);
  if (!(read.sum > 0 && read.sum <= std::numeric_limits<double>::max())) {
    return fail(fit_failure::unusable_signals, x, chi2_out);
  }
  read.v = read.v / read.sum;

  const double length = (table.x.item.back() - table.x.item.front()) / 4;
  trial at = first_trial(table, read);
  for (int n = 1; n <= max_steps; ++n) {
    plane_step step;
    if (!full_step(at, length, step)) return fail(fit_failure::singular, x, chi2_out);
    if (std::abs(step.x) < small_step && std::abs(step.y) < small_step) {
      trial last;
      if (evaluate(read, at.x + step.x, at.y + step.y, last)) at = last;
      x(1) = at.x;
      x(2) = at.y;
      x(3) = at.scale * read.sum;
      chi2_out = at.chi2;
      return;
    }
    bool left_table = false;
    if (!take_step(read, step, at, left_table)) {
      return fail(left_table ? fit_failure::beyond_table : fit_failure::no_convergence, x,
                  chi2_out);
    }
  }
  fail(fit_failure::no_convergence, x, chi2_out);
}

}  // namespace nonlin_bpm_mod
