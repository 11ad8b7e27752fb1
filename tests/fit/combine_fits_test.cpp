#include "combine_fits.hpp"

#include <gtest/gtest.h>

#include <cmath>

namespace {
using namespace gain_fit_mod;

// Four fits with gains f, 2f, 3f, 4f and coefficients 10f in fit f; chi-squares 1, 2, 3, 4, of which
// the last is the one that counts.
four_fits made_fits() {
  four_fits made;
  for (std::size_t f = 0; f < 4; ++f) {
    made.fit[f].chisq = static_cast<double>(f + 1);
    for (int k = 1; k <= 4; ++k) {
      made.fit[f].gain(k) = static_cast<double>(f + 1) * k;
      made.fit[f].coefficients(k) = static_cast<double>(f + 1) * 10;
    }
  }
  return made;
}

TEST(combine_fits, means_of_four_good_fits_are_not_those_of_the_last) {
  const combined_fits c = combine_fits(made_fits());
  EXPECT_EQ(c.good, 4);
  EXPECT_DOUBLE_EQ(c.gain(3), 3 * 2.5);
  EXPECT_DOUBLE_EQ(c.coefficients(2), 25);
  EXPECT_DOUBLE_EQ(c.chisq, 4);
  EXPECT_DOUBLE_EQ(c.summary_gain(3), 3 * 2.5);
  EXPECT_DOUBLE_EQ(c.summary_chisq, 4);
}

TEST(combine_fits, a_fit_with_a_zero_gain_does_not_count) {
  four_fits made = made_fits();
  made.fit[1].gain(3) = 0;
  const combined_fits c = combine_fits(made);
  EXPECT_EQ(c.good, 3);
  EXPECT_DOUBLE_EQ(c.gain(2), 2 * (1 + 3 + 4) / 3.0);
  EXPECT_DOUBLE_EQ(c.coefficients(1), (10 + 30 + 40) / 3.0);
  EXPECT_DOUBLE_EQ(c.chisq, 4);
  // The tables' sum takes it all the same; its divisor does not.
  EXPECT_DOUBLE_EQ(c.summary_gain(2), 2 * (1 + 2 + 3 + 4) / 3.0);
  EXPECT_DOUBLE_EQ(c.summary_chisq, 4);
}

TEST(combine_fits, the_only_good_fit_gives_its_own_gains) {
  four_fits made;
  for (int k = 1; k <= 4; ++k) made.fit[2].gain(k) = 1 + (0.1 * k);
  const combined_fits c = combine_fits(made);
  for (int k = 1; k <= 4; ++k) EXPECT_DOUBLE_EQ(c.summary_gain(k), 1 + (0.1 * k));
  EXPECT_TRUE(std::isnan(combine_fits({}).gain(1)));
}

TEST(combine_fits, ratios_to_the_first_gain_and_their_scatter) {
  four_fits made = made_fits();
  made.fit[3].gain(2) = 4;  // ratio 1 instead of 1/2
  const combined_fits c = combine_fits(made);
  EXPECT_DOUBLE_EQ(c.ratio(2), (0.5 + 0.5 + 0.5 + 1) / 4);
  EXPECT_DOUBLE_EQ(c.ratio_scatter(2), std::sqrt(1.75 - (4 * 0.625 * 0.625)));
  EXPECT_DOUBLE_EQ(c.ratio(4), 0.25);
  EXPECT_EQ(c.ratio_scatter(1), 0);
}

}  // namespace
