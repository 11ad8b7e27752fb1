// The simulator's tables: chamber files and what is wrong with them, and the folder that the
// conversion then reads.
#include "tables.hpp"

#include <cmath>
#include <regex>

#include "nonlin_test_tools.hpp"

namespace {

using nonlin_test::facility;
using nonlin_test::outcome;
using nonlin_test::run;

constexpr const char* small_chamber =
    "nonlin_bpm_chamber 1\nname small\nunits mm\ncontour circle 20\n"
    "button 1 -14 -14 8 strip\nbutton 2 14 -14 8 strip\nbutton 3 -14 14 8 strip\n"
    "button 4 14 14 8 strip\nx_grid 21 -15 15\ny_grid 21 -15 15\nmargin 3\nsolver 8 16 2\nend\n";

class tables_test : public facility {};

TEST_F(tables_test, default_folder_is_what_the_conversion_reads) {
  sim::make_tables(path("nonlin_bpm"));
  write("offset.bpm", "");
  run([] { nonlin_bpm_mod::nonlin_bpm_init(); });
  EXPECT_FALSE(nonlin_bpm_mod::nonlin_bpm_first_call);
  EXPECT_EQ(nonlin_bpm_mod::bpm_arc.start.size(), 285U);
  EXPECT_EQ(nonlin_bpm_mod::bpm_48.start.size(), 349U);
  // The linear scales at the centre, from an independent solution of the same chambers [mm].
  const std::pair<int, double> scales[] = {{20, 26.01}, {48, 31.98}, {1, 10.31}};
  for (const auto& [bpm, scale] : scales) {
    nonlin_bpm_mod::nonlin_bpm_set_pointers(bpm);
    nonlin_bpm_mod::derivatives d{};
    nonlin_bpm_mod::nonlin_bpm_interpolate({{0, 0, 1}}, d);
    EXPECT_NEAR(1e3 / (d(2)(1, 0) + d(4)(1, 0) - d(1)(1, 0) - d(3)(1, 0)), scale, 0.01);
  }
}

TEST_F(tables_test, table_and_picture_of_a_chamber_file) {
  sim::make_table(write("chamber", small_chamber), path("table"), path("picture.svg"));
  const std::string text = scratch::content(path("table"));
  EXPECT_NE(text.find("x_grid   21 -0.015 0.015\n"), std::string::npos);
  EXPECT_NE(text.find("\n1 1 out\n"), std::string::npos);
  // Node (11, 11) is the centre: each signal is its share of the wall, to eight digits.
  EXPECT_NE(text.find(fmt::format("\n11 11 {:.9e}", 0.4 / (2 * M_PI)).substr(0, 16)),
            std::string::npos);
  const std::string drawn = scratch::content(path("picture.svg"));
  EXPECT_TRUE(drawn.starts_with("<svg "));
  EXPECT_NE(drawn.find(">-0.1</text>"), std::string::npos);
  EXPECT_TRUE(drawn.ends_with("</svg>\n"));
}

TEST_F(tables_test, faults_in_a_chamber_file_are_one_line_and_status_1) {
  struct edit {
    const char* find;
    const char* put;
    const char* said;
    int line;
  };
  const edit edits[] = {
      {"nonlin_bpm_chamber", "chamber", "EXPECTED nonlin_bpm_chamber AS FIRST WORD", 1},
      {"units mm\n", "", "expected units before any length", 3},
      {"circle 20", "circle -20", "expected a length above 0, found -20", 4},
      {"circle 20", "cube 20", "expected circle, ellipse, box, polygon or points", 4},
      {"circle 20", "box 20 10 11", "expected a corner radius between 0 and the smaller", 4},
      {"circle 20", "polygon 4\n-9 -9 0\n9 -9 0\n0 0 0\n-9 9 0", "corner 3 is not convex", 8},
      {"circle 20", "polygon 3\n-9 -9 9\n9 -9 9\n0 9 9", "do not fit on their edge", 7},
      {"circle 20", "points 4\n9 0\n0 -9\n-9 0\n0 9", "points do not run counter-clockwise", 8},
      {"button 2", "button 1", "second button 1", 6},
      {"button 4", "button 5", "expected a whole number 1..4", 8},
      {"4 14 14 8 strip", "4 14 14 8 square", "expected disc or strip, found square", 8},
      {"4 14 14 8 strip", "4 14 14 80 strip", "overlap", 8},
      {"margin 3\n", "", "margin is missing", 12},
      {"margin", "margins", "unknown key margins", 11},
      {"-15 15", "-15 1500", "expected an ascending grid between 1 mm and 1 m wide", 9},
      {"solver 8", "solver 2", "expected a whole number 4..32", 12},
      {"end\n", "", "file ends without the word end", 12},
      {"end\n", "end\nend\n", "text after the word end", 14},
  };
  for (const auto& [find, put, said, line] : edits) {
    const std::string text = std::regex_replace(std::string{small_chamber}, std::regex(find), put,
                                                std::regex_constants::format_first_only);
    const std::string name = write("chamber", text);
    const outcome o = run([&] { sim::make_table(name, path("table"), ""); });
    EXPECT_EQ(o.status, 1) << said;
    EXPECT_NE(o.text.find(said), std::string::npos) << o.text << "lacks " << said;
    EXPECT_NE(o.text.find(fmt::format(" in line {} of {}\n", line, name)), std::string::npos)
        << o.text;
  }
  EXPECT_NE(run([&] { sim::make_table(path("none"), path("table"), ""); }).text.find("cannot open"),
            std::string::npos);
}

}  // namespace
