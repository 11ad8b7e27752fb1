// fit_quality: do the data determine the gains at all?
//
// The fit always ends with four numbers. When the beam hardly moved, X and Y are nearly constant,
// many sets of gains explain the readings equally well, and the numbers say more about the start
// values than about the buttons. Three things show it:
//
//   excitation   the smaller of sd X and sd Y at the fitted gains, in rms residuals: a beam that
//                moves no more than its readings scatter shows nothing. The rms residual is taken as
//                at least residual_floor: noiseless readings of a beam that stands still leave no
//                residual, but no knowledge of the gains either.
//   uncertainty  standard deviation of a gain relative to another, from the curvature of the
//                chi-square at the end of the fit and the rms residual. The weights h2 and h3 act
//                through their sum alone and count as one parameter: with both, the curvature is
//                singular and its inverse is rounding noise.
//   spread       how far the ratios gain(1) / gain(k) of the four repetitions lie apart: each holds
//                another gain and finds its own place where the data leave the choice.
//
// Simulated round pipe, 60 to 1000 orbits: excitation of beams that nobody moved 0 to 1.1, of beams
// that moved in one plane only 0 to 6.3, of sound data 59 and more. Uncertainty of 650 healthy BPMs
// below 0.12 %. The verdict knows nothing of what the model leaves out: a beam far off the axis
// gives gains that are well determined and wrong.
#pragma once
#include <span>
#include <string>

#include "four_fits.hpp"

namespace gain_fit_mod {

enum class gain_verdict {
  determined,     ///< the gains follow from the data
  doubtful,       ///< to a percent or so, or a button is saturated
  not_determined  ///< the data leave them open: the numbers mean nothing
};

struct gain_quality {
  gain_verdict verdict = gain_verdict::not_determined;
  std::string reason;      ///< one line for the user, verdict included
  double excitation = 0;   ///< smaller of sd X and sd Y over the rms residual [-]
  double uncertainty = 0;  ///< largest relative standard deviation of a gain [-]
  double spread = 0;       ///< largest difference of a ratio between repetitions [-]
};

/// Least rms residual that excitation and uncertainty are computed with: no read-out is better.
inline constexpr double residual_floor = 1e-6;

/// Judges the four fits of one BPM.
/// given    readings  what was fitted [ADC counts]
///          fits      as fit_readings returned them
/// returns  the verdict and its reason; excitation is 0, uncertainty and spread are inf where they
///          have no value
/// errors   none
/// note     safe on several threads: nothing outside the arguments is read or written
gain_quality judge_gains(std::span<const signals> readings, const four_fits& fits);

}  // namespace gain_fit_mod
