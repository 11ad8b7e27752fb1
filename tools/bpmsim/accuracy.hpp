// accuracy: how good the gains are that a given beam and given electronics lead to.
//
// Simulates BPM after BPM, rounds the readings to whole counts, fits them with the session's own
// fit and compares the ratios of 1/gain to that of button 1 (the mean of the four repetitions, all
// digits) with the true ones. The answer comes before anybody spends beam time on the data.
#pragma once
#include "machine.hpp"

namespace sim {

struct accuracy_setup {
  sim::machine machine{};
  int bpms = 24;
  int orbits = 1000;
};

/// Errors of the gain ratios over all BPMs, fitted minus true.
struct accuracy_result {
  double worst = 0;   // largest size of an error; infinite when a ratio is no number [-]
  double rms = 0;     // [-]
  double spread = 0;  // largest difference of a ratio between the four repetitions of a fit [-]
};

/// Makes, fits and compares all BPMs. Overwrites the state of the fit.
/// note     the fit's own report on standard output is kept back
accuracy_result measure_accuracy(const accuracy_setup& s);

}  // namespace sim
