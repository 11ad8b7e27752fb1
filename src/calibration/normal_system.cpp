#include "normal_system.hpp"

#include <algorithm>
#include <cmath>

namespace calibration {
namespace {

// Lower Cholesky factor in place; false when the matrix is not positive.
template <std::size_t n>
bool factorise(std::array<std::array<double, n>, n>& a, std::size_t used = n) {
  for (std::size_t i = 0; i < used; ++i) {
    for (std::size_t j = 0; j <= i; ++j) {
      double sum = a[i][j];
      for (std::size_t k = 0; k < j; ++k) sum -= a[i][k] * a[j][k];
      if (i != j) {
        a[i][j] = sum / a[j][j];
      } else if (sum > 0) {
        a[i][i] = std::sqrt(sum);
      } else {
        // Written as sum > 0 above, so that a pivot which is no number ends here as well.
        return false;
      }
    }
  }
  return true;
}

template <std::size_t n>
void forward(const std::array<std::array<double, n>, n>& l, std::array<double, n>& b,
             std::size_t used = n) {
  for (std::size_t i = 0; i < used; ++i) {
    for (std::size_t k = 0; k < i; ++k) b[i] -= l[i][k] * b[k];
    b[i] /= l[i][i];
  }
}

template <std::size_t n>
void backward(const std::array<std::array<double, n>, n>& l, std::array<double, n>& b,
              std::size_t used = n) {
  for (std::size_t i = used; i-- > 0;) {
    for (std::size_t k = i + 1; k < used; ++k) b[i] -= l[k][i] * b[k];
    b[i] /= l[i][i];
  }
}

// A course coefficient is ln intensity and of order 1 at most; this only keeps a set of one or two
// orbits solvable.
constexpr double trend_prior = 1e-2;

using trend_square = std::array<std::array<double, n_trend>, n_trend>;
using trend_values = std::array<double, n_trend>;

// One data set's course, eliminated.
struct eliminated_set {
  trend_square factor{};
  std::array<trend_values, n_common> coupling{};  // factor^-1 times the coupling to unknown i
  trend_values side{};                            // factor^-1 times the right-hand side
};

// Reduces the common square and its right-hand side by what the course of one set explains.
bool eliminate(const v_sums& sums, const equations& e, const trend_values& at, eliminated_set& set,
               common_matrix& square, std::array<double, n_common>& side) {
  // The course is in the v-rows alone: u is at right angles to what the intensity does, so only the
  // v-weight enters.
  const double w = e.v_weight;
  const std::size_t n = e.n_trend;
  for (std::size_t i = 0; i < n; ++i) {
    for (std::size_t j = 0; j <= i; ++j) set.factor[i][j] = w * sums.of[n_common + i][n_common + j];
    set.factor[i][i] += trend_prior;
    for (std::size_t j = 0; j < n_common; ++j) set.coupling[j][i] = w * sums.of[n_common + i][j];
    set.side[i] = w * sums.of[n_v_rows - 1][n_common + i] - trend_prior * at[i];
  }
  if (!factorise(set.factor, n)) return false;
  for (trend_values& c : set.coupling) forward(set.factor, c, n);
  forward(set.factor, set.side, n);
  for (std::size_t i = 0; i < n_common; ++i) {
    for (std::size_t k = 0; k < n; ++k) {
      // Schur complement: with C = factor^-1 coupling it is C' C that goes, in the triangle that is
      // used.
      side[i] -= set.coupling[i][k] * set.side[k];
      for (std::size_t j = 0; j <= i; ++j) {
        square[i][j] -= set.coupling[i][k] * set.coupling[j][k];
      }
    }
  }
  return true;
}

// Sum of squares that a step leaves of the rows: S - 2 d.g + d.N d, from the lower triangle. at(i)
// tells the step of row i.
template <class sums, class step_of>
double squares_left(const sums& s, std::size_t n_rows, const step_of& at) {
  double sum = s.of[n_rows - 1][n_rows - 1];
  for (std::size_t i = 0; i + 1 < n_rows; ++i) {
    double product = -2 * s.of[n_rows - 1][i] + s.of[i][i] * at(i);
    for (std::size_t j = 0; j < i; ++j) product += 2 * s.of[i][j] * at(j);
    sum += at(i) * product;
  }
  // A difference of large numbers: rounding can leave a perfect fit slightly below 0.
  return std::max(sum, 0.0);
}

double trace_of_product(const common_matrix& a, const common_matrix& b) {
  // Column by column, so that the additions do not wait for one another.
  std::array<double, n_common> part{};
  for (std::size_t i = 0; i < n_common; ++i) {
    for (std::size_t j = 0; j < n_common; ++j) part[j] += a[i][j] * b[i][j];
  }
  double sum = 0;
  for (const double p : part) sum += p;
  return sum;
}

// The inverse of the lower Cholesky factor of a full symmetric matrix, row by row: whole rows are
// added, so that no sum waits for itself. False when the matrix is not positive; it is used up.
bool invert_factor(common_matrix& a, common_matrix& inverse) {
  for (std::size_t k = 0; k < n_common; ++k) {
    // Written as > 0, so that a pivot which is no number ends here as well.
    if (!(a[k][k] > 0)) return false;
    const double per_pivot = 1 / std::sqrt(a[k][k]);
    // Row k becomes the factor's column k from the diagonal on.
    for (std::size_t j = k; j < n_common; ++j) a[k][j] *= per_pivot;
    for (std::size_t i = k + 1; i < n_common; ++i) {
      for (std::size_t j = i; j < n_common; ++j) a[i][j] -= a[k][i] * a[k][j];
    }
    inverse[k] = {};
    for (std::size_t i = 0; i < k; ++i) {
      for (std::size_t j = 0; j <= i; ++j) inverse[k][j] -= a[i][k] * inverse[i][j];
    }
    for (std::size_t j = 0; j < k; ++j) inverse[k][j] *= per_pivot;
    inverse[k][k] = per_pivot;
  }
  return true;
}

void fill_upper(common_matrix& a) {
  for (std::size_t i = 0; i < n_common; ++i) {
    for (std::size_t j = i + 1; j < n_common; ++j) a[i][j] = a[j][i];
  }
}

}  // namespace

solution solve(const equations& e, const common_unknowns& at) {
  solution s;
  common_matrix of_u{}, of_v{};
  std::array<double, n_common> side{};
  for (std::size_t i = 0; i < n_local; ++i) {
    for (std::size_t j = 0; j <= i; ++j) of_u[i][j] = e.u_weight * e.u.of[i][j];
    side[i] = e.u_weight * e.u.of[n_u_rows - 1][i];
  }
  for (const v_sums& v : e.v) {
    for (std::size_t i = 0; i < n_common; ++i) {
      for (std::size_t j = 0; j <= i; ++j) of_v[i][j] += e.v_weight * v.of[i][j];
      side[i] += e.v_weight * v.of[n_v_rows - 1][i];
    }
  }
  // Kept until the common step is known: each set's own step follows from its factor and coupling.
  std::vector<eliminated_set> sets(e.v.size());
  for (std::size_t n = 0; n < e.v.size(); ++n) {
    if (!eliminate(e.v[n], e, at.trend[n], sets[n], of_v, side)) return s;
  }
  fill_upper(of_u);
  fill_upper(of_v);

  // With a free intensity c and l are in no row: their priors alone keep the matrix whole.
  common_matrix square{};
  std::array<double, n_common> scale{};
  for (std::size_t i = 0; i < n_common; ++i) {
    for (std::size_t j = 0; j < n_common; ++j) {
      s.information[i][j] = of_u[i][j] + of_v[i][j];
      square[i][j] = s.information[i][j];
    }
    square[i][i] += e.prior[i];
    // Harmonics alone are held back. They imitate gains and places, and before those stand they
    // would take what is not theirs.
    if (i >= first_h && i < n_local) square[i][i] += e.damping * e.prior[i];
    // The prior pulls the value to 0, not the step: where the fit has come to is part of its pull.
    side[i] -= e.prior[i] * at.value[i];
    if (!(square[i][i] > 0)) return s;
    scale[i] = 1 / std::sqrt(square[i][i]);
  }
  for (std::size_t i = 0; i < n_common; ++i) {
    for (std::size_t j = 0; j < n_common; ++j) square[i][j] *= scale[i] * scale[j];
    side[i] *= scale[i];
  }
  common_matrix inverse;
  if (!invert_factor(square, inverse)) return s;
  // The inverse is that of the factor, times its transpose; all of it is needed, for the errors and
  // for the freedom spent.
  for (std::size_t k = 0; k < n_common; ++k) {
    double along = 0;
    for (std::size_t j = 0; j <= k; ++j) along += inverse[k][j] * side[j];
    for (std::size_t i = 0; i <= k; ++i) {
      s.step.value[i] += inverse[k][i] * along;
      for (std::size_t j = 0; j <= k; ++j) s.covariance[i][j] += inverse[k][i] * inverse[k][j];
    }
  }
  for (std::size_t i = 0; i < n_common; ++i) {
    s.step.value[i] *= scale[i];
    for (std::size_t j = 0; j < n_common; ++j) s.covariance[i][j] *= scale[i] * scale[j];
  }
  for (const eliminated_set& set : sets) {
    trend_values step = set.side;
    for (std::size_t i = 0; i < n_common; ++i) {
      for (std::size_t k = 0; k < e.n_trend; ++k) step[k] -= set.coupling[i][k] * s.step.value[i];
    }
    backward(set.factor, step, e.n_trend);
    s.step.trend.push_back(step);
  }
  const auto& d = s.step.value;
  s.u_squares = squares_left(e.u, n_u_rows, [&d](std::size_t i) { return d[i]; });
  for (std::size_t n = 0; n < sets.size(); ++n) {
    const trend_values& course = s.step.trend[n];
    s.v_squares += squares_left(e.v[n], n_v_rows, [&](std::size_t i) {
      return i < n_common ? d[i] : course[i - n_common];
    });
  }
  // Trace of information times covariance: an unknown that its prior holds costs the residuals
  // nothing, one that the data determine costs a whole degree. The courses have no prior to speak
  // of.
  s.u_spent = trace_of_product(of_u, s.covariance);
  s.v_spent = trace_of_product(of_v, s.covariance) + static_cast<double>(sets.size() * e.n_trend);
  s.good = true;
  for (const double part : d) s.good = s.good && std::isfinite(part);
  return s;
}

}  // namespace calibration
