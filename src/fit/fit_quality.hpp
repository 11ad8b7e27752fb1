// fit_quality: do the data determine the gains at all?
//
// The fit always ends with four numbers. When the beam hardly moved, X and Y are nearly constant,
// many sets of gains explain the readings equally well, and the numbers say more about the start
// values than about the buttons. Two things then show it:
//
//   uncertainty  sqrt(covariance) of a gain times the rms residual, relative to the gain. The rms
//                residual is taken as at least residual_floor: noiseless readings of a beam that
//                stands still leave no residual, but no knowledge of the gains either.
//   spread       how far the ratios gain(1) / gain(k) of the four repetitions lie apart: each holds
//                another gain and finds its own place where the data leave the choice.
//
// measured with 1000 orbits of a simulated round pipe, +-3 to +-10 mm, noise 0 and 1e-4:
//   uncertainty below 0.06 %, spread below 0.01 %; on recordings of a beam nobody excited:
//   uncertainty 13 % to 120 % or no number, spread 0.5 % to 10 %.
// The uncertainty knows nothing of what the model leaves out: a beam far off the axis gives gains
// that are well determined and wrong.
#pragma once
#include <string>

#include "fit_gains.hpp"
#include "gain_fit_mod.hpp"

namespace gain_fit_mod {

enum class gain_verdict {
  determined,     ///< the gains follow from the data
  doubtful,       ///< to a percent or so
  not_determined  ///< the data leave them open: the numbers mean nothing
};

struct gain_quality {
  gain_verdict verdict = gain_verdict::not_determined;
  std::string reason;      ///< one line for the user, verdict included
  double uncertainty = 0;  ///< largest relative standard deviation of a gain [-]
  double spread = 0;       ///< largest difference of a ratio between repetitions [-]
};

/// Least rms residual that the uncertainty is computed with: no read-out is better.
inline constexpr double residual_floor = 1e-6;

/// Judges the four fits of one BPM.
/// given    what fit_gains returned, and the number of orbits that it used
/// returns  the verdict and its reason; uncertainty and spread are inf where they have no value
/// errors   none
gain_quality judge_gains(const gains_saved& gain_save, const chis_saved& chis_save,
                         const covar_saved& covar_save, int orbits);

}  // namespace gain_fit_mod
