// The files of a run beside the described ones: for programs, the control system and the report.
#pragma once
#include "session_state.hpp"

namespace driver {

/// Completes the results with the BPMs that were not fitted, and writes gains.csv and gains.load,
/// and on request orbits.csv and button_coeff.dat, into the run's directory.
/// errors   a file that cannot be written is told in one line with its name; the others follow all
///          the same, and the session's exit status becomes 1
void write_results(session_state& s);

}  // namespace driver
