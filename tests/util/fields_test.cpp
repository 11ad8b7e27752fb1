#include "fields.hpp"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
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

// The quick fields against the general ones, which know only exact digits where it matters.
TEST(fields, written_in_place_are_the_same_bytes_for_any_number) {
  std::mt19937_64 bits(7);
  const auto check = [](double v) {
    std::array<char, 24> field{};
    ASSERT_EQ(util::write_fixed(util::write_exponent(field.data(), v), v), field.end());
    EXPECT_EQ(std::string(field.data(), 24), exponent(v) + fixed(v)) << v;
  };
  for (const double v : {0.0, -0.0, inf, -inf, nan_value, 5e-324, 1.7976931348623157e308, 1e50,
                         1e-50, 9.99995, 0.99995, 99999.99995}) {
    check(v);
    check(-v);
  }
  for (int i = 0; i < 200000; ++i) {
    const std::uint64_t pattern = bits();
    check(std::bit_cast<double>(pattern));
    const int power = static_cast<int>(pattern % 120) - 60;
    const int digits = 1000 + static_cast<int>(pattern / 128 % 9000);
    // Half a last place, where rounding turns on the last bit, and the numbers beside it.
    const double half = std::stod(std::to_string(digits) + "5e" + std::to_string(power));
    check(half);
    check(std::nextafter(half, 0));
    check(std::nextafter(-half, -inf));
    check(static_cast<double>(static_cast<int>(pattern % 4000000)) / 2);
    check((static_cast<double>(digits) + 0.5) / 1e4);
  }
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
