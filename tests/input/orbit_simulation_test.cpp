// What the simulator writes, read by the session's readers.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>

#include "file_units.hpp"
#include "gain_fit_mod.hpp"
#include "gain_template.hpp"
#include "get_orbit_data.hpp"
#include "orbits.hpp"
#include "scratch.hpp"
#include "template_file.hpp"
#include "text.hpp"

namespace {

namespace fit = gain_fit_mod;

// A small noiseless machine with equal buttons, so that signals tell the position.
sim::orbits_setup small_orbits() {
  sim::orbits_setup s = sim::default_orbits();
  s.archive = util::fullfilename(s.archive);
  s.list = "steering.cal";
  s.orbits = 5;
  s.first = 99998;
  s.bpms = 12;
  s.machine.beam.x.amplitude = 0.1 * sim::mm;  // small: difference over sum is linear there
  s.machine.beam.y.amplitude = 0.1 * sim::mm;
  s.machine.electronics.gain_spread = 0;
  s.machine.electronics.signal = 1e9;  // rounding far below the nonlinearity
  return s;
}

double horizontal(int orbit, int bpm) {
  const auto& b = fit::orbit_data(orbit).detector(bpm).button;
  return (b(2) + b(4) - b(1) - b(3)) / (b(1) + b(2) + b(3) + b(4));
}

void read_orbits(const std::string& answers) {
  fit::reset();
  scratch::answer(answers);
  testing::internal::CaptureStdout();
  input::get_orbit_data();
  EXPECT_NE(testing::internal::GetCapturedStdout().find(" Data written to file "),
            std::string::npos);
}

TEST(simulated_orbits, are_oscillations_frozen_in_time) {
  const scratch::workplace here;
  const sim::orbits_setup s = small_orbits();
  sim::make_orbits(s);
  read_orbits("\n11\n");
  EXPECT_EQ(fit::bpm, 12);
  EXPECT_EQ(fit::norbits, 5);
  // x(m-1) + x(m+1) = 2 cos(advance) x(m) holds for every oscillation, whatever its amplitude and
  // phase. X is a few 1e-3 here; its nonlinear part is a few 1e-9 of the pipe's radius.
  const double factor = 2 * std::cos(s.machine.beam.x.advance);
  double largest = 0;
  for (int orbit = 1; orbit <= 5; ++orbit) {
    EXPECT_EQ(fit::orbit_data(orbit).current(), 10);
    for (int bpm = 2; bpm <= 11; ++bpm) {
      EXPECT_NEAR(horizontal(orbit, bpm - 1) + horizontal(orbit, bpm + 1),
                  factor * horizontal(orbit, bpm), 1e-7);
      largest = std::max(largest, std::abs(horizontal(orbit, bpm)));
    }
  }
  EXPECT_GT(largest, 1e-3);
  EXPECT_GT(std::abs(horizontal(1, 1) - horizontal(2, 1)), 1e-5);
}

TEST(simulated_orbits, list_file_names_them_in_pairs) {
  const scratch::workplace here;
  sim::orbits_setup s = small_orbits();
  s.no_currents = true;
  sim::make_orbits(s);
  read_orbits("steering.cal\n1\n");
  EXPECT_EQ(fit::norbits, 4);  // the fifth has no partner
  EXPECT_EQ(fit::orbit_data(4).current(), 1);
  EXPECT_NE(horizontal(4, 12), 0);
}

TEST(simulated_template, range_0_of_block_0_holds_the_true_gains) {
  const scratch::workplace here;
  sim::template_setup t;
  t.electronics.gains = {{11, 3, 0.75}};
  sim::make_template(t);
  struct tables {
    gain_template::file_name file{"gain_template.txt"};
    gain_template::comment_list comments;
    gain_template::gain_table0 table0;
    gain_template::gain_table1 table1;
  };
  const auto read = std::make_unique<tables>();
  gain_template::read_kbpmii_button_gain(read->file, read->comments, read->table0, read->table1);
  EXPECT_EQ(read->comments(1).trimmed(), "Simulated gains of 120 BPMs");
  EXPECT_EQ(gain_template::bpm_number("12E"), 87);
  EXPECT_EQ(read->table1(120).label.trimmed(), "B120");

  // Button TI is card 0, and button 3 of the store.
  EXPECT_EQ(read->table0(11).button(0).range(0), 0.75);
  const sim::buttons gain = sim::make_electronics(t.electronics, t.seed, 87).true_gain;
  const int card_of[] = {1, 2, 0, 3};
  for (int k = 1; k <= 4; ++k) {
    const int card = card_of[k - 1];
    EXPECT_NEAR(read->table0(87).button(card).range(0), gain(k), 5e-7);    // six decimals
    EXPECT_NEAR(read->table1(87).button(card).range(10), gain(k), 0.015);  // five times the spread
  }
}

TEST(simulated_orbits, what_cannot_be_made_is_refused) {
  sim::orbits_setup s = sim::default_orbits();
  EXPECT_EQ(sim::orbits_fault(s), "");
  s.orbits = 1001;
  EXPECT_EQ(sim::orbits_fault(s), "a command file lists 1 to 1000 orbits, not 1001");
  s = sim::default_orbits();
  s.bpms = 101;
  EXPECT_EQ(sim::orbits_fault(s), "a button file holds 1 to 100 BPMs, not 101");
  s = sim::default_orbits();
  s.machine.beam.x.amplitude = 60 * sim::mm;
  EXPECT_NE(sim::orbits_fault(s), "");
}

}  // namespace
