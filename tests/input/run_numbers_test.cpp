#include "run_numbers.hpp"

#include <gtest/gtest.h>

#include "turn_scratch.hpp"

namespace {

constexpr const char* index_name = "machine_data/meas/run_index/tbt.idx";

struct run_case {
  const char* what;
  int typed;
  int run;  // 0: no such run
  const char* fault;
};

// Newest is the largest number, wherever it stands: runs can be recorded again.
TEST(run_numbers, count_back_from_the_newest_run_of_the_index) {
  const turn_test::scratch at;
  at.file(index_name,
          "# number, date, time\n\n4565 2004-01-02 10:00\n4567 2004-01-02 10:20  # good\n"
          "4566, 2004-01-02, 10:10\n");
  const run_case cases[] = {{"as it stands", 12, 12, ""},
                            {"newest", 0, 4567, ""},
                            {"three before it", -3, 4564, ""},
                            {"the very first", -4566, 1, ""},
                            {"beyond the first", -4567, 0, "-4567 counts back"},
                            {"far beyond", -2147483647 - 1, 0, "the newest is 4567"}};
  for (const auto& [what, typed, run, fault] : cases) {
    SCOPED_TRACE(what);
    const auto found = input::number_to_true_number("TBT", typed);
    EXPECT_EQ(found.value.value_or(0), run);
    EXPECT_TRUE(turn_test::contains(util::line_of(found.why), fault)) << util::line_of(found.why);
  }
}

TEST(run_numbers, an_unusable_index_is_an_error_that_names_file_and_line) {
  const struct {
    const char* what;
    const char* kind;
    const char* content;  // null: no index
    const char* fault;
  } cases[] = {{"no index", "TBT", nullptr, "tbt.idx: No such file or directory"},
               {"comments only", "TBT", "# none yet\n", "no run in the run index"},
               {"a word for a number", "TBT", "4565 a b\nrun 4566\n",
                "tbt.idx:2: found \"run 4566\", expected run number"},
               {"another kind of run", "ORB", "4565 a b\n", "\"ORB\" are not recorded"}};
  for (const auto& [what, kind, content, fault] : cases) {
    SCOPED_TRACE(what);
    const turn_test::scratch at;
    if (content != nullptr) at.file(index_name, content);
    const auto found = input::number_to_true_number(kind, 0);
    EXPECT_FALSE(found);
    EXPECT_TRUE(turn_test::contains(util::line_of(found.why), fault)) << util::line_of(found.why);
  }
}

}  // namespace
