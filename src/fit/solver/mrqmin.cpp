#include "mrqmin.hpp"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <numeric>
#include <string>
#include <utility>

namespace solver {
namespace {

// The damping before the first step, and what an accepted and a rejected step make of it. Doubles,
// not widened single-precision literals as elsewhere in the fit.
constexpr double first_damping = 0.001;
constexpr double accepted_factor = 0.1;
constexpr double rejected_factor = 10;

constexpr std::size_t at(int i) { return static_cast<std::size_t>(i - 1); }

bool all_equal(std::initializer_list<std::size_t> sizes) {
  return std::all_of(sizes.begin(), sizes.end(),
                     [&](std::size_t n) { return n == *sizes.begin(); });
}

// Sizes that disagree: nothing was touched, and the tag says which sizes are meant.
util::status disagreement(std::string_view tag) {
  return util::fault{"sizes disagree", std::string{tag}, "equal sizes"};
}

std::size_t n_rows(const matrix& m) { return static_cast<std::size_t>(m.rows); }
std::size_t n_columns(const matrix& m) { return static_cast<std::size_t>(m.columns); }

int count_free(std::span<const bool> maska) {
  return static_cast<int>(std::count(maska.begin(), maska.end(), true));
}

void swap_rows(matrix& m, int r1, int r2) {
  if (r1 != r2) std::ranges::swap_ranges(m.row(r1), m.row(r2));
}

void swap_columns(matrix& m, int c1, int c2) {
  if (c1 == c2) return;
  for (int r = 1; r <= m.rows; ++r) std::swap(m(r, c1), m(r, c2));
}

// The number of the packed parameter's row and column, for every free parameter of the mask.
void list_free(std::span<const bool> maska, work_space& work) {
  work.free.clear();
  for (int i = 1; i <= static_cast<int>(maska.size()); ++i)
    if (maska[at(i)]) work.free.push_back(i);
  work.packed.resize(work.free.size());
}

// Adds one data point to the packed lower triangle and the gradient.
void add_point(std::span<const double> dyda, double wt, double dy, work_space& work, matrix& alpha,
               std::span<double> beta) {
  const std::size_t mfit = work.free.size();
  for (std::size_t j = 0; j < mfit; ++j) work.packed[j] = dyda[at(work.free[j])];
  const double* packed = work.packed.data();
  double* row = alpha.item.data();
  for (std::size_t j = 0; j < mfit; ++j, row += alpha.columns) {
    const double wt_dyda = packed[j] * wt;
    for (std::size_t k = 0; k <= j; ++k) row[k] += wt_dyda * packed[k];
    beta[j] += dy * wt_dyda;
  }
}

// Curvature matrix and gradient, packed to the free parameters, and chi-square at a. Every sum runs
// over the data points in their order.
void mrqcof(const problem& p, std::span<const double> a, work_space& work, matrix& alpha,
            std::span<double> beta, double& chisq) {
  const int ndata = static_cast<int>(p.x.size());
  work.ymod.assign(p.x.size(), 0.0);
  if (work.dyda.rows != ndata || work.dyda.columns != static_cast<int>(a.size()))
    work.dyda.reshape(ndata, static_cast<int>(a.size()));
  p.funcs(p.x, a, work.ymod, work.dyda);

  list_free(p.maska, work);
  const int mfit = static_cast<int>(work.free.size());
  for (int j = 1; j <= mfit; ++j) {
    std::fill_n(alpha.row(j).begin(), mfit, 0.0);
    beta[at(j)] = 0;
  }
  chisq = 0;
  for (int n = 1; n <= ndata; ++n) {
    const double wt = 1 / (p.sig[at(n)] * p.sig[at(n)]);
    const double dy = p.y[at(n)] - work.ymod[at(n)];
    add_point(std::as_const(work.dyda).row(n), wt, dy, work, alpha, beta);
    chisq += dy * dy * wt;
  }
  for (int j = 1; j <= mfit; ++j)
    // Symmetric: half of the sums were enough.
    for (int k = 1; k < j; ++k) alpha(k, j) = alpha(j, k);
}

// The largest element among the rows and columns not yet used as pivot, the first in column order.
// A nan is taken only where nothing else is left, so a fit that met one goes on and has its steps
// rejected.
place largest_element(const matrix& a, std::span<const int> unused) {
  place found;
  double largest = -1;
  for (const int column : unused) {
    const double* first = a.item.data() + column - 1;
    for (const int row : unused) {
      const double size = std::abs(first[std::ptrdiff_t{row - 1} * a.columns]);
      if (found.row != 0 && !(size > largest)) continue;
      found = {.row = row, .column = column};
      if (size > largest) largest = size;
    }
  }
  return found;
}

// row -= factor * pivot; rows of a matrix do not overlap.
void subtract(double* __restrict row, double factor, const double* __restrict pivot, int n) {
  for (int c = 0; c < n; ++c) row[c] -= factor * pivot[c];
}

// Makes column icol of a the pivot's unit column, in place of which the inverse grows.
void eliminate(matrix& a, matrix& b, int icol) {
  const double pivinv = 1 / a(icol, icol);
  a(icol, icol) = 1;
  const auto pivot_a = a.row(icol);
  const auto pivot_b = b.row(icol);
  for (double& element : pivot_a) element *= pivinv;
  for (double& element : pivot_b) element *= pivinv;
  double* row_a = a.item.data();
  double* row_b = b.item.data();
  for (int r = 1; r <= a.rows; ++r, row_a += a.columns, row_b += b.columns) {
    if (r == icol) continue;
    const double factor = std::exchange(row_a[icol - 1], 0.0);
    subtract(row_a, factor, pivot_a.data(), a.columns);
    subtract(row_b, factor, pivot_b.data(), b.columns);
  }
}

// Damped curvature and gradient of the last accepted point into the block that gaussj works on; its
// results back into covar and da, also when it returned early.
elimination solve_step(const matrix& alpha, double alamda, matrix& covar, fit_state& state) {
  const int mfit = state.mfit;
  const auto n = static_cast<std::size_t>(mfit);
  work_space& work = state.work;
  work.curvature.reshape(mfit, mfit);
  work.right_hand_side.reshape(mfit, 1);
  for (int j = 1; j <= mfit; ++j) {
    std::ranges::copy(alpha.row(j).first(n), work.curvature.row(j).begin());
    // Damping scales the diagonal instead of adding to it: each parameter is held back in its own
    // unit, so that gains near 1 and a wave number near 10 share one alamda.
    work.curvature(j, j) *= 1 + alamda;
    work.right_hand_side(j, 1) = state.beta[at(j)];
  }
  const elimination ended = gaussj(work.curvature, work.right_hand_side, work);
  for (int j = 1; j <= mfit; ++j) {
    std::ranges::copy(work.curvature.row(j), covar.row(j).begin());
    state.da[at(j)] = work.right_hand_side(j, 1);
  }
  return ended;
}

// Trial point: the solved steps go, in order, to the parameters that are free now.
void make_trial(std::span<const double> a, std::span<const bool> maska, fit_state& state) {
  state.atry.assign(a.begin(), a.end());
  int j = 0;
  for (std::size_t i = 0; i < maska.size(); ++i)
    if (maska[i]) state.atry[i] += state.da[at(++j)];
}

// Chi-square at the trial point. Curvature and gradient come with it into covar and da unless the
// model has its own sums: then they wait until the point is accepted, and a rejected trial, whose
// matrices nobody would look at, costs residuals only.
void evaluate_trial(const problem& p, matrix& covar, double& chisq, fit_state& state) {
  if (p.sums != nullptr) {
    chisq = p.sums->chi_square(state.atry);
  } else {
    mrqcof(p, state.atry, state.work, covar, state.da, chisq);
  }
}

// The curvature kept belongs to the parameters that are free in this call.
void accept(const problem& p, std::span<double> a, const matrix& covar, matrix& alpha, double chisq,
            fit_state& state) {
  state.ochisq = chisq;
  std::ranges::copy(state.atry, a.begin());
  if (p.sums != nullptr) return p.sums->curvature(a, p.maska, alpha, state.beta);
  for (int j = 1; j <= state.mfit; ++j) {
    for (int k = 1; k <= state.mfit; ++k) alpha(j, k) = covar(j, k);
    state.beta[at(j)] = state.da[at(j)];
  }
}

void initialise(const problem& p, std::span<const double> a, matrix& alpha, double& chisq,
                double& alamda, fit_state& state) {
  state.atry.assign(a.begin(), a.end());
  state.beta.assign(a.size(), 0.0);
  state.da.assign(a.size(), 0.0);
  alamda = first_damping;
  if (p.sums != nullptr) {
    chisq = p.sums->chi_square(a);
    p.sums->curvature(a, p.maska, alpha, state.beta);
  } else {
    mrqcof(p, a, state.work, alpha, state.beta, chisq);
  }
  state.ochisq = chisq;
}

void release(fit_state& state) {
  state.atry.clear();
  state.beta.clear();
  state.da.clear();
  state.ochisq = 0;
  state.mfit = 0;
}

}  // namespace

elimination gaussj(matrix& a, matrix& b, work_space& work) {
  const int n = a.rows;
  std::vector<int>& unused = work.unused;
  std::vector<place>& pivots = work.pivots;
  unused.resize(static_cast<std::size_t>(n));
  std::iota(unused.begin(), unused.end(), 1);
  pivots.clear();
  for (int i = 1; i <= n; ++i) {
    const auto [irow, icol] = largest_element(a, unused);
    // The search passes used columns over; this holds it to that.
    if (std::erase(unused, icol) != 1) return elimination::pivot_twice;
    swap_rows(a, irow, icol);
    swap_rows(b, irow, icol);
    pivots.push_back({.row = irow, .column = icol});
    // Returning here, with a and b half reduced, is meant: the caller's trial goes on with them, is
    // usually rejected, and the damping that grows from it makes the next matrix regular.
    if (a(icol, icol) == 0) return elimination::zero_pivot;
    eliminate(a, b, icol);
  }
  // The row swaps left the columns of the inverse in the pivots' order: undo, last one first.
  std::for_each(pivots.rbegin(), pivots.rend(),
                [&](const place& p) { swap_columns(a, p.row, p.column); });
  return elimination::done;
}

util::status covsrt(matrix& covar, std::span<const bool> maska) {
  if (!all_equal({n_rows(covar), n_columns(covar), maska.size()})) return disagreement("covsrt");
  const int ma = covar.rows;
  const int mfit = count_free(maska);
  for (int i = 1; i <= ma; ++i)
    for (int j = 1; j <= ma; ++j)
      if (i > mfit || j > mfit) covar(i, j) = 0;
  // From the last free parameter down: its packed row and column never lie behind its own place, so
  // nothing is overwritten that is still wanted.
  int k = mfit;
  for (int j = ma; j >= 1; --j) {
    if (!maska[at(j)]) continue;
    swap_columns(covar, k, j);
    swap_rows(covar, k, j);
    --k;
  }
  return {};
}

util::status mrqmin(const problem& p, std::span<double> a, matrix& covar, matrix& alpha,
                    double& chisq, double& alamda, fit_state& state) {
  if (!all_equal({p.x.size(), p.y.size(), p.sig.size()})) return disagreement("mrqmin: ndata");
  if (!all_equal({a.size(), p.maska.size(), n_rows(covar), n_columns(covar), n_rows(alpha),
                  n_columns(alpha)}))
    return disagreement("mrqmin: ma");
  state.mfit = count_free(p.maska);
  if (alamda < 0) initialise(p, a, alpha, chisq, alamda, state);
  if (state.beta.size() != a.size())
    return util::fault{
        "a step before the initialising call (alamda < 0) of this fit", "mrqmin", {}};

  const elimination ended = solve_step(alpha, alamda, covar, state);
  // Unlike a pivot of zero, which damping mends, this is a fault of the search: no trial helps.
  if (ended == elimination::pivot_twice) return util::fault{"singular matrix (1)", "gaussj", {}};
  state.zero_pivot = ended == elimination::zero_pivot;
  if (alamda == 0) {
    if (auto fault = covsrt(covar, p.maska)) return fault;
    if (auto fault = covsrt(alpha, p.maska)) return fault;
    release(state);
    return {};
  }

  make_trial(a, p.maska, state);
  evaluate_trial(p, covar, chisq, state);
  // Strictly smaller: an equal chi-square, or one that is not a number, is no progress.
  if (chisq < state.ochisq) {
    alamda *= accepted_factor;
    accept(p, a, covar, alpha, chisq, state);
  } else {
    alamda *= rejected_factor;
    chisq = state.ochisq;
  }
  return {};
}

}  // namespace solver
