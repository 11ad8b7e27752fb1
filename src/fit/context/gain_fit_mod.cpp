#include "gain_fit_mod.hpp"

namespace gain_fit_mod {

void reset() {
  orbit_data.clear();
  norbits = 0;
  bpm = -1;
  dets.fill(0);
  bpm_names.fill({});
  gain.fill(0);
  coefficients.fill(0);
  const_ = 0;
  intercept = 0;
  weight = 0;
  arb_gain.fill(0);
  gain_correct = 0;
  pedestals_subtracted = false;
  gain_coefficient.fill(0);
  rd_number = 0;
  in_file = {};
  in_file_0 = {};
  expert = false;
  nvar = 0;
  ind = 0;
  nterms = 0;
  last_reading.fill(0);
  last_derivatives.fill(0);
}

}  // namespace gain_fit_mod
