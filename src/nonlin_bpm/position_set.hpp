// position_set: many readings on their way to their positions, four to a vector.
//
// A set goes through the same steps as a reading alone (position_fit.cpp): signals and start nodes
// of all; the linear answers of the nodes, which ask the memory for their cells; then trial after
// trial. Readings that have ended make room: those that go on move up, so that no lane idles, and
// those whose step has become small wait for their last trial, which needs no slopes. What is rare
// (a trial that is no better) leaves the lanes and comes back.
//
// Drawn into its callers, each for one kind of processor.
#pragma once
#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>

#include "nonlin_bpm_mod.hpp"
#include "position_lanes.hpp"
#include "position_trial.hpp"
#include "start_search.hpp"

namespace nonlin_bpm_mod {

// Readings under way at once: what they need of the table stays near until it is used.
inline constexpr std::size_t abreast = 32;

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

// Plain arrays on purpose, also of vectors: a template argument would lose their alignment.
// NOLINTBEGIN(modernize-avoid-c-arrays)
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

  // One vector of readings at its next places.
  struct trial_lanes {
    real v[4];
    real x, y;
    judged at;
    bits goes_on;  // better than before, and with a step to follow
    bits better, small;
  };

  // The places are those of the linear answers, or a step away.
  template <bool is_first>
  [[gnu::always_inline]] static inline void try_lanes(const table_view& table, const fit_set& set,
                                                      std::size_t first, std::size_t n,
                                                      trial_lanes& next) {
    const int bad = set.calib.ix_bad_button;
    const pool& going = set.going;
    real chi2;
    for (std::size_t k = 0; k < 4; ++k) l::load(&going.of[signal_1 + k][first], next.v[k]);
    l::load(&going.of[at_x][first], next.x);
    l::load(&going.of[at_y][first], next.y);
    l::load(&going.of[at_chi2][first], chi2);
    if constexpr (!is_first) {
      real step;
      l::load(&going.of[step_x][first], step);
      next.x += step;
      l::load(&going.of[step_y][first], step);
      next.y += step;
    }
    l::values model;
    l::evaluate<true>(table, next.x, next.y, static_cast<int>(n), model);
    real residual[4];
    judge_lanes(next.v, bad, model, residual, next.at);
    if constexpr (is_first) {
      next.better = next.at.good & (next.at.chi2 < chi2);
    } else {
      next.better = next.at.good & (next.at.chi2 <= chi2 * (1 + chi2_slack) + chi2_floor);
    }
    step_lanes(set.length, bad, model, residual, next.at);
    bits small_y;
    l::below(next.at.step_x, small_step, next.small);
    l::below(next.at.step_y, small_step, small_y);
    next.small &= small_y;
    next.goes_on = next.better & next.at.regular & ~next.small;
  }

  // Lane k of the quantities from `to` on, row after row of them.
  [[gnu::always_inline]] static inline void store_found(const trial_lanes& next, double* to,
                                                        std::size_t row) {
    l::store(to + at_x * row, next.x);
    l::store(to + at_y * row, next.y);
    l::store(to + at_scale * row, next.at.scale);
    l::store(to + at_chi2 * row, next.at.chi2);
    l::store(to + step_x * row, next.at.step_x);
    l::store(to + step_y * row, next.at.step_y);
  }
  [[gnu::always_inline]] static inline void store_signals(const trial_lanes& next, double* to,
                                                          std::size_t row) {
    for (std::size_t k = 0; k < 4; ++k) l::store(to + (signal_1 + k) * row, next.v[k]);
  }

  // All lanes together, to the end of those that go on.
  [[gnu::always_inline]] static inline void keep_all(const trial_lanes& next, std::size_t first,
                                                     pool& going) {
    const std::size_t to = going.n;
    store_found(next, &going.of[0][to], pool::capacity);
    going.n += width;
    if (to == first) return;
    store_signals(next, &going.of[0][to], pool::capacity);
    for (std::size_t i = 0; i < width; ++i) going.place[to + i] = going.place[first + i];
  }

  // Each lane to where it belongs.
  template <bool is_first>
  [[gnu::always_inline]] static inline void sort_out(const trial_lanes& next, fit_set& set,
                                                     std::size_t first, std::size_t n, int round) {
    pool& going = set.going;
    alignas(32) double found[n_quantities][width];
    store_signals(next, found[0], width);
    store_found(next, found[0], width);
    for (std::size_t i = 0; i < n; ++i) {
      const int lane = static_cast<int>(i);
      const std::uint32_t place = going.place[first + i];
      if (next.better[lane] == 0) {
        if constexpr (is_first) {
          start_alone(set, first + i);
        } else {
          halve_alone(set, first + i, round);
        }
      } else if (round == max_steps) {
        fail(set, place, fit_failure::no_convergence);
      } else if (next.at.regular[lane] == 0) {
        fail(set, place, fit_failure::singular);
      } else {
        pool& to = next.small[lane] != 0 ? set.last : going;
        for (std::size_t q = 0; q < n_quantities; ++q) to.of[q][to.n] = found[q][i];
        to.place[to.n++] = place;
      }
    }
  }

  // Trials of one vector of readings. Those that go on are put back from the pool's beginning on:
  // never behind the ones that are still to be looked at.
  template <bool is_first>
  [[gnu::always_inline]] static inline void make_trials(const table_view& table, fit_set& set,
                                                        std::size_t first, std::size_t n,
                                                        int round) {
    trial_lanes next;
    try_lanes<is_first>(table, set, first, n, next);
    if (n == width && round < max_steps && l::all(next.goes_on)) {
      keep_all(next, first, set.going);
    } else {
      sort_out<is_first>(next, set, first, n, round);
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
// NOLINTEND(modernize-avoid-c-arrays)

}  // namespace nonlin_bpm_mod
