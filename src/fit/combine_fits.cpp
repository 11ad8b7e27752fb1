#include "combine_fits.hpp"

#include <algorithm>
#include <cmath>

namespace gain_fit_mod {
namespace {

// Exactly 0: such a gain was never found. The four are otherwise taken as they are, for the verdict
// says how far they can be believed.
bool is_good(const one_fit& fit) {
  const auto& g = fit.gain.item;
  return std::none_of(g.begin(), g.end(), [](double gain) { return gain == 0; });
}

// Without a good fit the divisor is 0 and the means nan: what no fit found must not read as 0.
void average_good_fits(const four_fits& fits, combined_fits& c) {
  for (const one_fit& fit : fits.fit) {
    if (!is_good(fit)) continue;
    ++c.good;
    for (int k = 1; k <= 4; ++k) {
      c.gain(k) += fit.gain(k);
      c.coefficients(k) += fit.coefficients(k);
    }
    // Kept for compatibility: that of the last fit, whichever fit it is added for.
    c.chisq += chisq_shown(fits);
  }
  for (int k = 1; k <= 4; ++k) {
    c.gain(k) /= c.good;
    c.coefficients(k) /= c.good;
  }
  c.chisq /= c.good;
}

// Kept for compatibility: fits that are not good enter these sums and not their divisor.
void summarise(const four_fits& fits, combined_fits& c) {
  const auto& [f1, f2, f3, f4] = fits.fit;
  for (int k = 1; k <= 4; ++k) {
    c.summary_gain(k) = (f1.gain(k) + f2.gain(k) + f3.gain(k) + f4.gain(k)) / c.good;
  }
  double sum = 0;
  for (std::size_t f = 0; f < fits.fit.size(); ++f) sum += chisq_shown(fits);
  c.summary_chisq = 0.25 * sum;
}

void take_ratios(const four_fits& fits, combined_fits& c) {
  for (int k = 1; k <= 4; ++k) {
    double sum = 0;
    double squares = 0;
    for (const one_fit& fit : fits.fit) {
      // Upside down on purpose: 1/gain is what the button makes of the signal, and this is its
      // ratio.
      const double ratio = fit.gain(1) / fit.gain(k);
      sum += ratio;
      squares += ratio * ratio;
    }
    c.ratio(k) = 0.25 * sum;
    // Rounding can make the difference of two nearly equal sums negative, hence the size of it.
    c.ratio_scatter(k) = std::sqrt(std::abs(squares - (4 * (c.ratio(k) * c.ratio(k)))));
  }
}

}  // namespace

double chisq_shown(const four_fits& fits) { return fits.fit.back().chisq; }

combined_fits combine_fits(const four_fits& fits) {
  combined_fits c;
  average_good_fits(fits, c);
  summarise(fits, c);
  take_ratios(fits, c);
  return c;
}

}  // namespace gain_fit_mod
