#include "text.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace {

TEST(text, fixed_length_strings_are_cut_padded_and_trimmed) {
  const util::fixed_text<4> longer{"abcdef"};
  const util::fixed_text<4> shorter{"a"};
  EXPECT_EQ(longer.all(), "abcd");
  EXPECT_EQ(shorter.all(), "a   ");
  EXPECT_EQ(shorter.trimmed(), "a");
  EXPECT_EQ(util::fixed_text<3>::zeros().trimmed(), std::string_view("\0\0\0", 3));
}

TEST(text, file_names_lose_quotes_and_gain_the_variable) {
  setenv("BUTNGAIN_TEST_ROOT", "/data", 1);
  EXPECT_EQ(util::fullfilename("\"$BUTNGAIN_TEST_ROOT/a b.dat\""), "/data/a b.dat");
  EXPECT_EQ(util::fullfilename("plain.dat"), "plain.dat");
  EXPECT_EQ(util::unquote("'it"), "'it");
}

TEST(text, names_from_files_cannot_steer_the_terminal) {
  using namespace std::string_literals;
  const struct {
    const char* what;
    std::string name;
    std::string shown;
  } cases[] = {
      {"an ordinary name", "47W_XBSM", "47W_XBSM"},
      {"blanks, quotes and backslashes stay", R"( a\"b )", R"( a\"b )"},
      {"letters of other languages stay", "Gr\xc3\xb6\xc3\x9f\x65 \xe2\x82\xac \xf0\x9f\x98\x80",
       "Gr\xc3\xb6\xc3\x9f\x65 \xe2\x82\xac \xf0\x9f\x98\x80"},
      {"line ends and tabs", "12W\r\n\t", R"(12W\r\n\t)"},
      {"escape sequences", "\x1b[2J\x7f", R"(\x1b[2J\x7f)"},
      {"a zero", "a\0b"s, R"(a\x00b)"},
      {"the one-byte form of ESC [",
       "\x9b"
       "31m",
       R"(\x9b31m)"},
      {"the same as UTF-8",
       "\xc2\x9b"
       "31m",
       R"(\xc2\x9b31m)"},
      {"the first printable behind them", "\xc2\xa0", "\xc2\xa0"},
      {"a character cut short", "\xe2\x82", R"(\xe2\x82)"},
      {"an overlong form of ESC", "\xc0\x9b \xe0\x80\x9b", R"(\xc0\x9b \xe0\x80\x9b)"}};
  for (const auto& c : cases) EXPECT_EQ(util::shown(c.name), c.shown) << c.what;
}

TEST(text_death, a_missing_variable_or_an_overlong_path_ends_the_run) {
  unsetenv("BUTNGAIN_TEST_ROOT");
  EXPECT_EXIT(util::fullfilename("$BUTNGAIN_TEST_ROOT/x"), testing::ExitedWithCode(2),
              "BUTNGAIN_TEST_ROOT is not set");
  EXPECT_EXIT(util::fullfilename("123456", 5), testing::ExitedWithCode(2), "longer than the 5");
}

}  // namespace
