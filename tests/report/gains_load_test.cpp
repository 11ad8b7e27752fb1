#include "gains_load.hpp"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using report::four;

report::bpm_row row(int bpm, report::verdict word) {
  report::bpm_row r;
  r.bpm = bpm;
  r.name = "B" + std::to_string(bpm);
  r.verdict = word;
  r.gain = {1.05, 1 / 1.05, 1, 1};
  r.error = 4e-4;
  return r;
}

// A reading is what the beam makes, times the coefficient of the electronics that nobody sees, times
// what is left of the gain; after loading the quotient must be the same for all four buttons.
TEST(gains_load, new_coefficients_make_the_four_buttons_equal) {
  const four old{1.02, 0.97, 1.1, 0.95};
  const four left{1.05, 0.99, 0.98, 1 / (1.05 * 0.99 * 0.98)};  // product 1
  four whole{};  // what a fit of readings sees that were not divided, scaled to product 1
  double product = 1;
  for (std::size_t k = 0; k < 4; ++k) product *= whole[k] = old[k] * left[k];
  for (double& t : whole) t /= std::pow(product, 0.25);
  for (const bool divided : {true, false}) {
    const four now = report::new_coefficients(old, divided ? left : whole, divided);
    // The common factor stays: sums of signals keep their size.
    EXPECT_NEAR(now[0] * now[1] * now[2] * now[3], old[0] * old[1] * old[2] * old[3], 1e-15);
    for (std::size_t k = 1; k < 4; ++k) {
      EXPECT_NEAR(old[k] * left[k] / now[k], old[0] * left[0] / now[0], 1e-15) << divided << k;
    }
  }
  // A card that was never calibrated divides by 1; one that inverts goes on to.
  EXPECT_EQ(report::new_coefficients({0, 1, 1, 1}, {2, 1, 1, 0.5}, true), (four{2, 1, 1, 0.5}));
  EXPECT_LT(report::new_coefficients({-1.1, 1, 1, 1}, {1, 1, 1, 1}, false)[0], 0);
}

// Whoever copies the column "new" loads nothing that was not found.
TEST(gains_load, what_is_not_determined_keeps_its_value_and_says_so) {
  report::bpm_row loaded = row(1, report::verdict::determined);
  loaded.coefficient = {1, 1, 1.2, 0.8};
  loaded.new_coefficient = {1.05, 1 / 1.05, 1.2, 0.8};
  report::bpm_row kept = row(2, report::verdict::suspect);
  kept.reason = "stuck readings";
  kept.coefficient = {1.5, 1, 1, 1};
  const report::bpm_row unknown = row(121, report::verdict::not_fitted);
  const std::string text = report::gains_load_text({loaded, kept, unknown}, "run 1");
  for (const char* line :
       {"# 1 of 3 BPMs determined: gains of 1 BPM to load, largest change +5 % (B1 BI)\n",
        "    1 B1           BI                1         1.05   +5.0000    0.0400  load\n",
        "    1 B1           TI              1.2          1.2   +0.0000    0.0400  load\n",
        "    2 B2           BI              1.5          1.5   +0.0000         -  keep  # suspect: "
        "stuck readings\n",
        "  121 B121         TO                -            -   +0.0000         -  keep  # not "
        "fitted\n"}) {
    EXPECT_NE(text.find(line), std::string::npos) << line << text;
  }
  EXPECT_NE(report::gains_load_text({kept}, "").find("0 of 1 BPMs determined: nothing to load\n"),
            std::string::npos);
}

// What it multiplies were divided by the coefficients of the electronics, never by its own factors.
TEST(gains_load, the_list_of_the_tables_is_whole_and_its_factors_undo_the_gain) {
  report::bpm_row loaded = row(7, report::verdict::determined);
  loaded.coefficient = {2, 2, 2, 2};
  loaded.new_coefficient = {2.1, 2 / 1.05, 2, 2};
  report::bpm_row beyond = loaded;
  beyond.bpm = 121;
  report::bpm_row kept = row(9, report::verdict::weak);
  const std::string text = report::button_coeff_text(
      {loaded, kept, beyond}, {{7, {9, 9, 9, 9}}, {9, {1.1, 1, 1, 1}}, {33, {1, 1.2, 1, 1}}}, "");
  EXPECT_EQ(text.substr(0, 19), "nonlin_bpm_coeff 1 ");
  for (const char* line : {"\n  7 0.952380952 1.050000000 1.000000000 1.000000000  # B7\n",
                           "\n  9 1.100000000 1.000000000 1.000000000 1.000000000  # B9, as before",
                           "\n 33 1.000000000 1.200000000 1.000000000 1.000000000\n",
                           "\n# BPM 121 (B7) has no place in this list\n"}) {
    EXPECT_NE(text.find(line), std::string::npos) << line << text;
  }
}

}  // namespace
