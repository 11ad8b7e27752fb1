#include "result_rows.hpp"

#include <algorithm>
#include <cmath>
#include <string>

#include "gains_load.hpp"

namespace driver {
namespace {

using report::four;
using report::unknown;

constexpr double mm = 1e3;  // per metre

// inf and nan of a fit that went astray are one thing to who reads the files: not known.
double known(double value) { return std::isfinite(value) ? value : unknown; }

template <class Buttons>
four four_of(const Buttons& from) {
  return {from(1), from(2), from(3), from(4)};
}

// No cast between the two: one that gains a word would shift the meaning of the others.
report::verdict word_of(calibration::verdict_word word) {
  switch (word) {
    case calibration::verdict_word::determined:
      return report::verdict::determined;
    case calibration::verdict_word::weak:
      return report::verdict::weak;
    case calibration::verdict_word::suspect:
      return report::verdict::suspect;
    case calibration::verdict_word::not_determined:
      break;
  }
  return report::verdict::not_determined;
}

// What stands behind the word in the line that all other places show, without the figures.
std::string reason_of(const bpm_verdict& verdict) {
  if (!verdict.has_table) return verdict.line;
  const std::string line = calibration::text_of(verdict.calibrated.verdict);
  const std::string word{calibration::text_of(verdict.word)};
  // 2: the colon and the blank behind the word.
  return line.size() > word.size() + 2 ? line.substr(word.size() + 2) : std::string{};
}

// Multipliers, scaled to mean 1: the common factor of a fit means nothing.
four scaled_multipliers(const gain_fit_mod::gains& gain) {
  const double mean = (gain(1) + gain(2) + gain(3) + gain(4)) / 4;
  four scaled{};
  for (int k = 1; k <= 4; ++k) scaled[static_cast<std::size_t>(k) - 1] = known(gain(k) / mean);
  return scaled;
}

// An orbit that the calibration could not use has no place.
bool has_place(const calibration::orbit_place& at) { return at.intensity > 0; }

struct spread {
  double mean = unknown, sd = unknown;
};

// In two passes: of places 5 mm off that move by micrometres, the mean square less the squared mean
// would lose half of the digits.
spread spread_of(const std::vector<calibration::orbit_place>& places,
                 double calibration::orbit_place::*of) {
  double n = 0, sum = 0, squares = 0;
  for (const calibration::orbit_place& at : places) {
    if (!at.used) continue;
    ++n;
    sum += at.*of;
  }
  if (n == 0) return {};
  for (const calibration::orbit_place& at : places) {
    if (at.used) squares += (at.*of - sum / n) * (at.*of - sum / n);
  }
  // Divided by n: the spread of these very orbits, not an estimate for others.
  return {sum / n * mm, std::sqrt(squares / n) * mm};
}

void put_calibration(const calibration::record& r, report::bpm_row& row) {
  // Nothing was calibrated: its gains of 1 are no result.
  if (r.place.empty()) return;
  const calibration::fit_result& fit = calibration::chosen_fit(r);
  row.orbits_used = fit.orbits;
  row.outliers = fit.outliers;
  row.error = known(r.verdict.E);
  row.fit_distance = known(r.fits_differ);
  for (int k = 1; k <= 4; ++k) {
    const auto at = static_cast<std::size_t>(k) - 1;
    row.gain[at] = known(r.t(k));
    row.sigma[at] = known(std::sqrt(fit.noise_covariance(k, k)));
    row.pedestal[at] = known(fit.pedestal(k));
    row.pedestal_sigma[at] = known(std::sqrt(fit.pedestal_covariance(k, k)));
  }
  row.noise = known(fit.noise);
  const spread x = spread_of(r.place, &calibration::orbit_place::x);
  const spread y = spread_of(r.place, &calibration::orbit_place::y);
  row.mean_x_mm = x.mean;
  row.sd_x_mm = x.sd;
  row.mean_y_mm = y.mean;
  row.sd_y_mm = y.sd;
}

std::vector<report::orbit_row> orbits_of(const gain_fit_mod::bpm_result& result,
                                         const std::vector<calibration::orbit_place>& places) {
  std::vector<report::orbit_row> rows;
  rows.reserve(result.data.orbits.size());
  for (std::size_t j = 0; j < result.data.orbits.size(); ++j) {
    const store::bpm_struct& reading = result.data.orbits[j];
    report::orbit_row row{.orbit = static_cast<int>(j) + 1,
                          .signal = reading.button.item,
                          .before_x_mm = known(reading.x * mm),
                          .before_y_mm = known(reading.y * mm)};
    // Without a calibration there are no places, and the columns stay unknown.
    if (j < places.size() && has_place(places[j])) {
      row.after_x_mm = places[j].x * mm;
      row.after_y_mm = places[j].y * mm;
      row.intensity = places[j].intensity;
      row.residual = places[j].residual;
      row.used = places[j].used;
    }
    rows.push_back(row);
  }
  return rows;
}

// Only gains that are right within their error go into a machine.
void put_coefficients(const bpm_coefficients& of, report::bpm_row& row) {
  if (of.agree) row.coefficient = of.value;
  if (row.verdict != report::verdict::determined) return;
  // A gain is a factor on the coefficient of its readings: with two of them there is no one new
  // value.
  if (!of.agree) {
    row.stays = "data sets with different coefficients or corrections";
    return;
  }
  if (!std::isfinite(row.gain[0])) {
    row.stays = "no table: only the four fits speak for these gains";
    return;
  }
  // Where none is named, none was loaded, and readings that nothing divided have 1.
  four old = of.value;
  for (double& c : old) {
    if (!std::isfinite(c)) c = 1;
  }
  row.new_coefficient = report::new_coefficients(old, row.gain, of.divided);
}

bool same(const four& a, const four& b) {
  return std::equal(a.begin(), a.end(), b.begin(), [](double x, double y) {
    return x == y || (std::isnan(x) && std::isnan(y));  // copies of what a file says: exactly
  });
}

}  // namespace

bpm_coefficients coefficients_of(const std::vector<data_set>& sets,
                                 const std::vector<std::size_t>& used, int bpm) {
  bpm_coefficients all;
  const auto index = static_cast<std::size_t>(bpm);
  bool first = true;
  for (const std::size_t i : used) {
    const data_set& set = sets[i];
    const four value =
        index < set.coefficient.size() ? set.coefficient[index] : report::unknown_four;
    // Without coefficients the readings are what they are, whatever was asked before.
    const bool divided = set.divided && std::isfinite(value[0]);
    if (!first) all.agree = all.agree && same(value, all.value) && divided == all.divided;
    first = false;
    // The last set's stand for all: they are looked at only when all agree.
    all.value = value;
    all.divided = divided;
  }
  return all;
}

report::bpm_row row_of_fitted(const gain_fit_mod::bpm_result& result, const bpm_verdict& verdict,
                              const bpm_coefficients& coefficients) {
  report::bpm_row row;
  row.bpm = result.data.bpm;
  row.name = result.data.name;
  row.orbits = static_cast<int>(result.data.orbits.size());
  row.verdict = word_of(verdict.word);
  row.reason = reason_of(verdict);
  put_calibration(verdict.calibrated, row);
  row.fit_gain = scaled_multipliers(result.combined.gain);
  row.fit_error = known(result.quality.uncertainty);
  for (int k = 1; k <= 4; ++k) {
    const double truth = result.data.true_gain(k);
    if (truth != 0) row.true_gain[static_cast<std::size_t>(k) - 1] = truth;  // 0: not known
  }
  // Every orbit that the fit had, also those that the calibration left out: which ones is what
  // people look for there.
  row.orbit = orbits_of(result, verdict.calibrated.place);
  put_coefficients(coefficients, row);
  return row;
}

report::bpm_row row_of_left_out(const store::bpm_remark& remark, int orbits,
                                const bpm_coefficients& coefficients) {
  report::bpm_row row;
  row.bpm = remark.bpm;
  row.name = remark.name;
  row.orbits = orbits;
  row.reason = remark.reason;
  if (coefficients.agree) row.coefficient = coefficients.value;
  return row;
}

}  // namespace driver
