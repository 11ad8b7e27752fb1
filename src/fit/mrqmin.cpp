#include "mrqmin.hpp"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <numeric>
#include <string>
#include <utility>

#include "file_units.hpp"
#include "list_io.hpp"
#include "run_time.hpp"
#include "terminal.hpp"

namespace mrqmin_mod {
namespace {

constexpr int singular_log = 111;  // side log of singular matrices; nothing opens it

constexpr double first_damping = 0.001;
constexpr double accepted_factor = 0.1;
constexpr double rejected_factor = 10;

// What mrqmin keeps from call to call: valid from the initialising call (alamda < 0) to the
// finishing one (alamda = 0). One fit at a time.
struct kept_state {
  std::vector<double> atry, beta, da;  // ma each; beta and da packed to the fitted parameters
  double ochisq = 0;                   // chi-square of the last accepted point
  int mfit = 0;                        // number of fitted parameters
};
kept_state kept;

struct place {
  int row = 0;
  int column = 0;
};

// Work space of one call; kept only so that a fit does not allocate at every step.
struct work_space {
  std::vector<double> ymod;            // ndata
  std::vector<double> packed;          // derivatives of one data point by the free parameters
  matrix dyda{"dyda", 0, 0};           // ndata x ma
  matrix curvature{"covar", 0, 0};     // mfit x mfit: the block that gaussj works on
  matrix right_hand_side{"da", 0, 0};  // mfit x 1
  std::vector<int> unused;             // rows and columns that gaussj has not pivoted on
  std::vector<place> pivots;           // those that it has, in order
  std::vector<int> free;               // numbers of the fitted parameters, from 1
};
work_space work;

constexpr std::size_t at(int i) { return static_cast<std::size_t>(i - 1); }

void assert_eq(std::initializer_list<std::size_t> sizes, std::string_view tag,
               std::string_view last_line) {
  const auto differs = [&](std::size_t n) { return n != *sizes.begin(); };
  if (std::any_of(sizes.begin(), sizes.end(), differs))
    nrerror(std::string{"an assert_eq failed with this tag:"}.append(tag), last_line);
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
void list_free(std::span<const bool> maska) {
  work.free.clear();
  for (int i = 1; i <= static_cast<int>(maska.size()); ++i)
    if (maska[at(i)]) work.free.push_back(i);
  work.packed.resize(work.free.size());
}

// Adds one data point to the packed lower triangle and the gradient.
void add_point(std::span<const double> dyda, double wt, double dy, matrix& alpha,
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
void mrqcof(const problem& p, std::span<const double> a, matrix& alpha, std::span<double> beta,
            double& chisq) {
  const int ndata = static_cast<int>(p.x.size());
  work.ymod.assign(p.x.size(), 0.0);
  if (work.dyda.rows != ndata || work.dyda.columns != static_cast<int>(a.size()))
    work.dyda.reshape(ndata, static_cast<int>(a.size()));
  p.funcs(p.x, a, work.ymod, work.dyda);

  list_free(p.maska);
  const int mfit = static_cast<int>(work.free.size());
  for (int j = 1; j <= mfit; ++j) {
    std::fill_n(alpha.row(j).begin(), mfit, 0.0);
    beta[at(j)] = 0;
  }
  chisq = 0;
  for (int n = 1; n <= ndata; ++n) {
    const double wt = 1 / (p.sig[at(n)] * p.sig[at(n)]);
    const double dy = p.y[at(n)] - work.ymod[at(n)];
    add_point(std::as_const(work.dyda).row(n), wt, dy, alpha, beta);
    chisq += dy * dy * wt;
  }
  for (int j = 1; j <= mfit; ++j)
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

void tell_singular() {
  const std::string line = util::list_line().text("gaussj: singular matrix (2)").str();
  util::print_line(line);
  util::write_line(singular_log, line);
}

// Damped curvature and gradient of the last accepted point into the block that gaussj works on; its
// results back into covar and da, also when it returned early.
void solve_step(const matrix& alpha, double alamda, matrix& covar) {
  const int mfit = kept.mfit;
  const auto n = static_cast<std::size_t>(mfit);
  work.curvature.reshape(mfit, mfit);
  work.right_hand_side.reshape(mfit, 1);
  for (int j = 1; j <= mfit; ++j) {
    std::ranges::copy(alpha.row(j).first(n), work.curvature.row(j).begin());
    work.curvature(j, j) *= 1 + alamda;
    work.right_hand_side(j, 1) = kept.beta[at(j)];
  }
  gaussj(work.curvature, work.right_hand_side);
  for (int j = 1; j <= mfit; ++j) {
    std::ranges::copy(work.curvature.row(j), covar.row(j).begin());
    kept.da[at(j)] = work.right_hand_side(j, 1);
  }
}

// Trial point: the solved steps go, in order, to the parameters that are free now.
void make_trial(std::span<const double> a, std::span<const bool> maska) {
  kept.atry.assign(a.begin(), a.end());
  int j = 0;
  for (std::size_t i = 0; i < maska.size(); ++i)
    if (maska[i]) kept.atry[i] += kept.da[at(++j)];
}

// Chi-square at the trial point. Curvature and gradient come with it into covar and da unless the
// model has its own sums: then they wait until the point is accepted.
void evaluate_trial(const problem& p, matrix& covar, double& chisq) {
  if (p.sums != nullptr) {
    chisq = p.sums->chi_square(kept.atry);
  } else {
    mrqcof(p, kept.atry, covar, kept.da, chisq);
  }
}

// The curvature kept belongs to the parameters that are free in this call.
void accept(const problem& p, std::span<double> a, const matrix& covar, matrix& alpha,
            double chisq) {
  kept.ochisq = chisq;
  std::ranges::copy(kept.atry, a.begin());
  if (p.sums != nullptr) return p.sums->curvature(a, p.maska, alpha, kept.beta);
  for (int j = 1; j <= kept.mfit; ++j) {
    for (int k = 1; k <= kept.mfit; ++k) alpha(j, k) = covar(j, k);
    kept.beta[at(j)] = kept.da[at(j)];
  }
}

void initialise(const problem& p, std::span<const double> a, matrix& alpha, double& chisq,
                double& alamda) {
  kept.atry.assign(a.begin(), a.end());
  kept.beta.assign(a.size(), 0.0);
  kept.da.assign(a.size(), 0.0);
  alamda = first_damping;
  if (p.sums != nullptr) {
    chisq = p.sums->chi_square(a);
    p.sums->curvature(a, p.maska, alpha, kept.beta);
  } else {
    mrqcof(p, a, alpha, kept.beta, chisq);
  }
  kept.ochisq = chisq;
}

}  // namespace

void nrerror(std::string_view text, std::string_view last_line) {
  util::print_line(std::string{"nrerror: "}.append(text));
  util::print_line(last_line);
  util::stop_program(2);
}

void reset() { kept = {}; }

void gaussj(matrix& a, matrix& b) {
  const int n = a.rows;
  std::vector<int>& unused = work.unused;
  std::vector<place>& pivots = work.pivots;
  unused.resize(static_cast<std::size_t>(n));
  std::iota(unused.begin(), unused.end(), 1);
  pivots.clear();
  for (int i = 1; i <= n; ++i) {
    const auto [irow, icol] = largest_element(a, unused);
    // The search passes used columns over; this holds it to that.
    if (std::erase(unused, icol) != 1) nrerror("gaussj: singular matrix (1)");
    swap_rows(a, irow, icol);
    swap_rows(b, irow, icol);
    pivots.push_back({.row = irow, .column = icol});
    if (a(icol, icol) == 0) return tell_singular();
    eliminate(a, b, icol);
  }
  // The row swaps left the columns of the inverse in the pivots' order: undo, last one first.
  std::for_each(pivots.rbegin(), pivots.rend(),
                [&](const place& p) { swap_columns(a, p.row, p.column); });
}

void covsrt(matrix& covar, std::span<const bool> maska) {
  assert_eq({n_rows(covar), n_columns(covar), maska.size()}, "covsrt",
            "program terminated by assert_eq3");
  const int ma = covar.rows;
  const int mfit = count_free(maska);
  for (int i = 1; i <= ma; ++i)
    for (int j = 1; j <= ma; ++j)
      if (i > mfit || j > mfit) covar(i, j) = 0;
  int k = mfit;
  for (int j = ma; j >= 1; --j) {
    if (!maska[at(j)]) continue;
    swap_columns(covar, k, j);
    swap_rows(covar, k, j);
    --k;
  }
}

void mrqmin(const problem& p, std::span<double> a, matrix& covar, matrix& alpha, double& chisq,
            double& alamda) {
  assert_eq({p.x.size(), p.y.size(), p.sig.size()}, "mrqmin: ndata",
            "program terminated by assert_eq3");
  assert_eq(
      {a.size(), p.maska.size(), n_rows(covar), n_columns(covar), n_rows(alpha), n_columns(alpha)},
      "mrqmin: ma", "program terminated by assert_eqn");
  kept.mfit = count_free(p.maska);
  if (alamda < 0) initialise(p, a, alpha, chisq, alamda);
  if (kept.beta.size() != a.size())
    util::run_time_error("mrqmin: a step before the initialising call (alamda < 0) of this fit");

  solve_step(alpha, alamda, covar);
  if (alamda == 0) {
    covsrt(covar, p.maska);
    covsrt(alpha, p.maska);
    reset();
    return;
  }

  make_trial(a, p.maska);
  evaluate_trial(p, covar, chisq);
  // Strictly smaller: an equal chi-square, or one that is not a number, is no progress.
  if (chisq < kept.ochisq) {
    alamda *= accepted_factor;
    accept(p, a, covar, alpha, chisq);
  } else {
    alamda *= rejected_factor;
    chisq = kept.ochisq;
  }
}

}  // namespace mrqmin_mod
