// The two data files of each BPM: NAME.dat, the readings as they were, and NAME.dat_fit, the same
// readings under the fitted gains beside the fitted curve.
//
// Both are tables of exponent-form numbers, one orbit a line; docs/data_files.md explains them line
// by line. Q, X, Y below are the combinations of gain_fit_mod.
#pragma once
#include <string>
#include <string_view>

#include "fit_gains.hpp"
#include "gain_fit_mod.hpp"
#include "rd_files.hpp"

namespace output {

/// Writes one orbit of BPM m to NAME.dat: x, y, Q, X, Y, X Y / current, current, four signals, all
/// gains taken as 1. When the BPM differs from the call before, the previous file is closed and a
/// new one is begun with its header.
///
/// given    name          of the BPM, and of the file
///          orbit_num     orbit whose x and y the store holds, 1..3000
///          but           its four signals [ADC counts]
///          files_so_far  data files read, 0..19. The header's true gains are those of the orbit
///                        with the next number: kept for compatibility
///          current       beam current of the orbit [mA]
/// errors   a file that cannot be opened or written, an orbit or BPM outside the store: ends the
///          run
/// note     four signals that sum to 0 give combinations that are not numbers
/// note     a file is replaced when this run opens it first, appended to when it comes back to the
///          BPM
void write_bpm_raw_data(const directory_name& directory, int m, std::string_view name,
                        int orbit_num, const gain_fit_mod::signals& but,
                        const rd_files_list& rd_files, int files_so_far, double current);

/// Writes NAME.dat_fit of BPM m: header, the four fits, then a line per orbit 1..norbits with x, y,
/// Q, X, Y, X Y / current, current, u = X Y, the curve at u, and the residual (curve minus Q), all
/// at `gain` and `coefficients` of gain_fit_mod as they stand. Every other line begins with "#".
///
/// given    the four fits as fit_gains returned them
///          chis      chi-square that the header gives per degree of freedom
///          verdict   whether the data determine the gains, in one line
///          extremes  of the orbits' positions
///          current   beam current of the orbits [mA]
/// returns  bpppp, bpppp2  sums over the orbits of the plain total of the four signals and of its
///          square
/// errors   as above
void write_bpm_fitted_data(const directory_name& directory, int m, std::string_view name,
                           const gain_fit_mod::chis_saved& chis_save,
                           const gain_fit_mod::gains_saved& gain_save,
                           const gain_fit_mod::coeffs_saved& coeff_save,
                           const gain_fit_mod::covar_saved& covar_save, double chis,
                           const std::string& verdict, const position_extremes& extremes,
                           const rd_files_list& rd_files, int files_so_far, double current,
                           double& bpppp, double& bpppp2);

/// Closes the raw-data file that is still open, at the end of a session; the next
/// write_bpm_raw_data begins a file.
void close_bpm_raw_data();

}  // namespace output
