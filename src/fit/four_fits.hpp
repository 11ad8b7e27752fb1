// four_fits: the four gains and the model curve of one BPM, fitted to all its orbits.
//
// The model cannot see a common factor of the gains, so the fit is made four times, each time
// holding another gain. Each repetition starts from the same values, warms up with a sweep over
// neighbouring pairs of gains, and then moves everything but the held gain:
//
//     held   pairs of the sweep             held in the full fit
//     1      (1,2) (2,3) (3,4) (4,1)        gain 1
//     2      (2,3) (3,4) (4,1) (1,2)        gain 2    and so on
//
// The sweep moves all four gains, so a gain is held where the sweep left it, not at 1: the four
// results differ by a common factor, and only ratios compare.
#pragma once
#include <array>
#include <span>
#include <string_view>
#include <vector>

#include "bounded.hpp"
#include "gain_model.hpp"

namespace gain_fit_mod {

/// By parameter, parameter: covariance for a standard deviation of 1 per orbit.
using covariance_matrix = util::bounded2<double, 1, 8, 1, 8, "covariance">;

/// What happened on the way, in the order in which it happened; the session shows it line by line.
struct fit_event {
  enum class kind {
    start,       ///< start values loaded; chisq is the mean of the squares
    step,        ///< one step of the sweep or of the full fit, the finishing call included
    sweep_end,   ///< the sweep's finishing call is made
    zero_pivot,  ///< the step that follows met an exactly singular matrix
    final        ///< the full fit has ended
  };
  kind what = kind::step;
  int held = 0;       ///< button whose gain this repetition holds, 1..4
  double chisq = 0;   ///< sum of the squared residuals; for start their mean [-]
  parameters at{};    ///< gains and curve after the step
  double alamda = 0;  ///< damping after the step [-]
};

/// One of the four fits.
struct one_fit {
  gains gain{};                    ///< multipliers g; the held one where the sweep left it [-]
  coefficient_set coefficients{};  ///< Am, k, h2, h3 [-]
  double chisq = 0;                ///< sum of the squared residuals over the orbits [-]
  covariance_matrix covariance{};  ///< the held parameter's row and column are 0
  bool singular = false;           ///< the finishing inversion met an exactly singular matrix:
                                   ///< the covariance is what was left half reduced
};

/// The four fits of one BPM.
struct four_fits {
  std::array<one_fit, 4> fit;     ///< fit[k] holds the gain of button k + 1
  std::vector<fit_event> events;  ///< of all four
};

/// How the sums over the orbits are made; the default is what a session uses.
struct fit_manner {
  bool literal = false;                ///< orbit by orbit as chi1 and its derivatives stand: for
                                       ///< tests and benches, which compare
  std::string_view instruction_set{};  ///< of the batch sums; empty: the best of this machine
};

/// Four fits of one BPM's readings.
///
/// given    readings  the orbits' signals [ADC counts]
/// returns  the fits and what happened on the way; nan where there are no orbits or signals cancel
/// errors   none
/// note     safe on several threads: nothing outside the arguments is read or written. The same
///          bits on every machine, from every compiler, with every instruction set
four_fits fit_readings(std::span<const signals> readings, const fit_manner& manner = {});

}  // namespace gain_fit_mod
