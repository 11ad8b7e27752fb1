#include "combine_fits.hpp"

#include <cmath>

namespace driver {
namespace {

constexpr int fits_made = 4;  // of the five that the arrays have room for

bool is_good(const gain_fit_mod::gains_saved& gain_save, int fit) {
  for (int k = 1; k <= 4; ++k) {
    if (gain_save(fit, k) == 0) return false;  // exactly 0: never written
  }
  return true;
}

}  // namespace

combined_fit average_good_fits(const gain_fit_mod::chis_saved& chis_save,
                               const gain_fit_mod::gains_saved& gain_save,
                               const gain_fit_mod::coeffs_saved& coeff_save,
                               util::bounded<double, 1, 4, "gain">& gain,
                               util::bounded<double, 1, 4, "coefficients">& coefficients) {
  combined_fit result;
  gain.fill(0);
  coefficients.fill(0);
  for (int fit = 1; fit <= 5; ++fit) {
    if (!is_good(gain_save, fit)) continue;
    ++result.good;
    for (int k = 1; k <= 4; ++k) {
      gain(k) += gain_save(fit, k);
      coefficients(k) += coeff_save(fit, k);
    }
    result.chis += chis_save(fit);
  }
  for (int k = 1; k <= 4; ++k) {
    gain(k) /= result.good;
    coefficients(k) /= result.good;
  }
  result.chis /= result.good;
  return result;
}

double summary_gains(const gain_fit_mod::chis_saved& chis_save,
                     const gain_fit_mod::gains_saved& gain_save, int good,
                     util::bounded<double, 1, 4, "gain">& gain) {
  for (int k = 1; k <= 4; ++k) {
    gain(k) = (gain_save(1, k) + gain_save(2, k) + gain_save(3, k) + gain_save(4, k)) / good;
  }
  double sum = 0;
  for (const double chis : chis_save.item) sum += chis;
  return 0.25 * sum;
}

void gain_ratio_statistics(const gain_fit_mod::gains_saved& gain_save,
                           util::bounded<double, 1, 5, "average_gain">& average_gain,
                           util::bounded<double, 1, 5, "rms_gain">& rms_gain) {
  for (int k = 1; k <= 4; ++k) {
    double sum = 0;
    double squares = 0;
    for (int fit = 1; fit <= fits_made; ++fit) {
      const double ratio = gain_save(fit, 1) / gain_save(fit, k);
      sum += ratio;
      squares += ratio * ratio;
    }
    average_gain(k) = 0.25 * sum;
    rms_gain(k) = std::sqrt(std::abs(squares - (4 * (average_gain(k) * average_gain(k)))));
  }
}

}  // namespace driver
