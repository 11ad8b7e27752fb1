#include "combine_fits.hpp"

#include <gtest/gtest.h>

#include <cmath>

namespace {

namespace fit = gain_fit_mod;

// Four fits with gains f, 2f, 3f, 4f in fit f, and made-up coefficients and chi-squares.
struct four_fits {
  fit::chis_saved chis;
  fit::gains_saved gains;
  fit::coeffs_saved coeffs;
};

four_fits made_fits() {
  four_fits made;
  for (int f = 1; f <= 4; ++f) {
    made.chis(f) = f;
    for (int k = 1; k <= 4; ++k) {
      made.gains(f, k) = f * k;
      made.coeffs(f, k) = 10 * f;
    }
  }
  return made;
}

TEST(combine_fits, a_fit_with_a_zero_gain_does_not_count) {
  four_fits made = made_fits();
  made.gains(2, 3) = 0;
  util::bounded<double, 1, 4, "gain"> gain;
  util::bounded<double, 1, 4, "coefficients"> coefficients;
  const auto combined =
      driver::average_good_fits(made.chis, made.gains, made.coeffs, gain, coefficients);
  EXPECT_EQ(combined.good, 3);
  EXPECT_DOUBLE_EQ(combined.chis, (1 + 3 + 4) / 3.0);
  EXPECT_DOUBLE_EQ(gain(2), 2 * (1 + 3 + 4) / 3.0);
  EXPECT_DOUBLE_EQ(coefficients(1), (10 + 30 + 40) / 3.0);
}

// The two means differ on purpose: the summaries divide the first four by the count of all five,
// and their chi-square is a quarter of five terms.
TEST(combine_fits, a_good_fifth_fit_lowers_the_summary_gains) {
  four_fits made = made_fits();
  for (int k = 1; k <= 4; ++k) made.gains(5, k) = 100;
  made.chis(5) = 6;
  util::bounded<double, 1, 4, "gain"> gain;
  util::bounded<double, 1, 4, "coefficients"> coefficients;
  const auto combined =
      driver::average_good_fits(made.chis, made.gains, made.coeffs, gain, coefficients);
  EXPECT_EQ(combined.good, 5);
  EXPECT_DOUBLE_EQ(gain(1), (1 + 2 + 3 + 4 + 100) / 5.0);
  EXPECT_DOUBLE_EQ(driver::summary_gains(made.chis, made.gains, combined.good, gain), 4.0);
  EXPECT_DOUBLE_EQ(gain(1), (1 + 2 + 3 + 4) / 5.0);
}

TEST(combine_fits, the_only_good_fit_gives_its_own_gains) {
  four_fits made;
  for (int k = 1; k <= 4; ++k) made.gains(3, k) = 1 + (0.1 * k);
  util::bounded<double, 1, 4, "gain"> gain;
  EXPECT_EQ(driver::summary_gains(made.chis, made.gains, 1, gain), 0);
  for (int k = 1; k <= 4; ++k) EXPECT_DOUBLE_EQ(gain(k), 1 + (0.1 * k));
}

TEST(combine_fits, ratios_to_the_first_gain_and_their_scatter) {
  four_fits made = made_fits();
  made.gains(4, 2) = 4;  // ratio 1 instead of 1/2
  util::bounded<double, 1, 5, "average_gain"> average;
  util::bounded<double, 1, 5, "rms_gain"> rms;
  driver::gain_ratio_statistics(made.gains, average, rms);
  EXPECT_DOUBLE_EQ(average(2), (0.5 + 0.5 + 0.5 + 1) / 4);
  EXPECT_DOUBLE_EQ(rms(2), std::sqrt(1.75 - (4 * 0.625 * 0.625)));
  EXPECT_DOUBLE_EQ(average(4), 0.25);
  EXPECT_EQ(rms(1), 0);
}

}  // namespace
