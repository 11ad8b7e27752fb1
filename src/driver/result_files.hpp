// The files of a run beside the described ones: for programs, the control system and the report.
#pragma once
#include <string>

#include "session_state.hpp"

namespace driver {

/// What is wanted beside the files that every run leaves.
struct wanted_files {
  bool orbits = false;       ///< orbits.csv
  std::string pdf;           ///< "a4" or "letter": gains.pdf; empty: none
  std::string button_coeff;  ///< the content of button_coeff.dat; empty: none
};

/// Writes gains.csv, gains.load, report.html and gains.png, and what else is wanted, into the run's
/// directory (info.directory).
/// given    about  what the readings were, for who loads what came of them
/// returns  whether all went well. A file that cannot be written is told in one line with its name;
///          the others follow all the same
bool write_run_files(const report::run_results& results, const std::string& about,
                     const wanted_files& wanted);

/// Writes gains.csv with the BPMs that are fitted by now: a run that is killed leaves them.
/// errors   none; what keeps it from being written is told by write_results
void write_gains_so_far(const session_state& s);

/// Completes the results with the BPMs that were not fitted, and writes gains.csv, gains.load,
/// report.html and gains.png, and on request orbits.csv, button_coeff.dat and gains.pdf, into the
/// run's directory.
/// errors   a file that cannot be written is told in one line with its name; the others follow all
///          the same, and the session's exit status becomes 1
void write_results(session_state& s);

}  // namespace driver
