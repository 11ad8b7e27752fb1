// fit_gains: the four fits of the BPM in work, told line by line on standard output.
//
// The described face of four_fits.hpp: readings and results lie in the context and in the tables
// that the session hands in.
#pragma once
#include <span>
#include <vector>

#include "bounded.hpp"
#include "four_fits.hpp"
#include "text_block.hpp"

namespace gain_fit_mod {

using chis_saved = util::bounded<double, 1, 5, "chis_save">;          ///< by fit
using gains_saved = util::bounded2<double, 1, 5, 1, 4, "gain_save">;  ///< by fit and button [-]
using coeffs_saved =
    util::bounded2<double, 1, 5, 1, 4, "coeff_save">;  ///< by fit: Am, k, h2, h3 [-]
/// By fit, parameter, parameter: covariance for a standard deviation of 1 per orbit.
using covar_saved = util::bounded3<double, 1, 4, 1, 8, 1, 8, "covar_save">;

/// The signals of orbits 1..norbits of the BPM in work; zeros for a BPM that nothing was written to.
std::vector<signals> current_readings();

/// What is told of a BPM's fits: the lines, and how many of them go to unit 111 as well.
struct fits_told {
  util::text_block lines;
  int singular = 0;  ///< lines about singular matrices
};

/// The lines of what happened during the fits.
/// note     safe on several threads
fits_told text_of(std::span<const fit_event> events);

/// Shows them on standard output; those about singular matrices also on unit 111.
void tell(const fits_told& told);

/// Shows on standard output what happened during the fits, a line for each event; a singular matrix
/// also on unit 111.
void tell(std::span<const fit_event> events);

/// Fits into the tables that the session and its writers use.
///
/// returns  chis_save   1..4 all hold the chi-square (sum of squares over the orbits) of the last
///                      fit; 5 is not touched
///          gain_save   rows 1..4 the gains of the four fits; row 5 is 0
///          coeff_save  rows 1..4 their coefficients; row 5 is not touched
///          covar_save  their covariance matrices; the held parameter's row and column are 0
void save(const four_fits& fits, chis_saved& chis_save, gains_saved& gain_save,
          coeffs_saved& coeff_save, covar_saved& covar_save);

/// Leaves the context as a fit leaves it: nterms, nvar, ind, and of the fourth fit gain,
/// coefficients and const_.
void leave_in_context(const four_fits& fits);

/// Fits BPM `bpm` to orbits 1..norbits of orbit_data, telling every step on standard output.
///
/// returns  as save
/// note     leaves the context as leave_in_context
/// errors   none of its own; an exactly singular matrix is told, and the fit goes on
void fit_gains(chis_saved& chis_save, gains_saved& gain_save, coeffs_saved& coeff_save,
               covar_saved& covar_save);

}  // namespace gain_fit_mod
