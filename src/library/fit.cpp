#include "butngain/fit.hpp"

#include <cmath>
#include <vector>

#include "combine_fits.hpp"
#include "fit_quality.hpp"
#include "interior.hpp"

namespace butngain {
namespace {

gain_fit public_fit(const gain_fit_mod::one_fit& from) {
  gain_fit fit;
  fit.multiplier = from.gain.item;
  fit.curve = from.coefficients.item;
  fit.chi_square = from.chisq;
  // Rows and columns as callers index them; the rooms keep all rows in one array.
  for (std::size_t i = 0; i < 8; ++i) {
    for (std::size_t j = 0; j < 8; ++j) fit.covariance[i][j] = from.covariance.item[i * 8 + j];
  }
  fit.singular = from.singular;
  return fit;
}

// No cast: these words are the fits' alone, and no others of the library stand in their order.
fit_word public_word(gain_fit_mod::gain_verdict verdict) {
  switch (verdict) {
    case gain_fit_mod::gain_verdict::determined:
      return fit_word::determined;
    case gain_fit_mod::gain_verdict::doubtful:
      return fit_word::doubtful;
    case gain_fit_mod::gain_verdict::not_determined:
      break;
  }
  return fit_word::not_determined;
}

// Multipliers are known up to a common factor: gains have it chosen so that their product is 1.
four gains_of(const four& multiplier) {
  double mean_log = 0;
  // Logarithms of moduli: the multipliers of a fit gone astray may be huge, or have turned their
  // sign, and neither must make nan of all four gains.
  for (const double g : multiplier) mean_log += std::log(std::abs(g)) / 4;
  four gain{};
  // A multiplier makes up for the gain of its button: one is the inverse of the other.
  for (std::size_t k = 0; k < 4; ++k) gain[k] = std::exp(mean_log) / multiplier[k];
  return gain;
}

}  // namespace

// A copy, because the rooms' signals know their bounds: a cast would promise one layout of both.
std::vector<gain_fit_mod::signals> copied(std::span<const signals> readings) {
  std::vector<gain_fit_mod::signals> copy;
  copy.reserve(readings.size());
  for (const signals& reading : readings) copy.push_back({reading});
  return copy;
}

four_fits public_fits(std::span<const gain_fit_mod::signals> readings,
                      const gain_fit_mod::four_fits& fits) {
  four_fits made;
  for (std::size_t k = 0; k < 4; ++k) made.held[k] = public_fit(fits.fit[k]);
  // Steps alone are work; other events mark where a fit began, ended or met a pivot of 0.
  for (const gain_fit_mod::fit_event& event : fits.events) {
    if (event.what == gain_fit_mod::fit_event::kind::step) {
      ++made.held.at(static_cast<std::size_t>(event.held) - 1).steps;
    }
  }
  const auto combined = gain_fit_mod::combine_fits(fits);
  made.multiplier = combined.gain.item;
  made.gain = gains_of(made.multiplier);
  made.curve = combined.coefficients.item;
  made.chi_square = combined.chisq;
  // The readings count as well: whether the beam moved enough cannot be seen in the fits.
  const auto quality = gain_fit_mod::judge_gains(readings, fits);
  made.word = public_word(quality.verdict);
  made.reason = quality.reason;
  made.excitation = quality.excitation;
  made.uncertainty = quality.uncertainty;
  made.spread = quality.spread;
  return made;
}

four_fits fit(std::span<const signals> readings) {
  // Sums over no orbits would end in nan, which reads like a fault of the BPM.
  if (readings.empty()) throw_argument("readings", "no readings", "at least one");
  const auto copy = copied(readings);
  return public_fits(copy, gain_fit_mod::fit_readings(copy));
}

}  // namespace butngain
