#include "series.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "file_units.hpp"
#include "list_io.hpp"
#include "scratch.hpp"
#include "truth.hpp"

namespace {

using sim::series_setup;

std::string file_of(const series_setup& s, int number) {
  return scratch::content(sim::series_directory(s.base) + "/" + sim::series_file_name(number));
}

series_setup small_series(const std::string& base) {
  series_setup s;
  s.base = base;
  s.bpms = 3;
  s.orbits = 20;
  s.first = 9;
  return s;
}

struct series_line {
  double x = 0, y = 0;
  util::bounded<std::int32_t, 1, 4, "signal"> signal{};
  sim::buttons gain{};
};

// Reads a file as the session does: lines with a lower-case x are no data, ten values in a line.
std::vector<series_line> read_lines(const std::string& path) {
  const util::unit_handle file{util::lunget()};
  EXPECT_EQ(util::open_old(file.number(), path), 0);
  std::vector<series_line> lines;
  for (util::list_record record; util::read_record(file.number(), record);) {
    EXPECT_LE(record.text.size(), 300U);
    if (record.text.find('x') != std::string::npos) continue;
    series_line l;
    bool good = util::take(record, l.x) == util::taken::value &&
                util::take(record, l.y) == util::taken::value;
    for (int k = 1; k <= 4; ++k) good &= util::take(record, l.signal(k)) == util::taken::value;
    for (int k = 1; k <= 4; ++k) good &= util::take(record, l.gain(k)) == util::taken::value;
    EXPECT_TRUE(good) << record.text;
    lines.push_back(l);
  }
  return lines;
}

TEST(bpmsim_series, files_hold_what_the_model_says_and_read_back_as_lists) {
  const scratch::directory here;
  series_setup s = small_series(here.path());
  s.machine.beam.x.shape = sim::distribution::gaussian;
  sim::make_series(s);

  const auto chamber = sim::solve(s.machine.chamber);
  const auto truth = sim::read_truth(here.path());
  ASSERT_EQ(truth.size(), 3U);
  EXPECT_EQ(truth[0].name, "EXP_9");
  EXPECT_EQ(truth[2].name, "EXP_11");
  for (std::size_t i = 0; i < truth.size(); ++i) {
    const auto lines = read_lines(sim::series_directory(here.path()) + "/" +
                                  sim::series_file_name(9 + static_cast<int>(i)));
    ASSERT_EQ(lines.size(), 20U);
    for (const series_line& l : lines) {
      EXPECT_EQ(l.gain.item, truth[i].true_gain.item);
      const sim::buttons phi = sim::phi(*chamber, l.x, l.y);
      for (int k = 1; k <= 4; ++k) {
        // 24 of 360 degrees is what a centred beam gives; half a count of rounding, and the
        // position stands with ten digits.
        EXPECT_NEAR(l.signal(k), 1.5e6 * phi(k) / (24.0 / 360.0) * l.gain(k), 0.51);
      }
    }
  }
}

TEST(bpmsim_series, the_seed_and_nothing_else_decides) {
  const scratch::directory here;
  series_setup s = small_series(here / "a");
  sim::make_series(s);
  series_setup again = small_series(here / "b");
  again.bpms = 2;  // fewer BPMs leave the others as they were
  sim::make_series(again);
  EXPECT_EQ(file_of(again, 9), file_of(s, 9));
  EXPECT_EQ(file_of(again, 10), file_of(s, 10));
  EXPECT_EQ(file_of(again, 11), "");
  EXPECT_NE(file_of(s, 10), file_of(s, 9));

  series_setup other = small_series(here / "c");
  other.machine.seed = 2;
  sim::make_series(other);
  EXPECT_NE(file_of(other, 9), file_of(s, 9));
}

TEST(bpmsim_series, truth_is_found_from_every_side) {
  const scratch::directory here;
  const series_setup s = small_series(here.path());
  sim::make_series(s);
  const std::string directory = sim::series_directory(here.path());
  const auto whole = sim::read_truth(directory + "/truth.dat");
  ASSERT_EQ(sim::read_truth(directory).size(), whole.size());
  std::filesystem::remove(directory + "/truth.dat");
  const auto from_lines = sim::read_truth(directory);
  ASSERT_EQ(from_lines.size(), whole.size());
  for (std::size_t i = 0; i < whole.size(); ++i) {
    EXPECT_EQ(from_lines[i].name, whole[i].name);  // in the order of the numbers: 9 before 10
    EXPECT_EQ(from_lines[i].true_gain.item, whole[i].true_gain.item);
  }
}

TEST(bpmsim_series, impossible_series_are_named) {
  struct fault {
    void (*set)(series_setup& s);
    const char* text;
  };
  const fault faults[] = {
      {[](series_setup& s) { s.bpms = 0; }, "at least 1 BPM is needed, not 0"},
      {[](series_setup& s) { s.orbits = -5; }, "at least 1 orbit is needed, not -5"},
      {[](series_setup& s) { s.first = -1; }, "the first number must not be negative, but is -1"},
      {[](series_setup& s) { s.first = 9998; },
       "file numbers end at 9999, too low for 3 BPMs from number 9998 on"},
      {[](series_setup& s) { s.machine.beam.y.spread = -1e-3; },
       "spread in y must not be negative"},
      {[](series_setup& s) { s.machine.beam.coupling = 2; },
       "coupling must lie between -1 and 1, not 2"},
      {[](series_setup& s) {
         s.machine.beam.x.orbit = -30e-3;
         s.machine.beam.x.amplitude = 13e-3;
       },
       "closed orbit and oscillation reach 43 mm from the axis; beams must stay within 42.75 mm"}};
  for (const auto& [set, text] : faults) {
    series_setup s = small_series(".");
    set(s);
    EXPECT_EQ(sim::series_fault(s), text);
  }
}

TEST(bpmsim_series_death, what_cannot_be_made_ends_the_run_with_one_line) {
  const scratch::directory here;
  series_setup s = small_series(here.path());
  s.machine.electronics.signal = 3e9;
  EXPECT_EXIT(sim::make_series(s), testing::ExitedWithCode(1),
              "BPM 1, orbit 1: reading [0-9.e+]+ does not fit 32 bits");
  s = small_series(here.path());
  s.machine.beam.x.shape = sim::distribution::gaussian;
  s.machine.beam.x.spread = 1e9;
  EXPECT_EXIT(sim::make_series(s), testing::ExitedWithCode(1),
              "BPM 1, orbit 1: no position inside the chamber in 1000 draws");
  s = small_series("/dev/null");
  EXPECT_EXIT(sim::make_series(s), testing::ExitedWithCode(1), "cannot make directory /dev/null");
}

TEST(bpmsim_truth_death, a_damaged_truth_is_named_with_its_line) {
  const scratch::directory here;
  here.file("truth.dat", "# truth\nEXP_0 1 1 1 1 0 0 0 0\n\nEXP_1 1 1 1\n");
  EXPECT_EXIT(sim::read_truth(here.path()), testing::ExitedWithCode(1),
              "truth.dat:4: expected a BPM name, four gains and four pedestals, found "
              "\"EXP_1 1 1 1\"");
  std::filesystem::remove(here / "truth.dat");
  EXPECT_EXIT(sim::read_truth(here.path()), testing::ExitedWithCode(1), "no BPM with known gains");
}

}  // namespace
