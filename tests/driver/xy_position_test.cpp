#include "xy_position.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace {

// Signals 100, 200, 300, 500: outward (500 + 200) - 300 - 100 = 300 and upward
// (500 + 300) - 100 - 200 = 500, of a sum of 1100.
TEST(xy_position, scales_by_bpm) {
  struct scale_case {
    int bpm;
    float h;
    float v;
  };
  const driver::whole_signals det{{100, 200, 300, 500}};
  for (const auto& [bpm, scale_h, scale_v] :
       {scale_case{48, 0.0287F, 0.0287F}, scale_case{51, 0.0287F, 0.0287F},
        scale_case{49, 0.035F, 0.035F}, scale_case{50, 0.035F, 0.035F},
        scale_case{1, 0.0102F, 0.0104F}, scale_case{7, 0.0102F, 0.0104F},
        scale_case{93, 0.0102F, 0.0104F}, scale_case{110, 0.0102F, 0.0104F},
        scale_case{0, 0.0259F, 0.0198F}, scale_case{52, 0.0259F, 0.0198F}}) {
    double h = 0;
    double v = 0;
    driver::xy_position(bpm, det, h, v);
    EXPECT_EQ(h, double{300.0F * scale_h} / 1100) << bpm;
    EXPECT_EQ(v, double{500.0F * scale_v} / 1100) << bpm;
  }
}

TEST(xy_position, signals_near_the_limit_of_32_bits_do_not_overflow) {
  const driver::whole_signals det{{1, 2000000000, 1, 2000000000}};
  double h = 0;
  double v = 0;
  driver::xy_position(20, det, h, v);
  EXPECT_NEAR(h, 0.0259, 1e-9);
  EXPECT_EQ(v, 0);
}

TEST(xy_position_death, a_signal_beyond_32_bits_names_bpm_and_orbit) {
  util::bounded<double, 1, 4, "button"> button{{1, 2, 3e9, 4}};
  EXPECT_EXIT(driver::whole_signals_of(button, 12, 7), testing::ExitedWithCode(1),
              "button 3 of BPM 12 in orbit 7 does not fit");
  button(3) = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EXIT(driver::whole_signals_of(button, 12, 7), testing::ExitedWithCode(1), "button 3");
  const auto cut = driver::whole_signals_of({{-2147483648.5, 2.9, -2.9, 0}}, 1, 1);
  EXPECT_EQ(cut(1), std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(cut(2), 2);
  EXPECT_EQ(cut(3), -2);
}

}  // namespace
