#include "plot_gains.hpp"

namespace driver {

void plot_gains(double /*bpm_max*/, double /*bpm_min*/, const gains_plotted& /*bpm_gain*/,
                const indices_plotted& /*bpm_mat*/, int j, const std::string& /*run_directory*/) {
  if (j > most_plotted) util::subscript_error("bpm_gain", j, 0, most_plotted, 2);
}

}  // namespace driver
