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

TEST(text_death, a_missing_variable_or_an_overlong_path_ends_the_run) {
  unsetenv("BUTNGAIN_TEST_ROOT");
  EXPECT_EXIT(util::fullfilename("$BUTNGAIN_TEST_ROOT/x"), testing::ExitedWithCode(2),
              "BUTNGAIN_TEST_ROOT is not set");
  EXPECT_EXIT(util::fullfilename("123456", 5), testing::ExitedWithCode(2), "longer than the 5");
}

}  // namespace
