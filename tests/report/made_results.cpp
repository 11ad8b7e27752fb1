#include "made_results.hpp"

#include <algorithm>
#include <cmath>

#include "gains_csv.hpp"
#include "round_pipe.hpp"

namespace made {
namespace {

using report::bpm_row;

// What is wrong with BPM i of such a run; nothing with most of a mixed one.
void spoil(const std::string& kind, int i, round_pipe::plan& plan, double& sigma_p) {
  const int trouble = kind == "bad" ? 1 + i % 5 : (kind == "mixed" && i % 3 == 1 ? i / 3 % 7 : 0);
  if (kind == "quiet") plan.spread = 2e-6;
  if (trouble == 1) plan.full_scale = 1.15;
  if (trouble == 2) plan.stuck_from = plan.orbits / 2;
  if (trouble == 3) plan.spread_y = 1e-6;
  if (trouble == 4) sigma_p = calibration::pedestals_left_in;
  if (trouble == 5) plan.gain_step = 0.02;
  if (trouble == 6) plan.wild_every = 9;
}

// Both rooms have the same four words.
report::verdict word_of(calibration::verdict_word word) {
  using report::verdict;
  for (const verdict v : {verdict::determined, verdict::weak, verdict::suspect}) {
    if (report::text_of(v) == calibration::text_of(word)) return v;
  }
  return verdict::not_determined;
}

void put_orbits(const round_pipe::made_run& made, const calibration::record& r, double counts,
                bpm_row& row) {
  for (std::size_t j = 0; j < made.signal[0].size(); ++j) {
    report::orbit_row o;
    o.orbit = static_cast<int>(j) + 1;
    double sum = 0;
    for (std::size_t k = 0; k < 4; ++k) sum += o.signal[k] = counts * made.signal[k][j];
    constexpr double scale_mm = 32;  // of difference over sum in this pipe, about
    o.before_x_mm = scale_mm * (-o.signal[0] + o.signal[1] - o.signal[2] + o.signal[3]) / sum;
    o.before_y_mm = scale_mm * (-o.signal[0] - o.signal[1] + o.signal[2] + o.signal[3]) / sum;
    if (j < r.place.size()) {
      o.after_x_mm = 1e3 * r.place[j].x;
      o.after_y_mm = 1e3 * r.place[j].y;
      o.residual = r.place[j].residual;
      o.intensity = counts * r.place[j].intensity;
      o.used = r.place[j].used;
    }
    row.orbit.push_back(o);
  }
}

void put_numbers(const calibration::record& r, bpm_row& row) {
  const calibration::fit_result& fit = calibration::chosen_fit(r);
  if (!(r.verdict.E > 0) || !std::isfinite(r.verdict.E)) return;
  for (int k = 1; k <= 4; ++k) {
    const auto i = static_cast<std::size_t>(k - 1);
    row.gain[i] = r.t(k);
    row.sigma[i] = std::sqrt(fit.noise_covariance(k, k));
    row.fit_gain[i] = 1 / r.t(k);
    row.pedestal[i] = fit.pedestal(k);
    row.pedestal_sigma[i] = std::sqrt(fit.pedestal_covariance(k, k));
  }
  row.error = r.verdict.E;
  row.fit_distance = 2 * r.verdict.E;
  row.noise = fit.noise;
  row.orbits_used = fit.orbits;
  row.outliers = fit.outliers;
}

bpm_row made_bpm(const std::string& kind, int i, int orbits) {
  round_pipe::plan plan;
  plan.orbits = orbits;
  plan.pedestal = 1e-4;
  plan.x = 2e-3 * std::sin(i);
  double sigma_p = calibration::pedestals_subtracted;
  spoil(kind, i, plan, sigma_p);
  const auto made = round_pipe::make(plan, static_cast<unsigned>(i + 1));
  const auto run = round_pipe::as_run(made, sigma_p);
  const auto record = calibration::calibrate(run);
  bpm_row row;
  row.bpm = i + 1;
  row.name = std::to_string(i < 49 ? i + 1 : 99 - i) + (i < 49 ? "W" : "E");
  row.orbits = orbits;
  row.verdict = word_of(record.verdict.word);
  const std::string line = calibration::text_of(record.verdict);
  const std::size_t colon = line.find(": ");
  if (colon != std::string::npos) row.reason = line.substr(colon + 2);
  for (std::size_t k = 0; k < 4; ++k) row.true_gain[k] = made.t[k];
  row.mean_x_mm = 1e3 * plan.x;
  row.mean_y_mm = 0;
  row.sd_x_mm = row.sd_y_mm = 1e3 * plan.spread / std::sqrt(3.0);
  put_numbers(record, row);
  put_orbits(made, record, 1e5, row);
  return row;
}

}  // namespace

report::run_results results(const std::string& kind, int bpms, int orbits) {
  report::run_results run;
  run.info.title = "run 4567, " + std::to_string(orbits) + " orbits";
  run.info.directory = "20261121_201500";
  run.info.started = "2026-11-21T20:15:00+01:00";
  run.info.version = "0.1.0";
  run.info.host = "control1";
  run.info.command = "butngain";
  run.info.ended = "whole";
  run.info.dialog = {{"TBT data (T), Orbit data(O) or fake data (F) ?", "T"},
                     {"which bpm ? (-1 for all)", "-1"}};
  run.info.inputs = {{"RD-004567.dat", 12345678, std::string(64, 'a')}};
  run.info.seconds = {{"reading", 0.8}, {"fits", 2.25}};
  for (int i = 0; i < bpms; ++i) run.bpm.push_back(made_bpm(kind, i, orbits));
  if (kind == "mixed" && bpms > 4) {
    bpm_row& row = run.bpm[4];
    bpm_row passed_over;
    passed_over.bpm = row.bpm;
    passed_over.name = row.name;
    row = passed_over;
    row.reason = "no signal in any of 1000 orbits";
    run.bpm[2].gain = {1.9, 0.7, 0.75, 1.0};
  }
  return run;
}

}  // namespace made
