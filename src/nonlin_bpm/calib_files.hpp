// calib_files: the two files of button properties, `button_coeff.dat` and `bad_button.dat`.
#pragma once
#include <string>

namespace nonlin_bpm_mod {

/// Reads "nonlin_bpm_coeff 1" and lines "bpm c1 c2 c3 c4" into bpm_calib. A signal is MULTIPLIED by
/// its coefficient, as by a fitted gain. A BPM that is not listed has 1 1 1 1.
/// errors   BPM outside 1..120 or given twice, coefficient not above 0, bad line: init_fault
void read_coefficients(const std::string& name);

/// Reads "nonlin_bpm_bad_buttons 1" and lines "bpm button" into bpm_calib.
/// errors   BPM or button out of range, a second line for a BPM, bad line: init_fault
void read_bad_buttons(const std::string& name);

}  // namespace nonlin_bpm_mod
