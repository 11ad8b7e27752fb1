#include "list_io.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using util::taken;

util::list_record record_of(const char* text) {
  util::list_record record;
  util::start_record(record, text);
  return record;
}

TEST(list_input, real_texts) {
  struct real_case {
    const char* text;
    double value;
  };
  const real_case good[] = {{"1", 1},       {"+1.5", 1.5},     {"-.5", -0.5},   {"1.", 1},
                            {"1d3", 1000},  {"1.5D-2", 0.015}, {"2.5+3", 2500}, {"2.5-3", 0.0025},
                            {"1E+02", 100}, {"0.1e1", 1},      {"007", 7}};
  for (const auto& [text, value] : good) {
    const auto got = util::scan_real(text);
    ASSERT_TRUE(got) << text;
    EXPECT_EQ(*got, value) << text;
  }
  for (const char* bad : {"", ".", "nan", "inf", "-Infinity", "0x10", "1e", "1e+", "1.2.3", "1 ",
                          "--1", "+-1", "1e999", "1f3", "e5"}) {
    EXPECT_FALSE(util::scan_real(bad)) << bad;
  }
}

TEST(list_input, integer_and_logical_texts) {
  EXPECT_EQ(util::scan_integer("+12"), 12);
  EXPECT_EQ(util::scan_integer("-2147483648"), -2147483648LL);
  for (const char* bad : {"2147483648", "1.0", "", "+", "+-3", "1e3", "12a"}) {
    EXPECT_FALSE(util::scan_integer(bad)) << bad;
  }
  EXPECT_EQ(util::scan_logical(".TRUE."), true);
  EXPECT_EQ(util::scan_logical("f"), false);
  EXPECT_FALSE(util::scan_logical("yes"));
}

// One line shows every separator; what each value comes to is the whole of the format.
TEST(list_input, separators_repeats_empty_places_and_the_slash) {
  auto record = record_of("  1,,3*2.5 4\t5 , 2* 7 / 8");
  std::vector<double> values(11, -1);
  std::vector<taken> came;
  for (double& v : values) came.push_back(util::take(record, v));
  EXPECT_EQ(values, (std::vector<double>{1, -1, 2.5, 2.5, 2.5, 4, 5, -1, -1, 7, -1}));
  EXPECT_EQ(came, (std::vector<taken>{taken::value, taken::null, taken::value, taken::value,
                                      taken::value, taken::value, taken::value, taken::null,
                                      taken::null, taken::value, taken::slash}));
}

TEST(list_input, a_bad_item_is_used_up_and_the_end_is_told_apart) {
  auto record = record_of("1 two 3");
  std::int32_t v = 9;
  EXPECT_EQ(util::take(record, v), taken::value);
  EXPECT_EQ(util::take(record, v), taken::bad);
  EXPECT_EQ(v, 1);
  EXPECT_EQ(util::take(record, v), taken::value);
  EXPECT_EQ(v, 3);
  EXPECT_EQ(util::take(record, v), taken::end);
}

TEST(list_input, texts_in_quotes_hold_separators) {
  auto record = record_of("'it''s, /x' \"two words\" 2*'a b' plain");
  std::vector<std::string> texts(5);
  for (std::string& t : texts) EXPECT_EQ(util::take(record, t), taken::value);
  EXPECT_EQ(texts, (std::vector<std::string>{"it's, /x", "two words", "a b", "a b", "plain"}));
}

TEST(list_output, widths_and_the_leading_blank) {
  EXPECT_EQ(util::list_line().text(" Norbits = ").integer(1000).str(), "  Norbits =         1000");
  EXPECT_EQ(util::list_line().logical(true).logical(false).str(), "  T F");
  struct real_case {
    double value;
    const char* text;
  };
  const real_case cases[] = {
      {0.5, " 0.50000000000000000     "},  {-1234.5, " -1234.5000000000000     "},
      {0, "  0.0000000000000000     "},    {1e-5, "  1.0000000000000000E-005"},
      {0.1, " 0.10000000000000000     "},  {99999, "  99999.000000000000     "},
      {1e17, "  1.0000000000000000E+017"}, {-2.5e120, " -2.5000000000000000E+120"}};
  for (const auto& [value, text] : cases) {
    EXPECT_EQ(util::list_line().real(value).str(), std::string{" "} + text) << value;
  }
}

}  // namespace
