// solver: damped least-squares steps for any model with any set of free parameters.
//
// The chi-square of parameters a is sum(dy^2 / sig^2), dy = y - model(x, a). A step solves
//     (alpha, its diagonal times 1 + alamda) da = beta
// with alpha the curvature matrix and beta the gradient of the last accepted point, restricted to
// the parameters that a mask sets free. A better point is kept and alamda divided by ten; a worse
// one is dropped and alamda multiplied by ten. One call makes one trial; the caller loops:
//
//     alamda < 0   initialise, then one step
//     alamda > 0   one step
//     alamda = 0   finish: covariance and curvature matrices over all parameters, state released
//
// The solver knows nothing of BPMs. What it keeps from call to call is a record of the caller's:
// several fits may be under way at once, on one thread or on many.
// source   the damping of Levenberg (1944) and Marquardt (1963), in its usual textbook form
#pragma once
#include <functional>
#include <span>
#include <vector>

#include "fault.hpp"
#include "matrix.hpp"

namespace solver {

/// Fills yfit (ndata values) and dyda (ndata rows of ma derivatives) for abscissae x and parameters
/// a (ma values).
using model = std::function<void(std::span<const double> x, std::span<const double> a,
                                 std::span<double> yfit, matrix& dyda)>;

/// A model whose values are residuals, every y 0 and every sig 1, may bring the sums over its data
/// points. The solver then asks only for what it looks at: the sum of squares of each trial, and
/// the derivatives of an accepted one.
struct residual_sums {
  /// The sum of squares at a.
  std::function<double(std::span<const double> a)> chi_square;
  /// Curvature matrix and gradient at a, where chi_square was asked last, packed to the parameters that maska sets free: the leading
  /// block of alpha, whole, and the leading values of beta.
  std::function<void(std::span<const double> a, std::span<const bool> maska, matrix& alpha,
                     std::span<double> beta)>
      curvature;
};

/// What is fitted: the data and which parameters are free. Spans and pointers stay the caller's.
struct problem {
  std::span<const double> x;    ///< abscissae, handed to the model as they are; ndata
  std::span<const double> y;    ///< measured values; ndata
  std::span<const double> sig;  ///< their standard deviations; ndata
  std::span<const bool> maska;  ///< true = fitted, false = held; ma
  model funcs;                  ///< asked unless there are sums
  const residual_sums* sums = nullptr;
};

/// Row and column of a matrix, from 1.
struct place {
  int row = 0;
  int column = 0;
};

/// Work space; kept only so that a fit does not allocate at every step. Holds nothing between
/// calls.
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

/// What is kept from call to call: valid from the initialising call (alamda < 0) to the finishing
/// one (alamda = 0), which releases it.
struct fit_state {
  std::vector<double> atry, beta, da;  ///< ma each; beta and da packed to the fitted parameters
  double ochisq = 0;                   ///< chi-square of the last accepted point
  int mfit = 0;                        ///< number of fitted parameters
  bool zero_pivot = false;             ///< the last call met an exactly singular matrix
  work_space work;
};

/// How an elimination ended.
enum class elimination {
  done,
  zero_pivot,  ///< exactly singular: left as far as reduced, columns not put back
  pivot_twice  ///< the pivot search returned a used column: a fault of the program
};

/// One trial step (see above).
///
/// given    p       data, mask and model
///          a       ma parameters
///          covar   ma x ma, work space
///          alpha   ma x ma, kept by the caller between calls
///          chisq   as the call before left it
///          alamda  damping and mode
///          state   one record for all calls of a fit
/// returns  a       moved when the step was accepted, else to the bit as it was
///          covar   on the finishing call the covariance matrix, held parameters zero
///          alpha   packed curvature of the last accepted point; on the finishing call spread out
///          chisq   at a
///          alamda  0.1 times or 10 times what it was; 0.001 stands before the first step
///          state   zero_pivot: whether the matrix was exactly singular. The trial then goes on
///                  with what the elimination left (it is usually rejected, and damping grows)
/// errors   a fault, nothing done: sizes that disagree ("mrqmin: ndata", "mrqmin: ma", "covsrt"), a
///          step without an initialising call, a pivot chosen twice
/// note     the mask may change between calls, the number of free parameters not. alpha and beta
///          then still belong to the parameters that were free at the last accepted step.
/// note     a chi-square equal to the last one, or not a number, is a rejected step
[[nodiscard]] util::status mrqmin(const problem& p, std::span<double> a, matrix& covar,
                                  matrix& alpha, double& chisq, double& alamda, fit_state& state);

/// Inverts a (n x n) and solves for b (n x m) by elimination with full pivoting.
/// returns  a  the inverse, b the solutions
/// note     equal candidates: the first in column order. A nan is never larger than a number.
[[nodiscard]] elimination gaussj(matrix& a, matrix& b, work_space& work);

/// Spreads a packed covariance matrix over all parameters; rows and columns of held ones are zero.
/// errors   a fault, nothing done: sizes of covar and maska that disagree
[[nodiscard]] util::status covsrt(matrix& covar, std::span<const bool> maska);

}  // namespace solver
