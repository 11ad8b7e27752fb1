// The session: one interactive pass from the choice of data to the plot.
//
//   data source -> data sets into the orbit store -> BPM choice -> per BPM: compaction, positions,
//   raw-data file, four fits, their combination, fitted-data file, summary lines -> plot
//
// Questions are written on standard output, answers read from standard input, one line each.
// Results go into the run's own directory; diagnostic lines (fort.N) and plot copies into the
// working directory.
#pragma once
#include "command_line.hpp"

namespace driver {

/// Runs one session to its end.
/// given    options  a chamber file that cannot be used is told before the first question, status 2
/// returns  the exit status: 0, or 1 when a file beside the described ones could not be written
/// errors   bad answers are told and asked again; what cannot go on ends the run (run_time.hpp)
///          with everything written so far on disk
int run_session(const session_options& options);

}  // namespace driver
