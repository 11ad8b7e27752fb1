#include "run_summaries.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "gain_fit_mod.hpp"
#include "scratch_fixture.hpp"

namespace {
using namespace gain_fit_mod;

// Every field of a caption line is right-justified: a text ends where its field does.
bool ends_at(const std::string& line, const std::string& text, std::size_t column) {
  return line.size() >= column && line.substr(column - text.size(), text.size()) == text;
}

struct summaries : scratch::fixture {
  void SetUp() override {
    gain_fit_mod::reset();
    run.directory = ".";
    run.label = "RD-004567.dat";
    run.rd_files(1) = "RD-004566.dat";
    run.rd_files(2) = "RD-004567.dat";
    run.files_so_far = 2;
    result.data.bpm = 12;
    result.data.name = "A_NAME_OF_16_CHR";
    result.data.true_gain = {{1.04, 0.97, 1, 0}};
  }
  void TearDown() override { output::close_run_summaries(); }
  output::run_record run{};
  bpm_result result{};
};

// Totals 10, 12, 14, 16: sum 52, squares 696, so mean 13 and rms sqrt(20 / 4) = 2.2361.
TEST_F(summaries, out_table_to_the_character) {
  const std::vector<store::bpm_struct> four_orbits(4);
  result.data.orbits = four_orbits;
  result.motion.extremes = {-0.5, 0.25, -1, 2};
  result.totals = {52, 696};
  result.combined.summary_gain = {{2, 4, 0.5, 0.8}};
  result.combined.summary_chisq = 0.125;
  result.combined.coefficients = {{0.2, 10.5, -0.06, 1e9}};
  run.gain_correct = 3;
  run.type = "gain_and_pedestal_correction   ";
  for (int line = 1; line <= 2; ++line) output::write_rd_out(run, result);
  output::close_run_summaries();
  const auto lines = scratch::lines_of("RD-004567.dat_out");
  ASSERT_EQ(lines.size(), 7U);
  EXPECT_EQ(lines[0], "mfiles= 2; array file[ 2]");
  EXPECT_EQ(lines[2], "file[ 2]= \"RD-004567.dat\"");
  EXPECT_EQ(lines[3], " gain_correct =   3, gain_and_pedestal_correction to tbt data");
  const std::string& caption = lines[4];
  EXPECT_EQ(caption.size(), 257U);
  EXPECT_EQ(caption.substr(0, 7), " ! BPM ");
  struct {
    const char* text;
    std::size_t column;
  } const fields[] = {{"h_min", 19},       {"h_max-h_min", 43},  {"v_min", 55},
                      {"v_max-v_min", 79}, {" gain(1)", 91},     {" gain(4)", 127},
                      {"coeff", 139},      {"chis", 169},        {"name", 199},
                      {"button ave", 215}, {"rms but ave", 227}, {" true_gain", 257}};
  for (const auto& [text, column] : fields) EXPECT_TRUE(ends_at(caption, text, column)) << text;
  EXPECT_EQ(lines[5],
            "     12     -0.5000      0.2500      0.7500     -1.0000      2.0000      3.0000"
            "      0.5000      0.2500      2.0000      1.2500"
            "      0.2000     10.5000     -0.0600************      0.1250"
            "    A_NAME_OF_16"
            "         13.0000      2.2361      1.0400      0.9700      1.0000      0.0000");
  EXPECT_EQ(lines[6], lines[5]);
}

TEST_F(summaries, err_table_to_the_character) {
  for (std::size_t f = 0; f < 4; ++f) {
    result.fits.fit[f].chisq = 0.5 * static_cast<double>(f + 1);
    for (int k = 1; k <= 4; ++k) {
      result.fits.fit[f].gain(k) = k == static_cast<int>(f) + 1 ? 1 : 2;
    }
  }
  result.fits.fit[3].gain(2) = 0;
  result.combined.ratio = {{1, 2, 3, 4}};
  result.combined.ratio_scatter = {{0.5, 0.25, 0, 1.5}};
  run.files_so_far = 1;
  output::write_rd_err(run, result);
  EXPECT_EQ(ind, 5);
  output::close_run_summaries();
  const auto lines = scratch::lines_of("RD-004567.dat_err");
  ASSERT_EQ(lines.size(), 4U);
  const std::string& caption = lines[2];
  EXPECT_EQ(caption.size(), 372U);
  EXPECT_TRUE(ends_at(caption, "   bpm", 6));
  for (const std::size_t before : {6U, 70U, 134U, 198U}) {
    EXPECT_TRUE(ends_at(caption, "1/gain", before + 40));
    EXPECT_TRUE(ends_at(caption, "chis", before + 64));
  }
  EXPECT_TRUE(ends_at(caption, "average gain", 300));
  EXPECT_TRUE(ends_at(caption, "rms_gain", 348));
  EXPECT_TRUE(ends_at(caption, " true_gain", 372));
  EXPECT_EQ(lines[3],
            "     12"
            "         1.0000      0.5000      0.5000      0.5000      2.0000"
            "         1.0000      2.0000      1.0000      1.0000      2.0000"
            "         1.0000      1.0000      2.0000      1.0000      2.0000"
            "         1.0000    Infinity      1.0000      2.0000      2.0000"
            "          1.0000      2.0000      3.0000      4.0000"
            "      0.5000      0.2500      0.0000      1.5000"
            "    A_NAME_OF_16"
            "      1.0400      0.9700      1.0000      0.0000");
}

TEST_F(summaries, no_orbits_give_button_statistics_that_are_no_numbers) {
  output::write_rd_out(run, result);
  output::close_run_summaries();
  EXPECT_EQ(scratch::lines_of("RD-004567.dat_out").back().substr(207, 24),
            "         NaN         NaN");
}

using summaries_death = summaries;

TEST_F(summaries_death, a_directory_that_is_not_there_ends_the_run) {
  run.directory = "nowhere";
  EXPECT_EXIT(output::write_rd_out(run, result), testing::ExitedWithCode(1),
              "cannot open nowhere/RD-004567.dat_out for writing");
}

}  // namespace
