// one_fit: one fit of all unknowns of a run, by Gauss-Newton steps, and the orbits that it is of.
#pragma once
#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

#include "calibration.hpp"
#include "normal_system.hpp"
#include "orbit_block.hpp"

namespace calibration {

/// Prior rms of a current that follows the position: relative, per metre; 4.5e-5 over 5 mm.
inline constexpr double rms_slope = 9e-3;

/// The usable readings of a run, in parts of the median button signal.
struct usable_orbits {
  std::vector<std::array<double, 4>> b;
  std::vector<std::size_t> number;  ///< which orbit of the run
  std::vector<double> time;         ///< -1..1 within the data set
  std::vector<std::size_t> set;     ///< data set, from 0, without gaps
  std::size_t n_sets = 0;
  double median_signal = 0;  ///< median over orbits of the four-signal sum, over 4
};

/// Takes the orbits whose readings are numbers with a positive sum.
usable_orbits take_usable(const bpm_run& run);

/// Where a fit begins and where it has come to.
struct fit_state {
  common_unknowns at;
  std::vector<orbit_block> block;
  bool has_course = false;  ///< the intensity's course has been fitted
  bool settled = false;     ///< places, gains and outliers come from another fit
};

/// Slopes of the two differences over sum at the centre [1/m].
struct central_slopes {
  double x = 0, y = 0;
};
central_slopes slopes_of(const table_struct& table);

/// Half the height of a chamber, from the slopes of its table at the centre [m].
double half_height_of(const table_struct& table);

/// Gains 1, no pedestals, places from difference over sum.
fit_state first_state(const usable_orbits& orbits, const table_struct& table);

struct fit_setting {
  fit_kind kind = fit_kind::free_intensity;
  const table_struct* table = nullptr;
  double R0 = 0;                       ///< [m]
  double sigma_p = 0;                  ///< [median signal]
  bool exact_table = false;            ///< no allowances
  bool differences = false;            ///< the current walks: look at neighbouring orbits
  std::string_view instruction_set{};  ///< one of instruction_sets(); empty: the best
};

/// The equations of a fit, with its priors and no orbits yet.
equations equations_of(const fit_setting& setting);

/// What a fit needs while it runs, block by block. Fits one after the other share it.
using fit_room = std::vector<place_columns>;

/// Fits. The state goes on to where the fit ends, whether it converged or not.
fit_result run_fit(fit_state& state, const fit_setting& setting, fit_room& room);

}  // namespace calibration
