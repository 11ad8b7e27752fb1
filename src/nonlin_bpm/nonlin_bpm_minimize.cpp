// The face of the position fit: table and properties of a BPM are those that the process holds.
#include "nonlin_bpm_mod.hpp"

namespace nonlin_bpm_mod {

void nonlin_bpm_minimize(int i_bpm, const button_signals& but_in, position& x, double& chi2_out) {
  nonlin_bpm_set_pointers(i_bpm);
  fit_position(*func_bpm, bpm_calib(i_bpm), but_in, x, chi2_out);
}

}  // namespace nonlin_bpm_mod
