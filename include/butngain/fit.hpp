// fit: the four fits of one BPM's gains, from its readings alone.
//
//     const butngain::four_fits fits = butngain::fit(readings);
//     if (fits.word == butngain::fit_word::determined) use(fits.gain);
//
// With g the multipliers, b one orbit's readings, S = sum(g b), and buttons 1..4 for 0..3,
//     X = (g1b1 - g2b2 + g3b3 - g4b4) / S,  Y = (g1b1 + g2b2 - g3b3 - g4b4) / S,
//     Q = (g1b1 - g2b2 - g3b3 + g4b4) / S;  a symmetric chamber has Q a function of XY alone,
//     Q = Am (sin(k XY) + (h2 + h3) sin(2 k XY)).
// A common factor of the gains cancels, so the fit is made four times, each holding another gain.
//
// ownership  Plain records. Arguments are looked at during the call only.
// threads    Everything may be called on several threads at once.
#pragma once
#include <array>
#include <span>
#include <string>

#include "common.hpp"
#include "error.hpp"

#pragma GCC visibility push(default)
namespace butngain {

/// One of the four fits.
struct gain_fit {
  four multiplier{};                                  ///< g, up to a common factor [-]
  four curve{};                                       ///< Am, k, h2, h3 [-]
  double chi_square = 0;                              ///< sum of the squared residuals [-]
  std::array<std::array<double, 8>, 8> covariance{};  ///< of g and curve, for a standard deviation
                                                      ///< of 1 per orbit; the held row is 0
  bool singular = false;                              ///< the covariance means nothing
  int steps = 0;                                      ///< of the solver, sweep and full fit
};

/// What the four fits say of the gains by themselves. They cannot see pedestals, a beam far off the
/// axis, or gains that change: calibrate() does.
enum class fit_word { determined, doubtful, not_determined };

struct four_fits {
  std::array<gain_fit, 4> held;  ///< held[k] holds the gain of button k
  four gain{};                   ///< button gains t from the mean of the fits, product 1 [-]
  four multiplier{};             ///< that mean [-]
  four curve{};                  ///< likewise [-]
  double chi_square = 0;         ///< likewise [-]
  fit_word word = fit_word::not_determined;
  std::string reason;      ///< one line for people
  double excitation = 0;   ///< smaller of sd X and sd Y over the rms residual [-]
  double uncertainty = 0;  ///< largest relative standard deviation of a gain [-]
  double spread = 0;       ///< largest difference of a ratio of gains between the fits [-]
};

/// Fits one BPM's readings.
/// returns  the fits; nan where signals cancel
/// errors   argument: no readings
four_fits fit(std::span<const signals> readings);

}  // namespace butngain
#pragma GCC visibility pop
