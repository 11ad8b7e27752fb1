// The gain plot that ends a session: for every BPM treated a stroke of four marks, its normalised
// inverse gains, above its index. First in a window, then, if asked for, as a PostScript or GIF
// file named after the last data file.
#pragma once
#include <string>

#include "bounded.hpp"

namespace driver {

inline constexpr int most_plotted = 100;  ///< BPMs that one plot has room for

/// Inverse gains [-], button by plotted point; of each BPM the sum equals the sum of the squares.
using gains_plotted = util::bounded2<double, 1, 4, 0, 5000, "bpm_gain">;
/// The BPM index, once a button, by plotted point.
using indices_plotted = util::bounded2<double, 1, 4, 0, 5000, "bpm_mat">;

/// Shows the plot and asks for copies until the answer is no or a copy is made. Without a display
/// one line says so, and the question is asked all the same. A copy that cannot be written is told
/// in one line with its name and the reason, and the question comes again.
///
/// given    bpm_max, bpm_min  largest and smallest BPM index treated; reversed when there is none
///          bpm_gain, bpm_mat points 1..j
///          run_directory     where the copy goes when the data set's name begins with "/" (as that
///                            of a synthetic series does) and no file can be made there
///          title             stands over the plot, and in the frame of its window
/// errors   more than 100 points is a bounds error, before which a line on standard error says that
///          all other results are written;
///          end of input ends the run
/// note     the full name of a copy that was made is told on standard error; with j = 0 the page says
///          that no BPM was fitted
/// note     the name of a copy is the data file's name up to its first ".", and "ps" or "gif":
///          "./x.dat" gives ".ps", a name without "." gives "ps"
void plot_gains(double bpm_max, double bpm_min, const gains_plotted& bpm_gain,
                const indices_plotted& bpm_mat, int j, const std::string& run_directory,
                const std::string& title);

}  // namespace driver
