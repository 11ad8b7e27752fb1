// The position fit: Gauss-Newton steps in x and y; the scale follows from them in closed form.
//
// A reading that comes alone is fitted here; many are fitted side by side (position_set.hpp), each as
// if it were alone, in the same order of operations and so to the same bits.
#include "position_fit.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <span>
#include <string_view>
#include <vector>

#include "nonlin_bpm_mod.hpp"
#include "position_set.hpp"
#include "position_trial.hpp"
#include "start_search.hpp"

namespace nonlin_bpm_mod {
namespace {

// Up to so many readings are fitted one by one: most lanes would be empty.
constexpr std::size_t few = 2;

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
