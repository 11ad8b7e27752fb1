// The two summary tables of a run, one line per BPM: <last data file>_out with ranges, averaged
// gains and curve, chi-square and button totals, and <last data file>_err with the four fits side
// by side, which shows how far they agree.
//
// Both files are begun by the first call of a session, with the list of data files and a caption;
// docs/data_files.md explains every column.
#pragma once
#include "bpm_result.hpp"
#include "rd_files.hpp"

namespace output {

/// Adds the line of a BPM to the "_out" table.
/// errors   a file that cannot be opened or written ends the run
/// note     without orbits the button statistics are not numbers
void write_rd_out(const run_record& run, const gain_fit_mod::bpm_result& result);

/// Adds the line of a BPM to the "_err" table: per fit gain 1 over each gain, and its chi-square.
/// errors   as above
/// note     leaves gain_fit_mod::ind at 5, having counted the fits with it
/// note     a gain of 0 gives a ratio that is no number: the table shows it
void write_rd_err(const run_record& run, const gain_fit_mod::bpm_result& result);

/// Closes both tables at the end of a session; the next line begins them anew.
void close_run_summaries();

}  // namespace output
