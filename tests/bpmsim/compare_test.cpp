#include "compare.hpp"

#include <gtest/gtest.h>

#include <cmath>

#include "fields.hpp"
#include "scratch.hpp"

namespace {

using sim::buttons;

// A line of the session's table, laid out by hand: number, four fits, averages, rms, name, truth.
std::string err_line(int bpm, const std::string& name, const buttons& average) {
  std::string line = "   ";
  util::put_integer(line, bpm, 4);
  for (int fit = 1; fit <= 4; ++fit) {
    util::put_blanks(line, 3);
    for (const double v : {1.0, 9.0, 9.0, 9.0, 0.5}) util::put_fixed(line, v);
  }
  util::put_blanks(line, 4);
  for (int k = 1; k <= 4; ++k) util::put_fixed(line, average(k));
  for (int k = 1; k <= 4; ++k) util::put_fixed(line, 0);
  util::put_blanks(line, 4);
  util::put_padded(line, name, 12);
  for (int k = 1; k <= 4; ++k) util::put_fixed(line, 1);
  return line + "\n";
}

const std::string head =
    "mfiles= 1; array file[ 1]\nfile[ 1]= \"\"\n   bpm                          1/gain\n";

using scratch::write;

TEST(bpmsim_compare, ratios_are_compared_by_name_and_to_button_1) {
  const scratch::directory here;
  const std::string table = here / "series.dat_err";
  write(table, head + err_line(1, "EXP_7", {{1, 1.1003, 0.9, 0.8}}) +
                   err_line(2, "EXP_8", {{1, std::nan(""), 1e9, 1}}));
  const auto fitted = sim::read_err_table(sim::find_err_table(here.path()));
  ASSERT_EQ(fitted.size(), 2U);
  EXPECT_EQ(fitted[1].bpm, 2);
  EXPECT_TRUE(std::isnan(fitted[1].ratio(3)));  // asterisks: too wide for its field

  const std::vector<sim::bpm_truth> truth{{"EXP_8", {{1, 1, 1, 1}}, {}},
                                          {"EXP_7", {{2, 2.2, 1.8, 1.6}}, {}}};
  const auto all = sim::compare(truth, fitted);
  EXPECT_NEAR(all[0].true_ratio(4), 0.8, 1e-15);
  EXPECT_NEAR(all[0].difference(2), 3e-4, 1e-12);
  EXPECT_NEAR(all[0].worst, 3e-4, 1e-12);
  EXPECT_TRUE(std::isinf(all[1].worst));

  const auto [worst, rms] = sim::summarise({all[0]});
  EXPECT_NEAR(worst, 3e-4, 1e-12);
  EXPECT_NEAR(rms, 3e-4 / std::sqrt(3.0), 1e-12);
  EXPECT_TRUE(std::isinf(sim::summarise(all).worst));
}

TEST(bpmsim_compare_death, tables_that_cannot_be_compared_are_named) {
  const scratch::directory here;
  EXPECT_EXIT(sim::find_err_table(here.path()), testing::ExitedWithCode(1),
              "holds no table \\*_err");
  const std::string table = here / "a_err";
  write(table, head + err_line(1, "EXP_7", {{1, 1, 1, 1}}).substr(0, 300) + "\n");
  EXPECT_EXIT(sim::read_err_table(table), testing::ExitedWithCode(1),
              "a_err:4: expected a BPM number and its four fits");
  write(table, head);
  EXPECT_EXIT(sim::read_err_table(table), testing::ExitedWithCode(1), "a_err holds no BPM");
  write(here / "b_err", head);
  EXPECT_EXIT(sim::find_err_table(here.path()), testing::ExitedWithCode(1), "holds 2 tables");
  EXPECT_EXIT(sim::compare({{"EXP_1", {}, {}}}, {{1, "EXP_7", {}}}), testing::ExitedWithCode(1),
              "the truth knows no BPM named EXP_7");
}

}  // namespace
