#include "axis_scale.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

namespace {

using namespace quick_plot;

struct scale_case {
  const char* what;
  double low, high;
  bool counts;
  const char* numbers;  // at all ticks
};
// Worked out by hand: enclosing, 4 to 8 divisions, least empty room, then nearest to 6 divisions.
const scale_case scales[] = {
    {"gains", 0.8, 1.2, false, "0.8 0.9 1.0 1.1 1.2"},
    {"dozen BPMs", 1, 12, true, "0 2 4 6 8 10 12"},
    {"hundred BPMs", 1, 100, true, "0 20 40 60 80 100"},
    {"part of the ring", 17, 63, true, "10 20 30 40 50 60 70"},
    {"whole ring", 1, 120, true, "0 20 40 60 80 100 120"},
    {"one BPM", 50, 50, true, "48 49 50 51 52"},
    {"first BPM", 1, 1, true, "0 1 2 3 4"},
    {"BPM 0", 0, 0, true, "0 1 2 3 4"},
    {"two BPMs", 49, 50, true, "48 49 50 51 52"},
    {"no BPM fitted", 100, 0, true, "0 20 40 60 80 100"},
    {"highest indices", 4990, 5000, true, "4990 4992 4994 4996 4998 5000"},
    {"fine", 0.998, 1.003, false, "0.998 0.999 1.000 1.001 1.002 1.003"},
    {"both signs", -3, 4, false, "-3 -2 -1 0 1 2 3 4"},
    {"one value", 2, 2, false, "1.90 1.95 2.00 2.05 2.10"},
    {"not finite", std::nan(""), 12, true, "0 2 4 6 8 10 12"},
};

std::string numbers_of(const axis_scale& scale) {
  std::string numbers;
  for (long long k = scale.first; k <= scale.first + scale.divisions; ++k)
    numbers.append(axis_number(scale, k)).push_back(' ');
  numbers.pop_back();
  return numbers;
}

TEST(axis_scale, general_by_hand) {
  for (const auto& c : scales) {
    EXPECT_EQ(numbers_of(general_scale(c.low, c.high, 4, 8, c.counts)), c.numbers) << c.what;
  }
}

TEST(axis_scale, encloses_any_range_with_the_divisions_asked_for) {
  for (double low = -7.3; low < 8; low += 1.7) {
    for (double range = 1e-6; range < 1e7; range *= 3.7) {
      const double high = low + range;
      const axis_scale scale = general_scale(low, high, 4, 8, false);
      const double step = axis_value(scale, 1);
      SCOPED_TRACE(testing::Message() << low << " .. " << high);
      EXPECT_GE(scale.divisions, 4);
      EXPECT_LE(scale.divisions, 8);
      const auto first = static_cast<double>(scale.first);
      EXPECT_LE(axis_value(scale, first), low + (1e-8 * step));
      EXPECT_GE(axis_value(scale, first + scale.divisions), high - (1e-8 * step));
    }
  }
}

// A tick made by adding 0.1 up would stand at 0.9999999999999999 and beside the line at gain 1.
TEST(axis_scale, ticks_are_exact) {
  const axis_scale scale = general_scale(0.8, 1.2, 4, 8, false);
  EXPECT_EQ(axis_value(scale, 10), 1.0);
  EXPECT_EQ(axis_value(scale, 12), 1.2);
}

TEST(axis_scale, small_ticks_of_a_counting_axis_are_whole) {
  for (int last = 1; last <= 5000; last += 7) {
    const axis_scale scale = general_scale(1, last, 4, 8, true);
    const double minor = axis_value(scale, 1) / scale.minor;
    EXPECT_EQ(minor, std::round(minor)) << last;
  }
}

}  // namespace
