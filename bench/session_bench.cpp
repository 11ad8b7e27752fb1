// A whole session on synthetic data through a pipe, against the sum of its fits: reading,
// positions, files, tables and progress lines are what the session adds. Both in turn in every
// round; processor time; read the ratio. And the session on all cores against one thread, wall.
//
//     session_bench [rounds [BPMs [orbits]]]
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "fit_gains.hpp"
#include "gain_fit_mod.hpp"
#include "jobs.hpp"
#include "machine.hpp"
#include "series.hpp"
#include "session_harness.hpp"

namespace {

namespace fit = gain_fit_mod;

double children_seconds() {
  rusage used{};
  getrusage(RUSAGE_CHILDREN, &used);
  const auto seconds = [](const timeval& t) {
    return static_cast<double>(t.tv_sec) + (1e-6 * static_cast<double>(t.tv_usec));
  };
  return seconds(used.ru_utime) + seconds(used.ru_stime);
}

// The readings that the series files hold, straight into the store.
void fill_store(const sim::series_setup& s) {
  for (int bpm = 1; bpm <= s.bpms; ++bpm) {
    sim::monitor at = sim::make_monitor(s.machine, bpm);
    for (int orbit = 1; orbit <= s.orbits; ++orbit) {
      const auto count = sim::counts(sim::next_passage(s.machine, at), at);
      auto& reading = fit::orbit_data.edit(orbit, bpm);
      for (int k = 1; k <= 4; ++k) reading.button(k) = count(k);
    }
  }
  fit::norbits = s.orbits;
}

// Processor seconds of all fits; what they print goes nowhere.
double fits_seconds(int bpms) {
  static fit::chis_saved chis;
  static fit::gains_saved gains;
  static fit::coeffs_saved coeffs;
  static fit::covar_saved covar;
  std::fflush(stdout);
  const int kept = dup(STDOUT_FILENO);
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  dup2(nowhere, STDOUT_FILENO);
  const std::clock_t start = std::clock();
  for (fit::bpm = 1; fit::bpm <= bpms; ++fit::bpm) fit::fit_gains(chis, gains, coeffs, covar);
  std::fflush(stdout);
  const double seconds = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
  dup2(kept, STDOUT_FILENO);
  close(kept);
  close(nowhere);
  return seconds;
}

// What one session takes [s].
struct taken {
  double processor = 0;
  double wall = 0;
};

taken session_seconds(const session::scratch& here, int bpms, unsigned threads) {
  const double before = children_seconds();
  const auto start = std::chrono::steady_clock::now();
  const auto run =
      session::butngain(here.path(), {"F", "exp_0.txt", fmt::format("exp_{}.txt", bpms - 1), "no"},
                        {.arguments = {"--jobs", std::to_string(threads)}});
  if (run.status != 0) {
    fmt::print(stderr, "session_bench: the session ended with status {}: {}\n", run.status,
               run.err);
    std::exit(1);
  }
  const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
  return {children_seconds() - before, wall.count()};
}

double median(std::vector<double> values) {
  std::ranges::sort(values);
  return values[values.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  const auto number = [&](int place, int otherwise) {
    return argc > place ? std::max(1, std::atoi(argv[place])) : otherwise;
  };
  const int rounds = number(1, 5);
  sim::series_setup setup;
  setup.bpms = number(2, 100);
  setup.orbits = number(3, 1000);
  const session::scratch here;
  setup.base = here.path().string();
  sim::make_series(setup);
  fill_store(setup);

  std::vector<double> fits;
  std::vector<double> sessions;
  std::vector<double> ratios;
  std::vector<double> on_all_cores;  // wall, against one thread
  for (int round = 0; round < rounds; ++round) {
    fits.push_back(fits_seconds(setup.bpms));
    const taken alone = session_seconds(here, setup.bpms, 1);
    sessions.push_back(alone.processor);
    ratios.push_back(sessions.back() / fits.back());
    on_all_cores.push_back(session_seconds(here, setup.bpms, util::all_cores()).wall / alone.wall);
  }
  fmt::print(
      "{} BPMs x {} orbits, medians of {} rounds: fits alone {:.3f} s, session {:.3f} s, ratio "
      "{:.2f}\n",
      setup.bpms, setup.orbits, rounds, median(fits), median(sessions), median(ratios));
  fmt::print("--jobs {} against --jobs 1, wall: {:.2f}\n", util::all_cores(), median(on_all_cores));
}
