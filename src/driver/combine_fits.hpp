// One set of gains from the repeated fits of a BPM.
#pragma once
#include "bounded.hpp"
#include "fit_gains.hpp"

namespace driver {

/// What the repetitions of one BPM's fit agree on.
struct combined_fit {
  int good = 0;     ///< fits none of whose four gains is 0
  double chis = 0;  ///< mean chi-square of the good fits
};

/// Means over the good fits. A fit that was never made has zero rows and does not count.
///
/// returns  the number of good fits and their mean chi-square; through gain and coefficients
///          their mean gains and coefficients
/// errors   none: without a good fit everything is nan
combined_fit average_good_fits(const gain_fit_mod::chis_saved& chis_save,
                               const gain_fit_mod::gains_saved& gain_save,
                               const gain_fit_mod::coeffs_saved& coeff_save,
                               util::bounded<double, 1, 4, "gain">& gain,
                               util::bounded<double, 1, 4, "coefficients">& coefficients);

/// The gains that the summaries show: the sum of the first four fits over the number of all good
/// fits, so a good fifth fit lowers them. The chi-square beside them is a quarter of the sum of
/// five.
double summary_gains(const gain_fit_mod::chis_saved& chis_save,
                     const gain_fit_mod::gains_saved& gain_save, int good,
                     util::bounded<double, 1, 4, "gain">& gain);

/// Mean and scatter, over the first four fits, of gain 1 over gain k.
/// note     the scatter is sqrt(|sum of squares - 4 mean^2|), not divided by the number of fits
void gain_ratio_statistics(const gain_fit_mod::gains_saved& gain_save,
                           util::bounded<double, 1, 5, "average_gain">& average_gain,
                           util::bounded<double, 1, 5, "rms_gain">& rms_gain);

}  // namespace driver
