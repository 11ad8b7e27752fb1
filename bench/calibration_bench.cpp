// One calibration and the whole rule (three fits, questions, verdict) against the four fits of the same
// BPM, one after the other in every round. Read ratios, not times.
//
//     calibration_bench [rounds]
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <ctime>
#include <vector>

#include "beam_run.hpp"
#include "calibration.hpp"
#include "four_fits.hpp"
#include "one_fit.hpp"
#include "table_maker.hpp"

namespace {

double median(std::vector<double> values) {
  std::ranges::sort(values);
  return values[values.size() / 2];
}

template <class Work>
double seconds(const Work& work) {
  const std::clock_t start = std::clock();
  work();
  return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

struct bpm {
  std::vector<gain_fit_mod::signals> readings;
  std::array<std::vector<double>, 4> column;
};

// The usual beam: +-5 mm, noise of 1e-4 of a centred signal.
bpm make_bpm(int orbits) {
  sim::beam_run run;
  run.orbits = orbits;
  run.electronics.noise = 1e-4;
  run.electronics.true_gain = {{1.04, 0.97, 1.01, 0.93}};
  const auto made = sim::simulate(run);
  if (!made) {
    fmt::print(stderr, "calibration_bench: {}\n", util::line_of(made.why));
    std::exit(1);
  }
  bpm at;
  for (const sim::buttons& signal : made->signal) {
    at.readings.push_back({signal.item});
    for (std::size_t k = 0; k < 4; ++k) at.column.at(k).push_back(signal.item.at(k));
  }
  return at;
}

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::atoi(argv[1]) : 9;
  const auto table = chamber_solver::table_of(sim::round_chamber());
  if (!table) return 1;
  fmt::print("{:<8}{:>14}{:>24}{:>24}\n", "orbits", "four fits ms", "one calibration / fits",
             "whole rule / fits");
  for (const int orbits : {300, 1000, 3000}) {
    const bpm at = make_bpm(orbits);
    const calibration::bpm_run run{
        .signal = {at.column[0], at.column[1], at.column[2], at.column[3]},
        .set_start = {},
        .table = &*table,
        .sigma_p = calibration::pedestals_subtracted,
        .fits = {}};
    const auto usable = calibration::take_usable(run);
    const calibration::fit_setting setting{.kind = calibration::fit_kind::free_intensity,
                                           .table = &*table,
                                           .R0 = 45e-3,
                                           .sigma_p = run.sigma_p};
    std::vector<double> fits, one, rule;
    for (int round = 0; round < rounds; ++round) {
      fits.push_back(seconds([&] { gain_fit_mod::fit_readings(at.readings); }));
      one.push_back(seconds([&] {
        auto state = calibration::first_state(usable, *table);
        calibration::run_fit(state, setting);
      }));
      rule.push_back(seconds([&] { calibration::calibrate(run); }));
    }
    fmt::print("{:<8}{:>14.2f}{:>24.2f}{:>24.2f}\n", orbits, 1e3 * median(fits),
               median(one) / median(fits), median(rule) / median(fits));
  }
  return 0;
}
