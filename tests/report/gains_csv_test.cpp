#include "gains_csv.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "scratch.hpp"

namespace {

using report::bpm_row;

bpm_row awkward_row() {
  bpm_row row;
  row.bpm = 12;
  row.name = "12W";
  row.orbits = 999;
  row.verdict = report::verdict::not_determined;
  row.reason = "the beam moved along a line";
  row.gain = {1 / 3.0, 2e-300, -0.0, 1.0000000000000002};
  row.error = 5e-324;
  return row;
}

// What reads files by their bits finds its own numbers again, and nothing where nothing is known.
TEST(gains_csv, reading_gives_what_was_written) {
  const scratch::directory folder;
  const std::string path = folder / "gains.csv";
  bpm_row other;
  other.bpm = 13;
  other.verdict = report::verdict::not_fitted;
  const std::vector<bpm_row> rows{awkward_row(), other};
  ASSERT_FALSE(report::write_gains_csv(path, rows));
  const auto back = report::read_gains_csv(path);
  ASSERT_TRUE(back) << util::line_of(back.why);
  ASSERT_EQ(back->size(), 2U);
  EXPECT_EQ((*back)[0].gain, rows[0].gain);
  EXPECT_TRUE(std::signbit((*back)[0].gain[2]));
  EXPECT_EQ((*back)[0].error, 5e-324);
  EXPECT_TRUE(std::isnan((*back)[0].noise));
  EXPECT_EQ((*back)[0].reason, rows[0].reason);
  EXPECT_EQ((*back)[1].verdict, report::verdict::not_fitted);
  EXPECT_EQ(report::gains_csv_text(*back), report::gains_csv_text(rows));
}

// Names come from files that anyone may have written. 39 columns on every line, whatever they hold.
TEST(gains_csv, a_name_can_neither_shift_columns_nor_run_in_a_spreadsheet) {
  const struct {
    const char* name;
    const char* shown;
  } cases[] = {{"a,b", "a;b"},
               {"say \"x\"", "say 'x'"},
               {"=1+1", "'=1+1"},
               {" @SUM", "' @SUM"},
               {"-1", "'-1"},
               {"+cmd|x", "'+cmd|x"},
               {"a\nb\x1b[2J", "a\\nb\\x1b[2J"},
               {"1#2", "1_2"},
               {"12W", "12W"}};
  for (const auto& [name, shown] : cases) {
    SCOPED_TRACE(shown);
    bpm_row row = awkward_row();
    row.name = name;
    const std::string text = report::gains_csv_text({row});
    EXPECT_NE(text.find(std::string{"\n12,"} + shown + ",999,"), std::string::npos) << text;
    EXPECT_EQ(std::count(text.begin(), text.end(), ','), 2 * 38);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2);
  }
}

// A file that went through a spreadsheet: quotes, CR LF, a mark in front, columns added and moved.
TEST(gains_csv, columns_are_found_by_name) {
  const scratch::directory folder;
  std::string text = report::gains_csv_text({awkward_row()});
  text.insert(0, "\xEF\xBB\xBF");
  text.insert(text.find('\n'), ",note\r");
  text.insert(text.rfind('\n'), ",\"seen, \"\"all\"\" well\"\r");
  const auto back = report::read_gains_csv(folder.file("gains.csv", text));
  ASSERT_TRUE(back) << util::line_of(back.why);
  EXPECT_EQ((*back).at(0).name, "12W");
  EXPECT_EQ((*back).at(0).gain, awkward_row().gain);
}

TEST(gains_csv, what_is_damaged_is_told_with_its_line) {
  const scratch::directory folder;
  const std::string whole = report::gains_csv_text({awkward_row()});
  const auto changed = [&whole](const char* from, const char* to) {
    std::string text = whole;
    return text.replace(text.find(from), std::string{from}.size(), to);
  };
  const struct {
    std::string text;
    const char* told;
  } cases[] = {{"", "an empty file"},
               {changed("gain_3", "gain_5"), ":1: no column gain_3"},
               {changed("999", "many"), ":2: found \"many\" in column orbits, expected a whole"},
               {changed("not determined", "fine"), ":2: found \"fine\" in column verdict"},
               {changed("3.3333333333333331E-01", "nan"), ":2: found \"nan\" in column gain_1"},
               {whole.substr(0, whole.size() - 8), ":2: found 32 fields"},
               {changed("12W", "\"12W"), ":2: found "}};
  for (const auto& [text, told] : cases) {
    SCOPED_TRACE(told);
    const auto read = report::read_gains_csv(folder.file("gains.csv", text));
    ASSERT_FALSE(read);
    EXPECT_NE(util::line_of(read.why).find(told), std::string::npos) << util::line_of(read.why);
  }
}

// Whoever looks for the file sees the old one or the new one; a link there is not written through.
TEST(gains_csv, a_file_is_replaced_whole_and_a_failing_one_leaves_nothing) {
  namespace fs = std::filesystem;
  const scratch::directory folder;
  const std::string victim = folder.file("victim", "precious");
  fs::create_symlink(victim, folder.path() / "gains.csv");
  ASSERT_FALSE(report::write_gains_csv(folder / "gains.csv", {}));
  EXPECT_EQ(scratch::content(victim), "precious");
  EXPECT_EQ(scratch::content(folder / "gains.csv").substr(0, 9), "bpm,name,");

  fs::create_directory(folder.path() / "taken");
  const auto fault = report::write_gains_csv(folder / "taken", {});
  ASSERT_TRUE(fault);
  EXPECT_NE(util::line_of(*fault).find("taken: Is a directory"), std::string::npos);
  EXPECT_TRUE(report::write_gains_csv(folder / "nowhere/gains.csv", {}));
  EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), {}), 3);
}

}  // namespace
