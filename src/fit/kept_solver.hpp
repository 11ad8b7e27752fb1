// The solver on the one state that the process keeps: one fit at a time, faults end the run.
//
// The described calling form of the solver. Fits that are made side by side use the solver on
// records of their own (solver/mrqmin.hpp); the session's own fits do too.
#pragma once
#include <span>
#include <string_view>

#include "mrqmin.hpp"

namespace mrqmin_mod {

using solver::matrix;
using solver::model;
using solver::problem;
using solver::residual_sums;

/// One trial step of the fit in progress: solver::mrqmin on the kept state.
/// errors   sizes that disagree end the run through nrerror, a step without an initialising call
///          with a run-time error; an exactly singular matrix is told on standard output and unit
///          111, and the trial goes on
void mrqmin(const problem& p, std::span<double> a, matrix& covar, matrix& alpha, double& chisq,
            double& alamda);

/// solver::gaussj; a zero pivot is told on standard output and unit 111, a and b as far as reduced.
void gaussj(matrix& a, matrix& b);

/// solver::covsrt. errors   sizes that disagree end the run
void covsrt(matrix& covar, std::span<const bool> maska);

/// The line that tells an exactly singular matrix.
inline constexpr std::string_view singular_line = " gaussj: singular matrix (2)";

/// Tells one: that line on standard output and on unit 111.
void tell_singular();
/// On unit 111 alone.
void log_singular();

/// The fatal stop: "nrerror: " and the text, then the second line; all units closed, status 2.
[[noreturn]] void nrerror(std::string_view text,
                          std::string_view last_line = "program terminated by nrerror");

/// Drops whatever a fit in progress kept, as the finishing call does. For tests.
void reset();

}  // namespace mrqmin_mod
