// What a session came to, for the person who ran it: a few lines on standard error before the plot,
// and the title over the plot.
#pragma once
#include <string>
#include <vector>

#include "left_out.hpp"
#include "session_state.hpp"

namespace driver {

/// The BPMs that the data hold and that were not fitted, each with every reason there is. When one
/// BPM was chosen, that one at most.
/// given    a session after its BPM loop; the orbit store and the readers' remarks
std::vector<store::bpm_remark> bpms_not_fitted(const session_state& s);

/// The lines of the summary, without the program's name before them: how many BPMs were fitted and
/// with what verdict (those not determined by name), then those left out, BPMs with the same reason
/// together. When nothing was read, that alone, with what to answer instead.
std::vector<std::string> summary_lines(const session_state& s,
                                       const std::vector<store::bpm_remark>& not_fitted);

/// Tells the summary on standard error.
void tell_summary(const session_state& s);

/// What the plot shows: the data sets as their operators call them, the orbits, the run's directory.
std::string plot_title(const session_state& s);

}  // namespace driver
