// The BPM loop below the dialog: what only an expert reaches.
#include "bpm_loop.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

#include "bpm_data_files.hpp"
#include "file_units.hpp"
#include "gain_fit_mod.hpp"
#include "jobs.hpp"
#include "scratch.hpp"

namespace {

namespace fit = gain_fit_mod;

TEST(bpm_loop, an_expert_can_swap_two_buttons_of_one_bpm) {
  const scratch::workplace here;
  std::filesystem::create_directory("run");
  scratch::answer("y\nfirst\n1 3\n");

  for (int orbit = 1; orbit <= 20; ++orbit) {
    fit::orbit_data.edit(orbit, 5).button = {{100.0 + orbit, 210.0 - orbit, 330, 400}};
    fit::orbit_data.edit_current(orbit) = 2;
  }
  fit::bpm = 5;
  fit::bpm_names(5) = "05W";
  fit::in_file_0 = "data.dat";
  fit::expert = true;
  const auto s = std::make_unique<driver::session_state>();
  s->directory = "run";
  s->bpm_count = 120;
  s->norbits_save = 20;
  s->just_one = true;
  s->orbit_table = util::unit_handle{util::lunget()};
  util::open_output(s->orbit_table.number(), "run/orbit.dat");
  s->file_list = util::unit_handle{util::lunget()};
  util::open_output(s->file_list.number(), "run/file_list.dat");
  testing::internal::CaptureStdout();
  driver::treat_bpms(*s);
  const std::string screen = testing::internal::GetCapturedStdout();

  EXPECT_NE(screen.find("is not a pair of button numbers"), std::string::npos);
  EXPECT_EQ(fit::orbit_data(1).detector(5).button(1), 330);
  EXPECT_EQ(fit::orbit_data(20).detector(5).button(3), 120);
  EXPECT_EQ(s->plotted, 1);  // one BPM, although the loop's bound is 120
  EXPECT_EQ(s->bpm_max, 5);
  EXPECT_EQ(s->bpm_min, 5);
  double s1 = 0;  // the normalised four have a mean of 1 weighted by themselves
  double s2 = 0;
  for (int k = 1; k <= 4; ++k) {
    s1 += s->bpm_gain(k, 1);
    s2 += s->bpm_gain(k, 1) * s->bpm_gain(k, 1);
    EXPECT_EQ(s->bpm_mat(k, 1), 5);
  }
  EXPECT_NEAR(s1, s2, 1e-9 * s1);

  output::close_bpm_raw_data();
  s->orbit_table = {};
  s->file_list = {};
  fit::reset();
}

// A run that a reading ends has all BPMs before it, and of its own what came before that reading: on
// several threads as on one.
TEST(bpm_loop_death, a_reading_that_cannot_be_used_ends_the_run_in_its_turn) {
  for (const unsigned threads : {1U, 4U}) {
    SCOPED_TRACE(threads);
    const scratch::workplace here;
    std::filesystem::create_directory("run");
    for (int bpm = 1; bpm <= 6; ++bpm) {
      for (int orbit = 1; orbit <= 20; ++orbit) {
        fit::orbit_data.edit(orbit, bpm).button = {{100.0 + orbit, 210.0 - orbit, 330, 400}};
        fit::orbit_data.edit_current(orbit) = 2;
      }
      fit::bpm_names(bpm) = "B" + std::to_string(bpm);
    }
    fit::orbit_data.edit(7, 3).button(2) = 3e9;
    fit::in_file_0 = "data.dat";
    const auto s = std::make_unique<driver::session_state>();
    s->directory = "run";
    s->bpm_count = 6;
    s->norbits_save = 20;
    s->orbit_table = util::unit_handle{util::lunget()};
    util::open_output(s->orbit_table.number(), "run/orbit.dat");
    s->file_list = util::unit_handle{util::lunget()};
    util::open_output(s->file_list.number(), "run/file_list.dat");
    util::jobs = threads;
    EXPECT_EXIT(driver::treat_bpms(*s), testing::ExitedWithCode(1),
                "button 2 of BPM 3 in orbit 7 does not fit a 32-bit whole number");
    util::jobs = 1;
    EXPECT_EQ(scratch::lines_of("run/orbit.dat").size(), 2U);
    EXPECT_TRUE(std::filesystem::exists("run/B2.dat_fit"));
    EXPECT_EQ(scratch::lines_of("run/B3.dat").size(), scratch::lines_of("run/B2.dat").size() - 14);
    EXPECT_FALSE(std::filesystem::exists("run/B3.dat_fit"));
    EXPECT_FALSE(std::filesystem::exists("run/B4.dat"));
    s->orbit_table = {};
    s->file_list = {};
    fit::reset();
  }
}

}  // namespace
