// input_check: what is wrong with readings before anything is fitted.
#pragma once
#include "calibration.hpp"

namespace calibration {

/// Looks for dead, stuck and saturated buttons.
/// returns  the first that is found, as a "suspect" judgement; reason `none` when all is well
judgement check_readings(const bpm_run& run);

}  // namespace calibration
