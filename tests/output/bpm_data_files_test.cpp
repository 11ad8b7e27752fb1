#include "bpm_data_files.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <string>
#include <vector>

#include "beam.hpp"
#include "scratch_fixture.hpp"

namespace {
using namespace gain_fit_mod;

struct data_files : scratch::fixture {
  void SetUp() override {
    gain_fit_mod::reset();
    run.directory = ".";
    run.rd_files(1) = "RD-000001.dat";
    run.rd_files(2) = "RD-000002.dat";
    run.files_so_far = 1;
  }
  void TearDown() override { output::close_bpm_raw_data(); }
  // A BPM whose orbits are these readings, at this current.
  bpm_data bpm_of(int index, const std::string& name, double beam_current) {
    currents.assign(readings.size(), beam_current);
    return {.bpm = index, .name = name, .orbits = readings, .current = currents};
  }
  output::run_record run{};
  std::vector<store::bpm_struct> readings;
  std::vector<double> currents;
};
using data_files_death = data_files;

// Four signals whose total is 10: Q = 0.4, X = 0.2, Y = 0.4; over a current of 2, X Y is 0.04.
constexpr signals signals_of_10{{5, 2, 1, 2}};

std::string blanks(std::size_t n) { return std::string(n, ' '); }

TEST_F(data_files, raw_file_of_two_data_sets_to_the_character) {
  readings.resize(7);
  readings[6] = {.button = {signals_of_10.item}, .x = 1e-3, .y = -2.5e-3};
  bpm_data bpm = bpm_of(42, "B42W  ", 2);
  bpm.header_gain = {{1.04, 0.97, 1, 0.93}};
  bpm.const_before = 0.19467656;
  run.files_so_far = 2;
  output::write_bpm_raw_data(run, bpm, 7);
  output::close_bpm_raw_data();
  const std::vector<std::string> expected{
      "mfiles= 2; array file[ 2]",
      "file[ 1]= \"RD-000001.dat\"",
      "file[ 2]= \"RD-000002.dat\"",
      "&button_sums",
      " BPM =    42",
      " true_ga  0.1040D+01  0.9700D+00  0.1000D+01  0.9300D+00",
      "   const =   0.1947D+00",
      "   delta_h =  0.  ",
      "   delta_v =  0.  ",
      "#/",
      "",
      "",
      "#" + blanks(60) + "  Bpmpm.G X " + blanks(60),
      "#           x           y     Bpmmp.G     Bpmpm.G     Bppmm.G   Bppmm.G/I           I"
      "    button 1    button 2    button 3    button 4",
      "  0.1000D-02 -0.2500D-02  0.4000D+00  0.2000D+00  0.4000D+00  0.4000D-01  0.2000D+01"
      "  0.5000D+01  0.2000D+01  0.1000D+01  0.2000D+01"};
  EXPECT_EQ(scratch::lines_of("B42W.dat"), expected);
}

TEST_F(data_files, coming_back_to_a_bpm_appends) {
  readings.push_back({.button = {signals_of_10.item}});
  run.files_so_far = 0;
  for (const int m : {1, 1, 2, 1})
    output::write_bpm_raw_data(run, bpm_of(m, m == 1 ? "A" : "B", 1), 1);
  output::close_bpm_raw_data();
  const auto lines = scratch::lines_of("A.dat");
  EXPECT_EQ(lines.size(), 12U + 2 + 12 + 1);  // header, two orbits, header, one orbit
  EXPECT_EQ(lines[0], "mfiles= 0; array file[ 0]");
  EXPECT_EQ(scratch::lines_of("B.dat").size(), 13U);
}

TEST_F(data_files, signals_that_cancel_are_shown_as_no_numbers) {
  readings.resize(1);
  output::write_bpm_raw_data(run, bpm_of(1, "A", 1), 1);
  output::close_bpm_raw_data();
  EXPECT_EQ(scratch::lines_of("A.dat").back().substr(24, 48),
            "         NaN         NaN         NaN         NaN");
}

TEST_F(data_files_death, orbits_files_and_directories_that_are_not_there) {
  struct {
    const char* what;
    const char* into;
    int orbit, files;
    const char* message;
  } const cases[] = {{"orbit", ".", 4, 1, "subscript 4 of orbit_data is outside 1\\.\\.3"},
                     {"file", ".", 1, 21, "subscript 21 of rd_files is outside 1\\.\\.20"},
                     {"directory", "nowhere", 1, 1, "cannot open nowhere/A.dat for writing"}};
  readings.resize(3);
  for (const auto& [what, into, orbit, files, message] : cases) {
    SCOPED_TRACE(what);
    run.directory = into;
    run.files_so_far = files;
    EXPECT_EXIT(output::write_bpm_raw_data(run, bpm_of(1, "A", 1), orbit),
                testing::ExitedWithCode(1), message);
  }
}

// Unit gains and the curve 2 sin(u / 2): at u = 0.08 it is 0.0799787, which leaves -0.3200213.
TEST_F(data_files, fitted_file_by_hand) {
  readings.assign(9, {.button = {signals_of_10.item}});
  readings[0].x = 1e-3;
  readings[0].button = {{10, 4, 2, 4}};  // the same shares at twice the total
  bpm_result result{.data = bpm_of(3, "EXP_0", 1)};
  currents.back() = 4;  // the last orbit's stands for all
  result.data.true_gain = {{2, 1, 0.5, 1}};
  result.motion.extremes = {-0.5, 0.25, -1, 2};
  for (one_fit& fit : result.fits.fit) {
    fit.gain.fill(0.5);
    fit.coefficients.fill(3);
  }
  result.fits.fit[3].chisq = 0.25;
  result.fits.fit[3].coefficients(1) = 2;
  result.fits.fit[1].covariance(1, 3) = 1.25e-6;
  result.combined.gain.fill(0.5);
  result.combined.coefficients = {{2, 0.5, 0, 0}};
  result.combined.chisq = 0.5;
  result.quality.reason = "verdict";
  output::write_bpm_fitted_data(run, result);

  const auto lines = scratch::lines_of("EXP_0.dat_fit");
  const std::vector<std::string> settings{
      "#mfiles= 1; array file[ 1]",
      "#file[ 1]= \"RD-000001.dat\"",
      "#&button_sums",
      "# BPM =     3",
      "# gain =       0.5000      0.5000      0.5000      0.5000",
      "# true_gain =       2.0000      1.0000      0.5000      1.0000",
      "# coef =       2.0000      0.5000      0.0000      0.0000",
      "#   const =   0.2000D+01",
      "# delta_h =       0.0000",
      "# delta_v =       0.0000",
      "# chis_deg =  0.2500D+00",  // 0.5 over 9 orbits less 7 parameters
      "#array gains[4] =       1.0000      1.0000      1.0000      1.0000",
      "#array true_gains[4] =       1.0000      0.5000      0.2500      0.5000",
      "# h_min, h_max, v_min, v_max =      -0.5000      0.2500     -1.0000      2.0000",
      "#exit"};
  ASSERT_GT(lines.size(), settings.size());
  for (std::size_t i = 0; i < settings.size(); ++i) EXPECT_EQ(lines[i], settings[i]);
  EXPECT_EQ(lines[25],
            "#  ind=     2 chisq=  0.2500D+00 gain =       0.5000      0.5000      0.5000"
            "      0.5000 coef =       3.0000      3.0000      3.0000      3.0000");
  EXPECT_EQ(lines[26], "# covariance matrix of gains 1..4, Am, k, h2, h3");
  EXPECT_EQ(lines[27].substr(0, 49), "#  0.0000D+00  0.0000D+00  0.1250D-05  0.0000D+00");
  ASSERT_EQ(lines.size(), 15U + 4 * 10 + 4 + 2 + 9);
  EXPECT_EQ(lines[60],
            "#          x           y     Bpmmp.G     Bpmpm.G     Bppmm.G   Bppmm.G/I           I"
            "     Bppmm.G     Bpmmp.G      chis_1");
  EXPECT_EQ(lines[61],
            "  0.1000D-02  0.0000D+00  0.4000D+00  0.2000D+00  0.4000D+00  0.2000D-01  0.4000D+01"
            "  0.8000D-01  0.7998D-01 -0.3200D+00");
  for (std::size_t i = 0; i < lines.size(); ++i) EXPECT_EQ(lines[i].starts_with("#"), i < 61) << i;
  EXPECT_EQ(lines[55], "# verdict");
}

// --- the guide's one-liners, run on a written file ----------------------------------------------

int shell(const std::string& command) {
  return std::system(command.c_str());
}  // NOLINT(*-c,*-mt-unsafe)

// The first line of the guide that begins with this word.
std::string one_liner(const std::string& program) {
  for (const std::string& line : scratch::lines_of(BUTNGAIN_DATA_FILES_GUIDE))
    if (line.starts_with(program + " ")) return line;
  return {};
}

struct guide : data_files {
  void SetUp() override {
    data_files::SetUp();
    beam::fill_store({.orbits = 50, .true_gain = {{1.04, 0.97, 1.01, 0.93}}});
    const auto column = orbit_data.column(bpm, 50);
    readings.assign(column.begin(), column.end());
    const bpm_result result = result_of(bpm_of(1, "EXP_0", 1));
    output::write_bpm_fitted_data(run, result);
    const auto at = parameters_of(result.combined.gain, result.combined.coefficients);
    for (const store::bpm_struct& reading : readings) {
      const double residual = chi1(at, {reading.button.item});
      expected_chisq += residual * residual;
    }
  }
  double expected_chisq = 0;
};

TEST_F(guide, numpy_reads_the_fitted_file) {
  std::string line = one_liner("python3");
  ASSERT_FALSE(line.empty());
  // The interpreter that comes first need not be the one that numpy was installed for.
  std::string interpreter;
  for (const char* candidate : {"python3", "/usr/bin/python3"})
    if (interpreter.empty() && shell(std::string{candidate} + " -c 'import numpy' 2>null") == 0)
      interpreter = candidate;
  if (interpreter.empty()) GTEST_SKIP() << "no numpy";
  ASSERT_EQ(shell(line.replace(0, 7, interpreter) + " > numpy.txt"), 0);
  const auto told = scratch::lines_of("numpy.txt");
  ASSERT_EQ(told.size(), 1U);
  // Orbits and rms residual: that of the fit, to the four digits of the table.
  EXPECT_EQ(told[0].substr(0, 3), "50 ");
  const double rms = std::sqrt(expected_chisq / 50);
  EXPECT_NEAR(std::stod(told[0].substr(3)), rms, 2e-3 * rms);
}

TEST_F(guide, gnuplot_draws_the_fitted_file) {
  const std::string line = one_liner("gnuplot");
  ASSERT_FALSE(line.empty());
  if (shell("gnuplot --version > null 2>&1") != 0) GTEST_SKIP() << "no gnuplot";
  ASSERT_EQ(shell("GNUTERM=dumb " + line + " > plot.txt 2> errors.txt"), 0);
  EXPECT_TRUE(scratch::lines_of("errors.txt").empty());
  EXPECT_GT(scratch::lines_of("plot.txt").size(), 10U);
}

}  // namespace
