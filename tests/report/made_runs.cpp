#include "made_runs.hpp"

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <ctime>
#include <filesystem>
#include <random>

#include "gains_csv.hpp"
#include "run_json.hpp"

namespace made {
namespace {

using report::four;
using report::verdict;
using normal = std::normal_distribution<double>;

// What stays the same about a BPM.
struct made_bpm {
  four gain{};                     // ln t
  std::array<four, 2> by_orbit{};  // change of ln t a millimetre
};

struct source {
  std::mt19937_64 random;
  double draw(double sigma) { return normal(0, sigma)(random); }
  bool once_in(double n) { return std::uniform_real_distribution<double>(0, 1)(random) * n < 1; }
  four draw_four(double sigma) { return {draw(sigma), draw(sigma), draw(sigma), draw(sigma)}; }
};

void add(four& to, const four& what, double factor = 1) {
  for (std::size_t k = 0; k < 4; ++k) to[k] += factor * what[k];
}

report::bpm_row row_of(int bpm, four ln_t, double noise, double error, verdict word) {
  report::bpm_row row;
  row.bpm = bpm;
  row.name = fmt::format("{}W", bpm);
  row.orbits = row.orbits_used = 1000;
  row.verdict = word;
  if (word == verdict::weak) row.reason = "the error is large";
  if (word == verdict::not_determined) row.reason = "the beam moved too little";
  const double mean = (ln_t[0] + ln_t[1] + ln_t[2] + ln_t[3]) / 4;
  for (std::size_t k = 0; k < 4; ++k) {
    row.gain[k] = std::exp(ln_t[k] - mean);
    row.sigma[k] = noise * std::sqrt(0.75);
  }
  row.error = error;
  return row;
}

std::string time_text(double day) {
  const auto seconds = static_cast<std::time_t>(std::llround(day * 86400));
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S+00:00", &utc);
  return text.data();
}

double planted_at(const planted& p, int run, double months) {
  return (p.step != 0 && run >= p.at_run ? p.step : 0) + p.drift * months;
}

}  // namespace

void write_runs(const std::string& directory, const many_runs& made) {
  constexpr double first_day = 18262, shutdown = 70, noise = 7e-5;
  source from{std::mt19937_64{made.seed}};
  std::vector<made_bpm> bpms(static_cast<std::size_t>(made.bpms));
  for (made_bpm& b : bpms) {
    b.gain = from.draw_four(0.05);
    for (four& slope : b.by_orbit) slope = from.draw_four(4e-5);
  }
  std::array<double, 2> orbit{};
  const int wild_run = made.runs / 3;
  for (int run = 0; run < made.runs; ++run) {
    // A run a week, some hours early or late.
    double day = first_day + made.days_apart * run + from.draw(0.1);
    if (run > made.runs / 2) day += shutdown;
    const double months = (day - first_day) / 30.4375;
    for (double& o : orbit) o = 0.7 * o + from.draw(0.7);
    report::run_results results;
    for (int i = 0; i < made.bpms; ++i) {
      const made_bpm& b = bpms[static_cast<std::size_t>(i)];
      const bool weak = from.once_in(30), never = i + 1 == made.bpms, lost = from.once_in(60);
      four ln_t = b.gain;
      add(ln_t, b.by_orbit[0], orbit[0]);
      add(ln_t, b.by_orbit[1], orbit[1]);
      add(ln_t, from.draw_four((weak ? 5 : 1) * noise));  // of the readings
      add(ln_t, from.draw_four((weak ? 5 : 1) * 5e-5));   // pedestals of the run
      if (from.once_in(100) || run == wild_run) add(ln_t, from.draw_four(0.01));
      for (const planted& p : made.changes) {
        if (p.bpm == i + 1) ln_t[static_cast<std::size_t>(p.button)] += planted_at(p, run, months);
      }
      results.bpm.push_back(row_of(i + 1, ln_t, (weak ? 5 : 1) * noise, weak ? 3.5e-3 : 7e-4,
                                   never || lost ? verdict::not_determined
                                   : weak        ? verdict::weak
                                                 : verdict::determined));
    }
    results.info.version = "0.1.0";
    results.info.started = time_text(day);
    results.info.inputs = {{"made", 1, fmt::format("{:064}", run)}};
    results.info.ended = "whole";
    results.info.exit_status = 0;
    const std::string folder = fmt::format("{}/run_{:04}/20200101_000000", directory, run + 1);
    std::filesystem::create_directories(folder);
    if (report::write_gains_csv(folder + "/gains.csv", results.bpm)) return;
    if (report::write_run_json(folder + "/run.json", results)) return;
  }
}

}  // namespace made
