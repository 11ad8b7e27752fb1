#include "fit_quality.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace gain_fit_mod {
namespace {

constexpr double no_value = std::numeric_limits<double>::infinity();

// Limits on the worse of uncertainty and spread. Well excited beams stay a factor of five below the
// first, a beam that nobody excited a factor of five above the second.
constexpr double good_to = 0.005;
constexpr double doubtful_to = 0.02;

// Buttons of one BPM are made alike; a gain this far from its fellows is a false minimum, in which
// the fit has switched a button off.
constexpr double smallest_share = 0.2;

bool gains_make_sense(const gains_saved& gain_save, int fit) {
  double largest = 0;
  for (int k = 1; k <= 4; ++k) {
    if (!std::isfinite(gain_save(fit, k))) return false;
    largest = std::max(largest, std::abs(gain_save(fit, k)));
  }
  for (int k = 1; k <= 4; ++k)
    if (!(gain_save(fit, k) > smallest_share * largest)) return false;
  return true;
}

double largest_uncertainty(const gains_saved& gain_save, const covar_saved& covar_save,
                           double rms_residual) {
  double largest = 0;
  for (int fit = 1; fit <= 4; ++fit) {
    for (int k = 1; k <= 4; ++k) {
      const double variance = covar_save(fit, k, k);
      // A matrix close to singular inverts to anything, negative variances included.
      if (!(variance >= 0) || !std::isfinite(variance)) return no_value;
      largest = std::max(largest, std::sqrt(variance) * rms_residual / gain_save(fit, k));
    }
  }
  if (!std::isfinite(largest)) return no_value;
  return largest;
}

double largest_spread(const gains_saved& gain_save) {
  double largest = 0;
  for (int k = 2; k <= 4; ++k) {
    double lowest = no_value;
    double highest = -no_value;
    for (int fit = 1; fit <= 4; ++fit) {
      lowest = std::min(lowest, gain_save(fit, 1) / gain_save(fit, k));
      highest = std::max(highest, gain_save(fit, 1) / gain_save(fit, k));
    }
    largest = std::max(largest, highest - lowest);
  }
  return largest;
}

gain_quality not_determined(const std::string& reason) {
  return {.verdict = gain_verdict::not_determined,
          .reason = "WARNING: gains NOT determined by these data: " + reason,
          .uncertainty = no_value,
          .spread = no_value};
}

std::string percent(double value) {
  return std::isfinite(value) ? fmt::format("{:.3f} %", 100 * value) : "beyond measure";
}

}  // namespace

gain_quality judge_gains(const gains_saved& gain_save, const chis_saved& chis_save,
                         const covar_saved& covar_save, int orbits) {
  if (orbits <= free_parameters)
    return not_determined(fmt::format("{} orbits for {} free parameters", orbits, free_parameters));
  if (!std::isfinite(chis_save(4))) return not_determined("the chi-square is not a number");
  for (int fit = 1; fit <= 4; ++fit)
    if (!gains_make_sense(gain_save, fit))
      return not_determined(fmt::format(
          "fit {} ended at a gain that is zero, negative or no number: {:.4f} {:.4f} {:.4f} {:.4f}",
          fit, gain_save(fit, 1), gain_save(fit, 2), gain_save(fit, 3), gain_save(fit, 4)));

  const double rms_residual =
      std::max(residual_floor, std::sqrt(chis_save(4) / (orbits - free_parameters)));
  gain_quality q;
  q.uncertainty = largest_uncertainty(gain_save, covar_save, rms_residual);
  q.spread = largest_spread(gain_save);
  const double worse = std::max(q.uncertainty, q.spread);
  const std::string figures = fmt::format("largest uncertainty {}, repetitions within {}",
                                          percent(q.uncertainty), percent(q.spread));
  if (worse <= good_to) {
    q.verdict = gain_verdict::determined;
    q.reason = "gains determined: " + figures;
  } else if (worse <= doubtful_to) {
    q.verdict = gain_verdict::doubtful;
    q.reason = "WARNING: gains doubtful: " + figures;
  } else {
    q.reason =
        "WARNING: gains NOT determined by these data: " + figures + "; did the beam move enough?";
  }
  return q;
}

}  // namespace gain_fit_mod
