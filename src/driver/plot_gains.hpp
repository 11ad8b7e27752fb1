// The gain plot that ends a session: for each BPM treated a column of four points, its normalised
// inverse gains, above its index.
#pragma once
#include <string>

#include "bounded.hpp"

namespace driver {

using gains_plotted = util::bounded2<double, 1, 4, 0, 5000, "bpm_gain">;
using indices_plotted = util::bounded2<double, 1, 4, 0, 5000, "bpm_mat">;

inline constexpr int most_plotted = 100;  ///< BPMs that one plot has room for

/// Offers the plot of points 1..j.
///
/// given    bpm_max, bpm_min  largest and smallest BPM index treated
///          bpm_gain          four normalised inverse gains of each point [-]
///          bpm_mat           the BPM index of each point, four times
///          j                 number of points
///          run_directory     where copies go that cannot be made beside the data
/// errors   more than 100 points is a bounds error: everything else of the run is written by then
void plot_gains(double bpm_max, double bpm_min, const gains_plotted& bpm_gain,
                const indices_plotted& bpm_mat, int j, const std::string& run_directory);

}  // namespace driver
