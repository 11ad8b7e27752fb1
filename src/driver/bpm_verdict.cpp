#include "bpm_verdict.hpp"

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <vector>

namespace driver {
namespace {

using calibration::verdict_reason;
using calibration::verdict_word;

// The calibration takes the readings button by button.
std::array<std::vector<double>, 4> columns_of(std::span<const store::bpm_struct> orbits) {
  std::array<std::vector<double>, 4> column;
  for (std::size_t k = 0; k < column.size(); ++k) {
    column[k].reserve(orbits.size());
    for (const store::bpm_struct& orbit : orbits) column[k].push_back(orbit.button.item[k]);
  }
  return column;
}

// As the fits have them, not as button gains: the calibration turns them itself.
calibration::four_fits multipliers_of(const gain_fit_mod::four_fits& fits) {
  calibration::four_fits all;
  for (int f = 1; f <= 4; ++f) {
    for (int k = 1; k <= 4; ++k) all(f, k) = fits.fit[static_cast<std::size_t>(f) - 1].gain(k);
  }
  return all;
}

// The verdict by the four fits alone, in the words of all. It cannot see pedestals, a beam off the
// axis or a gain that changes, so its line says that the calibration is missing.
bpm_verdict verdict_of_fits(const gain_fit_mod::bpm_result& result) {
  bpm_verdict verdict;
  switch (result.quality.verdict) {
    case gain_fit_mod::gain_verdict::determined:
      verdict.word = verdict_word::determined;
      break;
    case gain_fit_mod::gain_verdict::doubtful:
      verdict.word = verdict_word::weak;
      break;
    case gain_fit_mod::gain_verdict::not_determined:
      verdict.word = verdict_word::not_determined;
      break;
  }
  // The number, not the name: it is what decides which table a BPM has.
  verdict.line = fmt::format("no table for BPM {}: calibration left out; {}", result.data.bpm,
                             result.quality.reason);
  return verdict;
}

// What stands behind the word: errors, gains, and what the reason speaks of. Numbers that mean
// nothing, such as the error of a fit that did not end, are left out rather than shown.
std::string figures_of(const calibration::record& r) {
  const calibration::fit_result& fit = calibration::chosen_fit(r);
  std::string text;
  if (std::isfinite(r.verdict.E) && r.verdict.E > 0) {
    text += fmt::format("; error {:.2g}, noise {:.2g}", r.verdict.E, fit.noise);
    text +=
        fmt::format("; button gains {:.5f} {:.5f} {:.5f} {:.5f}", r.t(1), r.t(2), r.t(3), r.t(4));
  }
  // Only when they are the reason: a pedestal within its error says nothing to anybody.
  if (r.verdict.reason == verdict_reason::pedestals) {
    text += "; pedestals";
    for (int k = 1; k <= 4; ++k) {
      text +=
          fmt::format(" {:.2g}+-{:.1g}", fit.pedestal(k), std::sqrt(fit.pedestal_covariance(k, k)));
    }
    text += " of the signal";
  }
  if (r.verdict.reason == verdict_reason::gains_change) {
    text += fmt::format("; its gains move by {:.2g}", r.moved_gains);
  }
  if (r.fits_verdict && std::isfinite(r.fits_differ)) {
    text += fmt::format("; the four fits are off by {:.2g}: {}", r.fits_differ,
                        calibration::text_of(r.fits_verdict->word));
  }
  return text;
}

}  // namespace

bpm_verdict verdict_of(const gain_fit_mod::bpm_result& result, const calibration_setting& setting) {
  if (setting.table.table == nullptr) return verdict_of_fits(result);
  const auto column = columns_of(result.data.orbits);
  // The run only points at the columns, so they stand here until the calibration has ended.
  const calibration::bpm_run run{.signal = {column[0], column[1], column[2], column[3]},
                                 .set_start = setting.set_start,
                                 .table = setting.table.table,
                                 .own_table = setting.table.own,
                                 .sigma_p = setting.sigma_p,
                                 .fits = multipliers_of(result.fits)};
  bpm_verdict verdict;
  verdict.has_table = true;
  verdict.calibrated = calibration::calibrate(run);
  verdict.word = verdict.calibrated.verdict.word;
  verdict.line = calibration::text_of(verdict.calibrated.verdict) + figures_of(verdict.calibrated);
  return verdict;
}

}  // namespace driver
