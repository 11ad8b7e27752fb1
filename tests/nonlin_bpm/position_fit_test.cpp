// The position fit on the chambers that come with the simulator, with signals of the solved walls.
#include "position_fit.hpp"

#include <cmath>
#include <map>
#include <random>

#include "cell_kernel.hpp"
#include "nonlin_test_tools.hpp"
#include "table_cells.hpp"
#include "table_maker.hpp"

namespace {

using namespace nonlin_bpm_mod;
using chamber_solver::point;

/// A default chamber, solved; its table is the one of the BPM.
struct chamber_case {
  const char* name;
  int bpm;
  table_struct* table;
  chamber_solver::table_work work{};
};

// Solving takes a moment: done once for each chamber that a test asks for.
chamber_case& chamber(std::size_t ix) {
  static std::array<chamber_case, 3> all{
      {{"bpm_48", 48, &bpm_48}, {"bpm_arc", 20, &bpm_arc}, {"bpm_tirsku", 1, &bpm_tirsku}}};
  chamber_case& c = all[ix];
  if (c.work.nodes.node.empty()) {
    c.work = chamber_solver::begin_table(chamber_solver::default_chamber_at(ix));
    for (int iy = 1; iy <= c.work.nodes.y.n; ++iy) chamber_solver::fill_row(c.work, iy);
  }
  if (c.table->grid.item.empty()) build_table(c.work.nodes, *c.table);
  nonlin_bpm_first_call = false;
  return c;
}
chamber_case& arc() { return chamber(1); }

button_signals signals_of(const chamber_case& c, point z) {
  const auto at = chamber_solver::signals_at(c.work.solved, z);
  button_signals but{};
  for (int k = 1; k <= 4; ++k) but(k) = 1e4 * at.phi[k - 1];
  return but;
}

// Random places where the table has data.
std::vector<point> random_places(const chamber_case& c, int n) {
  std::mt19937_64 random(20251);
  std::uniform_real_distribution<double> part(0, 1);
  std::vector<point> places;
  cell_values v;
  while (static_cast<int>(places.size()) < n) {
    const auto& x = c.table->x.item;
    const auto& y = c.table->y.item;
    const point z{x.front() + part(random) * (x.back() - x.front()),
                  y.front() + part(random) * (y.back() - y.front())};
    if (evaluate_cell<false>(*c.table, z.real(), z.imag(), v) && v.phi[0] > 0) places.push_back(z);
  }
  return places;
}

struct fitted {
  position x{};
  double chi2 = 0;
};
fitted fit(int bpm, const button_signals& but) {
  fitted f;
  nonlin_bpm_minimize(bpm, but, f.x, f.chi2);
  return f;
}

TEST(position_fit, finds_beams_all_over_every_table_also_with_a_bad_button) {
  for (const std::size_t ix : {0, 1, 2}) {
    chamber_case& c = chamber(ix);
    const std::vector<point> places = random_places(c, 3000);
    for (int bad = 0; bad <= 4; ++bad) {
      SCOPED_TRACE(fmt::format("{}, bad button {}", c.name, bad));
      bpm_calib(c.bpm).ix_bad_button = bad;
      double largest = 0, squares = 0;
      int failed = 0;
      for (const point z : places) {
        button_signals but = signals_of(c, z);
        if (bad != 0) but(bad) = 1e6;
        const fitted f = fit(c.bpm, but);
        if (f.chi2 < 0) {
          ++failed;
          continue;
        }
        const double error = std::abs(point{f.x(1), f.x(2)} - z);
        largest = std::max(largest, error);
        squares += error * error;
      }
      EXPECT_LE(failed, 1);
      EXPECT_LT(largest, 2e-6);
      EXPECT_LT(std::sqrt(squares / static_cast<double>(places.size())), 5e-8);
    }
    bpm_calib(c.bpm).ix_bad_button = 0;
  }
}

TEST(position_fit, symmetries_scale_and_coefficients) {
  chamber_case& c = arc();
  const button_signals b = signals_of(c, {0.0083, -0.0047});
  const position x = fit(c.bpm, b).x;
  const position flipped_x = fit(c.bpm, {{b(2), b(1), b(4), b(3)}}).x;
  const position flipped_y = fit(c.bpm, {{b(3), b(4), b(1), b(2)}}).x;
  EXPECT_NEAR(flipped_x(1), -x(1), 1e-9);
  EXPECT_NEAR(flipped_x(2), x(2), 1e-9);
  EXPECT_NEAR(flipped_y(1), x(1), 1e-9);
  EXPECT_NEAR(flipped_y(2), -x(2), 1e-9);

  const position louder = fit(c.bpm, {{10 * b(1), 10 * b(2), 10 * b(3), 10 * b(4)}}).x;
  EXPECT_NEAR(louder(1), x(1), 1e-12);
  EXPECT_NEAR(louder(3), 10 * x(3), 1e-9 * x(3));

  bpm_calib(c.bpm).coeff(3) = 0.5;
  const position corrected = fit(c.bpm, {{b(1), b(2), 2 * b(3), b(4)}}).x;
  bpm_calib(c.bpm).coeff(3) = 1;
  for (int i = 1; i <= 3; ++i) EXPECT_EQ(corrected(i), x(i));

  const button_signals centre = signals_of(c, 0);
  EXPECT_NEAR(fit(c.bpm, centre).x(3) / (centre(1) + centre(2) + centre(3) + centre(4)), 1, 1e-9);
}

TEST(position_fit, failures_are_told_apart) {
  chamber_case& c = arc();
  const auto expect_failure = [&](const button_signals& but, double code) {
    const fitted f = fit(c.bpm, but);
    EXPECT_EQ(f.chi2, code);
    EXPECT_EQ(f.x.item, (std::array<double, 3>{0, 0, 0}));
  };
  // Between table and wall: on the axis beyond 30 mm, and within 4 mm of the rounded end.
  for (const point z : {point{0.0335, 0}, point{-0.038, 0.001}, point{0.0005, 0.0228}}) {
    SCOPED_TRACE(z);
    expect_failure(signals_of(c, z), -1);
  }
  for (const double strange : {std::nan(""), HUGE_VAL, -1e9})
    expect_failure({{1, 1, strange, 1}}, -4);
  expect_failure({{0, 0, 0, 0}}, -4);
  expect_failure({{1e308, 1e308, 1e308, 1e308}}, -4);

  // Whatever the signals, the fit ends, and never with a position outside the table.
  std::mt19937_64 random(7);
  std::uniform_real_distribution<double> decade(-4, 4);
  for (int n = 0; n < 5000; ++n) {
    button_signals but{};
    for (double& signal : but.item) signal = std::pow(10, decade(random));
    const fitted f = fit(c.bpm, but);
    EXPECT_LE(std::abs(f.x(1)), 0.03);
    EXPECT_LE(std::abs(f.x(2)), 0.02);
    EXPECT_FALSE(std::isnan(f.chi2));
  }
}

// At the solution the gradient of chi2 in x, y and scale, by the public interpolation, vanishes:
// the closed 3 x 3 step led to a true minimum also where readings do not fit the chamber.
TEST(position_fit, ends_where_the_gradient_vanishes) {
  chamber_case& c = arc();
  std::mt19937_64 random(3);
  std::normal_distribution<double> gain(1, 0.05);
  for (const point z : random_places(c, 300)) {
    if (std::abs(z.real()) > 0.024 || std::abs(z.imag()) > 0.015) continue;
    button_signals but = signals_of(c, z);
    for (double& signal : but.item) signal *= gain(random);
    const fitted f = fit(c.bpm, but);
    if (f.chi2 < 0) continue;
    const double sum = but(1) + but(2) + but(3) + but(4);
    derivatives d{};
    nonlin_bpm_interpolate({{f.x(1), f.x(2), f.x(3) / sum}}, d);
    double gx = 0, gy = 0, gs = 0, chi2 = 0;
    for (int k = 1; k <= 4; ++k) {
      const double r = d(k)(0, 0) - but(k) / sum;
      gx += r * d(k)(1, 0);
      gy += r * d(k)(0, 1);
      gs += r * d(k)(0, 0);
      chi2 += r * r;
    }
    EXPECT_NEAR(chi2, f.chi2, 1e-14);
    // A last step below 1e-7 m leaves a gradient of about 1e-7 m times the slope squared.
    EXPECT_NEAR(gx, 0, 1e-5);
    EXPECT_NEAR(gy, 0, 1e-5);
    EXPECT_NEAR(gs, 0, 1e-12);
  }
}

// Beams, and what no beam gives.
std::vector<button_signals> good_and_bad_readings(const chamber_case& c, int n) {
  std::vector<button_signals> but;
  std::mt19937_64 random(5);
  std::normal_distribution<double> gain(1, 0.03);
  for (const point z : random_places(c, n)) {
    but.push_back(signals_of(c, z));
    if (but.size() % 3 == 0)
      for (double& signal : but.back().item) signal *= gain(random);
  }
  but[3].fill(0);
  but[8](2) = std::nan("");
  but[9](1) = 1e6;  // no beam inside gives this
  but[17](3) = -1;
  return but;
}

// In portions of every length and with every instruction set: each as if it were alone.
TEST(position_fit, of_many_is_that_of_each) {
  const chamber_case& c = arc();
  const std::vector<button_signals> but = good_and_bad_readings(c, 3000);
  calib_struct calib;
  calib.coeff = {{1, 1.02, 0.99, 1.01}};
  for (const int bad : {0, 3}) {
    calib.ix_bad_button = bad;
    std::vector<position> alone(but.size()), x(but.size());
    std::vector<double> chi2_alone(but.size()), chi2(but.size());
    int failed = 0;
    for (std::size_t i = 0; i < but.size(); ++i) {
      fit_position(*c.table, calib, but[i], alone[i], chi2_alone[i]);
      failed += chi2_alone[i] < 0 ? 1 : 0;
    }
    EXPECT_GE(failed, 2);
    EXPECT_LT(failed, 400);
    for (const std::string_view set : position_instruction_sets()) {
      std::size_t next = 0;
      for (std::size_t n = 1; next < but.size(); ++n) {
        const std::size_t some = std::min(n, but.size() - next);
        fit_positions_with(set, *c.table, calib, std::span(but).subspan(next, some),
                           std::span(x).subspan(next, some), std::span(chi2).subspan(next, some));
        next += some;
      }
      for (std::size_t i = 0; i < but.size(); ++i) {
        EXPECT_EQ(x[i].item, alone[i].item) << set << " " << i;
        EXPECT_EQ(chi2[i], chi2_alone[i]) << set << " " << i;
      }
    }
  }
}

// The short lists end at the start node that a look at all of them ends at: another start would show
// in the last bits.
TEST(position_fit, short_lists_of_start_nodes_change_nothing) {
  for (const std::size_t ix : {0, 1, 2}) {
    const chamber_case& c = chamber(ix);
    SCOPED_TRACE(c.name);
    table_struct without = *c.table;
    for (start_map::bucket& bucket : without.near.buckets) bucket = {};
    int differ = 0;
    for (const button_signals& but : good_and_bad_readings(c, 5000)) {
      position near{}, of_all{};
      double chi2_near = 0, chi2_of_all = 0;
      fit_position(*c.table, {}, but, near, chi2_near);
      fit_position(without, {}, but, of_all, chi2_of_all);
      if (near.item != of_all.item || chi2_near != chi2_of_all) ++differ;
    }
    EXPECT_EQ(differ, 0);
  }
}

}  // namespace
