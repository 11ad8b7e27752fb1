// The model at the context: the current BPM's orbits at the current gains and coefficients.
#pragma once
#include <span>

#include "gain_fit_mod.hpp"
#include "kept_solver.hpp"

namespace gain_fit_mod {

/// Mean square residual of the current BPM over orbits 1..norbits, at `gain` and `coefficients`.
/// returns  in chis the mean; nan without orbits
void chi1_square(double& chis);

/// Derivatives of chi1 by the eight parameters, as central differences with derivative_step.
/// given    iterm  number of the data point (orbit)
/// returns  in dyda the eight derivatives; beyond norbits dyda is left as it was
void derivative1(const parameters& param, const signals& but, derivatives& dyda, int iterm);

/// The model routine for the solver: data point n is orbit n of the current BPM.
/// given    xx    abscissae, not looked at
///          a     the eight parameters
/// returns  yfit  nterms residuals
///          dyda  their derivatives, nterms rows of nvar
/// note     a data point beyond norbits repeats the reading and the derivatives of the one before
void mrqmin_funcs1(std::span<const double> xx, std::span<const double> a, std::span<double> yfit,
                   mrqmin_mod::matrix& dyda);

/// The unnormalised residual (unnormalised_residual) with the context's weight.
double chi(const gains& gains_in, double c, const signals& but, double current);

}  // namespace gain_fit_mod
