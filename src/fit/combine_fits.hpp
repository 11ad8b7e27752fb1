// One set of gains from the four fits of a BPM.
#pragma once
#include <span>

#include "four_fits.hpp"

namespace gain_fit_mod {

/// What the four fits of a BPM amount to. There are two means, for two kinds of file: that of
/// NAME.dat_fit leaves out fits that came to nothing, that of the tables sums all four.
struct combined_fits {
  int good = 0;                    ///< fits none of whose four gains is exactly 0
  gains gain{};                    ///< mean over the good fits: multipliers g [-]
  coefficient_set coefficients{};  ///< likewise Am, k, h2, h3 [-]
  double chisq = 0;                ///< likewise the chi-square [-]
  gains summary_gain{};            ///< sum over all four, over the number of good ones [-]
  double summary_chisq = 0;        ///< a quarter of the sum over all four [-]
  gains ratio{};                   ///< mean over all four of gain 1 over gain k [-]
  gains ratio_scatter{};           ///< its scatter: sqrt(|sum of squares - 4 mean^2|), not divided
                                   ///< by the number of fits [-]
};

/// The chi-square that all files show for each of the fits: that of the last one, kept for
/// compatibility.
double chisq_shown(const four_fits& fits);

/// errors   none: without a good fit the means are nan, a gain of 0 gives ratios that are no number
combined_fits combine_fits(const four_fits& fits);

}  // namespace gain_fit_mod
