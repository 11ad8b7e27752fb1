// The simulator's tables: chamber files and what is wrong with them, and the folder that the
// conversion then reads.
#include "tables.hpp"

#include <cmath>
#include <regex>

#include "nonlin_test_tools.hpp"

namespace {

using nonlin_test::facility;
using nonlin_test::run;

constexpr const char* small_chamber =
    "nonlin_bpm_chamber 1\nname small\nunits mm\ncontour circle 20\n"
    "button 1 -14 -14 8 strip\nbutton 2 14 -14 8 strip\nbutton 3 -14 14 8 strip\n"
    "button 4 14 14 8 strip\nx_grid 21 -15 15\ny_grid 21 -15 15\nmargin 3\nsolver 8 16 2\nend\n";

class tables_test : public facility {};

TEST_F(tables_test, default_folder_is_what_the_conversion_reads) {
  const auto made = sim::make_tables({path("nonlin_bpm"), false, {}});
  ASSERT_TRUE(made) << util::line_of(made.why);
  ASSERT_EQ(made->size(), 5U);
  const sim::table_report& arc = (*made)[1];
  EXPECT_EQ(arc.nodes, 4905);
  EXPECT_NEAR(arc.ky, 19.83e-3, 0.01e-3);
  EXPECT_LT(arc.largest, 2e-6);
  EXPECT_EQ(arc.not_found, 0);
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

std::string edited(const char* find, const char* put) {
  return std::regex_replace(std::string{small_chamber}, std::regex(find), put,
                            std::regex_constants::format_first_only);
}

chamber_solver::chamber parsed(const std::string& text) {
  auto c = chamber_solver::parse_chamber(text, "chamber");
  EXPECT_TRUE(c) << util::line_of(c.why);
  return *c;
}

// A site's own tables and calibration are not the simulator's to replace.
TEST_F(tables_test, files_that_stand_there_stay_unless_they_are_to_be_replaced) {
  const std::string coefficients = "nonlin_bpm_coeff 1\n12 1.02 0.97 1.00 1.01\n";
  write("nonlin_bpm/button_coeff.dat", coefficients);
  write("nonlin_bpm/bpm_arc.table", "measured\n");
  sim::tables_setup s{path("nonlin_bpm"), false, parsed(small_chamber)};
  const auto made = sim::make_tables(s);
  ASSERT_TRUE(made);
  EXPECT_EQ(scratch::content(path("nonlin_bpm/button_coeff.dat")), coefficients);
  EXPECT_EQ(scratch::content(path("nonlin_bpm/bpm_arc.table")), "measured\n");
  EXPECT_EQ(sim::line_of((*made)[1]),
            path("nonlin_bpm/bpm_arc.table") + ": left as it is; --replace makes it anew");
  EXPECT_FALSE((*made)[0].left);
  s.replace = true;
  ASSERT_TRUE(sim::make_tables(s));
  EXPECT_EQ(scratch::content(path("nonlin_bpm/bpm_arc.table")).substr(0, 18), "nonlin_bpm_table 1");
  EXPECT_EQ(scratch::content(path("nonlin_bpm/button_coeff.dat")).find("12 1.02"),
            std::string::npos);
}

// Tables that the conversion would refuse, or from which it would not find its way back.
TEST_F(tables_test, chambers_without_a_usable_table_are_refused_and_leave_no_file) {
  struct edit {
    const char* what;
    std::string text;
    const char* said;
  };
  const std::string racetrack =
      "nonlin_bpm_chamber 1\nname r\nunits mm\ncontour box 45 25 25\nbutton 1 -12.5 -25 15 disc\n"
      "button 2 12.5 -25 15 disc\nbutton 3 -12.5 25 15 disc\nbutton 4 12.5 25 15 disc\n"
      "x_grid 9 -36 36\ny_grid 7 -24 24\nmargin 0.5\nend\n";
  const edit edits[] = {
      {"exchanged buttons",
       std::regex_replace(edited("1 -14 -14", "1 14 -14"), std::regex("2 14 -14"), "2 -14 -14"),
       "button 1 does not grow towards its own quadrant at (0, 0)"},
      {"centre outside the grid", edited("x_grid 21 -15 15", "x_grid 21 1 15"),
       "(0, 0) is not in a usable cell"},
      {"all too near to the wall", edited("margin 3", "margin 30"), "no usable node"},
      {"a grid of 9 mm by 8", racetrack, "the grid is too coarse"}};
  write("table", "an older table\n");
  for (const auto& [what, text, said] : edits) {
    SCOPED_TRACE(what);
    const auto made = sim::make_table(parsed(text), path("table"));
    ASSERT_FALSE(made);
    EXPECT_NE(util::line_of(made.why).find(said), std::string::npos) << util::line_of(made.why);
    EXPECT_EQ(scratch::content(path("table")), "an older table\n");
    EXPECT_FALSE(std::filesystem::exists(path("table.part")));
  }
}

TEST_F(tables_test, table_and_picture_of_a_chamber_file) {
  const auto made = sim::make_table(parsed(small_chamber), path("table"), path("picture.svg"));
  ASSERT_TRUE(made) << util::line_of(made.why);
  EXPECT_NEAR(made->moved[3], 0.02 - std::hypot(0.014, 0.014), 1e-12);
  const std::string text = scratch::content(path("table"));
  EXPECT_NE(text.find("x_grid   21 -0.015 0.015\n"), std::string::npos);
  EXPECT_NE(text.find("\n1 1 out\n"), std::string::npos);
  // Node (11, 11) is the centre: each signal is its share of the wall, to eight digits.
  EXPECT_NE(text.find(fmt::format("\n11 11 {:.9e}", 0.4 / (2 * M_PI)).substr(0, 16)),
            std::string::npos);
  const std::string drawn = scratch::content(path("picture.svg"));
  EXPECT_TRUE(drawn.starts_with("<svg "));
  EXPECT_TRUE(drawn.ends_with("</svg>\n"));
}

int count(const std::string& text, const std::string& what) {
  int n = 0;
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

// Whatever the grid (here no node stands on an axis) and the size of the chamber.
TEST_F(tables_test, pictures_number_the_buttons_and_label_both_axes) {
  ASSERT_TRUE(sim::make_table(parsed(edited("21 -15 15", "20 -15 15")), path("a"), path("a.svg")));
  const std::string tiny =
      "nonlin_bpm_chamber 1\nname tiny\nunits mm\ncontour circle 2\n"
      "button 1 -1.4 -1.4 0.8 strip\nbutton 2 1.4 -1.4 0.8 strip\nbutton 3 -1.4 1.4 0.8 strip\n"
      "button 4 1.4 1.4 0.8 strip\nx_grid 21 -1.5 1.5\ny_grid 21 -1.5 1.5\nmargin 0.3\n"
      "solver 8 16 2\nend\n";
  ASSERT_TRUE(sim::make_table(parsed(tiny), path("b"), path("b.svg"))) << tiny;
  sim::draw_table(path("a"), path("c.svg"));
  for (const char* name : {"a.svg", "b.svg", "c.svg"}) {
    SCOPED_TRACE(name);
    const std::string drawn = scratch::content(path(name));
    for (const char* number : {">1</text>", ">2</text>", ">3</text>", ">4</text>"}) {
      EXPECT_GE(count(drawn, number), 1) << number;
    }
    EXPECT_EQ(count(drawn, ">0.3</text>"), 2);  // once on each axis
    EXPECT_EQ(count(drawn, ">-0.3</text>"), 2);
    EXPECT_NE(drawn.find(">x / mm</text>"), std::string::npos);
    EXPECT_NE(drawn.find(">y / mm</text>"), std::string::npos);
    EXPECT_NE(drawn.find(name[0] == 'b' ? ">1.5</text>" : ">10</text>"), std::string::npos);
  }
}

// The simulator's ring has the chambers of the tables that the conversion chooses.
TEST_F(tables_test, every_bpm_has_the_chamber_of_its_table) {
  nonlin_bpm_mod::nonlin_bpm_first_call = false;
  const nonlin_bpm_mod::table_struct* const tables[] = {
      &nonlin_bpm_mod::bpm_48, &nonlin_bpm_mod::bpm_arc, &nonlin_bpm_mod::bpm_tirsku};
  for (int bpm = 1; bpm <= nonlin_bpm_mod::max_bpm; ++bpm) {
    nonlin_bpm_mod::nonlin_bpm_set_pointers(bpm);
    EXPECT_EQ(nonlin_bpm_mod::func_bpm, tables[chamber_solver::default_chamber_of(bpm)]) << bpm;
  }
}

TEST_F(tables_test, faults_in_a_chamber_file_are_named_with_their_line) {
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
      {"4 14 14 8 strip", "4 13 13 8 strip", "button 4 lies 1.62 mm off the wall", 8},
      {"margin 3\n", "", "margin is missing", 12},
      {"margin", "margins", "unknown key margins", 11},
      {"-15 15", "-15 1500", "expected an ascending grid between 1 mm and 1 m wide", 9},
      {"solver 8", "solver 2", "expected a whole number 4..32", 12},
      {"end\n", "", "file ends without the word end", 12},
      {"end\n", "end\nend\n", "text after the word end", 14},
  };
  for (const auto& [find, put, said, line] : edits) {
    const auto read = chamber_solver::parse_chamber(edited(find, put), "chamber");
    ASSERT_FALSE(read) << said;
    EXPECT_EQ(read.why.where, fmt::format("chamber:{}", line)) << said;
    EXPECT_NE(read.why.what.find(said), std::string::npos) << read.why.what;
  }
  EXPECT_EQ(util::line_of(chamber_solver::read_chamber(path("none")).why),
            "cannot open " + path("none") + ": No such file or directory");
}

}  // namespace
