#include "accuracy.hpp"

#include <algorithm>
#include <cmath>

#include "judged_run.hpp"
#include "run_time.hpp"
#include "table_maker.hpp"

namespace sim {
namespace {

// A failed fit must ruin the rms: left out, it would make a worse method look better.
struct error_sums {
  double squares = 0, worst = 0;
  void add(const ratio_errors& e) {
    for (const double error : e) {
      squares += std::isfinite(error) ? error * error : HUGE_VAL;
      worst = std::max(worst, std::abs(error));
    }
  }
};

error_figures figures(const error_sums& sums, int bpms) {
  return {sums.worst, std::sqrt(sums.squares / (3.0 * bpms))};
}

}  // namespace

accuracy_result measure_accuracy(const accuracy_setup& s) {
  // A copy: preparing fills in what the options left open, and the caller may measure again.
  machine solved = s.machine;
  prepare(solved);
  const auto drawn = chamber_solver::table_of(chambers_of(solved, 1).drawn->of);
  if (!drawn) util::run_time_error(util::line_of(drawn.why));
  knowledge known;
  known.table = &*drawn;
  known.sigma_p = s.sigma_p;
  known.exact_table = s.exact_table;

  accuracy_result result;
  error_sums of_fits, of_calibration, of_free;
  double limits = 0, errors = 0, noises = 0;
  std::vector<double> squares;  // of the errors with free intensities, BPM by BPM
  for (int bpm = 1; bpm <= s.bpms; ++bpm) {
    monitor at = make_monitor(solved, {.bpm = bpm, .orbits = s.orbits});
    beam_run run;
    run.chamber = at.chamber;
    run_signals made;
    // Gains stand still here, so the mean over the run that errors are taken from is the gain
    // itself.
    made.true_gain = made.mean_gain = at.electronics.true_gain;
    for (int orbit = 1; orbit <= s.orbits; ++orbit) {
      const passage p = next_passage(solved, at);
      const auto count = counts(p, at);
      buttons signal{};
      for (int k = 1; k <= 4; ++k) signal(k) = count(k);
      made.signal.push_back(signal);
      made.at.push_back(p.at);
      made.intensity.push_back(p.intensity);
    }
    const judged_run judged = judge(made, known);
    of_fits.add(judged.fits);
    of_calibration.add(judged.calibration);
    of_free.add(judged.free);
    squares.push_back(std::pow(rms_of(judged.free), 2));
    result.spread = std::max(result.spread, judged.fits_spread);
    ++result.words.at(static_cast<std::size_t>(judged.record.verdict.word));
    const auto& fit = chosen_fit(judged.record);
    // Squares are averaged, roots come at the end: the figures are to be compared with an rms
    // error.
    noises += fit.noise * fit.noise / s.bpms;
    errors += judged.record.verdict.E * judged.record.verdict.E / s.bpms;
    const double noise = s.machine.electronics.noise;
    // The limit is that of the noise, which is all that is left with free intensities.
    if (noise > 0) limits += std::pow(noise_limit(run, made, noise), 2) / s.bpms;
    // Nothing was fitted: no covariance to take a pull by.
    if (fit.orbits == 0) continue;
    for (const double pull : pulls_of(judged.calibration, fit.covariance)) {
      result.pulls.push_back(pull);
    }
    for (const double pull : pulls_of(judged.free, judged.record.free.noise_covariance)) {
      result.free_pulls.push_back(pull);
    }
  }
  const error_figures fits = figures(of_fits, s.bpms);
  result.worst = fits.worst;
  result.rms = fits.rms;
  result.calibrated = figures(of_calibration, s.bpms);
  result.free = figures(of_free, s.bpms);
  result.limit = std::sqrt(limits);
  if (limits > 0) {
    // The three ratios of a BPM share button 1: chance is counted by BPM, not by ratio.
    double spread = 0;
    const double mean = result.free.rms * result.free.rms;
    for (const double q : squares) spread += (q - mean) * (q - mean);
    const double n = s.bpms;
    result.over_limit = result.free.rms / result.limit;
    result.over_limit_sigma =
        result.over_limit * std::sqrt(spread / std::max(n - 1, 1.0) / n) / (2 * mean);
  }
  result.noise = std::sqrt(noises);
  result.E = std::sqrt(errors);
  return result;
}

}  // namespace sim
