// Positions of whole runs: what the simulator's beam did comes back through the tables.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "nonlin_bpm_mod.hpp"
#include "raw.hpp"
#include "scratch.hpp"
#include "tables.hpp"
#include "tbt_mod.hpp"

namespace {

// Every BPM stands in the chamber of its table: 48W and 49E in the round one, 20W in the arcs', X5C in
// the narrow one. 29E (index 70) counts its turns one later: only its last, a zero, is known.
TEST(tbt_positions, of_corrected_turns_are_the_beams) {
  const scratch::workplace root;
  ASSERT_TRUE(sim::make_tables({"machine_data/meas/orbit/nonlin_bpm", false, {}}));
  scratch::write("machine_data/meas/orbit/offset.bpm", "48  -0.5  2.0\n");  // vertical, horizontal

  sim::raw_setup s = sim::usual_raw_setup();
  s.tree = root.path();
  s.names = "48W,49E,29E,20W,X5C";
  s.turns = 30;
  s.bunches = 2;
  s.machine.electronics.gain_spread = 0;  // coefficients and pedestals stand in the file
  s.machine.source = sim::chamber_source::own;
  sim::prepare(s.machine);
  sim::make_raw_files(s);

  tbt_mod::tbt_all_data_struct tbt;
  bool err = true;
  testing::internal::CaptureStdout();
  tbt_mod::tbt_read_data_file(s.run, 3, true, tbt, err);
  testing::internal::GetCapturedStdout();
  ASSERT_FALSE(err);
  const struct {
    int index;
    int bpm;  // of the simulator
    double offset_x;
    double offset_y;
  } bpms[] = {{48, 1, 0.002, -0.0005}, {50, 2, 0, 0}, {20, 4, 0, 0}, {1, 5, 0, 0}};
  for (const auto& [index, bpm, offset_x, offset_y] : bpms) {
    for (int bunch = 1; bunch <= 2; ++bunch) {
      sim::monitor at = sim::make_monitor(s.machine, {bpm, bunch - 1, s.turns, index});
      const auto& turns = tbt_mod::bunch_at(tbt, bunch).bpm(index).turn;
      ASSERT_EQ(turns.size(), 30U);
      for (const auto& turn : turns) {
        const sim::passage p = sim::next_passage(s.machine, at);
        EXPECT_NEAR(turn.x, p.at.x - offset_x, 10e-6);  // readings are whole numbers near 20000
        EXPECT_NEAR(turn.y, p.at.y - offset_y, 10e-6);
      }
    }
  }
  const auto& late = tbt_mod::bunch_at(tbt, 1).bpm(70).turn;
  EXPECT_EQ(late.back().x, 0);
  EXPECT_EQ(late.back().y, 0);
  EXPECT_NE(late.front().x, 0);
}

}  // namespace
