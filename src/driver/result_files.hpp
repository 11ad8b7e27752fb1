// The files of a run beside the described ones: for programs, the control system and the report.
#pragma once
#include "session_state.hpp"

namespace driver {

/// Completes the results with the BPMs that were not fitted, and writes gains.csv, gains.load,
/// report.html and gains.png, and on request orbits.csv, button_coeff.dat and gains.pdf, into the
/// run's directory.
/// errors   a file that cannot be written is told in one line with its name; the others follow all
///          the same, and the session's exit status becomes 1
void write_results(session_state& s);

}  // namespace driver
