// bpm_result: what a session finds out about one BPM, as one record.
//
//     kept orbits -> motion, button totals, four fits -> combination of the fits -> verdict
//
// Every step is a procedure from records to a record. Writers, plot and summary only show what
// stands here.
#pragma once
#include <span>
#include <string>

#include "combine_fits.hpp"
#include "fit_quality.hpp"
#include "four_fits.hpp"
#include "orbit_store.hpp"

namespace gain_fit_mod {

/// One BPM before its fit. The views lie in the orbit store: valid while the BPM is in work.
struct bpm_data {
  int bpm = -1;                                 ///< index, 0..5000
  std::string name{};                           ///< also that of its files
  std::span<const store::bpm_struct> orbits{};  ///< those with a signal, with their positions
  std::span<const double> current{};            ///< by orbit: beam current [mA]
  gains true_gain{};                            ///< of the first orbit; 0 where not known [-]
  gains header_gain{};                          ///< of the orbit whose number comes after the last
                                                ///< data file's: the header of NAME.dat has it [-]
  double const_before = 0;                      ///< amplitude fitted to the BPM before; 0: none [-]
};

/// Extreme positions of the orbits, in the unit of x and y.
struct position_extremes {
  double h_min = 99;  // beyond every chamber, so that the first orbit replaces them
  double h_max = -99;
  double v_min = 99;
  double v_max = -99;
};

struct bpm_motion {
  position_extremes extremes;
  double mean_x = 0;  ///< nan without orbits [m]
  double mean_y = 0;
};

/// Sums over the orbits of the plain total of the four signals, and of its square.
struct button_totals {
  double sum = 0;      ///< [ADC counts]
  double squares = 0;  ///< [ADC counts^2]
};

struct bpm_result {
  bpm_data data{};
  bpm_motion motion{};
  button_totals totals{};
  four_fits fits{};
  combined_fits combined{};
  gain_quality quality{};
};

/// errors of all   none
bpm_motion motion_of(std::span<const store::bpm_struct> orbits);
button_totals totals_of(std::span<const store::bpm_struct> orbits);

/// Every step for one BPM.
/// note     safe on several threads, as long as nobody writes to the BPM's orbits
bpm_result result_of(const bpm_data& data);

}  // namespace gain_fit_mod
