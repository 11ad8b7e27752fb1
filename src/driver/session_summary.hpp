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

/// The parts of a summary, which a run without a session shows too.
/// "12 BPMs fitted: 10 determined, 2 weak (12W, 13W), 0 suspect, 0 not determined"
std::string line_of_fitted(const report::run_results& results);
/// Those fitted whose gains somebody must look at, the worst first, with the same reason together.
void add_lines_to_look_at(const report::run_results& results, std::vector<std::string>& lines);
/// Those not fitted, with the same reason together.
void add_lines_of_not_fitted(const std::vector<store::bpm_remark>& not_fitted,
                             std::vector<std::string>& lines);
/// What can be loaded, and where everything is that the lines above do not say.
std::string line_of_files(const report::run_results& results);

/// Tells lines on standard error; in colour for a person at a terminal, unless NO_COLOR is set.
void tell_lines(const std::vector<std::string>& lines);

/// The lines of the summary, without the program's name before them: how many BPMs were fitted and
/// with what verdict (all but the determined ones by name), then those to look at and those left out,
/// BPMs with the same reason together, then what can be loaded and where the results lie. When nothing
/// was read, that alone, with what to answer instead.
/// given    a session whose results are complete
std::vector<std::string> summary_lines(const session_state& s,
                                       const std::vector<store::bpm_remark>& not_fitted);

/// Tells the summary.
void tell_summary(const session_state& s);

/// The data sets as their operators call them, and their orbits.
std::string data_title(const session_state& s);

/// What the plot shows: the same, and the run's directory.
std::string plot_title(const session_state& s);

}  // namespace driver
