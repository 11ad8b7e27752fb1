#include "columns.hpp"

#include <gtest/gtest.h>

#include <string>

#include "scratch_fixture.hpp"

namespace {

using rows = std::vector<std::array<double, 4>>;
using columns = scratch::fixture;

util::outcome<std::vector<input::column_bpm>> read(const scratch::workplace& place,
                                                   const std::string& text,
                                                   const input::column_choice& choice = {}) {
  auto file = util::open_text_file(place.file("any.csv", text));
  return input::read_columns(*file, choice);
}

TEST_F(columns, every_spelling_gives_the_same_rows) {
  const rows expected{{1, 2, 3, 4}, {5, 6, 7, 8.5}};
  const struct {
    const char* what;
    const char* text;
    const char* name;
  } cases[] = {
      {"blanks", "1 2 3 4\n 5\t6  7 8.5\n", ""},
      {"a comment and an empty line", "# counts\n\n1 2 3 4\n5 6 7 85d-1\n", ""},
      {"commas", "1,2,3,4\r\n5, 6, 7, 8.5\r\n", ""},
      {"a BPM before them", "12W 1 2 3 4\n12W 5 6 7 8.5\n", "12W"},
      {"a BPM that is a number", "12 1 2 3 4\n12 5 6 7 8.5\n", "12"},
      {"a header in another order", "TO,ti,BO,bi\n4,3,2,1\n8.5,7,6,5\n", ""},
      {"numbered, with columns that do not matter",
       "time;b1;B_2;signal3;Button_4;Device\nx;1;2;3;4;A\ny;5;6;7;8.5;A\n", "A"},
      {"beside names that are almost those of signals",
       "Location,B5,buttons,b12,but_,bi,bo,ti,to\nA,9,9,9,9,1,2,3,4\nA,9,9,9,9,5,6,7,8.5\n", "A"},
      {"a spreadsheet's",
       "\xEF\xBB\xBF\"name\",\"BI\",\"BO\",\"TI\",\"TO\"\n\"A, \"\"b\"\"\",1,2,3,4\n"
       "\"A, \"\"b\"\"\",5,6,7,8.5\n",
       "A, \"b\""},
  };
  for (const auto& [what, text, name] : cases) {
    SCOPED_TRACE(what);
    const auto made = read(place, text);
    ASSERT_TRUE(made) << util::line_of(made.why);
    ASSERT_EQ(made->size(), 1U);
    EXPECT_EQ(made->front().name, name);
    EXPECT_EQ(made->front().signals, expected);
    EXPECT_EQ(made->front().left_out, 0);
  }
}

TEST_F(columns, chosen_columns_are_taken_whatever_the_file_calls_them) {
  const input::column_choice letters{{"A", "b", "C", "D"}, ""};
  const input::column_choice numbers{{"3", "4", "1", "2"}, ""};
  const struct {
    const char* what;
    const char* text;
    input::column_choice choice;
    const char* name;
  } cases[] = {
      {"names", "t,D,C,B,A\n0,4,3,2,1\n", letters, ""},
      {"numbers without a header", "3 4 1 2 9 9 9\n", numbers, ""},
      {"numbers under a header", "TI,TO,BI,BO,name\n3,4,1,2,12W\n", numbers, "12W"},
      {"a BPM by name", "id,A,B,C,D\n12W,1,2,3,4\n", {{"A", "B", "C", "D"}, "id"}, "12W"},
      {"a BPM by number, the signals beside it", "1 2 12W 3 4\n", {{}, "3"}, "12W"},
      {"names of a comment", "# made by hand\n# TO, TI, BO, BI\n4,3,2,1\n", {}, ""},
      {"other names of a comment", "# D C B A bpm\n4 3 2 1 12W\n", letters, "12W"},
      {"a comment of as many words that names no signals",
       "# a comment of words\n1 2 3 4\n",
       {},
       ""},
  };
  for (const auto& [what, text, choice, name] : cases) {
    SCOPED_TRACE(what);
    const auto made = read(place, text, choice);
    ASSERT_TRUE(made) << util::line_of(made.why);
    ASSERT_EQ(made->size(), 1U);
    EXPECT_EQ(made->front().name, name);
    EXPECT_EQ(made->front().signals, (rows{{1, 2, 3, 4}}));
  }
  for (const auto& [choice, line] : {std::pair{numbers, ":1: no column 4, expected a name"},
                                     {{{"1", "2", "2", "3"}, ""}, "column 2 is chosen twice"},
                                     {{{}, "where"}, ":1: no column where"}}) {
    const auto made = read(place, "1 2 3\n", choice);
    ASSERT_FALSE(made);
    EXPECT_NE(util::line_of(made.why).find(line), std::string::npos) << util::line_of(made.why);
  }
}

TEST_F(columns, bpms_are_told_apart_and_missing_readings_counted) {
  const auto made = read(place,
                         "bpm,BI,BO,TI,TO\n2,1,1,1,1\n1,2,2,2,2\n2,,1,1,1\n2,3,3,nan,3\n"
                         "1,4,4,4,-inf\n2,5,5,5,5\n1,+Infinity,4,4,4\n");
  ASSERT_TRUE(made) << util::line_of(made.why);
  ASSERT_EQ(made->size(), 2U);
  EXPECT_EQ((*made)[0].name, "2");
  EXPECT_EQ((*made)[0].signals, (rows{{1, 1, 1, 1}, {5, 5, 5, 5}}));
  EXPECT_EQ((*made)[0].left_out, 2);
  EXPECT_EQ((*made)[1].signals, (rows{{2, 2, 2, 2}}));
  EXPECT_EQ((*made)[1].left_out, 2);
}

TEST_F(columns, faults_tell_file_and_line) {
  const struct {
    const char* text;
    const char* line;
  } cases[] = {
      {"", "no rows, expected columns of four signals"},
      {"BI,BO,TI,TO\n", "no rows, expected columns of four signals"},
      {"1 2 3\n", ":1: found 3 columns without a header, expected four signals"},
      {"BI BO TI\n1 2 3\n", ":1: no column of signal 4, expected a header"},
      {"BI BO TI TO b1\n", ":1: column b1 is signal 1 once more"},
      {"1 2 3 4\n\n1 2 3\n", ":3: found 3 fields, expected 4 as in the first line"},
      {"1,2,3,4\n1,2,3,4,\n", ":2: found 5 fields"},
      {"1 2 3 4\n1 2 x 4\n", ":2: found \"x\", expected signal 3 as a number"},
      {"bpm,BI,BO,TI,TO\n1,1,1,1,1\nA,1,1 1,1,1\n", ":3: found \"1 1\""},
  };
  for (const auto& [text, line] : cases) {
    SCOPED_TRACE(text);
    const auto made = read(place, text);
    ASSERT_FALSE(made);
    EXPECT_NE(util::line_of(made.why).find(line), std::string::npos) << util::line_of(made.why);
  }
}

}  // namespace
