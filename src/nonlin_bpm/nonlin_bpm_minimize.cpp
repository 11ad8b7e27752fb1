// The position fit: Gauss-Newton steps in x and y; the scale follows from them in closed form.
#include <cmath>
#include <limits>

#include "cell_kernel.hpp"
#include "nonlin_bpm_mod.hpp"

namespace nonlin_bpm_mod {
namespace {

constexpr int max_steps = 30;
constexpr int max_halvings = 12;          // the smallest part of a step tried is 2^-12
constexpr double small_step = 1e-7;       // [m] a full step below this ends the fit
constexpr double chi2_slack = 1e-12;      // chi2 may rise by rounding, relative and absolute
constexpr double chi2_floor = 1e-28;
constexpr double singular_limit = 1e-13;  // determinant against the product of the diagonal

double sum(const four& a) { return a[0] + a[1] + a[2] + a[3]; }

/// One reading as the fit sees it.
struct reading {
  four v{};        // calibrated signals scaled to sum 1; 0 for the bad button
  four used{};     // 1, and 0 for the bad button
  double sum = 0;  // of the calibrated signals before scaling
  int bad = 0;     // bad button, 0 for none
};

/// A place, the best scale there, and what is left of the readings.
struct trial {
  double x = 0, y = 0;  // [m]
  cell_values model{};  // of the used buttons
  four residual{};
  double scale = 0;
  double chi2 = 0;
};

struct plane_step {
  double x = 0, y = 0;  // [m]
};

// False when the place gives no signals: outside the table or in a cell without data.
bool evaluate(const reading& read, double x, double y, trial& at) {
  if (!evaluate_cell<false>(*func_bpm, x, y, at.model)) return false;
  at.model.phi *= read.used;
  at.model.dx *= read.used;
  at.model.dy *= read.used;
  const double size2 = sum(at.model.phi * at.model.phi);
  if (size2 == 0) return false;
  at.x = x;
  at.y = y;
  at.scale = sum(at.model.phi * read.v) / size2;
  at.residual = at.scale * at.model.phi - read.v;
  at.chi2 = sum(at.residual * at.residual);
  return true;
}

// The start node whose signals point most nearly in the direction of the readings. One group of
// nodes at a time is looked through only when its largest cosine passes the best so far.
std::size_t nearest_start(const table_struct& table, const reading& read) {
  constexpr std::size_t group = start_cosines::group;
  const start_cosines& list = table.cosines[static_cast<std::size_t>(read.bad)];
  std::array<float, 4> v{};
  for (std::size_t k = 0; k < 4; ++k) v[k] = static_cast<float>(read.v[k]);
  std::size_t best = 0;
  float largest = -1;
  for (std::size_t first = 0; first < list.f[0].size(); first += group) {
    std::array<float, group> cosine;
    for (std::size_t i = 0; i < group; ++i) {
      cosine[i] = list.f[0][first + i] * v[0] + list.f[1][first + i] * v[1] +
                  list.f[2][first + i] * v[2] + list.f[3][first + i] * v[3];
    }
    for (std::size_t i = 0; i < group; ++i) {
      if (cosine[i] > largest) {
        largest = cosine[i];
        best = first + i;
      }
    }
  }
  return best;
}

// Start: the nearest node, or where its linear answer leads when that fits better. The linear
// answer needs all four buttons. Earlier readings play no part: a result never depends on history.
trial first_trial(const table_struct& table, const reading& read) {
  const auto [ix, iy] = table.start[nearest_start(table, read)];
  trial start;
  evaluate(read, table.x(ix), table.y(iy), start);
  if (read.bad != 0) return start;
  const auto& response = table.grid(ix, iy).response_mat;
  const four& v = read.v;
  const std::array<double, 3> q{v[1] + v[3] - v[0] - v[2], v[2] + v[3] - v[0] - v[1], sum(v)};
  std::array<double, 3> a{};
  for (int i = 1; i <= 3; ++i) {
    a[static_cast<std::size_t>(i) - 1] =
        response(i, 1) * q[0] + response(i, 2) * q[1] + response(i, 3) * q[2];
  }
  trial linear;
  const bool good = evaluate(read, start.x + a[0] / a[2], start.y + a[1] / a[2], linear);
  return good && linear.chi2 < start.chi2 ? linear : start;
}

// Full Gauss-Newton step in x, y and scale, of which only x and y are taken: the scale of the next
// trial is exact anyway. `length` brings the columns to a common size. The 3 x 3 system is solved by
// its adjugate. Returns false when it is singular.
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

void nonlin_bpm_minimize(int i_bpm, const button_signals& but_in, position& x, double& chi2_out) {
  nonlin_bpm_set_pointers(i_bpm);
  const calib_struct& calib = bpm_calib(i_bpm);
  reading read;
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

  const table_struct& table = *func_bpm;
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
