#include "trouble_test.hpp"

#include <algorithm>
#include <cmath>
#include <memory>

#include "exponential.hpp"
#include "normal_system.hpp"
#include "orbit_kernels.hpp"

namespace calibration {
namespace {

// Columns of a trouble: one for each of its sizes.
constexpr std::size_t most_columns = 4;
using trouble_columns = std::array<column, most_columns>;

// Buttons on either side of a button along the wall.
constexpr std::array<std::array<std::size_t, 2>, 4> beside{{{1, 2}, {0, 3}, {0, 3}, {1, 2}}};

struct trouble {
  trouble_kind kind = trouble_kind::cross_talk;
  int which = 0;  // button or data set
  std::size_t n = 1;
};

// Moving gains: the rows of the gains, so that what all four do alike stays with the intensity.
void gains_times(const column& factor, const block_rows& rows, trouble_columns& q) {
  for (std::size_t i = 0; i < n_z; ++i) {
    for (std::size_t j = 0; j < block_size; ++j) q[i][j] = factor[j] * rows.u[i][j];
  }
}

// What a trouble does to the orbits of a block, seen along u; the rows of the pedestals are u
// itself. time is -1..1 over the run.
void fill_columns(const trouble& what, const orbit_block& block, const place_columns& at,
                  const block_rows& rows, const column& time, const std::array<double, 4>& t,
                  trouble_columns& q) {
  q = {};
  const column* const u = rows.u.data() + first_p;
  const auto which = static_cast<std::size_t>(what.which);
  column factor;
  switch (what.kind) {
    case trouble_kind::cross_talk:
      for (std::size_t k = 0; k < 4; ++k) {
        const column &one = at.m[beside[k][0]], &other = at.m[beside[k][1]];
        for (std::size_t j = 0; j < block_size; ++j) q[0][j] += u[k][j] * (one[j] + other[j]);
      }
      return;
    case trouble_kind::compression: {
      // In parts of the centred signal of the median current, which keeps its reading.
      const column& m = at.m[which];
      const double per_t = 1 / t[which];
      for (std::size_t j = 0; j < block_size; ++j) {
        q[0][j] = -u[which][j] * m[j] * (m[j] * per_t - 1);
      }
      return;
    }
    case trouble_kind::drift:
      return gains_times(time, rows, q);
    case trouble_kind::bend:
      // The second Legendre polynomial: over a whole run at right angles to a drift.
      for (std::size_t j = 0; j < block_size; ++j) factor[j] = 1.5 * time[j] * time[j] - 0.5;
      return gains_times(factor, rows, q);
    case trouble_kind::step:
      for (std::size_t j = 0; j < block_size; ++j) factor[j] = time[j] < 0 ? -1 : 1;
      return gains_times(factor, rows, q);
    case trouble_kind::pedestals_of_set:
      if (block.set == which) std::copy_n(u, n_p, q.begin());
      return;
  }
}

// The troubles that are asked for.
std::vector<trouble> list_troubles(std::size_t n_sets) {
  constexpr std::size_t most_sets = 20;  // beyond, each has too few orbits to accuse anybody
  std::vector<trouble> all{{trouble_kind::cross_talk, 0, 1},
                           {trouble_kind::drift, 0, n_z},
                           {trouble_kind::bend, 0, n_z},
                           {trouble_kind::step, 0, n_z}};
  for (int k = 0; k < 4; ++k) all.push_back({trouble_kind::compression, k, 1});
  for (std::size_t set = 1; set < n_sets && n_sets <= most_sets; ++set) {
    all.push_back({trouble_kind::pedestals_of_set, static_cast<int>(set), 4});
  }
  return all;
}

// Sums of products of a trouble's columns with the rows of the fit (right-hand side last) and among
// themselves.
struct trouble_sums {
  std::array<std::array<double, n_u_rows>, most_columns> with_rows{};
  std::array<std::array<double, most_columns>, most_columns> own{};
};

void add_block(const orbit_kernels& kernels, const trouble_columns& q, std::size_t n,
               const block_rows& rows, trouble_sums& sums) {
  // Columns come in pairs; one that is not there is zero.
  const std::size_t n_even = (n + 1) / 2 * 2;
  kernels.add_pairs({q.data(), n_even}, rows.u, sums.with_rows.front().data());
  kernels.add_pairs({q.data(), n_even}, q, sums.own.front().data());
}

using local_values = std::array<double, n_local>;

// The fit's own equations, factorised. Not its covariance: cross-talk is nearly a chamber with wider
// buttons, and a difference of inverses would lose what is left of it in rounding.
struct factored_fit {
  std::array<local_values, n_local> l{};  // lower, of the matrix at unit diagonal
  local_values scale{};
  local_values side{};  // forward substituted
};

void forward(const factored_fit& fit, local_values& b) {
  for (std::size_t i = 0; i < n_local; ++i) {
    for (std::size_t k = 0; k < i; ++k) b[i] -= fit.l[i][k] * b[k];
    b[i] /= fit.l[i][i];
  }
}

void backward(const factored_fit& fit, local_values& b) {
  for (std::size_t i = n_local; i-- > 0;) {
    for (std::size_t k = i + 1; k < n_local; ++k) b[i] -= fit.l[k][i] * b[k];
    b[i] /= fit.l[i][i];
  }
}

// False when the matrix is not positive.
bool factorise(const equations& e, const common_unknowns& at, factored_fit& fit) {
  for (std::size_t i = 0; i < n_local; ++i) {
    fit.scale[i] = 1 / std::sqrt(e.u_weight * e.u.of[i][i] + e.prior[i]);
    fit.side[i] = fit.scale[i] * (e.u_weight * e.u.of[n_u_rows - 1][i] - e.prior[i] * at.value[i]);
  }
  for (std::size_t i = 0; i < n_local; ++i) {
    for (std::size_t j = 0; j <= i; ++j) {
      double sum = i == j ? 1 : e.u_weight * e.u.of[i][j] * fit.scale[i] * fit.scale[j];
      for (std::size_t k = 0; k < j; ++k) sum -= fit.l[i][k] * fit.l[j][k];
      // Not `sum <= 0`: nan must fail as well.
      if (i == j && !(sum > 0)) return false;
      fit.l[i][j] = i == j ? std::sqrt(sum) : sum / fit.l[j][j];
    }
  }
  forward(fit, fit.side);
  return true;
}

double product(const local_values& a, const local_values& b) {
  double sum = 0;
  for (std::size_t i = 0; i < n_local; ++i) sum += a[i] * b[i];
  return sum;
}

// What is left of a trouble when the fit has taken what it can, column by column; then each column
// at right angles to those before it.
trouble_size solve_trouble(const trouble& what, const trouble_sums& sums, const factored_fit& fit,
                           double weight) {
  trouble_size size;
  size.kind = what.kind;
  size.which = what.which + (what.kind == trouble_kind::compression ? 1 : 0);
  std::array<local_values, most_columns> reach{};  // what the fit's unknowns explain of it
  std::array<std::array<double, most_columns + 1>, most_columns> left{};
  for (std::size_t i = 0; i < what.n; ++i) {
    for (std::size_t a = 0; a < n_local; ++a) {
      reach[i][a] = fit.scale[a] * weight * sums.with_rows[i][a];
    }
    forward(fit, reach[i]);
    for (std::size_t j = 0; j <= i; ++j) {
      left[i][j] = left[j][i] = weight * sums.own[i][j] - product(reach[i], reach[j]);
    }
    left[i][most_columns] = weight * sums.with_rows[i][n_u_rows - 1] - product(reach[i], fit.side);
  }
  for (std::size_t i = 0; i < what.n; ++i) backward(fit, reach[i]);
  // Gauss without pivots: what is left of a column by its fellows may be nothing, and is passed by.
  constexpr double nothing = 1e-9;  // of the column
  std::array<bool, most_columns> is_used{};
  for (std::size_t i = 0; i < what.n; ++i) {
    is_used[i] = left[i][i] > nothing * weight * sums.own[i][i];
    if (!is_used[i]) continue;
    size.chi_square += left[i][most_columns] * left[i][most_columns] / left[i][i];
    ++size.freedom;
    for (std::size_t j = i + 1; j < what.n; ++j) {
      const double part = left[j][i] / left[i][i];
      for (std::size_t k = i; k <= most_columns; ++k) left[j][k] -= part * left[i][k];
    }
  }
  std::array<double, most_columns> found{};
  std::array<double, n_z> dz{};
  for (std::size_t i = what.n; i-- > 0;) {
    if (!is_used[i]) continue;
    double side = left[i][most_columns];
    for (std::size_t k = i + 1; k < what.n; ++k) side -= left[i][k] * found[k];
    found[i] = side / left[i][i];
    for (std::size_t a = 0; a < n_z; ++a) dz[a] -= fit.scale[a] * reach[i][a] * found[i];
  }
  const std::array<double, 4> shift = log_gains(dz.data());
  const std::array<double, 4> moved = log_gains(found.data());
  for (std::size_t k = 1; k < 4; ++k) {
    size.shift = std::max(size.shift, std::abs(shift[k] - shift[0]));
    // Twice: a drift goes from -1 to 1, a step from one sign to the other.
    size.size = std::max(size.size, what.n == n_z ? 2 * std::abs(moved[k] - moved[0]) : 0);
  }
  if (what.n != n_z)
    size.size = *std::max_element(found.begin(), found.end(),
                                  [](double a, double b) { return std::abs(a) < std::abs(b); });
  return size;
}

}  // namespace

std::vector<trouble_size> test_troubles(fit_state& state, const fit_setting& setting,
                                        const fit_result& result) {
  std::vector<trouble_size> found;
  if (!result.converged || state.block.empty()) return found;
  const std::vector<trouble> all = list_troubles(state.at.trend.size());
  std::vector<trouble_sums> sums(all.size());
  equations e = equations_of(setting);
  e.u_weight = 1 / (result.noise * result.noise);
  const model_setting model{
      &kernels_named(setting.instruction_set), setting.table, setting.R0, false, false, 0};
  const auto last = static_cast<double>(state.block.back().first + state.block.back().count);
  std::array<double, 4> t = log_gains(state.at.value.data());
  for (double& gain : t) gain = exponential(gain);
  block_rows rows{};
  trouble_columns q;
  column time;
  const auto at = std::make_unique<place_columns>();
  for (orbit_block& block : state.block) {
    model.kernels->fill_rows(block, *at, model, state.at, rows);
    model.kernels->add_u(rows, e.u);
    for (std::size_t j = 0; j < block_size; ++j) {
      time[j] = 2 * static_cast<double>(block.first + j) / last - 1;
    }
    for (std::size_t i = 0; i < all.size(); ++i) {
      fill_columns(all[i], block, *at, rows, time, t, q);
      add_block(*model.kernels, q, all[i].n, rows, sums[i]);
    }
  }
  factored_fit fit;
  if (!factorise(e, state.at, fit)) return found;
  for (std::size_t i = 0; i < all.size(); ++i) {
    found.push_back(solve_trouble(all[i], sums[i], fit, e.u_weight));
  }
  return found;
}

}  // namespace calibration
