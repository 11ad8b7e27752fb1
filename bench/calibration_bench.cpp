// One calibration and the whole rule (three fits, questions, verdict) against the four fits of the same
// BPM, and one calibration against general fitters of the same problem, one after the other in every
// round. Processor time; read ratios, not times.
//
//     calibration_bench [rounds]
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <vector>

#include "beam_run.hpp"
#include "calibration.hpp"
#include "calibration_peers.hpp"
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

calibration::bpm_run run_of(const bpm& at, const nonlin_bpm_mod::table_struct& table) {
  return {.signal = {at.column[0], at.column[1], at.column[2], at.column[3]},
          .set_start = {},
          .table = &table,
          .sigma_p = calibration::pedestals_subtracted,
          .fits = {}};
}

calibration::fit_setting setting_of(const nonlin_bpm_mod::table_struct& table) {
  return {.kind = calibration::fit_kind::free_intensity,
          .table = &table,
          .R0 = 45e-3,
          .sigma_p = calibration::pedestals_subtracted};
}

// What our fit was of, where it began and where it ended.
calibration_peers::task task_of(const calibration::usable_orbits& usable,
                                const calibration::fit_setting& setting) {
  auto state = calibration::first_state(usable, *setting.table);
  calibration::fit_room room;
  const auto start = state;
  const auto result = calibration::run_fit(state, setting, room);
  calibration_peers::task task;
  task.table = setting.table;
  task.R0 = setting.R0;
  task.weight = 1 / result.noise;
  const auto prior = calibration::equations_of(setting).prior;
  for (std::size_t i = 0; i < calibration_peers::n_shared; ++i) {
    task.prior.at(i) = std::sqrt(prior.at(i));
    task.ours.at(i) = state.at.value.at(i);
  }
  for (std::size_t n = 0; n < state.block.size(); ++n) {
    const auto &from = start.block[n], &to = state.block[n];
    for (std::size_t j = 0; j < to.count; ++j) {
      if (to.keep_u.at(j) == 0) continue;
      calibration_peers::orbit orbit;
      for (std::size_t k = 0; k < 4; ++k) orbit.b.at(k) = to.b.at(k).at(j);
      orbit.start = {from.x.at(j), from.y.at(j), from.L.at(j)};
      orbit.end = {to.x.at(j), to.y.at(j), to.L.at(j)};
      task.orbits.push_back(orbit);
    }
  }
  return task;
}

void compare_with_peers(const calibration::usable_orbits& usable,
                        const calibration::fit_setting& setting, int rounds) {
  const auto& peers = calibration_peers::all();
  const calibration_peers::task task = task_of(usable, setting);
  const auto ours = calibration::log_gains(task.ours.data());
  std::vector<double> one;
  std::vector<std::vector<double>> theirs(peers.size());
  std::vector<calibration_peers::answer> answer(peers.size());
  for (int round = 0; round < rounds; ++round) {
    one.push_back(seconds([&] {
      auto state = calibration::first_state(usable, *setting.table);
      calibration::fit_room room;
      calibration::run_fit(state, setting, room);
    }));
    for (std::size_t i = 0; i < peers.size(); ++i) {
      answer[i] = peers[i].run(task);
      theirs[i].push_back(answer[i].seconds);
    }
  }
  for (std::size_t i = 0; i < peers.size(); ++i) {
    double apart = 0;
    for (std::size_t k = 0; k < 4; ++k) {
      apart = std::max(apart, std::abs(answer[i].log_t.at(k) - ours.at(k)));
    }
    fmt::print("{:<22}{:>8}{:>10.2f}{:>7}{:>14.2f}{:>16.1e}{:>16.6f}{:>16.6f}\n", peers[i].name,
               task.orbits.size(), 1e3 * median(theirs[i]), answer[i].steps,
               median(one) / median(theirs[i]), apart, answer[i].cost, answer[i].cost_ours);
  }
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
    const calibration::bpm_run run = run_of(at, *table);
    const auto usable = calibration::take_usable(run);
    const calibration::fit_setting setting = setting_of(*table);
    std::vector<double> fits, one, rule;
    for (int round = 0; round < rounds; ++round) {
      fits.push_back(seconds([&] { gain_fit_mod::fit_readings(at.readings); }));
      one.push_back(seconds([&] {
        auto state = calibration::first_state(usable, *table);
        calibration::fit_room room;
        calibration::run_fit(state, setting, room);
      }));
      rule.push_back(seconds([&] { calibration::calibrate(run); }));
    }
    fmt::print("{:<8}{:>14.2f}{:>24.2f}{:>24.2f}\n", orbits, 1e3 * median(fits),
               median(one) / median(fits), median(rule) / median(fits));
  }
  if (calibration_peers::all().empty()) return 0;
  fmt::print("\n{:<22}{:>8}{:>10}{:>7}{:>14}{:>16}{:>16}{:>16}\n", "one calibration", "orbits",
             "ms", "steps", "ours / it", "gains apart", "its cost", "our cost");
  for (const int orbits : {300, 1000, 3000}) {
    const bpm at = make_bpm(orbits);
    const auto usable = calibration::take_usable(run_of(at, *table));
    compare_with_peers(usable, setting_of(*table), rounds);
  }
  return 0;
}
