#include "bpm_result.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "beam.hpp"

namespace {
using namespace gain_fit_mod;

using orbits = std::vector<store::bpm_struct>;

store::bpm_struct at(double x, double y, const signals& but = {}) {
  store::bpm_struct reading;
  reading.x = x;
  reading.y = y;
  reading.button = {but.item};
  return reading;
}

// All on one side of an axis, and on the other: an extreme that began at 0 would stay there.
TEST(bpm_result, motion_by_hand) {
  for (const int side : {1, -1}) {
    const bpm_motion m =
        motion_of(orbits{at(3 * side, -side), at(side, -5 * side), at(2 * side, -3 * side)});
    EXPECT_EQ(m.extremes.h_min, side > 0 ? 1 : -3);
    EXPECT_EQ(m.extremes.h_max, side > 0 ? 3 : -1);
    EXPECT_EQ(m.extremes.v_min, side > 0 ? -5 : 1);
    EXPECT_EQ(m.extremes.v_max, side > 0 ? -1 : 5);
    EXPECT_EQ(m.mean_x, 2 * side);
    EXPECT_EQ(m.mean_y, -3 * side);
  }
  EXPECT_TRUE(std::isnan(motion_of({}).mean_x));
}

TEST(bpm_result, button_totals_by_hand) {
  const orbits two{at(0, 0, {{1, 2, 3, 4}}), at(0, 0, {{5, -1, 1, 0}})};
  EXPECT_EQ(totals_of(two).sum, 10 + 5);
  EXPECT_EQ(totals_of(two).squares, 100 + 25);
  EXPECT_EQ(totals_of({}).sum, 0);
}

// The whole is its steps: nothing else is looked at, nothing remembered.
TEST(bpm_result, result_is_made_of_its_steps) {
  orbits store_column;
  std::vector<signals> readings;
  for (int i = 0; i < 60; ++i) {
    const double x = 0.1 * (i * 37 % 101 - 50);
    const double y = 0.1 * (i * 59 % 97 - 48);
    readings.push_back(beam::signals_at(x, y));
    store_column.push_back(at(x, y, readings.back()));
  }
  const bpm_data data{.bpm = 12, .name = "12W", .orbits = store_column};
  const bpm_result first = result_of(data);
  const bpm_result again = result_of(data);
  EXPECT_EQ(first.data.name, "12W");
  EXPECT_EQ(first.motion.mean_y, motion_of(store_column).mean_y);
  EXPECT_EQ(first.totals.squares, totals_of(store_column).squares);
  const four_fits fits = fit_readings(readings);
  for (std::size_t f = 0; f < 4; ++f) {
    EXPECT_EQ(first.fits.fit[f].gain.item, fits.fit[f].gain.item);
    EXPECT_EQ(again.fits.fit[f].gain.item, fits.fit[f].gain.item);
  }
  EXPECT_EQ(first.combined.gain.item, combine_fits(fits).gain.item);
  EXPECT_EQ(first.quality.reason, judge_gains(readings, fits).reason);
  EXPECT_EQ(first.quality.verdict, gain_verdict::determined) << first.quality.reason;
}

}  // namespace
