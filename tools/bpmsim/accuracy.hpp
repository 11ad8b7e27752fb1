// accuracy: how good the gains are that a given beam and given electronics lead to.
//
// Simulates BPM after BPM, rounds the readings to whole counts, fits them with the session's own
// fit, calibrates them against the table of the chamber as it is drawn, and compares the ratios of
// the button gains to that of button 1 with the true ones. The answer comes before anybody spends
// beam time on the data.
#pragma once
#include <array>
#include <string>
#include <vector>

#include "machine.hpp"

namespace sim {

struct accuracy_setup {
  sim::machine machine{};
  int bpms = 24;
  int orbits = 1000;
  double sigma_p = 3e-4;     // rms of what the pedestals may still be, in parts of the signal
  bool exact_table = false;  // the calibration makes no allowances for the chamber
};

/// Errors of the ratios over all BPMs, found minus true, in ln.
struct error_figures {
  double worst = 0;  // largest size of an error; infinite when a ratio is no number [-]
  double rms = 0;    // [-]
};

struct accuracy_result {
  double worst = 0;   // of the four fits: largest size of an error of a ratio [-]
  double rms = 0;     // [-]
  double spread = 0;  // largest difference of a ratio between the four repetitions of a fit [-]
  error_figures calibrated;        // the calibration's gains
  error_figures free;              // those with every orbit's intensity free
  double limit = 0;                // of the noise with free intensities, rms; 0 without noise [-]
  double over_limit = 0;           // free intensities: rms error over the limit [-]
  double over_limit_sigma = 0;     // what chance leaves of that, from BPM to BPM [-]
  double noise = 0, E = 0;         // the calibration's own figures, rms over the BPMs [-]
  std::array<int, 4> words{};      // verdicts: determined, weak, not determined, suspect
  std::vector<double> pulls;       // of the calibration's gains, three a BPM [-]
  std::vector<double> free_pulls;  // of those with free intensities, against their noise [-]
};

/// Makes, fits, calibrates and compares all BPMs. Overwrites the state of the fit.
/// note     the fit's own report on standard output is kept back
accuracy_result measure_accuracy(const accuracy_setup& s);

}  // namespace sim
