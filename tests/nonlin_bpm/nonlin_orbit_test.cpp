// The entry: control codes, offsets, table choice, calibration files, and the public interpolation.
#include <cmath>

#include "nonlin_test_tools.hpp"
#include "table_file.hpp"

namespace {

using namespace nonlin_bpm_mod;
using nonlin_test::facility;
using nonlin_test::field;
using nonlin_test::outcome;
using nonlin_test::run;
using nonlin_test::table_text;

class nonlin_orbit_test : public facility {
 protected:
  nonlin_orbit_test() {
    for (const char* name : {"bpm_48", "bpm_arc", "bpm_tirsku"}) {
      write(std::string{"nonlin_bpm/"} + name + ".table", table_text(name));
    }
    write("nonlin_bpm/button_coeff.dat", "nonlin_bpm_coeff 1\n30 1 1 1 0.5  # weak amplifier\n");
    write("nonlin_bpm/bad_button.dat", "nonlin_bpm_bad_buttons 1\n31 2\n");
    write("offset.bpm", "\n12, 0.5 -0.25\n 30 0 0\n");
  }
};

button_signals signals_of(double x, double y, double scale) {
  button_signals but{};
  for (int k = 1; k <= 4; ++k) but(k) = scale * field(k, x, y)[0];
  return but;
}

TEST_F(nonlin_orbit_test, offsets_are_taken_away_after_the_fit_and_can_be_switched) {
  position x{};
  double chisq = -9;
  const button_signals but = signals_of(0.002, -0.001, 4000);
  const outcome loaded = run([&] { nonlin_orbit(12, but, x, chisq); });
  EXPECT_EQ(loaded.text, " nonlin_bpm: initializing quad offsets\n Reading quad offsets from " +
                             path("offset.bpm") + "\n");
  // The file's vertical offset comes first: 0.5 mm up, -0.25 mm outward.
  EXPECT_NEAR(x(1), 0.002 + 0.00025, 1e-9);
  EXPECT_NEAR(x(2), -0.001 - 0.0005, 1e-9);
  EXPECT_NEAR(x(3), 4000, 1e-3);
  EXPECT_LT(chisq, 1e-20);
  EXPECT_EQ(bpm_calib(12).offset(1), -0.25 * double{0.001F});

  position same{};
  run([&] {
    nonlin_orbit(-1, but, x, chisq);
    nonlin_orbit(12, but, same, chisq);
  });
  EXPECT_NEAR(same(1), 0.002, 1e-9);

  write("offset.bpm", "12 0 1\n");
  run([&] {
    nonlin_orbit(-2, but, x, chisq);
    nonlin_orbit(12, but, same, chisq);
  });
  EXPECT_NEAR(same(1), 0.002 - 0.001, 1e-9);
  EXPECT_NEAR(same(2), -0.001, 1e-9);
}

TEST_F(nonlin_orbit_test, control_codes_and_numbers_without_a_bpm) {
  position x{{1, 2, 3}};
  double chisq = 4;
  const button_signals but = signals_of(0, 0, 1);
  run([] { nonlin_bpm_init(); });
  const std::pair<int, std::string> lines[] = {
      {121, " Bad BPM location:          121\n"},
      {-3, " Toggling normalization is no longer supported\n"},
      {-4, " Toggling normalization is no longer supported\n"},
      {-1, ""}};
  for (const auto& [code, text] : lines) {
    EXPECT_EQ(run([&, c = code] { nonlin_orbit(c, but, x, chisq); }).text, text);
    EXPECT_EQ(x.item, (std::array<double, 3>{1, 2, 3}));
    EXPECT_EQ(chisq, 4);
  }
  for (const int bpm : {0, -5}) {
    const outcome o = run([&] { nonlin_orbit(bpm, but, x, chisq); });
    EXPECT_EQ(o.status, 1);
    EXPECT_NE(o.text.find(fmt::format("subscript {} of bpm_calib is outside 1..120", bpm)),
              std::string::npos);
  }
}

TEST_F(nonlin_orbit_test, a_dead_button_gives_zero_and_leaves_chisq) {
  run([] { nonlin_bpm_init(); });
  for (const double dead : {0.0, 9.9e-11, -5.0, std::nan("")}) {
    for (const int bpm : {12, 31}) {  // a bad button must be alive too
      button_signals but = signals_of(0, 0, 4000);
      but(2) = dead;
      position x{{1, 2, 3}};
      double chisq = 4;
      nonlin_orbit(bpm, but, x, chisq);
      EXPECT_EQ(x.item, (std::array<double, 3>{0, 0, 0}));
      EXPECT_EQ(chisq, 4);
    }
  }
}

TEST_F(nonlin_orbit_test, coefficients_multiply_and_bad_buttons_are_left_out) {
  run([] { nonlin_bpm_init(); });
  position x{};
  double chisq = 0;
  button_signals but = signals_of(-0.001, 0.002, 100);
  but(4) *= 2;
  nonlin_orbit(30, but, x, chisq);
  EXPECT_NEAR(x(1), -0.001, 1e-9);
  EXPECT_NEAR(x(2), 0.002, 1e-9);
  but = signals_of(-0.001, 0.002, 100);
  but(2) *= 17;
  nonlin_orbit(31, but, x, chisq);
  EXPECT_NEAR(x(1), -0.001, 1e-9);
  EXPECT_NEAR(x(3), 100, 1e-4);
}

TEST_F(nonlin_orbit_test, tables_are_chosen_by_bpm_number) {
  run([] { nonlin_bpm_set_pointers(1); });
  EXPECT_FALSE(nonlin_bpm_first_call);
  struct range {
    int first, last;
    const table_struct* table;
  };
  for (const auto& [first, last, table] :
       {range{1, 7, &bpm_tirsku}, range{8, 47, &bpm_arc}, range{48, 51, &bpm_48},
        range{52, 92, &bpm_arc}, range{93, 110, &bpm_tirsku}, range{111, 120, &bpm_arc}}) {
    for (int bpm = first; bpm <= last; ++bpm) {
      nonlin_bpm_set_pointers(bpm);
      EXPECT_EQ(func_bpm, table) << bpm;
      EXPECT_EQ(bpm_index_com, bpm);
    }
  }
}

TEST(nonlin_bpm, rotation_uses_a_rough_pi) {
  position x{{3, 4, 5}};
  nonlin_bpm_rotate_coord(x, 90);
  const double th = 90 * 3.141590118408203 / 180;
  EXPECT_EQ(x(1), 3 * std::cos(th) + 4 * std::sin(th));
  EXPECT_EQ(x(2), -3 * std::sin(th) + 4 * std::cos(th));
  EXPECT_GT(std::abs(x(1) - 4), 1e-6);  // what the rough pi costs
  EXPECT_EQ(x(3), 5);
}

TEST_F(nonlin_orbit_test, faults_in_files_end_the_run) {
  struct fault {
    const char* file;
    const char* text;
    const char* said;
    int status;
  };
  const std::string blank(1100000, ' ');
  const std::string without_line_end = "nonlin_bpm_bad_buttons 1\n" + std::string(1100000, '#');
  const fault faults[] = {
      {"nonlin_bpm/button_coeff.dat", "", "FILE IS EMPTY IN LINE 1 OF FILE: ", 2},
      {"nonlin_bpm/button_coeff.dat", "nonlin_bpm_coeff 2\n", "EXPECTED FORMAT VERSION 1", 2},
      {"nonlin_bpm/button_coeff.dat", "nonlin_bpm_coeff 1\n\n121 1 1 1 1\n",
       "EXPECTED A BPM NUMBER 1..120, FOUND 121 IN LINE 3 OF FILE: ", 2},
      {"nonlin_bpm/button_coeff.dat", "nonlin_bpm_coeff 1\n5 1 1 1 1\n5 1 1 1 1\n",
       "BPM 5 WAS GIVEN BEFORE, IN LINE 2, IN LINE 3 OF FILE: ", 2},
      {"nonlin_bpm/button_coeff.dat", "nonlin_bpm_coeff 1\n5 1 1 0 1\n",
       "EXPECTED A COEFFICIENT ABOVE 0, FOUND 0 IN LINE 2 OF FILE: ", 2},
      {"nonlin_bpm/button_coeff.dat", "nonlin_bpm_coeff 1\n5 1 1 nan 1\n",
       "EXPECTED A COEFFICIENT ABOVE 0, FOUND nan IN LINE 2 OF FILE: ", 2},
      {"nonlin_bpm/button_coeff.dat", "nonlin_bpm_coeff 1\n5 1 1 1\n",
       "EXPECTED A BPM NUMBER AND FOUR COEFFICIENTS, FOUND 4 WORDS IN LINE 2 OF FILE: ", 2},
      {"nonlin_bpm/bad_button.dat", "nonlin_bpm_bad_buttons 1\n5 5\n",
       "EXPECTED A BUTTON NUMBER 1..4, FOUND 5 IN LINE 2 OF FILE: ", 2},
      {"nonlin_bpm/bad_button.dat", "nonlin_bpm_bad_buttons 1\n5 1\n5 2\n",
       "BPM 5 WAS GIVEN BEFORE, IN LINE 2, IN LINE 3 OF FILE: ", 2},
      {"nonlin_bpm/bad_button.dat", "nonlin_bpm_bad_buttons 1\n0 1\n",
       "EXPECTED A BPM NUMBER 1..120, FOUND 0 IN LINE 2 OF FILE: ", 2},
      {"nonlin_bpm/bpm_arc.table", "nonlin_bpm_table 1\norigins x\n",
       "ERROR IN NONLIN_BPM_INIT. UNKNOWN KEY origins IN LINE 2 OF FILE: ", 2},
      {"nonlin_bpm/bad_button.dat", without_line_end.c_str(),
       "bad_button.dat:2: no line end within 1048576 characters, expected a text file", 1},
      {"offset.bpm", blank.c_str(),
       "offset.bpm:1: no line end within 1048576 characters, expected a text file", 1},
      {"offset.bpm", "12 0.5 -0.25\n121 0 0\n13 0.5\n",
       "subscript 121 of bpm_calib is outside 1..120", 1},
      {"offset.bpm", "12 0.5 -0.25\n13 0.5\n",
       " ERROR IN NONLIN_BPM_INIT_OFFSETS. ERROR READING FILE: ", 2},
      {"offset.bpm", "12 up 0\n", " ERROR IN NONLIN_BPM_INIT_OFFSETS. ERROR READING FILE: ", 2},
      {"offset.bpm", "121 0 0\n", "subscript 121 of bpm_calib is outside 1..120", 1},
      {"offset.bpm", "0 0 0\n", "subscript 0 of bpm_calib is outside 1..120", 1},
  };
  for (const auto& [file, text, said, status] : faults) {
    const std::string good = scratch::content(path(file));
    write(file, text);
    const outcome o = run([] { nonlin_bpm_init(); });
    EXPECT_EQ(o.status, status) << text;
    EXPECT_NE(o.text.find(said), std::string::npos) << o.text << "lacks " << said;
    EXPECT_TRUE(nonlin_bpm_first_call);
    write(file, good);
  }
  std::filesystem::remove(path("offset.bpm"));
  const outcome o = run([] { nonlin_bpm_init(); });
  EXPECT_EQ(o.status, 1);
  EXPECT_NE(o.text.find("cannot open " + path("offset.bpm")), std::string::npos);
  const std::string table = path("nonlin_bpm/bpm_48.table");
  std::filesystem::remove(table);
  EXPECT_EQ(run([] {
              nonlin_bpm_init();
            }).text.find(" ERROR IN NONLIN_BPM_INIT. CANNOT OPEN FILE: " + table + "\n"),
            0U);
  EXPECT_EXIT(nonlin_bpm_init(), testing::ExitedWithCode(2),
              "\"bpmsim tables [^\"]*/nonlin_bpm\" makes this file");
}

// --- interpolation ------------------------------------------------------------------------------

TEST_F(nonlin_orbit_test, interpolation_without_a_table_says_so_and_touches_nothing) {
  derivatives d{};
  d(3)(2, 2) = 7;
  EXPECT_EQ(run([&] {
              nonlin_bpm_interpolate({{0, 0, 1}}, d);
            }).text,
            " nonlin_bpm_interpolate: func_bpm pointer must be assigned before\n"
            "                         calling this routine\n");
  EXPECT_EQ(d(3)(2, 2), 7);
}

TEST_F(nonlin_orbit_test, interpolation_at_a_node_between_nodes_and_outside) {
  run([] { nonlin_bpm_set_pointers(20); });
  derivatives d{};
  // On the first grid line in x, at a node: the cell's own coefficients.
  nonlin_bpm_interpolate({{bpm_arc.x(1), bpm_arc.y(3), 1}}, d);
  const double hx = bpm_arc.x(2) - bpm_arc.x(1), hy = bpm_arc.y(4) - bpm_arc.y(3);
  for (int k = 1; k <= 4; ++k) {
    const button_struct b = bpm_arc.grid(1, 3).b(k);
    EXPECT_EQ(d(k)(0, 0), b.c(1, 1));
    EXPECT_EQ(d(k)(1, 0), b.c(2, 1) / hx);
    EXPECT_EQ(d(k)(0, 1), b.c(1, 2) / hy);
    EXPECT_NEAR(d(k)(0, 0), b.phi, 1e-15);
  }
  // In between, times 3: the field, whose cross derivative is 300 p q. Entries beyond are scaled
  // too.
  for (auto& button : d.item) button.fill(2);
  nonlin_bpm_interpolate({{0.0013, -0.0007, 3}}, d);
  for (int k = 1; k <= 4; ++k) {
    const auto [phi, dx, dy] = field(k, 0.0013, -0.0007);
    EXPECT_NEAR(d(k)(0, 0), 3 * phi, 1e-14);
    EXPECT_NEAR(d(k)(1, 0), 3 * dx, 1e-11);
    EXPECT_NEAR(d(k)(0, 1), 3 * dy, 1e-11);
    EXPECT_NEAR(d(k)(1, 1), k == 1 || k == 4 ? 900 : -900, 1e-8);
    EXPECT_NEAR(d(k)(2, 0), 0, 1e-8);
    EXPECT_EQ(d(k)(2, 2), 6);
  }
  // Outside, on the last line, in the cell whose corner has no data.
  for (const position& x :
       {position{{-0.0081, 0, 1}}, position{{0.008, 0, 1}}, position{{0, 0.006, 1}},
        position{{0.0079, 0.0059, 1}}, position{{std::nan(""), 0, 1}}}) {
    for (auto& button : d.item) button.fill(2);
    nonlin_bpm_interpolate(x, d);
    for (int k = 1; k <= 4; ++k) EXPECT_EQ(d(k)(0, 0), 0) << x(1);
  }
  // BPM 31 has lost button 2.
  nonlin_bpm_set_pointers(31);
  nonlin_bpm_interpolate({{0.001, 0.001, 1}}, d);
  for (const double entry : d(2).item) EXPECT_EQ(entry, 0);
  EXPECT_GT(d(1)(0, 0), 0);
}

}  // namespace
