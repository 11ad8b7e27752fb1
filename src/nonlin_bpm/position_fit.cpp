// The position fit: Gauss-Newton steps in x and y; the scale follows from them in closed form.
//
// Several readings are fitted side by side, each as if it were alone: a step is one long chain of
// operations that wait for each other and for the table in memory, and the processor fills the
// waiting with its neighbours' work.
#include "position_fit.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <span>

#include "cell_kernel.hpp"
#include "nonlin_bpm_mod.hpp"

namespace nonlin_bpm_mod {
namespace {

// Three steps are the rule, and no reading inside a table was seen to take more than eleven.
constexpr int max_steps = 30;
// Readings side by side: more do not fit into the nearest cache with all they need.
constexpr std::size_t abreast = 8;
constexpr int max_halvings = 12;  // the smallest part of a step tried is 2^-12: micrometres
// [m] A full step below this ends the fit and is still taken: what then remains is of second order.
constexpr double small_step = 1e-7;
// chi2 may rise by rounding: relative, and absolute as the square of 1e-14 of signals of sum 1.
constexpr double chi2_slack = 1e-12;
constexpr double chi2_floor = 1e-28;
// Determinant against the product of the diagonal: a thousand roundings, below it noise.
constexpr double singular_limit = 1e-13;

using eight_counts [[gnu::vector_size(32), gnu::aligned(32)]] = std::int32_t;

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
  four residual;
  double scale = 0;
  double chi2 = 0;
};

struct plane_step {
  double x = 0, y = 0;  // [m]
};

// One reading on its way.
struct fitted {
  reading read;
  trial at;
  plane_step linear;  // the place to which the linear answer leads
  bool is_going;
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

// Asks the memory for what will be needed: the table is larger than the nearest caches.
inline void fetch(const void* first, const void* last) {
  constexpr std::ptrdiff_t line = 64;
  for (const char* at = static_cast<const char*>(first); at < last; at += line) {
    __builtin_prefetch(at);
  }
}
inline void fetch_cell(const table_struct& table, double x, double y) {
  const int ix = locate_equal(table.x.item, table.x_per_step, x);
  const int iy = locate_equal(table.y.item, table.y_per_step, y);
  if (ix == 0 || iy == 0) return;
  const auto& c = table.grid.item[table.grid.offset(ix, iy)].b.c;
  fetch(c.data(), c.data() + c.size());
}
inline void fetch_node(const table_struct& table, std::size_t nearest) {
  const auto [ix, iy] = table.start[nearest];
  const grid_struct& node = table.grid.item[table.grid.offset(ix, iy)];
  fetch(&node.b.phi, &node + 1);
}

// The start node whose signals point most nearly in the direction of the readings; the first of
// equals. Every lane keeps the best of its own nodes: a later one must be better to take its place.
inline std::size_t nearest_start(const table_struct& table, const reading& read) {
  std::array<float, 4> v{};
  for (int k = 0; k < 4; ++k) v[static_cast<std::size_t>(k)] = static_cast<float>(read.v[k]);
  const std::vector<start_group>& groups = table.cosines[static_cast<std::size_t>(read.bad)];
  // Four searches take turns: one alone would wait at every group for its last comparison.
  struct search {
    eight_floats largest = eight_floats{} - 1;
    eight_counts at{};
  };
  std::array<search, start_group::abreast> searches;
  eight_counts group{};
  for (std::size_t first = 0; first < groups.size(); first += searches.size()) {
    for (std::size_t i = 0; i < searches.size(); ++i) {
      const auto& f = groups[first + i].f;
      const eight_floats cosine = f[0].v * v[0] + f[1].v * v[1] + f[2].v * v[2] + f[3].v * v[3];
      search& own = searches[i];
      const eight_counts better = cosine > own.largest;
      own.largest = better ? cosine : own.largest;
      own.at = better ? group : own.at;
      group += 1;
    }
  }
  const auto join = [](search& into, const search& other) {
    const eight_counts better =
        (other.largest > into.largest) | ((other.largest == into.largest) & (other.at < into.at));
    into.largest = better ? other.largest : into.largest;
    into.at = better ? other.at : into.at;
  };
  join(searches[0], searches[1]);
  join(searches[2], searches[3]);
  join(searches[0], searches[2]);
  const search& found = searches[0];
  std::size_t best = 0;
  float best_cosine = -2;
  for (std::size_t i = 0; i < start_group::size; ++i) {
    const std::size_t node = static_cast<std::size_t>(found.at[i]) * start_group::size + i;
    if (found.largest[i] > best_cosine || (found.largest[i] == best_cosine && node < best)) {
      best_cosine = found.largest[i];
      best = node;
    }
  }
  return best;
}

// Start: the nearest node, or where its linear answer leads when that fits better. The linear
// answer needs all four buttons. Earlier readings play no part: a result never depends on history.
inline void start_at_node(fitted& one, std::size_t nearest) {
  const table_struct& table = *one.read.table;
  const auto [ix, iy] = table.start[nearest];
  const grid_struct& node = table.grid(ix, iy);
  trial& start = one.at;
  start.x = table.x(ix);
  start.y = table.y(iy);
  // What the interpolation gives at a node is what the table holds there.
  start.model = {node.b.phi.v, node.b.dphi_dx.v, node.b.dphi_dy.v};
  judge(one.read, start);
  if (one.read.bad != 0) return;
  const four& v = one.read.v;
  const std::array<double, 3> q{v[1] + v[3] - v[0] - v[2], v[2] + v[3] - v[0] - v[1], sum(v)};
  const auto answer = [&](int i) {
    const auto& response = node.response_mat;
    return response(i, 1) * q[0] + response(i, 2) * q[1] + response(i, 3) * q[2];
  };
  const double scale = answer(3);
  one.linear = {start.x + answer(1) / scale, start.y + answer(2) / scale};
  fetch_cell(table, one.linear.x, one.linear.y);
}

inline void try_linear(fitted& one) {
  if (one.read.bad != 0) return;
  trial linear;
  if (evaluate(one.read, one.linear.x, one.linear.y, linear) && linear.chi2 < one.at.chi2) {
    one.at = linear;
  }
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

inline void fail(fit_failure reason, position& x, double& chi2_out) {
  x.fill(0);
  chi2_out = -static_cast<double>(reason);
}

// False when the signals are of no use.
inline bool prepare(const table_struct& table, const calib_struct& calib,
                    const button_signals& but_in, reading& read) {
  read = {};
  read.table = &table;
  read.bad = calib.ix_bad_button;
  for (int k = 1; k <= 4; ++k) {
    if (k == read.bad) continue;
    read.v[k - 1] = calib.coeff(k) * but_in(k);
    read.used[k - 1] = 1;
  }
  read.sum = sum(read.v);
  if (!(read.sum > 0 && read.sum <= std::numeric_limits<double>::max())) return false;
  read.v = read.v / read.sum;
  return true;
}

// One step of one reading. What ends it leaves its position, or why there is none.
inline void advance(fitted& one, double length, position& x, double& chi2_out) {
  plane_step step;
  one.is_going = false;
  if (!full_step(one.at, length, step)) return fail(fit_failure::singular, x, chi2_out);
  if (std::abs(step.x) < small_step && std::abs(step.y) < small_step) {
    trial last;
    if (evaluate(one.read, one.at.x + step.x, one.at.y + step.y, last)) one.at = last;
    x(1) = one.at.x;
    x(2) = one.at.y;
    x(3) = one.at.scale * one.read.sum;
    chi2_out = one.at.chi2;
    return;
  }
  bool left_table = false;
  if (!take_step(one.read, step, one.at, left_table)) {
    return fail(left_table ? fit_failure::beyond_table : fit_failure::no_convergence, x, chi2_out);
  }
  one.is_going = true;
}

// Up to `abreast` readings.
inline void fit_some(const table_struct& table, const calib_struct& calib,
                     std::span<const button_signals> but_in, std::span<position> x,
                     std::span<double> chi2_out) {
  std::array<fitted, abreast> all;
  std::array<std::size_t, abreast> nearest;
  const double length = (table.x.item.back() - table.x.item.front()) / 4;
  for (std::size_t i = 0; i < but_in.size(); ++i) {
    all[i].is_going = prepare(table, calib, but_in[i], all[i].read);
    if (all[i].is_going) {
      nearest[i] = nearest_start(table, all[i].read);
      fetch_node(table, nearest[i]);
    } else {
      fail(fit_failure::unusable_signals, x[i], chi2_out[i]);
    }
  }
  for (std::size_t i = 0; i < but_in.size(); ++i) {
    if (all[i].is_going) start_at_node(all[i], nearest[i]);
  }
  for (std::size_t i = 0; i < but_in.size(); ++i) {
    if (all[i].is_going) try_linear(all[i]);
  }
  bool any = true;
  for (int n = 1; n <= max_steps && any; ++n) {
    any = false;
    for (std::size_t i = 0; i < but_in.size(); ++i) {
      if (!all[i].is_going) continue;
      advance(all[i], length, x[i], chi2_out[i]);
      any = any || all[i].is_going;
    }
  }
  for (std::size_t i = 0; i < but_in.size(); ++i) {
    if (all[i].is_going) fail(fit_failure::no_convergence, x[i], chi2_out[i]);
  }
}

// The same code for processors with four lanes: the same operations in the same order, and the same
// bits, for nothing is contracted. Everything is drawn into one function, because no call may cross
// from one instruction set to the other with vectors in hand.
using fitter = void(const table_struct&, const calib_struct&, std::span<const button_signals>,
                    std::span<position>, std::span<double>);
#if defined(__x86_64__)
[[gnu::target("avx2"), gnu::flatten]] void fit_wide(const table_struct& table,
                                                    const calib_struct& calib,
                                                    std::span<const button_signals> but_in,
                                                    std::span<position> x,
                                                    std::span<double> chi2_out) {
  fit_some(table, calib, but_in, x, chi2_out);
}
#endif
[[gnu::flatten]] void fit_narrow(const table_struct& table, const calib_struct& calib,
                                 std::span<const button_signals> but_in, std::span<position> x,
                                 std::span<double> chi2_out) {
  fit_some(table, calib, but_in, x, chi2_out);
}

fitter* choose_fitter() {
#if defined(__x86_64__)
  if (__builtin_cpu_supports("avx2") != 0) return fit_wide;
#endif
  return fit_narrow;
}

void fit_all(fitter* fit, const table_struct& table, const calib_struct& calib,
             std::span<const button_signals> but_in, std::span<position> x,
             std::span<double> chi2_out) {
  for (std::size_t first = 0; first < but_in.size(); first += abreast) {
    const std::size_t n = std::min(abreast, but_in.size() - first);
    fit(table, calib, but_in.subspan(first, n), x.subspan(first, n), chi2_out.subspan(first, n));
  }
}

}  // namespace

void fit_positions(const table_struct& table, const calib_struct& calib,
                   std::span<const button_signals> but_in, std::span<position> x,
                   std::span<double> chi2_out) {
  static fitter* const fit = choose_fitter();
  fit_all(fit, table, calib, but_in, x, chi2_out);
}

void fit_positions_narrow(const table_struct& table, const calib_struct& calib,
                          std::span<const button_signals> but_in, std::span<position> x,
                          std::span<double> chi2_out) {
  fit_all(fit_narrow, table, calib, but_in, x, chi2_out);
}

void fit_position(const table_struct& table, const calib_struct& calib,
                  const button_signals& but_in, position& x, double& chi2_out) {
  fit_positions(table, calib, {&but_in, 1}, {&x, 1}, {&chi2_out, 1});
}

}  // namespace nonlin_bpm_mod
