// The library is the rooms' work: same bits, faults as exceptions, nothing that a user can break.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "beam_run.hpp"
#include "butngain/butngain.hpp"
#include "calibration.hpp"
#include "four_fits.hpp"
#include "scratch_fixture.hpp"
#include "table_maker.hpp"

namespace {

using butngain::error_kind;

butngain::simulation usual_run() {
  butngain::simulation run;
  run.electronics.gain = {1.04, 0.97, 1.01, 0.93};
  run.electronics.noise = 1e-4;
  run.orbits = 400;
  return run;
}

const butngain::table& round_table() {
  static const auto made = butngain::table_of(butngain::default_chamber("round"));
  return made;
}

TEST(library, simulation_and_fits_are_those_of_the_rooms_to_the_last_bit) {
  butngain::simulation run = usual_run();
  run.beam.x = {.gaussian = true, .spread = 2e-3, .orbit = 1e-3, .amplitude = 1e-3};
  run.beam.current.drift = 0.01;
  run.beam.second = {.part = 0.1, .x = 1e-3, .y = -1e-3, .current = 0.9};
  run.electronics.pedestal = {10, 20, 30, 40};
  run.electronics.pedestal_left = {1, 2, 3, 4};
  run.electronics.gain_drift = {0.01, 0, 0, 0};
  run.electronics.cable_of = {1, 0, 2, 3};
  run.electronics.outliers = 3;
  run.seed = 7;
  run.bpm = 3;
  const auto made = butngain::simulate(run);

  sim::beam_run same;
  same.beam.x = {
      .shape = sim::distribution::gaussian, .spread = 2e-3, .orbit = 1e-3, .amplitude = 1e-3};
  same.beam.current.drift = 0.01;
  same.beam.second = {0.1, 1e-3, -1e-3, 0.9};
  same.electronics.true_gain = {run.electronics.gain};
  same.electronics.noise = 1e-4;
  same.electronics.pedestal = {{10, 20, 30, 40}};
  same.electronics.pedestal_left = {{1, 2, 3, 4}};
  same.electronics.gain_drift = {{0.01, 0, 0, 0}};
  same.electronics.cable_of = {{2, 1, 3, 4}};
  same.electronics.outliers = 3;
  same.orbits = 400;
  same.seed = 7;
  same.bpm = 3;
  const auto expected = sim::simulate(same);
  ASSERT_TRUE(expected);
  ASSERT_EQ(made.readings.size(), expected->signal.size());
  std::vector<gain_fit_mod::signals> readings;
  for (std::size_t i = 0; i < made.readings.size(); ++i) {
    ASSERT_EQ(made.readings[i], expected->signal[i].item) << i;
    readings.push_back({made.readings[i]});
  }
  EXPECT_EQ(made.mean_gain, expected->mean_gain.item);
  EXPECT_EQ(made.pedestal, expected->pedestal.item);

  const auto fits = butngain::fit(made.readings);
  const auto of_rooms = gain_fit_mod::fit_readings(readings);
  for (std::size_t k = 0; k < 4; ++k) {
    EXPECT_EQ(fits.held.at(k).multiplier, of_rooms.fit.at(k).gain.item);
    EXPECT_EQ(fits.held.at(k).covariance[6][5], of_rooms.fit.at(k).covariance(7, 6));
    EXPECT_EQ(fits.held.at(k).chi_square, of_rooms.fit.at(k).chisq);
  }
}

TEST(library, gains_are_of_buttons_and_multipliers_correct_them) {
  const auto made = butngain::simulate(usual_run());
  const auto fits = butngain::fit(made.readings);
  double product = 1;
  for (std::size_t k = 0; k < 4; ++k) {
    product *= fits.gain.at(k);
    EXPECT_NEAR(fits.gain.at(k) / fits.gain[0], made.gain.at(k) / made.gain[0], 2e-3);
    EXPECT_NEAR(fits.gain.at(k) * fits.multiplier.at(k), fits.gain[0] * fits.multiplier[0], 1e-12);
  }
  EXPECT_NEAR(product, 1, 1e-12);
}

TEST(library, calibration_is_that_of_the_room_alone_and_many_at_once) {
  const auto made = butngain::simulate(usual_run());
  butngain::calibration_input input{.readings = made.readings,
                                    .set_start = {},
                                    .chamber_table = round_table(),
                                    .sigma_p = butngain::pedestals_subtracted,
                                    .tolerance = 1e-5};
  const auto alone = butngain::calibrate(input);

  const auto table = chamber_solver::table_of(sim::usual_chamber());
  std::array<std::vector<double>, 4> column;
  for (const auto& reading : made.readings) {
    for (std::size_t k = 0; k < 4; ++k) column.at(k).push_back(reading.at(k));
  }
  calibration::bpm_run run{.signal = {column[0], column[1], column[2], column[3]},
                           .set_start = {},
                           .table = &*table,
                           .sigma_p = calibration::pedestals_subtracted,
                           .tolerance = 1e-5,
                           .fits = {}};
  const auto expected = calibration::calibrate(run);
  EXPECT_EQ(alone.gain, expected.t.item);
  EXPECT_EQ(butngain::line_of(alone.verdict), calibration::text_of(expected.verdict));
  EXPECT_EQ(alone.steady.chi_square_v, expected.steady.chi_square_v);
  EXPECT_EQ(alone.wide.pedestal_covariance[1][2], expected.wide.pedestal_covariance(2, 3));
  EXPECT_EQ(alone.mechanical_error, expected.E_mech);
  ASSERT_EQ(alone.place.size(), expected.place.size());
  EXPECT_EQ(alone.place[5].x, expected.place[5].x);
  ASSERT_TRUE(alone.fits_verdict);

  const std::vector<butngain::calibration_input> inputs(7, input);
  std::size_t last = 0;
  const auto many = butngain::calibrate_many(inputs, 3, [&last](std::size_t done, std::size_t of) {
    EXPECT_GE(done, last);
    EXPECT_EQ(of, 7);
    last = done;
    return true;
  });
  EXPECT_EQ(last, 7);
  for (const auto& one : many) EXPECT_EQ(one.gain, alone.gain);
}

// A beam at a known place; the table is made, not read.
TEST(library, positions_and_signals_are_each_other_s_inverse) {
  const auto table = butngain::table_of(butngain::default_chamber("bpm_arc"));
  const auto beam = butngain::signals_at(table, 4e-3, -3e-3);
  const auto found = butngain::find_position(table, beam);
  EXPECT_NEAR(found.x, 4e-3, 1e-12);
  EXPECT_NEAR(found.y, -3e-3, 1e-12);
  const std::vector<butngain::signals> readings{beam, {0, 0, 0, 0}};
  const auto all =
      butngain::find_positions(table, readings, {.multiplier = {1, 1, 1, 1}, .bad_button = 2});
  EXPECT_NEAR(all[0].x, 4e-3, 1e-9);  // three buttons say as much
  EXPECT_EQ(all[1].fault, butngain::position_fault::unusable_signals);
}

struct fault_case {
  const char* what;
  error_kind kind;
  const char* line;  ///< what its line begins with
  std::function<void()> work;
};

using library_faults = scratch::fixture;

TEST_F(library_faults, are_thrown_and_name_file_or_argument) {
  std::ofstream("bad.table") << "nonlin_bpm_table 1\nname x\nunits feet\n";
  std::ofstream("bad.chamber") << "nonlin_bpm_chamber 1\nname x\ncontour cube 3\n";
  const std::vector<butngain::signals> readings(10, {1, 1, 1, 1});
  const std::array<int, 2> descending{5, 2};
  const auto calibrate = [&](const std::function<void(butngain::calibration_input&)>& change) {
    butngain::calibration_input input;
    input.readings = readings;
    input.chamber_table = round_table();
    change(input);
    butngain::calibrate_many({&input, 1});
  };
  const auto simulate = [](const std::function<void(butngain::simulation&)>& change) {
    butngain::simulation run;
    change(run);
    butngain::simulate(run);
  };
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const fault_case cases[] = {
      {"no raw file", error_kind::file, "nowhere.dat: No such file",
       [] { butngain::read_raw("nowhere.dat"); }},
      {"not a raw file", error_kind::file, "bad.table: ", [] { butngain::read_raw("bad.table"); }},
      {"no table", error_kind::file, "nowhere.table: No such file",
       [] { butngain::read_table("nowhere.table"); }},
      {"a bad table", error_kind::file, "", [] { butngain::read_table("bad.table"); }},
      {"a bad chamber", error_kind::file, "bad.chamber:3",
       [] { butngain::read_chamber("bad.chamber"); }},
      {"no such chamber", error_kind::argument, "name: no default chamber",
       [] { butngain::default_chamber("bpm_49"); }},
      {"a pipe without radius", error_kind::argument,
       "pipe: ", [] { butngain::round_chamber({.radius = 0}); }},
      {"an empty table", error_kind::argument, "table: has no contents",
       [] {
         butngain::find_position({}, {1, 1, 1, 1});
       }},
      {"a place beyond the table", error_kind::argument,
       "x, y: ", [] { butngain::signals_at(round_table(), 1, 0); }},
      {"no readings", error_kind::argument, "readings: ", [] { butngain::fit({}); }},
      {"data sets out of order", error_kind::argument, "inputs[0].set_start: 2",
       [&] { calibrate([&](auto& input) { input.set_start = descending; }); }},
      {"pedestals known to nan", error_kind::argument, "inputs[0].sigma_p: nan",
       [&] { calibrate([&](auto& input) { input.sigma_p = nan; }); }},
      {"no table to calibrate by", error_kind::argument, "inputs[0].chamber_table: ",
       [&] { calibrate([&](auto& input) { input.chamber_table = {}; }); }},
      {"a beam in the wall", error_kind::argument, "BPM 1: closed orbit",
       [&] { simulate([](auto& run) { run.beam.x.orbit = 1; }); }},
      {"more outliers than orbits", error_kind::argument, "electronics.outliers: ",
       [&] { simulate([](auto& run) { run.electronics.outliers = 1001; }); }},
      {"a cable to a fifth button", error_kind::argument, "electronics.cable_of: ",
       [&] { simulate([](auto& run) { run.electronics.cable_of[1] = 4; }); }},
      {"no orbits", error_kind::argument, "orbits: 0",
       [&] { simulate([](auto& run) { run.orbits = 0; }); }},
  };
  for (const auto& [what, kind, line, work] : cases) {
    SCOPED_TRACE(what);
    try {
      work();
      ADD_FAILURE() << "nothing thrown";
    } catch (const butngain::error& wrong) {
      EXPECT_EQ(wrong.kind, kind) << wrong.what();
      EXPECT_EQ(std::string{wrong.what()}.rfind(line, 0), 0) << wrong.what();
    }
  }
}

// Whoever waits can end the wait: by an answer, or by an exception of his own.
TEST(library, progress_stops_long_work) {
  const auto stop = [](std::size_t, std::size_t) { return false; };
  struct impatience {};
  const auto run = usual_run();
  const auto made = butngain::simulate(run);
  const std::vector<butngain::calibration_input> inputs(
      50, {.readings = made.readings, .set_start = {}, .chamber_table = round_table()});
  for (const auto& work : std::vector<std::function<void(const butngain::progress&)>>{
           [&](const auto& tell) { butngain::simulate(run, tell); },
           [&](const auto& tell) { butngain::calibrate_many(inputs, 2, tell); },
           [&](const auto& tell) {
             butngain::table_of(butngain::default_chamber("bpm_arc"), tell);
           }}) {
    try {
      work(stop);
      ADD_FAILURE() << "not stopped";
    } catch (const butngain::error& stopped) {
      EXPECT_EQ(stopped.kind, error_kind::stopped);
    }
    EXPECT_THROW(work([](std::size_t, std::size_t) -> bool { throw impatience{}; }), impatience);
  }
}

// One handle on several threads, solved by whichever comes first.
TEST(library, chambers_and_tables_are_shared_by_threads) {
  const auto chamber = butngain::default_chamber("bpm_48");
  butngain::simulation run = usual_run();
  run.where = chamber;
  run.orbits = 20;
  const auto expected = butngain::simulate(run).readings;
  const auto fresh = butngain::default_chamber("bpm_48");
  run.where = fresh;
  std::atomic<int> same = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] { same += butngain::simulate(run).readings == expected ? 1 : 0; });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(same, 4);
}

}  // namespace
