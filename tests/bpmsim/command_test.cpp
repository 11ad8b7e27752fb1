// The program itself: what a shell sees of it.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "scratch.hpp"

namespace {

struct outcome {
  int status = -1;
  std::string out;
  std::string err;
};

outcome bpmsim(const scratch::directory& here, const std::string& arguments) {
  const std::string line =
      "cd " + here.path().string() + " && " BPMSIM " " + arguments + " >out 2>err";
  const int ended = std::system(line.c_str());  // NOLINT(*-env33-c): the shell is the point
  return {WIFEXITED(ended) ? WEXITSTATUS(ended) : -1, scratch::content(here / "out"),
          scratch::content(here / "err")};
}

TEST(bpmsim_program, unusable_options_are_told_in_one_line_with_status_2) {
  const scratch::directory here;
  struct wrong {
    const char* arguments;
    const char* text;
  };
  const wrong all[] = {
      {"", "A subcommand is required"},
      {"serie --bpms 3", "no subcommand \"serie\""},
      {"series --bpm 3", "--bpm"},
      {"series --bpms", "--bpms"},
      {"series --bpms three", "--bpms: expected a whole number, found \"three\""},
      {"series --bpms 0", "at least 1 BPM is needed, not 0"},
      {"series --spread nan", "--spread: expected a number, found \"nan\""},
      {"series --spread -5", "spread in x must not be negative"},
      {"series --spread 1 2 3", "3"},
      {"series --orbit 40 -.5e2", "closed orbit and oscillation reach"},
      {"series --shape round", "--shape: expected one of uniform, gaussian, found \"round\""},
      {"series --seed -1", "--seed: expected a whole number from 0"},
      {"series --dead 3", "--dead: expected BPM:BUTTON"},
      {"series --gain 3:1", "--gain: expected BPM:BUTTON:VALUE, found \"3:1\""},
      {"series --real-azimuth 5:1",
       "--real-azimuth: expected BUTTON:mm, the button 1 to 4, found \"5:1\""},
      {"series --real-width 4", "chamber round: buttons 1 and 2 overlap"},
      {"series --swapped 1:2:2", "swapped button: 2 is no other button than 2 of BPM 1"},
      {"table chamber", "table_file is required"},
      {"compare truth.dat", "result is required"}};
  for (const auto& [arguments, text] : all) {
    SCOPED_TRACE(arguments);
    const outcome o = bpmsim(here, arguments);
    EXPECT_EQ(o.status, 2);
    EXPECT_EQ(o.out, "");
    EXPECT_EQ(o.err.rfind("bpmsim: ", 0), 0U) << o.err;
    EXPECT_NE(o.err.find(text), std::string::npos) << o.err;
    EXPECT_EQ(o.err.find('\n'), o.err.size() - 1) << o.err;
  }
  EXPECT_FALSE(std::filesystem::exists(here / "inputs_1000random_xy_and_timing_offset"));
}

TEST(bpmsim_program, help_and_version_are_no_error) {
  const scratch::directory here;
  for (const char* arguments : {"--help", "series --help", "compare -h", "--version"}) {
    const outcome o = bpmsim(here, arguments);
    EXPECT_EQ(o.status, 0) << arguments;
    EXPECT_EQ(o.err, "");
    EXPECT_FALSE(o.out.empty());
  }
}

TEST(bpmsim_program, accuracy_and_battery_show_both_methods) {
  const scratch::directory here;
  const outcome one = bpmsim(here, "accuracy --bpms 1 --orbits 100 --noise 1e-4 --pulls pulls");
  EXPECT_EQ(one.status, 0) << one.err;
  for (const char* text : {" between fits ", "\ncalibration: worst ", ", limit of the noise ",
                           "\nverdicts: 1 determined, 0 weak"}) {
    EXPECT_NE(one.out.find(text), std::string::npos) << text << " in " << one.out;
  }
  const std::string pulls = scratch::content(here / "pulls");
  EXPECT_EQ(std::count(pulls.begin(), pulls.end(), '\n'), 4) << pulls;  // a title, three ratios

  const outcome battery = bpmsim(here, "battery --only dead --bpms 2");
  EXPECT_EQ(battery.status, 0) << battery.err;
  EXPECT_NE(battery.out.find("suspect: button 3: no signal\n"), std::string::npos) << battery.out;
  EXPECT_EQ(bpmsim(here, "battery --bpms 0").status, 2);
}

TEST(bpmsim_program, options_reach_the_series_in_their_units) {
  const scratch::directory here;
  const outcome o = bpmsim(here,
                           "series --dir deep/er --bpms 2 --orbits 5 --first 99 --spread 0 "
                           "--orbit 2 -1.5 --gain 1:1:0.75 2:4:1.25 --dead 2:1 --gain-spread 0 "
                           "--amplitude 1 0 --tune 0.5 --radius 30 --signal 1000000");
  ASSERT_EQ(o.status, 0) << o.err;
  const std::string directory = here / "deep/er/inputs_1000random_xy_and_timing_offset";
  const std::string first = scratch::content(directory + "/exp_99.txt");
  EXPECT_NE(first.find("\n  3.000000000e-03 -1.500000000e-03 "), std::string::npos) << first;
  EXPECT_NE(first.find("\n  1.000000000e-03 -1.500000000e-03 "), std::string::npos) << first;
  const std::string second = scratch::content(directory + "/exp_100.txt");
  EXPECT_NE(second.find("e-03           0 "), std::string::npos) << second;
  const std::string truth = scratch::content(directory + "/truth.dat");
  EXPECT_NE(truth.find("round pipe of radius 30 mm"), std::string::npos);
  EXPECT_NE(truth.find("EXP_100"), std::string::npos);
  EXPECT_NE(truth.find(" 1.25 "), std::string::npos);
}

// Each trouble by its option: it reaches the readings, and the truth names it.
TEST(bpmsim_program, every_trouble_is_an_option_and_stands_in_the_truth) {
  const scratch::directory here;
  const std::string directory = here / "inputs_1000random_xy_and_timing_offset";
  const auto series = [&](const std::string& options) {
    const outcome o = bpmsim(here, "series --bpms 1 --orbits 40 --noise 1e-4 " + options);
    EXPECT_EQ(o.status, 0) << o.err;
    return scratch::content(directory + "/exp_0.txt");
  };
  struct trouble {
    const char* options;
    const char* truth;
  };
  const trouble all[] = {
      {"--chamber bpm_arc", "chamber = bpm_arc, 90 by 50 mm"},
      {"--chamber own", "chamber = each BPM's own"},
      {"--real-width 1.1", "beam_chamber = that, but buttons 1.1 times as wide"},
      {"--real-angle 1.5", "buttons 1.5 degrees further from the x axis"},
      {"--real-azimuth 3:0.1", "button 3 0.1 mm further along the wall"},
      {"--real-button disc", "that, but discs"},
      {"--real-ellipse 0.03", "wider and lower by the fraction 0.03"},
      {"--real-radius 0.01", "larger by the fraction 0.01"},
      {"--gain-step 1:2:0.01 --gain-step-at 0.25", "gain_step_at = 0.25 of the run"},
      {"--gain-drift 1:4:-0.005", "gain_drift = BPM 1 button 4 by -0.005"},
      {"--current-drift 0.1", "current_drift = 0.1 over the run"},
      {"--current-decay 0.1", "current_decay = 0.1 over the run"},
      {"--current-walk 1e-3", "current_walk = 0.001 a step"},
      {"--current-slope 2e-5 0", "current_slope = 2e-05 0 per mm"},
      {"--intensity-spread 0.01", "intensity_spread = 0.01"},
      {"--saturated 1:2:1.05", "saturated = BPM 1 button 2 at 1.05"},
      {"--compression 0.05", "compression = 0.05"},
      {"--compressed 1:3:0.05", "compressed = BPM 1 button 3 by 0.05"},
      {"--cross-talk 0.01", "cross_talk = 0.01"},
      {"--stuck 1:2:0.9", "stuck = BPM 1 button 2 by 0.9"},
      {"--swapped 1:2:3", "swapped = BPM 1 button 2 by 3"},
      {"--adc-bits 12", "adc_bits = 12"},
      {"--duplicated 0.5", "duplicated = 0.5"},
      {"--second 0.5 --second-orbit 2 -1 --second-current 0.7",
       "second_population = 0.5 of the orbits, 2 -1 mm away, 0.7 of the current"},
      {"--outliers 3 --outlier-size 0.2", "outliers = 3 by 0.2 of signal"},
      {"--pedestal-left 3e-3", "# pedestals left in: EXP_0"},
      {"--spread 5 0", "beam_y = uniform 0 mm"},
      {"--spread 0", "beam_x = uniform 0 mm"}};
  const std::string plain = series("");
  for (const auto& [options, truth] : all) {
    SCOPED_TRACE(options);
    EXPECT_NE(series(options), plain);
    const std::string told = scratch::content(directory + "/truth.dat");
    EXPECT_NE(told.find(truth), std::string::npos) << told;
  }
  EXPECT_EQ(series("--passages"), plain);
  const auto passages = scratch::lines_of(directory + "/truth.dat.passages");
  ASSERT_EQ(passages.size(), 41U);
  // The place is the one in the series' own line: both begin with it.
  const std::string place = scratch::lines_of(directory + "/exp_0.txt").at(40).substr(2, 32);
  EXPECT_NE(passages[40].find(place), std::string::npos) << passages[40] << place;
}

TEST(bpmsim_program, chambers_without_a_table_are_told_in_one_line_with_status_1) {
  const scratch::directory here;
  here.file("exchanged",
            "nonlin_bpm_chamber 1\nname e\nunits mm\ncontour circle 20\nbutton 1 14 -14 8 strip\n"
            "button 2 -14 -14 8 strip\nbutton 3 -14 14 8 strip\nbutton 4 14 14 8 strip\n"
            "x_grid 21 -15 15\ny_grid 21 -15 15\nmargin 3\nsolver 8 16 2\nend\n");
  here.file("torn", "nonlin_bpm_chamber 1\nunits feet\n");
  const std::pair<const char*, const char*> all[] = {
      {"table exchanged e.table", "table of chamber e: button 1 does not grow towards its own"},
      {"table torn t.table", "bpmsim: torn:2: expected units m or mm, found feet"},
      {"series --chamber torn", "torn:2: expected units"},
      {"series --chamber none", "cannot open none: No such file"}};
  for (const auto& [arguments, text] : all) {
    SCOPED_TRACE(arguments);
    const outcome o = bpmsim(here, arguments);
    EXPECT_EQ(o.status, 1);
    EXPECT_EQ(o.err.rfind("bpmsim: ", 0), 0U) << o.err;
    EXPECT_NE(o.err.find(text), std::string::npos) << o.err;
    EXPECT_EQ(o.err.find('\n'), o.err.size() - 1) << o.err;
  }
  EXPECT_FALSE(std::filesystem::exists(here / "e.table"));
}

// A second tree on the same place, with another chamber: what a site may have put there stays.
TEST(bpmsim_program, a_tree_leaves_tables_that_stand_there_and_says_so) {
  const scratch::directory here;
  const std::string folder = here / "t/online/machine_data/meas/orbit/nonlin_bpm";
  here.file("t/online/machine_data/meas/orbit/nonlin_bpm/button_coeff.dat", "a site's own\n");
  const outcome o = bpmsim(here, "tree t --bpms 3 --turns 4 --chamber own --passages");
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.err,
            "bpmsim: t/online/machine_data/meas/orbit/nonlin_bpm/button_coeff.dat: left as "
            "it is; --replace makes it anew\n");
  EXPECT_EQ(scratch::content(folder + "/button_coeff.dat"), "a site's own\n");
  EXPECT_TRUE(std::filesystem::exists(folder + "/bpm_arc.table"));
  // Three BPMs, four turns, in the bunch with beam.
  EXPECT_EQ(scratch::lines_of(here / "t/online/kbpmII/raw/04/RD-004567.truth.passages").size(),
            13U);
}

}  // namespace
