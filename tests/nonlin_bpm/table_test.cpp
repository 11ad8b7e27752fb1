// Table files, and the cells made from them.
#include <cmath>
#include <complex>
#include <regex>

#include "cell_kernel.hpp"
#include "linear_algebra.hpp"
#include "nonlin_test_tools.hpp"
#include "table_cells.hpp"
#include "table_file.hpp"
#include "table_writer.hpp"

namespace {

using namespace nonlin_bpm_mod;
using nonlin_test::facility;
using nonlin_test::field;
using nonlin_test::table_text;

class table_file_test : public facility {};

void expect_same(const table_struct& a, const table_struct& b, double tolerance) {
  ASSERT_EQ(a.grid.nx, b.grid.nx);
  ASSERT_EQ(a.grid.ny, b.grid.ny);
  for (int iy = 1; iy <= a.grid.ny; ++iy) {
    EXPECT_NEAR(a.y(iy), b.y(iy), tolerance);
    for (int ix = 1; ix <= a.grid.nx; ++ix) {
      for (int k = 1; k <= 4; ++k) {
        const button_struct p = a.grid(ix, iy).b(k), q = b.grid(ix, iy).b(k);
        EXPECT_NEAR(p.phi, q.phi, tolerance) << ix << " " << iy << " " << k;
        EXPECT_NEAR(p.dphi_dx, q.dphi_dx, 100 * tolerance);
        EXPECT_NEAR(p.dphi_dy, q.dphi_dy, 100 * tolerance);
        for (std::size_t i = 0; i < 16; ++i) EXPECT_NEAR(p.c.item[i], q.c.item[i], tolerance);
      }
    }
  }
}

std::string with_cr(const std::string& text) {
  return std::regex_replace(text, std::regex("\n"), "\r\n");
}

TEST_F(table_file_test, unit_scale_line_ends_and_comments_change_nothing) {
  const auto plain = read_table_file(write("a", table_text("t")), "t");
  ASSERT_TRUE(plain);
  const std::pair<const char*, std::string> variants[] = {
      {"millimetres", table_text("t", 1, 1e-3)},
      {"seven times the signals", table_text("t", 7)},
      {"CR LF", with_cr(table_text("t"))},
      {"comments and blank lines",
       "# made by hand\n\n" +
           std::regex_replace(table_text("t"), std::regex("\n"), "\t # node\n\n")}};
  for (const auto& [what, text] : variants) {
    SCOPED_TRACE(what);
    const auto other = read_table_file(write("b", text), "t");
    ASSERT_TRUE(other);
    expect_same(*plain, *other, 1e-14);
  }
}

TEST_F(table_file_test, what_the_maker_writes_reads_back_to_twelve_digits) {
  const table_nodes first = *read_table_nodes(write("a", table_text("t")), "t");
  sim::write_table(first, path("b"));
  const table_nodes second = *read_table_nodes(path("b"), "t");
  ASSERT_EQ(first.node.size(), second.node.size());
  EXPECT_EQ(first.x.last, second.x.last);
  for (std::size_t i = 0; i < first.node.size(); ++i) {
    ASSERT_EQ(first.node[i].out, second.node[i].out);
    for (std::size_t k = 0; k < 4; ++k) {
      EXPECT_NEAR(first.node[i].phi[k], second.node[i].phi[k], 1e-12);
      EXPECT_NEAR(first.node[i].dphi_dy[k], second.node[i].dphi_dy[k], 1e-11);
    }
  }
}

TEST_F(table_file_test, every_fault_is_a_value_with_file_and_line) {
  struct edit {
    const char* find;  // first match of this ...
    const char* put;   // ... becomes this
    const char* said;
    int line;
  };
  const edit edits[] = {
      {"nonlin_bpm_table", "bpm_table", "EXPECTED nonlin_bpm_table AS FIRST WORD, FOUND bpm_table",
       1},
      {"table 1", "table 2", "EXPECTED FORMAT VERSION 1 AFTER nonlin_bpm_table", 1},
      {"[^]*", "", "FILE IS EMPTY", 1},
      {"origin", "origins", "UNKNOWN KEY origins", 3},
      {"origin computed", "name t", "KEY name WAS GIVEN BEFORE, IN LINE 2,", 3},
      {"units m\n", "", "KEY units IS MISSING", 7},
      {"units m", "units cm", "EXPECTED UNITS m OR mm, FOUND cm", 4},
      {"units m", "units mm", "EXPECTED A GRID BETWEEN 1 MM AND 1 M WIDE", 5},
      {"name t", "name u", "EXPECTED TABLE NAME t, FOUND u", 2},
      {"x_grid 9", "x_grid 4", "EXPECTED A GRID COUNT 5..2000, FOUND 4", 5},
      {"x_grid 9", "x_grid nine", "EXPECTED A GRID COUNT 5..2000, FOUND nine", 5},
      {"-0.008 0.008", "0.008 -0.008", "EXPECTED AN ASCENDING GRID", 5},
      {"-0.008 0.008", "-0.008", "EXPECTED 3 WORDS AFTER x_grid, FOUND 2", 5},
      {"dphi_dx dphi_dy", "dphi_dy dphi_dx", "EXPECTED COLUMNS phi dphi_dx dphi_dy", 7},
      {"data\n[^]*", "", "FILE ENDS BEFORE THE WORD data", 7},
      {"3 1 ", "4 1 ", "EXPECTED NODE 3 1", 11},
      {"1 1 [^ ]+", "1 1", "EXPECTED 12 VALUES OR THE WORD out, FOUND 11", 9},
      {"1 1 [^ ]+", "1 1 1 1", "EXPECTED 12 VALUES OR THE WORD out, FOUND 13", 9},
      {"1 1 [^ ]+", "1 1 nan", "EXPECTED A NUMBER, FOUND nan", 9},
      {"1 1 [^ ]+", "1 1 1e999", "EXPECTED A NUMBER, FOUND 1e999", 9},
      {"1 1 [^ ]+", "1 1 -0.2", "EXPECTED A SIGNAL ABOVE 0 FOR BUTTON 1, FOUND -0.2", 9},
      {"\n5 4 [^]*", "\n", "FILE ENDS BEFORE NODE 5 4", 39},
      {"end\n", "", "FILE ENDS WITHOUT THE WORD end", 71},
      {"end\n", "end\n# fine\nmore\n", "TEXT AFTER THE WORD end", 74},
      {"4 3 ([^ ]+) [^ ]+", "4 3 $1 40", "SLOPES DO NOT GO WITH THE VALUES", 30},
      {"\n5 4 [^\n]*", "\n5 4 out", "(0, 0) IS NOT IN A USABLE CELL", 72},
  };
  for (const auto& [find, put, said, line] : edits) {
    const std::string text = std::regex_replace(table_text("t"), std::regex(find), put,
                                                std::regex_constants::format_first_only);
    const std::string name = write("bad", text);
    const auto table = read_table_file(name, "t");
    ASSERT_FALSE(table) << said;
    EXPECT_TRUE(table.why.what.starts_with(said)) << table.why.what;
    EXPECT_EQ(table.why.where, fmt::format("{}:{}", name, line)) << said;
  }
  EXPECT_EQ(util::line_of(read_table_file(path("none"), "t").why),
            path("none") + ": No such file or directory");
  // No text at all: the fault of reading, not of what was read.
  const std::string endless = write("endless", std::string(1100000, ' '));
  EXPECT_EQ(util::line_of(read_table_nodes(endless, "t").why),
            endless + ":1: no line end within 1048576 characters, expected a text file");
}

TEST_F(table_file_test, mirrored_buttons_and_wrong_slope_units_are_noticed) {
  // Buttons 1 and 2 exchanged: the field grows the wrong way. Slopes per millimetre: off by 1000.
  std::string mirrored = table_text("t"), per_mm = table_text("t");
  const std::string number = " ([^ \n]+)";
  mirrored = std::regex_replace(
      mirrored, std::regex("\n(\\d+ \\d+)" + number + number + number + number + number + number),
      "\n$1 $5 $6 $7 $2 $3 $4");
  EXPECT_EQ(read_table_file(write("a", mirrored), "t").why.what,
            "BUTTON 1 DOES NOT GROW TOWARDS ITS OWN QUADRANT AT (0, 0)");
  per_mm = std::regex_replace(table_text("t", 1, 1e-3), std::regex("units mm"), "units m");
  per_mm = std::regex_replace(per_mm, std::regex("x_grid 9 -8 8\ny_grid 7 -6 6"),
                              "x_grid 9 -0.008 0.008\ny_grid 7 -0.006 0.006");
  EXPECT_EQ(read_table_file(write("b", per_mm), "t").why.what, "SLOPES DO NOT GO WITH THE VALUES");
}

// --- cells --------------------------------------------------------------------------------------

// Nodes of four harmonic cubics, or quartics, with their slopes: all but one corner usable. Steps
// are 2 mm in x and 1.5 mm in y.
table_nodes cubic_nodes(std::complex<double> quartic = 0) {
  table_nodes nodes;
  nodes.x = {11, -0.01, 0.01};
  nodes.y = {9, -0.006, 0.006};
  for (int iy = 1; iy <= 9; ++iy) {
    for (int ix = 1; ix <= 11; ++ix) {
      const std::complex<double> z{nodes.x.at(ix), nodes.y.at(iy)};
      table_node node;
      node.out = ix == 11 && iy == 9;
      for (std::size_t k = 0; k < 4; ++k) {
        const auto corner = std::polar(1.0, std::atan2(k > 1 ? 1 : -1, k % 2 == 1 ? 1 : -1));
        const auto w = 8.0 * z / corner + 5e3 * z * z * z + quartic * z * z * z * z;
        const auto slope = 8.0 / corner + 15e3 * z * z + 4.0 * quartic * z * z * z;
        node.phi[k] = 0.25 + w.real();
        node.dphi_dx[k] = slope.real();
        node.dphi_dy[k] = -slope.imag();
      }
      nodes.node.push_back(node);
    }
  }
  return nodes;
}

TEST(table_cells, harmonic_cubic_is_exact_except_in_corner_cells) {
  table_struct table;
  ASSERT_EQ(build_table(cubic_nodes(), table), "");
  for (const double x : {-0.0099, -0.004, 0.0, 0.0033, 0.0097}) {
    for (const double y : {-0.0051, -0.003, 0.0007, 0.0049}) {
      if (std::abs(x) > 0.008 && std::abs(y) > 0.0045) continue;
      cell_values v;
      cell_curvatures second;
      ASSERT_TRUE(evaluate_cell<true>(table, x, y, v, &second));
      const std::complex<double> z{x, y};
      for (int k = 0; k < 4; ++k) {
        const auto corner = std::polar(1.0, std::atan2(k > 1 ? 1 : -1, k % 2 == 1 ? 1 : -1));
        EXPECT_NEAR(v.phi[k], 0.25 + (8.0 * z / corner + 5e3 * z * z * z).real(), 1e-15);
        EXPECT_NEAR(v.dx[k], (8.0 / corner + 15e3 * z * z).real(), 1e-12);
        EXPECT_NEAR(second.xx[k], 30e3 * x, 1e-8);
        EXPECT_NEAR(second.yy[k], -30e3 * x, 1e-8);
        EXPECT_NEAR(second.xy[k], -30e3 * y, 1e-8);
      }
    }
  }
}

// Of a harmonic field the errors of the two difference quotients have opposite signs and go with
// the squares of the steps: weighted crosswise they cancel.
TEST(table_cells, cross_slope_of_a_quartic_is_exact_though_the_steps_differ) {
  const std::complex<double> quartic{3e5, 1e6};
  table_struct table;
  ASSERT_EQ(build_table(cubic_nodes(quartic), table), "");
  for (const int ix : {3, 6, 9}) {
    for (const int iy : {2, 5, 7}) {
      const std::complex<double> z{table.x(ix), table.y(iy)};
      cell_values v;
      cell_curvatures second;
      ASSERT_TRUE(evaluate_cell<true>(table, z.real(), z.imag(), v, &second));
      const double expected = -(30e3 * z + 12.0 * quartic * z * z).imag();
      for (int k = 0; k < 4; ++k) EXPECT_NEAR(second.xy[k], expected, 1e-7) << ix << " " << iy;
    }
  }
}

TEST(table_cells, value_and_slopes_continue_across_every_border) {
  table_struct table;
  ASSERT_EQ(build_table(cubic_nodes(), table), "");
  constexpr double below = 1 - 1e-15;
  cell_values a, b;
  const auto compare = [&](double x1, double y1, double x2, double y2) {
    evaluate_cell<false>(table, x1, y1, a);
    evaluate_cell<false>(table, x2, y2, b);
    if (a.phi[0] == 0 || b.phi[0] == 0) return;  // beside the corner without data
    for (int k = 0; k < 4; ++k) {
      EXPECT_NEAR(a.phi[k], b.phi[k], 1e-14);
      EXPECT_NEAR(a.dx[k], b.dx[k], 1e-11);
      EXPECT_NEAR(a.dy[k], b.dy[k], 1e-11);
    }
  };
  for (int i = 2; i <= 10; ++i) {
    for (const double y : {-0.0058, -0.0011, 0.0043}) {
      const double x = table.x(i);
      compare(x, y, x > 0 ? x * below : x / below, y);
    }
  }
  for (int i = 2; i <= 8; ++i) {
    for (const double x : {-0.0097, 0.0012, 0.0091}) {
      const double y = table.y(i);
      compare(x, y, x, y > 0 ? y * below : y / below);
    }
  }
}

TEST(table_cells, nodes_know_their_linear_answer_and_loudest_buttons) {
  table_struct table;
  ASSERT_EQ(build_table(cubic_nodes(), table), "");
  const grid_struct& node = table.grid(8, 7);  // up and outward: TO, then TI or BO
  EXPECT_EQ(node.ix_max_phi, 4);
  EXPECT_EQ(node.ix_max2_phi, node.b(2).phi > node.b(3).phi ? 2 : 3);
  // Signals of a beam a little off the node, times 5, give the way to it and the 5.
  const double dx = 3e-4, dy = -2e-4;
  std::array<double, 5> v{};
  for (int k = 1; k <= 4; ++k) {
    const button_struct b = node.b(k);
    v[static_cast<std::size_t>(k)] = 5 * (b.phi + b.dphi_dx * dx + b.dphi_dy * dy);
  }
  const double q[] = {v[2] + v[4] - v[1] - v[3], v[3] + v[4] - v[1] - v[2],
                      v[1] + v[2] + v[3] + v[4]};
  const double expected[] = {5 * dx, 5 * dy, 5};
  for (int i = 1; i <= 3; ++i) {
    double a = 0;
    for (int j = 1; j <= 3; ++j) a += node.response_mat(i, j) * q[j - 1];
    EXPECT_NEAR(a, expected[i - 1], 1e-12);
  }
  EXPECT_EQ(table.grid(11, 9).ix_max_phi, 0);
}

TEST(locate, finds_the_step_that_holds_the_value) {
  const std::vector<double> t{-1, 0, 2};
  const std::pair<double, int> cases[] = {{-1.5, 0}, {-1, 1}, {-0.5, 1}, {0, 2},        {1.9, 2},
                                          {2, 3},    {5, 3},  {NAN, 0},  {-INFINITY, 0}};
  for (const auto& [value, place] : cases) EXPECT_EQ(locate(t, value), place) << value;
  // The search that looks first at the expected place gives the same, whatever it expects.
  for (const double guess : {0.0, 0.5, 100.0}) {
    for (const auto& [value, place] : cases) EXPECT_EQ(locate_equal(t, guess, value), place);
  }
}

TEST(linear_algebra, inverse_and_solution_of_small_systems) {
  std::vector<double> a{2, 1, 1, 1};  // inverse by hand: 1 -1 -1 2
  ASSERT_TRUE(linear_algebra::invert_matrix(a, 2));
  EXPECT_EQ(a, (std::vector<double>{1, -1, -1, 2}));
  std::vector<double> m{2, 1, 0, 4}, b{2, 9};  // columns first: 2 x = 2, x + 4 y = 9
  ASSERT_TRUE(linear_algebra::solve_linear(m, b, 2, 1));
  EXPECT_EQ(b, (std::vector<double>{1, 2}));
  std::vector<double> singular{1, 2, 2, 4};
  EXPECT_FALSE(linear_algebra::invert_matrix(singular, 2));
}

}  // namespace
