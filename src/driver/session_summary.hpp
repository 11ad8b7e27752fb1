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

/// The same whichever BPM was chosen: also those that were not.
std::vector<store::bpm_remark> all_not_fitted(const session_state& s);

/// Whether a reading holds anything. Exact zeros are meant.
bool has_signal(const store::bpm_struct& reading);

/// The lines of the summary, without the program's name before them: how many BPMs were fitted and
/// with what verdict (all but the determined ones by name), then those to look at and those left out,
/// BPMs with the same reason together, then what can be loaded and where the results lie. When nothing
/// was read, that alone, with what to answer instead.
/// given    a session whose results are complete
std::vector<std::string> summary_lines(const session_state& s,
                                       const std::vector<store::bpm_remark>& not_fitted);

/// Tells the summary on standard error; in colour for a person at a terminal, unless NO_COLOR is set.
void tell_summary(const session_state& s);

/// The data sets as their operators call them, and their orbits.
std::string data_title(const session_state& s);

/// What the plot shows: the same, and the run's directory.
std::string plot_title(const session_state& s);

}  // namespace driver
