// mrqmin: damped least-squares steps for any model with any set of free parameters.
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
// The solver knows nothing of BPMs. Its state is one set for the process: one fit at a time.
#pragma once
#include <span>
#include <string_view>

#include "matrix.hpp"

namespace mrqmin_mod {

/// Fills yfit (ndata values) and dyda (ndata rows of ma derivatives) for abscissae x and parameters
/// a (ma values).
using model = void (*)(std::span<const double> x, std::span<const double> a, std::span<double> yfit,
                       matrix& dyda);

/// A model whose values are residuals, every y 0 and every sig 1, may bring the sums over its data
/// points. The solver then asks only for what it looks at: the sum of squares of each trial, and
/// the derivatives of an accepted one.
struct residual_sums {
  /// The sum of squares at a.
  double (*chi_square)(std::span<const double> a);
  /// Curvature matrix and gradient at a, packed to the parameters that maska sets free: the leading
  /// block of alpha, whole, and the leading values of beta.
  void (*curvature)(std::span<const double> a, std::span<const bool> maska, matrix& alpha,
                    std::span<double> beta);
};

/// What is fitted: the data and which parameters are free. Spans stay the caller's.
struct problem {
  std::span<const double> x;    ///< abscissae, handed to the model as they are; ndata
  std::span<const double> y;    ///< measured values; ndata
  std::span<const double> sig;  ///< their standard deviations; ndata
  std::span<const bool> maska;  ///< true = fitted, false = held; ma
  model funcs = nullptr;        ///< asked unless there are sums
  const residual_sums* sums = nullptr;
};

/// One trial step (see above).
///
/// given    p       data, mask and model
///          a       ma parameters
///          covar   ma x ma, work space
///          alpha   ma x ma, kept by the caller between calls
///          chisq   as the call before left it
///          alamda  damping and mode
/// returns  a       moved when the step was accepted, else to the bit as it was
///          covar   on the finishing call the covariance matrix, held parameters zero
///          alpha   packed curvature of the last accepted point; on the finishing call spread out
///          chisq   at a
///          alamda  0.1 times or 10 times what it was; 0.001 stands before the first step
/// errors   sizes that disagree, or a step without an initialising call, end the run; an exactly
///          singular matrix is told on standard output and unit 111, and the trial goes on with
///          what the elimination left (it is then usually rejected, and damping grows)
/// note     the mask may change between calls, the number of free parameters not. alpha and beta
///          then still belong to the parameters that were free at the last accepted step.
/// note     a chi-square equal to the last one, or not a number, is a rejected step
void mrqmin(const problem& p, std::span<double> a, matrix& covar, matrix& alpha, double& chisq,
            double& alamda);

/// Inverts a (n x n) and solves for b (n x m) by elimination with full pivoting.
/// returns  a  the inverse, b the solutions
/// errors   a zero pivot: one line on standard output and unit 111, a and b as far as reduced and
///          columns not put back
/// note     equal candidates: the first in column order. A nan is never larger than a number.
void gaussj(matrix& a, matrix& b);

/// Spreads a packed covariance matrix over all parameters; rows and columns of held ones are zero.
/// errors   sizes of covar and maska that disagree end the run
void covsrt(matrix& covar, std::span<const bool> maska);

/// The fatal stop: "nrerror: " and the text, then the second line; all units closed, status 2.
[[noreturn]] void nrerror(std::string_view text,
                          std::string_view last_line = "program terminated by nrerror");

/// Drops whatever a fit in progress kept, as the finishing call does. For tests.
void reset();

}  // namespace mrqmin_mod
