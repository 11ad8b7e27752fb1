// input_of_bpm: the two steps of calibrate(), for one BPM and for many.
#pragma once
#include <string>

#include "butngain/calibration.hpp"

namespace butngain {

/// Errors argument: what cannot be, named with `prefix` before it.
void check_input(const calibration_input& input, const std::string& prefix);

/// The calibration of an input that was checked.
calibration calibrate_checked(const calibration_input& input);

}  // namespace butngain
