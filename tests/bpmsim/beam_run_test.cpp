// A described run: what each trouble leaves in the signals, and what never changes.
#include "beam_run.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <thread>

namespace {

using sim::beam_run;
using sim::buttons;
using sim::mm;
using sim::run_signals;

run_signals made_of(const beam_run& run) {
  auto made = sim::simulate(run);
  EXPECT_TRUE(made) << util::line_of(made.why);
  return made ? *made : run_signals{};
}

// A beam at rest on the axis reads 1000 on every button in every orbit: all that differs is
// trouble.
beam_run resting() {
  beam_run run;
  run.orbits = 11;
  run.beam.x.spread = run.beam.y.spread = 0;
  run.electronics.signal = 1000;
  return run;
}

buttons all(double reading) { return {{reading, reading, reading, reading}}; }

// Readings of the first, the middle and the last orbit.
struct trouble {
  const char* what;
  void (*set)(sim::bpm_electronics& e, sim::current_law& c);
  buttons first, middle, last;
};

void late_step(sim::bpm_electronics& e, sim::current_law& /*c*/) {
  e.gain_step(2) = 0.01;
  e.gain_step_at = 0.51;
}

const buttons stepped{{1000, 1010, 1000, 1000}};
const buttons left_in{{1001, 1002, 1003, 1004}};
const trouble troubles[] = {
    {"none", [](auto&, auto&) {}, all(1000), all(1000), all(1000)},
    {"gain step", [](auto& e, auto&) { e.gain_step(2) = 0.01; }, all(1000), stepped, stepped},
    {"late gain step", late_step, all(1000), all(1000), stepped},
    {"gain drift",
     [](auto& e, auto&) { e.gain_drift(4) = -0.02; },
     all(1000),
     {{1000, 1000, 1000, 990}},
     {{1000, 1000, 1000, 980}}},
    {"current drift", [](auto&, auto& c) { c.drift = 0.1; }, all(950), all(1000), all(1050)},
    {"decay to a half", [](auto&, auto& c) { c.decay = std::log(2.0); }, all(1000),
     all(707.1067811865), all(500)},
    {"pedestals left in",
     [](auto& e, auto&) {
       e.pedestal_left.item = {1, 2, 3, 4};
     },
     left_in, left_in, left_in}};

TEST(bpmsim_beam_run, troubles_in_time_take_their_course) {
  for (const auto& [what, set, first, middle, last] : troubles) {
    SCOPED_TRACE(what);
    beam_run run = resting();
    set(run.electronics, run.beam.current);
    const run_signals made = made_of(run);
    ASSERT_EQ(made.signal.size(), 11U);
    for (int k = 1; k <= 4; ++k) {
      EXPECT_NEAR(made.signal[0](k), first(k), 1e-9);
      EXPECT_NEAR(made.signal[5](k), middle(k), 1e-9);
      EXPECT_NEAR(made.signal[10](k), last(k), 1e-9);
    }
  }
}

// The truth explains the readings: gain times intensity times the chamber's signal.
TEST(bpmsim_beam_run, truth_explains_every_reading) {
  beam_run run;
  run.orbits = 400;
  run.electronics.true_gain = {{1, 1.1, 0.9, 1.05}};
  run.electronics.pedestal = {{10, 20, 30, 40}};
  run.electronics.intensity_spread = 0.01;
  run.beam.current.walk = 1e-3;
  run.beam.current.slope_x = 2;  // 1 % at 5 mm
  run.beam.second = {0.3, 2 * mm, -3 * mm, 0.8};
  const run_signals made = made_of(run);
  const auto round = sim::solve(sim::usual_chamber());
  int second = 0;
  for (std::size_t i = 0; i < made.signal.size(); ++i) {
    const buttons phi = sim::phi(*round, made.at[i].x, made.at[i].y);
    for (int k = 1; k <= 4; ++k) {
      const double beam = made.true_gain(k) * made.intensity[i] * phi(k) / round->centred;
      EXPECT_NEAR(made.signal[i](k), (run.electronics.signal * beam) + made.pedestal(k), 1e-6);
    }
    second += made.intensity[i] < 0.9 ? 1 : 0;
  }
  EXPECT_NEAR(second, 120, 4 * 9);
}

TEST(bpmsim_beam_run, outliers_and_copies_come_as_asked) {
  beam_run run = resting();
  run.orbits = 300;
  run.electronics.outliers = 7;
  run.electronics.outlier_size = 0.05;
  int off = 0;
  for (const buttons& signal : made_of(run).signal) {
    for (const double one : signal.item) off += std::abs(std::abs(one - 1000) - 50) < 1e-9 ? 1 : 0;
  }
  EXPECT_EQ(off, 7);

  run = {};
  run.electronics.noise = 1e-3;
  run.beam.duplicated = 0.25;
  const run_signals made = made_of(run);
  int copies = 0;
  for (std::size_t i = 1; i < made.signal.size(); ++i) {
    copies += made.signal[i].item == made.signal[i - 1].item ? 1 : 0;
  }
  EXPECT_NEAR(copies, 250, 4 * std::sqrt(1000 * 0.25 * 0.75));
}

// One effect more leaves everything else as it was: runs can be compared trouble by trouble.
TEST(bpmsim_beam_run, a_trouble_leaves_the_other_numbers_alone) {
  beam_run plain;
  plain.electronics.noise = 1e-4;
  const run_signals before = made_of(plain);
  beam_run drifting = plain;
  drifting.beam.current.drift = 0.1;
  drifting.electronics.outliers = 3;
  const run_signals after = made_of(drifting);
  for (std::size_t i = 0; i < before.at.size(); ++i) {
    EXPECT_EQ(after.at[i].x, before.at[i].x);
    EXPECT_EQ(after.at[i].y, before.at[i].y);
  }
}

TEST(bpmsim_beam_run, threads_get_the_bits_of_a_single_one) {
  beam_run run;
  run.chamber = sim::solve(sim::usual_chamber());
  run.electronics.noise = 1e-4;
  const run_signals alone = made_of(run);
  std::array<run_signals, 4> made;
  std::vector<std::thread> threads;
  for (run_signals& one : made) {
    threads.emplace_back([&run, &one] { one = *sim::simulate(run); });
  }
  for (std::thread& t : threads) t.join();
  for (const run_signals& one : made) {
    for (std::size_t i = 0; i < alone.signal.size(); ++i) {
      ASSERT_EQ(one.signal[i].item, alone.signal[i].item);
    }
  }
}

const auto& arc() {
  static const auto solved = sim::solve(chamber_solver::default_chamber_at(1));
  return solved;
}

TEST(bpmsim_beam_run, impossible_runs_are_faults_not_endings) {
  struct wrong {
    void (*set)(beam_run& run);
    const char* line;
  };
  const wrong all[] = {
      {[](beam_run& r) { r.orbits = 0; }, "run: 0 orbits, expected at least 1"},
      {[](beam_run& r) { r.beam.x.orbit = 44 * mm; },
       "BPM 1: closed orbit and oscillation reach 44 mm from the axis; beams must stay within "
       "42.75 "
       "mm"},
      {[](beam_run& r) {
         r.chamber = arc();
         r.beam.y.orbit = 20 * mm;
         r.beam.y.amplitude = 4 * mm;
       },
       "BPM 1: closed orbit and oscillation reach (0, 24) mm; beams must stay within 0.95 of the "
       "way "
       "to the wall"},
      {[](beam_run& r) { r.beam.current.drift = 2; },
       "BPM 1: drift of the current must lie between -1.9 and 1.9, not 2"},
      {[](beam_run& r) {
         r.beam.x.shape = sim::distribution::gaussian;
         r.beam.x.spread = 1e9;
       },
       "BPM 1, orbit 1: no position inside the chamber in 1000 draws; the spread is too large"}};
  for (const auto& [set, line] : all) {
    beam_run run;
    set(run);
    const auto made = sim::simulate(run);
    ASSERT_FALSE(made);
    EXPECT_EQ(util::line_of(made.why), line);
  }
}

}  // namespace
