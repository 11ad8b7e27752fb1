// The two summary tables of a run, one line per BPM: <last data file>_out with ranges, averaged
// gains and curve, chi-square and button totals, and <last data file>_err with the four fits side
// by side, which shows how far they agree.
//
// Both files are begun by the first call of a session, with the list of data files and a caption;
// docs/data_files.md explains every column.
#pragma once
#include <string_view>

#include "fit_gains.hpp"
#include "gain_fit_mod.hpp"
#include "rd_files.hpp"

namespace output {

/// Adds the line of the current BPM to the "_out" table.
///
/// given    bpppp, bpppp2  sums over the orbits of the button total and of its square
///          coeff          averaged coefficients
///          type           label of the corrections that the data carry
///          and bpm, gain, norbits, bpm_names, gain_correct, in_file_0 of gain_fit_mod
/// errors   a file that cannot be opened or written ends the run
/// note     without orbits the button statistics are not numbers
void write_rd_out(const directory_name& directory, const position_extremes& extremes, double chis,
                  double bpppp, double bpppp2, const gain_fit_mod::coefficient_set& coeff,
                  int files_so_far, const rd_files_list& rd_files, std::string_view type);

using average_gains = util::bounded<double, 1, 5, "average_gain">;  ///< 1..4 used [-]
using rms_gains = util::bounded<double, 1, 5, "rms_gain">;          ///< 1..4 used [-]

/// Adds the line of the current BPM to the "_err" table: per fit gain 1 over each gain, and its
/// chi-square. Fits 1..4 are listed, the fifth never.
///
/// given    what fit_gains returned, and the averages over the fits
/// errors   as above
/// note     leaves gain_fit_mod::ind at 5, having counted the fits with it
/// note     a saved gain of 0 gives a ratio that is no number: the table shows it
void write_rd_err(const directory_name& directory, const gain_fit_mod::gains_saved& gain_save,
                  const gain_fit_mod::chis_saved& chis_save, const average_gains& average_gain,
                  const rms_gains& rms_gain, int files_so_far, const rd_files_list& rd_files);

/// Closes both tables at the end of a session; the next line begins them anew.
void close_run_summaries();

}  // namespace output
