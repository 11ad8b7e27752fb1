// The two data files of each BPM: NAME.dat, the readings as they were, and NAME.dat_fit, the same
// readings under the fitted gains beside the fitted curve.
//
// Both are tables of exponent-form numbers, one orbit a line; docs/data_files.md explains them line
// by line. Q, X, Y below are the combinations of gain_fit_mod.
#pragma once
#include "bpm_result.hpp"
#include "rd_files.hpp"

namespace output {

/// Writes one orbit of a BPM to NAME.dat: x, y, Q, X, Y, X Y / current, current, four signals, all
/// gains taken as 1. When the BPM differs from the call before, the previous file is closed and a
/// new one is begun with its header.
///
/// given    orbit_num  1..orbits of the BPM
/// errors   a file that cannot be opened or written, an orbit that the BPM has not, an index beyond
///          the store's: ends the run
/// note     four signals that sum to 0 give combinations that are not numbers
/// note     a file is replaced when this run opens it first, appended to when it comes back to the
///          BPM
void write_bpm_raw_data(const run_record& run, const gain_fit_mod::bpm_data& bpm, int orbit_num);

/// Writes NAME.dat_fit of a BPM: header, the four fits, then a line per orbit with x, y, Q, X, Y,
/// X Y / current, current, u = X Y, the curve at u, and the residual (curve minus Q), all at the
/// mean gains and coefficients. The current is that of the last orbit throughout. Every other line
/// begins with "#".
/// errors   as above
void write_bpm_fitted_data(const run_record& run, const gain_fit_mod::bpm_result& result);

/// Closes the raw-data file that is still open, at the end of a session; the next
/// write_bpm_raw_data begins a file.
void close_bpm_raw_data();

}  // namespace output
