#include "run_time.hpp"

#include <gtest/gtest.h>

#include "bounded.hpp"
#include "given.hpp"

namespace {

util::bounded<double, 1, 4, "but"> but;
util::bounded2<double, 1, 5, 1, 4, "gain_save"> gain_save;
util::bounded3<double, 1, 4, 1, 8, 1, 8, "covar_save"> covar_save;

TEST(bounded, subscripts_start_at_the_lower_bound) {
  but(1) = 3;
  but(4) = 5;
  EXPECT_EQ(but.item[0], 3);
  EXPECT_EQ(but.item[3], 5);
  gain_save(2, 1) = 7;
  EXPECT_EQ(gain_save.item[4], 7);
}

TEST(run_time_death, a_bad_subscript_names_array_value_and_bounds) {
  EXPECT_EXIT(but(5) = 1, testing::ExitedWithCode(1),
              "butngain: run-time error: subscript 5 of but is outside 1\\.\\.4");
  EXPECT_EXIT(gain_save(6, 1) = 1, testing::ExitedWithCode(1),
              "subscript 1 \\(= 6\\) of gain_save is outside 1\\.\\.5");
  EXPECT_EXIT(gain_save(5, 0) = 1, testing::ExitedWithCode(1),
              "subscript 2 \\(= 0\\) of gain_save is outside 1\\.\\.4");
  EXPECT_EXIT(covar_save(1, 8, 9) = 1, testing::ExitedWithCode(1),
              "subscript 3 \\(= 9\\) of covar_save is outside 1\\.\\.8");
}

TEST(run_time_death, a_value_never_given_is_named) {
  util::given<int, "bpm_count"> bpm_count;
  EXPECT_EXIT(static_cast<void>(bpm_count.get()), testing::ExitedWithCode(1),
              "bpm_count is used before it is given a value");
  bpm_count = 3;
  EXPECT_EQ(bpm_count.get(), 3);
}

TEST(run_time_death, the_fatal_exit_has_status_2) {
  EXPECT_EXIT(util::err_exit(), testing::ExitedWithCode(2), "");
}

}  // namespace
