#include "one_fit.hpp"

#include <algorithm>
#include <cmath>

#include "cell_kernel.hpp"
#include "exponential.hpp"
#include "orbit_kernels.hpp"

namespace calibration {
namespace {

constexpr int max_steps = 40;
constexpr int min_steps_afresh = 6;          // a start from nothing
constexpr int min_steps_settled = 2;         // a start from another fit's end
constexpr int first_screening_afresh = 4;    // before, residuals are those of the start
constexpr int last_screening = 9;            // then the set is frozen: it could go round in circles
constexpr double largest_gain_step = 0.2;    // of ln t
constexpr double largest_place_step = 0.15;  // of R0
constexpr double outlier_limit = 5 * 1.4826;  // median absolute deviations: 5 standard deviations
constexpr double least_noise = 1e-7;          // [median signal] below what a table resolves
constexpr double first_noise = 1e-3;
constexpr double settled_part = 0.02;  // of the sum of squares
constexpr double first_damping = 64;   // places come first, harmonics when those stand
constexpr double overshoot = 1.1;      // of the promised sum of squares
constexpr int weight_passes = 3;
constexpr std::size_t many_orbits = 200;  // a cubic course needs as many, else a line

// Prior rms of every unknown.
constexpr double rms_z = 0.5;
constexpr std::array<double, n_h> rms_h{0.04, 0.04, 0.1, 0.01, 0.1, 0.1, 0.05, 0.2, 0.04, 0.04};

std::array<double, n_common> priors(const fit_setting& setting) {
  std::array<double, n_common> rms{};
  std::fill_n(rms.begin(), n_z, rms_z);
  std::fill_n(rms.begin() + first_p, n_p,
              setting.kind == fit_kind::wide_pedestals ? pedestals_left_in : setting.sigma_p);
  std::copy(rms_h.begin(), rms_h.end(), rms.begin() + first_h);
  std::fill_n(rms.begin() + first_l, n_l, rms_slope * setting.R0);
  if (setting.exact_table) std::fill(rms.begin() + first_h, rms.end(), 0.0);
  std::array<double, n_common> weight{};
  // What is known exactly would have an infinite weight.
  for (std::size_t i = 0; i < n_common; ++i) weight[i] = 1 / std::max(rms[i] * rms[i], 1e-20);
  return weight;
}

// Legendre polynomials: nearly at right angles over a data set.
std::array<double, n_trend> course_functions(double t) {
  // Plain powers would couple the level to the t^2 and the slope to the t^3.
  return {1, t, 1.5 * t * t - 0.5, (2.5 * t * t - 1.5) * t};
}

// The next free place of the last block, or of a new one when it is full or of another set.
orbit_block& next_place(std::vector<orbit_block>& blocks, std::size_t set, std::size_t number) {
  if (blocks.empty() || blocks.back().count == block_size || blocks.back().set != set) {
    blocks.emplace_back();
    blocks.back().set = set;
    blocks.back().first = number;
  }
  return blocks.back();
}

// Columns of a block that a fit starts from.
template <class work>
void for_start_columns(orbit_block& to, const orbit_block& from, const work& copy) {
  for (std::size_t k = 0; k < 4; ++k) copy(to.b[k], from.b[k]);
  for (std::size_t i = 0; i < n_trend; ++i) copy(to.time[i], from.time[i]);
  copy(to.x, from.x);
  copy(to.y, from.y);
  copy(to.L, from.L);
  copy(to.keep_u, from.keep_u);
  copy(to.keep_v, from.keep_v);
}

// The last orbit repeated is at a place where the table has data, so every column stays finite: a
// weight of 0 does not take a nan out again.
void pad(orbit_block& block) {
  const std::size_t last = block.count - 1;
  for_start_columns(block, block, [last](column& to, const column& /*from*/) {
    std::fill(to.begin() + static_cast<std::ptrdiff_t>(last) + 1, to.end(), to[last]);
  });
  for (std::size_t j = block.count; j < block_size; ++j) block.keep_u[j] = block.keep_v[j] = 0;
}

// --- outliers -----------------------------------------------------------------------------------

// The upper middle of an even number does: as a measure of spread it need not be exact.
double median_of(const std::vector<double>& values) {
  std::vector<double> one(values), other(values.size());
  double *from = one.data(), *to = other.data();
  std::size_t n = values.size(), wanted = n / 2;
  // Each round keeps the values on one side of a pivot. Every value is written to both sides, and
  // one of them counts: a branch would be guessed wrong for every second.
  constexpr std::size_t few = 24;
  while (n > few) {
    const double a = from[0], b = from[n / 2], c = from[n - 1];
    const double pivot = std::max(std::min(a, b), std::min(std::max(a, b), c));
    std::size_t low = 0, high = n;
    for (std::size_t i = 0; i < n; ++i) {
      const std::size_t is_low = from[i] < pivot ? 1 : 0;
      to[low] = to[high - 1] = from[i];
      low += is_low;
      high -= 1 - is_low;
    }
    // Nothing below: the pivot is the least, and there may be many like it.
    if (low == 0) break;
    std::swap(from, to);
    if (wanted < low) {
      n = low;
    } else {
      from += low;
      n -= low;
      wanted -= low;
    }
  }
  std::nth_element(from, from + wanted, from + n);
  return from[wanted];
}

// Middle of the residuals, and how far from it an orbit may lie.
struct band {
  double middle = 0, reach = 0;
};

// By value: nth_element shuffles, and the deviations overwrite what they are taken from.
band band_of(std::vector<double> values) {
  band b;
  b.middle = median_of(values);
  for (double& v : values) v = std::abs(v - b.middle);
  // Simulated readings without noise would have a band of no width, and all be outliers.
  b.reach = outlier_limit * std::max(median_of(values), least_noise);
  return b;
}

// All orbits are judged anew, those left out before as well. Returns whether the choice changed.
bool screen(std::vector<orbit_block>& blocks, const fit_room& room, bool steady) {
  std::vector<double> u, v;
  for (std::size_t n = 0; n < blocks.size(); ++n) {
    const orbit_block& block = blocks[n];
    const place_columns& at = room[n];
    u.insert(u.end(), block.ur.begin(),
             block.ur.begin() + static_cast<std::ptrdiff_t>(block.count));
    v.insert(v.end(), at.vr.begin(), at.vr.begin() + static_cast<std::ptrdiff_t>(block.count));
  }
  // Median and median deviation, not mean and rms: the outliers must not widen their own band.
  const band of_u = band_of(std::move(u));
  const band of_v = steady ? band_of(std::move(v)) : band{};
  bool changed = false;
  for (std::size_t n = 0; n < blocks.size(); ++n) {
    orbit_block& block = blocks[n];
    const place_columns& at = room[n];
    for (std::size_t j = 0; j < block.count; ++j) {
      const double keep_u = std::abs(block.ur[j] - of_u.middle) <= of_u.reach ? 1 : 0;
      // An orbit whose u is wrong has a wrong button, so its v is wrong as well. A wrong v alone
      // may be a jump of the current, and u does not know of it.
      double keep_v = keep_u;
      if (steady && !(std::abs(at.vr[j] - of_v.middle) <= of_v.reach)) keep_v = 0;
      changed = changed || keep_u != block.keep_u[j] || (steady && keep_v != block.keep_v[j]);
      block.keep_u[j] = keep_u;
      block.keep_v[j] = keep_v;
    }
  }
  return changed;
}

// --- sums over orbits ---------------------------------------------------------------------------

/// What is counted beside the sums.
struct totals {
  double n_u = 0, n_v = 0;
  double squares_u = 0, squares_v = 0;
  double n3_squared = 0;  // mean over the orbits
};

totals sum_up(fit_state& state, fit_room& room, const model_setting& model, equations& e) {
  totals sum;
  block_rows rows{};  // a short course leaves its last rows as they are
  e.u = {};
  e.v.assign(model.steady ? state.at.trend.size() : 0, v_sums{});
  orbit_before before;
  for (std::size_t n = 0; n < state.block.size(); ++n) {
    orbit_block& block = state.block[n];
    place_columns& at = room[n];
    model.kernels->fill_rows(block, at, model, state.at, rows);
    if (model.differences) take_differences(block, at, rows, before);
    model.kernels->add_u(rows, e.u);
    if (model.steady) model.kernels->add_v(rows, e.v[block.set]);
    for (std::size_t j = 0; j < block_size; ++j) {
      sum.n_u += block.keep_u[j];
      sum.n_v += at.pair_v[j];
      sum.n3_squared += at.pair_v[j] * at.n3[j] * at.n3[j];
    }
  }
  // The last row is the residuals themselves: its product with itself is their sum of squares.
  sum.squares_u = e.u.of[n_u_rows - 1][n_u_rows - 1];
  for (const v_sums& v : e.v) sum.squares_v += v.of[n_v_rows - 1][n_v_rows - 1];
  sum.n3_squared /= std::max(sum.n_v, 1.0);
  return sum;
}

double largest(const std::array<double, 4>& values) {
  double most = 0;
  for (const double v : values) most = std::max(most, std::abs(v));
  return most;
}

// Covariance of ln t from that of z.
button_square log_covariance(const common_matrix& of) {
  button_square c{};
  for (std::size_t i = 0; i < n_z; ++i) {
    std::array<double, n_z> row{of[i][0], of[i][1], of[i][2]};
    const std::array<double, 4> along = log_gains(row.data());
    std::array<double, n_z> unit{};
    unit[i] = 1;
    const std::array<double, 4> direction = log_gains(unit.data());
    for (int k = 1; k <= 4; ++k) {
      for (int m = 1; m <= 4; ++m) {
        c(k, m) +=
            direction[static_cast<std::size_t>(k - 1)] * along[static_cast<std::size_t>(m - 1)];
      }
    }
  }
  return c;
}

// The same with the pedestals.
button_square covariance_with_pedestals(const common_matrix& of) {
  button_square c{};
  for (int m = 1; m <= 4; ++m) {
    const auto p = first_p + static_cast<std::size_t>(m - 1);
    const std::array<double, n_z> column{of[0][p], of[1][p], of[2][p]};
    const std::array<double, 4> along = log_gains(column.data());
    for (int k = 1; k <= 4; ++k) c(k, m) = along[static_cast<std::size_t>(k - 1)];
  }
  return c;
}

double ratio_error(const button_square& c) {
  double most = 0;
  // Ratios to button 1, as the tables give them: the covariance between the two enters with a
  // minus.
  for (int k = 2; k <= 4; ++k) most = std::max(most, c(k, k) + c(1, 1) - 2 * c(k, 1));
  return std::sqrt(most);
}

// Covariance that the noise alone makes: the data's share of the weights.
common_matrix noise_covariance(const solution& s) {
  // C F C, with F what the data say: without priors it would be C itself, and with them it is
  // smaller by what the allowances leave open. Only the gains' corner of it is asked for.
  common_matrix half{}, all{};
  for (std::size_t i = 0; i < n_common; ++i) {
    for (std::size_t j = 0; j < n_common; ++j) {
      for (std::size_t k = 0; k < n_common; ++k)
        half[i][j] += s.covariance[i][k] * s.information[k][j];
    }
  }
  for (std::size_t i = 0; i < n_z; ++i) {
    for (std::size_t j = 0; j < n_z; ++j) {
      for (std::size_t k = 0; k < n_common; ++k) all[i][j] += half[i][k] * s.covariance[k][j];
    }
  }
  return all;
}

// Correlation of v-residuals of neighbouring orbits of the same data set.
double persistence_of(const std::vector<orbit_block>& blocks, const fit_room& room) {
  double squares = 0, products = 0;
  double before = 0;
  std::size_t set = 0;
  for (std::size_t n = 0; n < blocks.size(); ++n) {
    const orbit_block& block = blocks[n];
    const place_columns& at = room[n];
    if (block.set != set) before = 0;
    set = block.set;
    for (std::size_t j = 0; j < block.count; ++j) {
      // An orbit that was left out counts as 0: it neither links its neighbours nor inflates the
      // sum.
      const double now = at.pair_v[j] * at.vr[j];
      squares += now * now;
      products += now * before;
      before = now;
    }
  }
  return squares > 0 ? products / squares : 0;
}

void fill_result(const fit_state& state, const fit_room& room, const solution& s, const totals& sum,
                 fit_result& result) {
  const std::array<double, 4> log_t = log_gains(state.at.value.data());
  for (int k = 1; k <= 4; ++k) {
    const auto i = static_cast<std::size_t>(k - 1);
    result.t(k) = exponential(log_t[i]);
    result.pedestal(k) = state.at.value[first_p + i];
    for (int m = 1; m <= 4; ++m) {
      result.pedestal_covariance(k, m) =
          s.covariance[first_p + i][first_p + static_cast<std::size_t>(m - 1)];
    }
  }
  result.covariance = log_covariance(s.covariance);
  result.shared_covariance = covariance_with_pedestals(s.covariance);
  result.noise_covariance = log_covariance(noise_covariance(s));
  result.E_noise = ratio_error(result.noise_covariance);
  const double* const value = state.at.value.data();
  std::copy_n(value + first_h, n_h, result.h.begin());
  std::copy_n(value + first_l, n_l, result.l.begin());
  result.orbits = static_cast<int>(sum.n_u);
  result.chi_square = sum.squares_u / (result.noise * result.noise);
  if (result.kind != fit_kind::free_intensity) {
    result.chi_square_v =
        sum.squares_v / std::max(result.noise * result.noise, result.noise_v * result.noise_v);
    // v-residuals hold the noise of the reading and n3 times the jitter: the rest is the beam's
    // own.
    result.jitter =
        std::sqrt(std::max(0.0, result.noise_v * result.noise_v - result.noise * result.noise) /
                  std::max(sum.n3_squared, 1e-30));
    result.persistence = persistence_of(state.block, room);
  }
  for (const orbit_block& block : state.block) {
    for (std::size_t j = 0; j < block.count; ++j) {
      if (block.keep_u[j] == 0) ++result.outliers;
      if (block.keep_u[j] != 0 && block.keep_v[j] == 0) ++result.intensity_outliers;
      if (block.keep_u[j] != 0 && block.at_edge[j] != 0) ++result.at_edge;
    }
  }
}

// A constant intensity in each data set, the mean of its orbits.
void start_course(fit_state& state) {
  std::vector<double> n(state.at.trend.size());
  for (auto& trend : state.at.trend) trend = {};
  for (const orbit_block& block : state.block) {
    for (std::size_t j = 0; j < block.count; ++j) {
      n[block.set] += block.keep_u[j];
      state.at.trend[block.set][0] += block.keep_u[j] * block.L[j];
    }
  }
  // A set whose orbits were all left out stays at 0, the median intensity.
  for (std::size_t i = 0; i < n.size(); ++i) state.at.trend[i][0] /= std::max(n[i], 1.0);
  state.has_course = true;
}

double rms_left(double squares, double n, double spent) {
  // As many unknowns as residuals leave nothing to estimate the noise by; 1 keeps it finite.
  return std::max(std::sqrt(squares / std::max(n - spent, 1.0)), least_noise);
}

}  // namespace

usable_orbits take_usable(const bpm_run& run) {
  usable_orbits usable;
  std::vector<double> sums;
  const std::size_t n = run.signal[0].size();
  usable.b.reserve(n);
  usable.number.reserve(n);
  usable.time.reserve(n);
  usable.set.reserve(n);
  sums.reserve(n);
  std::size_t set = 0, of_set = 0;  // the set at hand, and which of its orbits
  for (std::size_t orbit = 0; orbit < n; ++orbit, ++of_set) {
    // A loop, for a data set may be empty.
    while (set + 1 < run.set_start.size() &&
           orbit >= static_cast<std::size_t>(run.set_start[set + 1])) {
      ++set;
      of_set = 0;
    }
    std::array<double, 4> b{};
    double sum = 0;
    for (std::size_t k = 0; k < 4; ++k) {
      b[k] = run.signal[k][orbit];
      sum += b[k];
    }
    // One nan among the four makes the sum nan, and an infinity stays one: the sum speaks for all.
    // Time goes on with the orbits that are left out, for the beam's current did.
    if (!(sum > 0 && std::isfinite(sum))) continue;
    const std::size_t begin =
        set < run.set_start.size() && set > 0 ? static_cast<std::size_t>(run.set_start[set]) : 0;
    const std::size_t end =
        set + 1 < run.set_start.size() ? static_cast<std::size_t>(run.set_start[set + 1]) : n;
    usable.b.push_back(b);
    usable.number.push_back(orbit);
    usable.time.push_back(
        end - begin > 1
            ? 2.0 * static_cast<double>(of_set) / static_cast<double>(end - begin - 1) - 1
            : 0);
    usable.set.push_back(set);
    sums.push_back(sum);
  }
  if (usable.b.empty()) return usable;
  usable.n_sets = usable.set.back() + 1;
  // A median, so that a few wild readings do not change the unit in which noise and priors are
  // told.
  usable.median_signal = median_of(sums) / 4;
  for (auto& b : usable.b) {
    for (double& value : b) value /= usable.median_signal;
  }
  return usable;
}

central_slopes slopes_of(const table_struct& table) {
  nonlin_bpm_mod::cell_values at{};
  nonlin_bpm_mod::evaluate_cell<false>(table, 0, 0, at);
  return {at.dx[1] + at.dx[3] - at.dx[0] - at.dx[2], at.dy[2] + at.dy[3] - at.dy[0] - at.dy[1]};
}

double half_height_of(const table_struct& table) {
  const central_slopes slope = slopes_of(table);
  // A round pipe's difference over sum rises by sqrt(2) over its radius; a flat chamber's does so
  // in the direction of its height, nearly.
  return std::sqrt(2.0) / std::max(slope.x, slope.y);
}

fit_state first_state(const usable_orbits& orbits, const table_struct& table) {
  constexpr double pull = 0.8;  // towards the centre, until the place is usable
  const central_slopes slope = slopes_of(table);
  fit_state state;
  state.at.trend.resize(orbits.n_sets);
  state.block.reserve(orbits.b.size() / block_size + orbits.n_sets);  // a set ends within a block
  for (std::size_t i = 0; i < orbits.b.size(); ++i) {
    const auto& b = orbits.b[i];
    const double sum = b[0] + b[1] + b[2] + b[3];
    orbit_block& block = next_place(state.block, orbits.set[i], i);
    const std::size_t j = block.count++;
    for (std::size_t k = 0; k < 4; ++k) block.b[k][j] = b[k];
    const auto course = course_functions(orbits.time[i]);
    for (std::size_t d = 0; d < n_trend; ++d) block.time[d][j] = course[d];
    block.x[j] = (b[1] + b[3] - b[0] - b[2]) / sum / slope.x;
    block.y[j] = (b[2] + b[3] - b[0] - b[1]) / sum / slope.y;
    // Difference over sum is linear at the centre only: far out the guess may lie beyond the wall.
    while (!nonlin_bpm_mod::has_data(table, block.x[j], block.y[j])) {
      block.x[j] *= pull;
      block.y[j] *= pull;
    }
    // Good near the axis only; every fit moves it orbit by orbit.
    block.L[j] = logarithm(sum / 4);
    block.keep_u[j] = block.keep_v[j] = 1;
  }
  for (orbit_block& block : state.block) pad(block);
  return state;
}

equations equations_of(const fit_setting& setting) {
  equations e;
  e.prior = priors(setting);
  return e;
}

fit_result run_fit(fit_state& state, const fit_setting& setting, fit_room& room) {
  room.resize(state.block.size());
  const bool steady = setting.kind != fit_kind::free_intensity;
  model_setting model{&kernels_named(setting.instruction_set),
                      setting.table,
                      setting.R0,
                      steady,
                      steady && setting.differences,
                      0};
  std::size_t n_orbits = 0;
  for (const orbit_block& block : state.block) n_orbits += block.count;
  // Orbits of an average set: all courses have the same length, for the rows of a block do.
  if (steady) model.n_trend = n_orbits / state.at.trend.size() >= many_orbits ? n_trend : 2;
  if (steady && !state.has_course) start_course(state);
  equations e = equations_of(setting);
  e.n_trend = model.n_trend;

  fit_result result;
  result.kind = setting.kind;
  result.differences = model.differences;
  totals sum;
  solution s;
  const int min_steps = state.settled ? min_steps_settled : min_steps_afresh;
  // A start from another fit's end has residuals that can be judged at once.
  const int first_screening = state.settled ? 1 : first_screening_afresh;
  bool frozen = false;
  double expected_u = 0, expected_v = 0;  // sums of squares that the step before promised
  double least_damping = 0;               // grows with every step that overshoots
  e.damping = state.settled ? 0 : first_damping;
  // Weights to begin with; the first step improves on them.
  e.u_weight = 1 / (first_noise * first_noise);
  e.v_weight = steady ? e.u_weight : 0;
  for (result.steps = 1; result.steps <= max_steps; ++result.steps) {
    sum = sum_up(state, room, model, e);
    // Harmonics that the data hardly see would jump along a curved valley for ever.
    const bool overshot =
        sum.squares_u > overshoot * expected_u || sum.squares_v > overshoot * expected_v;
    if (overshot && result.steps > 2) least_damping = std::max(0.25, 2 * least_damping);
    e.damping = overshot && result.steps > 1 ? std::max(1.0, 4 * e.damping)
                                             : std::max(e.damping / 4, least_damping);
    // The weights follow from what a step leaves of the residuals, not from what it found: a long
    // step would drown the data in the noise it is about to remove.
    solution next;
    for (int pass = 0; pass < weight_passes; ++pass) {
      next = solve(e, state.at);
      if (!next.good) break;
      result.noise = rms_left(next.u_squares, sum.n_u, next.u_spent);
      result.noise_v =
          steady ? std::max(rms_left(next.v_squares, sum.n_v, next.v_spent), result.noise) : 0;
      e.u_weight = 1 / (result.noise * result.noise);
      e.v_weight = steady ? 1 / (result.noise_v * result.noise_v) : 0;
    }
    if (!next.good) break;
    s = std::move(next);

    common_step step;
    const double longest = largest(log_gains(s.step.value.data()));
    // Only the gains are cut: the model is exponential in them, linear in pedestals and harmonics.
    if (longest > largest_gain_step) {
      for (std::size_t i = 0; i < n_z; ++i) s.step.value[i] *= largest_gain_step / longest;
    }
    step.by = s.step;
    step.by.trend.resize(state.at.trend.size());
    step.place_limit = largest_place_step * setting.R0;
    step.sigma2 = result.noise * result.noise;
    // What the v-residuals have beyond the noise is jitter; divided by n3^2 it is one of ln
    // intensity.
    step.prior_variance = std::max(0.0, result.noise_v * result.noise_v - step.sigma2) /
                          std::max(sum.n3_squared, 1e-30);
    if (result.steps >= first_screening && !frozen) {
      const bool changed = screen(state.block, room, steady);
      frozen = result.steps >= last_screening || (!changed && result.steps > first_screening);
    }
    // Orbits first: they need the unknowns from before the step, at which their columns were made.
    for (std::size_t n = 0; n < state.block.size(); ++n) {
      model.kernels->follow(state.block[n], room[n], model, state.at, step);
    }
    for (std::size_t i = 0; i < n_common; ++i) state.at.value[i] += step.by.value[i];
    for (std::size_t i = 0; i < step.by.trend.size(); ++i) {
      for (std::size_t d = 0; d < n_trend; ++d) state.at.trend[i][d] += step.by.trend[i][d];
    }

    result.E = ratio_error(log_covariance(s.covariance));
    // In parts of the error that is reported; the second term ends a fit of readings without noise.
    const double small_step = 5e-3 * result.E + 1e-9;
    // What the step found must be what it leaves: else the way to it was not straight.
    const bool settled = sum.squares_u - s.u_squares <= settled_part * sum.squares_u &&
                         sum.squares_v - s.v_squares <= settled_part * sum.squares_v;
    result.converged = result.steps >= min_steps && frozen && settled && longest < small_step;
    if (result.converged) break;
    expected_u = s.u_squares;
    expected_v = s.v_squares;
  }
  result.steps = std::min(result.steps, max_steps);
  // The error must not look better than it is because the last step was held back.
  e.damping = 0;
  if (solution last = solve(e, state.at); last.good) s = std::move(last);
  result.E = ratio_error(log_covariance(s.covariance));
  fill_result(state, room, s, sum, result);
  state.settled = true;
  return result;
}

}  // namespace calibration
