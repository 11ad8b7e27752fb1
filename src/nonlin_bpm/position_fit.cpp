// The position fit: Gauss-Newton steps in x and y; the scale follows from them in closed form.
//
// Many readings are fitted side by side, each as if it were alone: several are the lanes of one
// operation (position_lanes.hpp), and while some wait for the table in memory others go on. What
// is rare is done reading by reading, in the same order of operations.
#include "position_fit.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <span>
#include <string_view>
#include <vector>

#include "cell_kernel.hpp"
#include "nonlin_bpm_mod.hpp"
#include "position_lanes.hpp"

namespace nonlin_bpm_mod {
namespace {

// Three steps are the rule, and no reading inside a table was seen to take more than eleven.
constexpr int max_steps = 30;
// Readings under way at once: what they need of the table stays near until it is used.
constexpr std::size_t abreast = 32;
// Up to so many readings are fitted one by one: most lanes would be empty.
constexpr std::size_t few = 2;
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

// Asks the memory for what will be needed: the table is larger than the nearest caches.
inline void fetch(const void* first, const void* last) {
  constexpr std::ptrdiff_t line = 64;
  for (const char* at = static_cast<const char*>(first); at < last; at += line) {
    __builtin_prefetch(at);
  }
}
inline void fetch_node(const table_struct& table, std::size_t nearest) {
  const auto [ix, iy] = table.start[nearest];
  const grid_struct& node = table.grid.item[table.grid.offset(ix, iy)];
  fetch(&node.b.phi, &node + 1);
}

// The start node whose signals point most nearly in the direction of the readings; the first of
// equals. Every lane keeps the best of its own nodes: a later one must be better to take its place.
inline std::size_t nearest_of_all(const std::vector<start_group>& groups,
                                  const std::array<float, 4>& v) {
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

// The same node, from the short list of the reading's bucket where there is one.
inline std::size_t nearest_start(const table_struct& table, const std::array<double, 4>& signal,
                                 int bad) {
  std::array<float, 4> v{};
  for (std::size_t k = 0; k < 4; ++k) v[k] = static_cast<float>(signal[k]);
  const std::vector<start_group>& all = table.cosines[static_cast<std::size_t>(bad)];
  if (bad != 0) return nearest_of_all(all, v);
  const double x = (signal[1] + signal[3]) - (signal[0] + signal[2]);
  const double y = (signal[2] + signal[3]) - (signal[0] + signal[1]);
  const double skew = (signal[0] + signal[3]) - (signal[1] + signal[2]);
  if (!(std::abs(x) < 1 && std::abs(y) < 1)) return nearest_of_all(all, v);
  constexpr double per_unit = start_map::side / 2.0;
  const auto column = static_cast<std::size_t>((x + 1) * per_unit);
  const auto row = static_cast<std::size_t>((y + 1) * per_unit);
  const start_map::bucket& bucket = table.near.buckets[row * start_map::side + column];
  if (!(skew >= bucket.low_skew && skew <= bucket.high_skew)) return nearest_of_all(all, v);
  const std::uint32_t* const node = &table.near.node[bucket.first];
  std::size_t best = 0;
  float largest = -2;
  for (std::size_t first = 0; first < bucket.count; first += start_map::abreast) {
    std::array<float, start_map::abreast> cosine;
    for (std::size_t i = 0; i < start_map::abreast; ++i) {
      const auto& f = table.near.cosine[node[first + i]];
      cosine[i] = f[0] * v[0] + f[1] * v[1] + f[2] * v[2] + f[3] * v[3];
    }
    for (std::size_t i = 0; i < start_map::abreast; ++i) {
      const bool better = cosine[i] > largest;
      largest = better ? cosine[i] : largest;
      best = better ? node[first + i] : best;
    }
  }
  return best;
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

// --- one reading ----------------------------------------------------------------------------------

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

// Where the linear answer of the node leads, if that fits better than the node itself. It needs all
// four buttons.
inline void try_linear(const reading& read, std::size_t nearest, trial& at) {
  if (read.bad != 0) return;
  const table_struct& table = *read.table;
  const auto [ix, iy] = table.start[nearest];
  const auto& response = table.grid(ix, iy).response_mat;
  const four& v = read.v;
  const std::array<double, 3> q{v[1] + v[3] - v[0] - v[2], v[2] + v[3] - v[0] - v[1], sum(v)};
  const auto answer = [&](int i) {
    return response(i, 1) * q[0] + response(i, 2) * q[1] + response(i, 3) * q[2];
  };
  const double scale = answer(3);
  trial linear;
  if (evaluate(read, at.x + answer(1) / scale, at.y + answer(2) / scale, linear) &&
      linear.chi2 < at.chi2) {
    at = linear;
  }
}

// What became of a fit: 0, or the reason why there is no position.
using outcome = int;
constexpr outcome because(fit_failure reason) { return static_cast<int>(reason); }

// Steps from the trial on until one is small.
inline outcome walk(const reading& read, double length, trial& at) {
  for (int n = 1; n <= max_steps; ++n) {
    plane_step step;
    if (!full_step(at, length, step)) return because(fit_failure::singular);
    if (std::abs(step.x) < small_step && std::abs(step.y) < small_step) {
      trial last;
      if (evaluate(read, at.x + step.x, at.y + step.y, last)) at = last;
      return 0;
    }
    bool left_table = false;
    if (!take_step(read, step, at, left_table)) {
      return because(left_table ? fit_failure::beyond_table : fit_failure::no_convergence);
    }
  }
  return because(fit_failure::no_convergence);
}

// Without the lanes, which would be empty but one: what comes alone is then sooner done.
inline void fit_one(const table_struct& table, const calib_struct& calib,
                    const button_signals& but_in, position& x, double& chi2_out) {
  reading read;
  outcome ended = because(fit_failure::unusable_signals);
  trial at;
  if (prepare(table, calib, but_in, read)) {
    const std::size_t nearest =
        nearest_start(table, {read.v[0], read.v[1], read.v[2], read.v[3]}, read.bad);
    start_at_node(read, nearest, at);
    try_linear(read, nearest, at);
    ended = walk(read, (table.x.item.back() - table.x.item.front()) / 4, at);
  }
  if (ended != 0) {
    x.fill(0);
    chi2_out = -ended;
    return;
  }
  x.item = {at.x, at.y, at.scale * read.sum};
  chi2_out = at.chi2;
}

// --- many readings ------------------------------------------------------------------------------

// What is kept of a reading between two trials, by place in the pool.
enum quantity {
  signal_1,  // calibrated signals scaled to sum 1; the bad button's is 0
  at_x = 4,  // the place reached [m]
  at_y,
  at_scale,
  at_chi2,
  step_x,  // the full step from there [m]
  step_y,
  n_quantities
};
// No first values: what is looked at was put there.
struct pool {
  static constexpr std::size_t capacity = abreast + 4;  // a load of lanes may reach over the end
  alignas(32) std::array<std::array<double, capacity>, n_quantities> of;
  std::array<std::uint32_t, capacity> place;  // in the set of readings
  std::size_t n = 0;
};

// A set of up to `abreast` readings on their way.
struct fit_set {
  fit_set(const table_struct& of_table, const calib_struct& of_bpm,
          std::span<const button_signals> readings, std::span<position> found,
          std::span<double> found_chi2)
      : table(of_table),
        calib(of_bpm),
        but_in(readings),
        x(found),
        chi2_out(found_chi2),
        length((of_table.x.item.back() - of_table.x.item.front()) / 4) {}
  const table_struct& table;
  const calib_struct& calib;
  std::span<const button_signals> but_in;
  std::span<position> x;
  std::span<double> chi2_out;
  double length;  // [m] a quarter of the table: brings the columns of a step to a common size
  std::array<double, abreast> sum;             // of the calibrated signals before scaling, by place
  std::array<std::uint32_t, abreast> nearest;  // start node, by place
  pool going, last;  // those whose next trial must fit better; those that end with their next
};

inline void fail(fit_set& set, std::size_t place, fit_failure reason) {
  set.x[place].fill(0);
  set.chi2_out[place] = -static_cast<double>(reason);
}

// One reading out of the lanes.
inline reading reading_at(const fit_set& set, const pool& from, std::size_t i) {
  reading read;
  read.table = &set.table;
  read.bad = set.calib.ix_bad_button;
  read.sum = set.sum[from.place[i]];
  for (std::size_t k = 0; k < 4; ++k) {
    read.v[k] = from.of[signal_1 + k][i];
    read.used[k] = static_cast<int>(k) + 1 == read.bad ? 0 : 1;
  }
  return read;
}

inline bool is_small(double x, double y) {
  return std::abs(x) < small_step && std::abs(y) < small_step;
}

inline void put(pool& to, std::uint32_t place, const std::array<double, n_quantities>& what) {
  for (std::size_t q = 0; q < n_quantities; ++q) to.of[q][to.n] = what[q];
  to.place[to.n++] = place;
}

// A reading whose trial was none to go on from, alone: `next` is the trial that is.
inline void go_on(fit_set& set, const reading& read, std::uint32_t place, const trial& next) {
  plane_step step;
  if (!full_step(next, set.length, step)) return fail(set, place, fit_failure::singular);
  put(is_small(step.x, step.y) ? set.last : set.going, place,
      {read.v[0], read.v[1], read.v[2], read.v[3], next.x, next.y, next.scale, next.chi2, step.x,
       step.y});
}

// Starts from its node.
inline void start_alone(fit_set& set, std::size_t i) {
  const std::uint32_t place = set.going.place[i];
  const reading read = reading_at(set, set.going, i);
  trial start;
  start_at_node(read, set.nearest[place], start);
  go_on(set, read, place, start);
}

// Looks for a part of the step that fits better.
inline void halve_alone(fit_set& set, std::size_t i, int round) {
  const pool& from = set.going;
  const std::uint32_t place = from.place[i];
  const reading read = reading_at(set, from, i);
  trial at;
  at.x = from.of[at_x][i];
  at.y = from.of[at_y][i];
  at.chi2 = from.of[at_chi2][i];
  bool left_table = false;
  if (!take_step(read, {from.of[step_x][i], from.of[step_y][i]}, at, left_table)) {
    return fail(set, place, left_table ? fit_failure::beyond_table : fit_failure::no_convergence);
  }
  if (round == max_steps) return fail(set, place, fit_failure::no_convergence);
  go_on(set, read, place, at);
}

// The lanes of readings and what is done with them.
struct fitter_lanes {
  using l = position_lanes;
  using real = l::real;
  using bits = l::bits;
  static constexpr std::size_t width = l::width;

  static constexpr std::size_t lanes_of(std::size_t left) { return std::min(left, width); }

  // Lanes behind the last reading repeat it.
  static void fill_up(pool& p) {
    if (p.n == 0 || p.n % width == 0) return;
    for (auto& quantity : p.of)
      for (std::size_t i = p.n; i % width != 0; ++i) quantity[i] = quantity[p.n - 1];
  }

  // Trials of all lanes, judged.
  struct judged {
    real scale, chi2;
    bits good;  // the place gives signals
    real step_x, step_y;
    bits regular;  // there is a step
  };

  [[gnu::always_inline]] static inline void judge_lanes(const real* v, int bad, l::values& model,
                                                        real* residual, judged& to) {
    // By 1 for the others, which changes nothing.
    if (bad != 0) model.phi[bad - 1] *= 0.0;
    real size2, along;
    l::sum(model.phi, model.phi, size2);
    l::sum(model.phi, v, along);
    to.good = model.good & (size2 != 0.0);
    to.scale = along / size2;
    for (int k = 0; k < 4; ++k) residual[k] = to.scale * model.phi[k] - v[k];
    l::sum(residual, residual, to.chi2);
  }

  // As full_step, for all lanes.
  [[gnu::always_inline]] static inline void step_lanes(double length, int bad, l::values& model,
                                                       const real* residual, judged& to) {
    if (bad != 0) {
      model.dx[bad - 1] *= 0.0;
      model.dy[bad - 1] *= 0.0;
    }
    const real column = length * to.scale;
    real a[4];
    real b[4];
    for (int k = 0; k < 4; ++k) a[k] = column * model.dx[k];
    for (int k = 0; k < 4; ++k) b[k] = column * model.dy[k];
    const real* const c = model.phi;
    real aa, ab, ac, bb, bc, cc, ar, br, cr;
    l::sum(a, a, aa);
    l::sum(a, b, ab);
    l::sum(a, c, ac);
    l::sum(b, b, bb);
    l::sum(b, c, bc);
    l::sum(c, c, cc);
    l::sum(a, residual, ar);
    l::sum(b, residual, br);
    l::sum(c, residual, cr);
    const real m11 = bb * cc - bc * bc;
    const real m12 = ac * bc - ab * cc;
    const real m13 = ab * bc - ac * bb;
    const real m22 = aa * cc - ac * ac;
    const real m23 = ab * ac - aa * bc;
    const real determinant = aa * m11 + ab * m12 + ac * m13;
    to.regular = determinant > singular_limit * aa * bb * cc;
    to.step_x = -length * (m11 * ar + m12 * br + m13 * cr) / determinant;
    to.step_y = -length * (m12 * ar + m22 * br + m23 * cr) / determinant;
  }

  // Asks the memory for the cells of the next trials.
  [[gnu::always_inline]] static inline void fetch_cells(const table_view& table, const double* x,
                                                        const double* y, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) {
      const double at_x = (x[i] - table.x[0]) * table.x_per_step;
      const double at_y = (y[i] - table.y[0]) * table.y_per_step;
      if (!(at_x >= 0 && at_x < table.nx && at_y >= 0 && at_y < table.ny)) continue;
      const auto& c =
          table
              .node[static_cast<std::size_t>(at_y) * static_cast<std::size_t>(table.nx) +
                    static_cast<std::size_t>(at_x)]
              .b.c;
      fetch(c.data(), c.data() + c.size());
    }
  }

  // Scales the signals and looks for their start nodes. Signals of no use end here.
  static void begin(fit_set& set) {
    const int bad = set.calib.ix_bad_button;
    pool& going = set.going;
    for (std::size_t first = 0; first < set.but_in.size(); first += width) {
      const std::size_t n = lanes_of(set.but_in.size() - first);
      real v[4];
      l::turn_each(
          [&](int i, four& but) {
            const std::size_t at = first + std::min(static_cast<std::size_t>(i), n - 1);
            __builtin_memcpy(&but, set.but_in[at].item.data(), sizeof but);
          },
          v);
      for (int k = 0; k < 4; ++k) v[k] = k + 1 == bad ? real{} : set.calib.coeff(k + 1) * v[k];
      const real total = v[0] + v[1] + v[2] + v[3];
      const bits usable = (total > 0.0) & (total <= std::numeric_limits<double>::max());
      alignas(32) std::array<std::array<double, width>, 4> scaled;
      alignas(32) std::array<double, width> sum;
      for (std::size_t k = 0; k < 4; ++k) l::store(scaled[k].data(), v[k] / total);
      l::store(sum.data(), total);
      for (std::size_t i = 0; i < n; ++i) {
        const std::size_t place = first + i;
        if (!usable[static_cast<int>(i)]) {
          fail(set, place, fit_failure::unusable_signals);
          continue;
        }
        const std::array<double, 4> signal{scaled[0][i], scaled[1][i], scaled[2][i], scaled[3][i]};
        for (std::size_t k = 0; k < 4; ++k) going.of[signal_1 + k][going.n] = signal[k];
        set.sum[place] = sum[i];
        const std::size_t nearest = nearest_start(set.table, signal, bad);
        set.nearest[place] = static_cast<std::uint32_t>(nearest);
        fetch_node(set.table, nearest);
        going.place[going.n++] = static_cast<std::uint32_t>(place);
      }
    }
  }

  // What the nodes' linear answers lead to, as the places of the first trials, and the nodes' own
  // chi2, which those must beat.
  static void answer_linearly(const table_view& table, fit_set& set) {
    pool& going = set.going;
    fill_up(going);
    for (std::size_t first = 0; first < going.n; first += width) {
      const std::size_t n = lanes_of(going.n - first);
      std::array<const grid_struct*, width> node;
      std::array<std::array<double, width>, 2> at_node;
      for (std::size_t i = 0; i < width; ++i) {
        const std::size_t at = first + std::min(i, n - 1);
        const auto [ix, iy] = set.table.start[set.nearest[going.place[at]]];
        node[i] =
            table.node + (static_cast<std::size_t>(iy - 1) * static_cast<std::size_t>(table.nx) +
                          static_cast<std::size_t>(ix - 1));
        at_node[0][i] = table.x[ix - 1];
        at_node[1][i] = table.y[iy - 1];
      }
      const auto of_node = [&](int i) -> const grid_struct& {
        return *node[static_cast<std::size_t>(i)];
      };
      real start_x, start_y;
      l::fill([&](int i) { return at_node[0][static_cast<std::size_t>(i)]; }, start_x);
      l::fill([&](int i) { return at_node[1][static_cast<std::size_t>(i)]; }, start_y);
      real v[4], residual[4];
      for (std::size_t k = 0; k < 4; ++k) l::load(&going.of[signal_1 + k][first], v[k]);
      l::values model;
      model.good = bits{} - 1;
      l::turn_each([&](int i, four& phi) { phi = of_node(i).b.phi.v; }, model.phi);
      judged start;
      judge_lanes(v, 0, model, residual, start);
      const real q[3] = {v[1] + v[3] - v[0] - v[2], v[2] + v[3] - v[0] - v[1],
                         v[0] + v[1] + v[2] + v[3]};
      real answer[3];
      for (std::size_t row = 0; row < 3; ++row) {
        const auto response = [&](std::size_t column, real& to) {
          l::fill([&](int i) { return of_node(i).response_mat.item[3 * row + column]; }, to);
        };
        real r0, r1, r2;
        response(0, r0);
        response(1, r1);
        response(2, r2);
        answer[row] = r0 * q[0] + r1 * q[1] + r2 * q[2];
      }
      l::store(&going.of[at_x][first], start_x + answer[0] / answer[2]);
      l::store(&going.of[at_y][first], start_y + answer[1] / answer[2]);
      l::store(&going.of[at_chi2][first], start.chi2);
      fetch_cells(table, &going.of[at_x][first], &going.of[at_y][first], n);
    }
  }

  // The first trials: the linear answers, where they fit better than their nodes.
  static void try_linear(const table_view& table, fit_set& set) {
    const std::size_t n_readings = set.going.n;
    set.going.n = 0;
    for (std::size_t first = 0; first < n_readings; first += width) {
      const std::size_t n = lanes_of(n_readings - first);
      make_trials<true>(table, set, first, n, 1);
    }
  }

  // One step of all readings under way.
  static void advance(const table_view& table, fit_set& set, int round) {
    const std::size_t n_readings = set.going.n;
    fill_up(set.going);
    set.going.n = 0;
    for (std::size_t first = 0; first < n_readings; first += width)
      make_trials<false>(table, set, first, lanes_of(n_readings - first), round);
  }

  // Trials of one vector of readings. Those that go on are put back from the pool's beginning on:
  // never behind the ones that are still to be looked at.
  template <bool is_first>
  [[gnu::always_inline]] static inline void make_trials(const table_view& table, fit_set& set,
                                                        std::size_t first, std::size_t n,
                                                        int round) {
    const int bad = set.calib.ix_bad_button;
    pool& going = set.going;
    real v[4], x, y, chi2;
    for (std::size_t k = 0; k < 4; ++k) l::load(&going.of[signal_1 + k][first], v[k]);
    l::load(&going.of[at_x][first], x);
    l::load(&going.of[at_y][first], y);
    l::load(&going.of[at_chi2][first], chi2);
    if constexpr (!is_first) {
      real step;
      l::load(&going.of[step_x][first], step);
      x += step;
      l::load(&going.of[step_y][first], step);
      y += step;
    }
    l::values model;
    l::evaluate<true>(table, x, y, static_cast<int>(n), model);
    real residual[4];
    judged next;
    judge_lanes(v, bad, model, residual, next);
    bits better;
    if constexpr (is_first) {
      better = next.good & (next.chi2 < chi2);
    } else {
      better = next.good & (next.chi2 <= chi2 * (1 + chi2_slack) + chi2_floor);
    }
    step_lanes(set.length, bad, model, residual, next);
    bits small, small_y;
    l::below(next.step_x, small_step, small);
    l::below(next.step_y, small_step, small_y);
    small &= small_y;
    if (n == width && round < max_steps && l::all(better & next.regular & ~small)) {
      const std::size_t to = going.n;
      if (to != first) {
        for (std::size_t k = 0; k < 4; ++k) l::store(&going.of[signal_1 + k][to], v[k]);
        for (std::size_t i = 0; i < width; ++i) going.place[to + i] = going.place[first + i];
      }
      l::store(&going.of[at_x][to], x);
      l::store(&going.of[at_y][to], y);
      l::store(&going.of[at_scale][to], next.scale);
      l::store(&going.of[at_chi2][to], next.chi2);
      l::store(&going.of[step_x][to], next.step_x);
      l::store(&going.of[step_y][to], next.step_y);
      going.n += width;
      return;
    }
    alignas(32) std::array<std::array<double, width>, n_quantities> found;
    for (std::size_t k = 0; k < 4; ++k) l::store(found[signal_1 + k].data(), v[k]);
    l::store(found[at_x].data(), x);
    l::store(found[at_y].data(), y);
    l::store(found[at_scale].data(), next.scale);
    l::store(found[at_chi2].data(), next.chi2);
    l::store(found[step_x].data(), next.step_x);
    l::store(found[step_y].data(), next.step_y);
    for (std::size_t i = 0; i < n; ++i) {
      const int lane = static_cast<int>(i);
      const std::uint32_t place = going.place[first + i];
      if (!better[lane]) {
        if constexpr (is_first) {
          start_alone(set, first + i);
        } else {
          halve_alone(set, first + i, round);
        }
      } else if (round == max_steps) {
        fail(set, place, fit_failure::no_convergence);
      } else if (!next.regular[lane]) {
        fail(set, place, fit_failure::singular);
      } else {
        pool& to = small[lane] ? set.last : going;
        for (std::size_t q = 0; q < n_quantities; ++q) to.of[q][to.n] = found[q][i];
        to.place[to.n++] = place;
      }
    }
  }

  // The last trials: taken where they lie in the table, and then everything is known.
  static void finish(const table_view& table, fit_set& set) {
    pool& last = set.last;
    fill_up(last);
    for (std::size_t first = 0; first < last.n; first += width) {
      const std::size_t n = lanes_of(last.n - first);
      real v[4], x, y, step, scale, chi2;
      for (std::size_t k = 0; k < 4; ++k) l::load(&last.of[signal_1 + k][first], v[k]);
      l::load(&last.of[at_x][first], x);
      l::load(&last.of[at_y][first], y);
      l::load(&last.of[at_scale][first], scale);
      l::load(&last.of[at_chi2][first], chi2);
      l::load(&last.of[step_x][first], step);
      const real next_x = x + step;
      l::load(&last.of[step_y][first], step);
      const real next_y = y + step;
      l::values model;
      l::evaluate<false>(table, next_x, next_y, static_cast<int>(n), model);
      real residual[4];
      judged next;
      judge_lanes(v, set.calib.ix_bad_button, model, residual, next);
      x = next.good ? next_x : x;
      y = next.good ? next_y : y;
      scale = next.good ? next.scale : scale;
      chi2 = next.good ? next.chi2 : chi2;
      for (std::size_t i = 0; i < n; ++i) {
        const std::uint32_t place = last.place[first + i];
        const int lane = static_cast<int>(i);
        set.x[place].item = {x[lane], y[lane], scale[lane] * set.sum[place]};
        set.chi2_out[place] = chi2[lane];
      }
    }
  }

  static void fit(fit_set& set) {
    const table_view table(set.table);
    begin(set);
    if (set.calib.ix_bad_button == 0) {
      answer_linearly(table, set);
      try_linear(table, set);
    } else {
      const std::size_t n = set.going.n;
      set.going.n = 0;
      for (std::size_t i = 0; i < n; ++i) start_alone(set, i);
    }
    for (int round = 1; round <= max_steps && set.going.n != 0; ++round) advance(table, set, round);
    finish(table, set);
  }
};

// The same code for processors with four lanes: the same operations in the same order, and
// the same bits, for nothing is contracted. Everything is drawn into one function, because no call
// may cross from one instruction set to the other with vectors in hand.
using fitter = void(fit_set&);
using single_fitter = void(const table_struct&, const calib_struct&, const button_signals&,
                           position&, double&);
#if defined(__x86_64__)
[[gnu::target("avx2"), gnu::flatten]] void fit_one_wide(const table_struct& table,
                                                        const calib_struct& calib,
                                                        const button_signals& but_in, position& x,
                                                        double& chi2_out) {
  fit_one(table, calib, but_in, x, chi2_out);
}
[[gnu::target("avx2"), gnu::flatten]] void fit_wide(fit_set& set) { fitter_lanes::fit(set); }
#endif
[[gnu::flatten]] void fit_narrow(fit_set& set) { fitter_lanes::fit(set); }
[[gnu::flatten]] void fit_one_narrow(const table_struct& table, const calib_struct& calib,
                                     const button_signals& but_in, position& x, double& chi2_out) {
  fit_one(table, calib, but_in, x, chi2_out);
}

struct named_fitter {
  std::string_view name;
  fitter* fit;
  single_fitter* fit_single;
};

std::vector<named_fitter> usable_fitters() {
  std::vector<named_fitter> usable{{"generic", fit_narrow, fit_one_narrow}};
#if defined(__x86_64__)
  if (__builtin_cpu_supports("avx2") != 0) usable.push_back({"avx2", fit_wide, fit_one_wide});
#endif
  return usable;
}

const std::vector<named_fitter>& fitters() {
  // Asked of the processor once.
  static const std::vector<named_fitter> usable = usable_fitters();
  return usable;
}

void fit_all(const named_fitter& how, const table_struct& table, const calib_struct& calib,
             std::span<const button_signals> but_in, std::span<position> x,
             std::span<double> chi2_out) {
  for (std::size_t first = 0; first < but_in.size(); first += abreast) {
    const std::size_t n = std::min(abreast, but_in.size() - first);
    if (n <= few) {
      for (std::size_t i = first; i < first + n; ++i)
        how.fit_single(table, calib, but_in[i], x[i], chi2_out[i]);
    } else {
      fit_set set(table, calib, but_in.subspan(first, n), x.subspan(first, n),
                  chi2_out.subspan(first, n));
      how.fit(set);
    }
  }
}

}  // namespace

void fit_positions(const table_struct& table, const calib_struct& calib,
                   std::span<const button_signals> but_in, std::span<position> x,
                   std::span<double> chi2_out) {
  fit_all(fitters().back(), table, calib, but_in, x, chi2_out);
}

void fit_positions_with(std::string_view instruction_set, const table_struct& table,
                        const calib_struct& calib, std::span<const button_signals> but_in,
                        std::span<position> x, std::span<double> chi2_out) {
  const auto named = std::ranges::find(fitters(), instruction_set, &named_fitter::name);
  fit_all(named == fitters().end() ? fitters().front() : *named, table, calib, but_in, x, chi2_out);
}

std::vector<std::string_view> position_instruction_sets() {
  std::vector<std::string_view> names;
  for (const named_fitter& usable : fitters()) names.push_back(usable.name);
  return names;
}

void fit_position(const table_struct& table, const calib_struct& calib,
                  const button_signals& but_in, position& x, double& chi2_out) {
  fitters().back().fit_single(table, calib, but_in, x, chi2_out);
}

}  // namespace nonlin_bpm_mod
