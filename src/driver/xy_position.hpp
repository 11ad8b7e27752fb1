// Beam position from four button signals by the linear difference-over-sum formula.
#pragma once
#include <cstdint>

#include "bounded.hpp"

namespace driver {

using whole_signals = util::bounded<std::int32_t, 1, 4, "det">;

/// Position of one orbit at one BPM.
///
/// given    bpm  its index: it decides the length scales
///          det  the four signals cut to whole numbers [ADC counts]
/// returns  through h, v: horizontal and vertical position [m]
/// errors   none: signals that add up to 0 give inf or nan
/// note     differences and their product with the scale are single precision, the division by the
///          sum is double: that is the precision of the positions in every table
/// source   difference over sum, exact for a beam on the axis
void xy_position(int bpm, const whole_signals& det, double& h, double& v);

/// The four signals cut to 32-bit whole numbers.
/// errors   a signal that does not fit (or is no number) ends the run, naming BPM and orbit
whole_signals whole_signals_of(const util::bounded<double, 1, 4, "button">& button, int bpm,
                               int orbit);

}  // namespace driver
