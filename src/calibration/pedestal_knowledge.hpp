// pedestal_knowledge: what a fit's gains and pedestals become when more, or less, is known of the
// pedestals. No orbit is looked at again: the covariances of the fit hold it all.
#pragma once
#include <array>

#include "calibration.hpp"

namespace calibration {

/// How far the pedestals of a fit with a wide prior lie beyond what is said to be known of them.
/// given    wide     the fit, its prior so wide that its pedestals are nearly the data's own word
///          sigma_p  rms that honest knowledge leaves [median signal]
/// returns  p' (C + sigma_p^2)^-1 p: chi-square of four
double pedestal_chi_square(const fit_result& wide, double sigma_p);

/// ln(t_k/t_1) of buttons k = 2..4, and its variance.
struct ratios_under {
  std::array<double, 3> value{};
  std::array<double, 3> variance{};
};

/// The gain ratios as a fit would have them with another prior of the pedestals.
/// given    fit    a converged fit
///          prior  rms of the pedestals with which it was made [median signal]
///          other  the rms to be believed instead
/// note     to first order: the readings' equations are those at the end of the fit
/// source   a prior is a measurement of 0; the difference of two is added to a Gaussian estimate, or
///          taken out of it, in the usual way (Kalman)
ratios_under with_prior(const fit_result& fit, double prior, double other);

}  // namespace calibration
