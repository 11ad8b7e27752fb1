// fit_gains: the four gains and the model curve of one BPM, fitted to all its orbits.
//
// The model cannot see a common factor of the gains, so the fit is made four times, each time
// holding another gain. Each repetition starts from the same values, warms up with a sweep over
// neighbouring pairs of gains, and then moves everything but the held gain:
//
//     ind   pairs of the sweep             held in the full fit
//     1     (1,2) (2,3) (3,4) (4,1)        gain 1
//     2     (2,3) (3,4) (4,1) (1,2)        gain 2    and so on
//
// The sweep moves all four gains, so a gain is held where the sweep left it, not at 1: the four
// results differ by a common factor, and only ratios compare.
#pragma once
#include "bounded.hpp"

namespace gain_fit_mod {

using chis_saved = util::bounded<double, 1, 5, "chis_save">;          ///< by fit
using gains_saved = util::bounded2<double, 1, 5, 1, 4, "gain_save">;  ///< by fit and button [-]
using coeffs_saved =
    util::bounded2<double, 1, 5, 1, 4, "coeff_save">;  ///< by fit: Am, k, h2, h3 [-]
/// By fit, parameter, parameter: covariance for a standard deviation of 1 per orbit.
using covar_saved = util::bounded3<double, 1, 4, 1, 8, 1, 8, "covar_save">;

/// Evaluate the model orbit by orbit as chi1 and derivative1 stand (mrqmin_funcs1) instead of in
/// batches: for tests and benches, which compare the two.
inline bool literal_form = false;

/// Fits BPM `bpm` to orbits 1..norbits of orbit_data, telling every step on standard output.
///
/// returns  chis_save   1..4 all hold the chi-square (sum of squares over the orbits) of the last
///                      fit; 5 is not touched
///          gain_save   rows 1..4 the gains of the four fits; row 5 is 0
///          coeff_save  rows 1..4 their coefficients; row 5 is not touched
///          covar_save  their covariance matrices; the held parameter's row and column are 0
/// note     sets nterms, nvar, ind, gain, coefficients and const_; the last four stay as the fourth
///          fit left them
/// errors   none of its own; the solver tells an exactly singular matrix and goes on
void fit_gains(chis_saved& chis_save, gains_saved& gain_save, coeffs_saved& coeff_save,
               covar_saved& covar_save);

}  // namespace gain_fit_mod
