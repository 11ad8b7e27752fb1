// What a session makes of its gains with the table of the chamber: the verdict on standard error and
// in the fitted-data files.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "session_harness.hpp"

namespace {

using session::contains;

const std::string ellipse =
    "nonlin_bpm_chamber 1\nname ellipse\nunits mm\ncontour ellipse 45 30\n"
    "button 1 -20 -26.87 12 strip\nbutton 2 20 -26.87 12 strip\n"
    "button 3 -20 26.87 12 strip\nbutton 4 20 26.87 12 strip\n"
    "x_grid 61 -30 30\ny_grid 41 -20 20\nmargin 4\nend\n";

std::string verdict_line(const session::scratch& here, const std::string& bpm) {
  const auto lines =
      session::lines_of(session::read_file(here.run_directory() / (bpm + ".dat_fit")));
  for (const std::string& line : lines) {
    for (const char* word : {"# determined", "# weak", "# suspect", "# not determined"}) {
      if (line.starts_with(word)) return line;
    }
  }
  return "no verdict";
}

// Two BPMs in an ellipse, 5 mm off its axis: only its own table, or one made of it, is good there.
TEST(calibration_session, a_series_is_judged_in_the_chamber_that_was_given) {
  const session::scratch here;
  session::write_file(here.path() / "ellipse.chamber", ellipse);
  session::simulate(here.path(),
                    "series --bpms 2 --orbits 400 --chamber ellipse.chamber --orbit 4 3 "
                    "--noise 1e-4");
  session::simulate(here.path(), "table ellipse.chamber ellipse.table");
  const struct {
    std::vector<std::string> arguments;
    const char* word;
    bool stand_in;
  } cases[] = {{{}, "# weak: the table is not this chamber's own", true},
               {{"--chamber", "ellipse.chamber"}, "# determined; error 0.000", false},
               {{"--chamber", "ellipse.table"}, "# determined; error 0.000", false}};
  for (const auto& [arguments, word, stand_in] : cases) {
    SCOPED_TRACE(word);
    std::filesystem::remove_all(here.run_directory());
    const auto run = session::butngain(here.path(), {"F", "exp_0.txt", "exp_1.txt", "no"},
                                       {.arguments = arguments});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(verdict_line(here, "EXP_1").starts_with(word)) << verdict_line(here, "EXP_1");
    EXPECT_EQ(contains(run.err, "calibrated as in a round pipe"), stand_in) << run.err;
    // The gains beside the word are those that the simulator put in: the series' columns 7 to 10.
    if (stand_in) continue;
    const std::string line = verdict_line(here, "EXP_1");
    const std::size_t from = line.find("button gains");
    const auto t = session::numbers_of(line.substr(from, line.find(';', from) - from));
    const auto rows = session::lines_of(
        session::read_file(here.path() / "inputs_1000random_xy_and_timing_offset" / "exp_1.txt"));
    const auto truth = session::numbers_of(rows.back());
    ASSERT_GE(t.size(), 4U);
    ASSERT_EQ(truth.size(), 10U);
    for (std::size_t k = 1; k < 4; ++k) {
      EXPECT_NEAR(std::log(t[k] / t[0]), std::log(truth[6 + k] / truth[6]), 6e-4) << k;
    }
  }
}

TEST(calibration_session, a_chamber_that_cannot_be_used_is_told_before_the_first_question) {
  const session::scratch here;
  session::write_file(here.path() / "bad.chamber", "nonlin_bpm_chamber 1\nname x\nunits furlong\n");
  session::write_file(here.path() / "bad.table", "nonlin_bpm_table 1\nname x\nunits furlong\n");
  session::write_file(here.path() / "bad.txt", "hello\n");
  for (const std::string file : {"missing.chamber", "bad.chamber", "bad.table", "bad.txt"}) {
    SCOPED_TRACE(file);
    const auto run = session::butngain(here.path(), {}, {.arguments = {"--chamber", file}});
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(session::lines_of(run.err).size(), 1U) << run.err;
    EXPECT_TRUE(contains(run.err, file)) << run.err;
  }
}

// Raw data bring the tables of their BPMs. The four fits cannot see pedestals that were left in; the
// calibration finds them, and says how far the fits are off.
TEST(calibration_session, raw_data_are_judged_with_their_own_tables_and_pedestals) {
  const session::scratch here;
  session::simulate(here.path(), "tree tree --bpms 3 --turns 300 --seed 5 --chamber own");
  const struct {
    const char* what;
    std::vector<std::string> corrections;  // correction, bunch, pedestal bunch
    double least, most;                    // distance of the four fits
  } cases[] = {{"gain and pedestal", {"3", "1", "2"}, 0, 2e-3},
               {"an empty bunch alone", {"1", "1", "2"}, 0, 2e-3},
               {"nothing taken away", {"1", "1", "0"}, 3e-3, 1e-2}};
  for (const auto& [what, corrections, least, most] : cases) {
    SCOPED_TRACE(what);
    std::filesystem::remove_all(here.run_directory());
    std::vector<std::string> answers{"T", "1000", "4566"};
    answers.insert(answers.end(), corrections.begin(), corrections.end());
    for (const char* last : {"", "n", "-1", "no"}) answers.emplace_back(last);
    const auto run =
        session::butngain(here.path(), answers, session::at_site(here.path() / "tree/online"));
    ASSERT_EQ(run.status, 0) << run.err;
    const std::string line = verdict_line(here, "X5C");
    EXPECT_TRUE(line.starts_with("# determined; error ")) << line;
    const std::size_t off = line.find("are off by ");
    ASSERT_NE(off, std::string::npos) << line;
    const double distance = std::stod(line.substr(off + 11));
    EXPECT_GT(distance, least) << line;
    EXPECT_LT(distance, most) << line;
    EXPECT_FALSE(contains(run.err, "no table")) << run.err;
  }
}

}  // namespace
