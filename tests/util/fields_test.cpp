#include "fields.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace {

std::string fixed(double v, int width = 12, int decimals = 4) {
  std::string s;
  util::put_fixed(s, v, width, decimals);
  return s;
}

std::string exponent(double v) {
  std::string s;
  util::put_exponent(s, v);
  return s;
}

constexpr double inf = std::numeric_limits<double>::infinity();
constexpr double nan_value = std::numeric_limits<double>::quiet_NaN();

struct number_case {
  double value;
  const char* text;
};

TEST(fields, fixed_point_rounds_the_shortest_text_half_away_from_zero) {
  const number_case cases[] = {
      {0, "      0.0000"},          {-0.0, "      0.0000"},        {1.5, "      1.5000"},
      {0.00005, "      0.0001"},    {0.00015, "      0.0002"},     {2.00005, "      2.0001"},
      {-0.00005, "     -0.0001"},   {0.000049999, "      0.0000"}, {-0.00001, "     -0.0000"},
      {0.99995, "      1.0000"},    {9.99999, "     10.0000"},     {1234567.8901, "1234567.8901"},
      {0.0123, "      0.0123"},     {100, "    100.0000"},         {1e-300, "      0.0000"},
      {12345678.9, "************"}, {1e300, "************"},       {-1234567.5, "************"},
      {nan_value, "         NaN"},  {inf, "    Infinity"},         {-inf, "   -Infinity"}};
  for (const auto& [value, text] : cases) EXPECT_EQ(fixed(value), text) << value;
}

TEST(fields, fixed_point_of_other_shapes) {
  EXPECT_EQ(fixed(0.5, 3, 0), " 1.");
  EXPECT_EQ(fixed(0.4, 3, 0), " 0.");
  EXPECT_EQ(fixed(-0.5, 3, 0), "-1.");
  EXPECT_EQ(fixed(0.25, 4, 1), " 0.3");
  EXPECT_EQ(fixed(inf, 4, 1), " Inf");
}

TEST(fields, exponent_form_has_four_digits_and_two_or_three_of_exponent) {
  const number_case cases[] = {{0, "  0.0000D+00"},
                               {1.2345, "  0.1235D+01"},
                               {12345000, "  0.1235D+08"},
                               {-1.2345, " -0.1235D+01"},
                               {0.09999999, "  0.1000D+00"},
                               {99995, "  0.1000D+06"},
                               {1, "  0.1000D+01"},
                               {0.001, "  0.1000D-02"},
                               {1.2345e-100, "  0.1235D-99"},
                               {1.2345e-101, "  0.1235-100"},
                               {-9.99996e99, " -0.1000+101"},
                               {5e-324, "  0.5000-323"},
                               {1.7976931348623157e308, "  0.1798+309"},
                               {nan_value, "         NaN"},
                               {-inf, "   -Infinity"}};
  for (const auto& [value, text] : cases) EXPECT_EQ(exponent(value), text) << value;
}

TEST(fields, texts_are_right_justified_and_keep_their_leftmost_characters) {
  std::string s;
  util::put_text(s, "bpm", 5);
  util::put_text(s, " true_gain = ", 8);
  util::put_integer(s, -42, 5);
  util::put_integer(s, 12345, 4);
  util::put_padded(s, "ab", 3);
  util::put_padded(s, "abcd", 3);
  EXPECT_EQ(s, "  bpm true_ga  -42****ab abc");
}

}  // namespace
