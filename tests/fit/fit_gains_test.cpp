#include "fit_gains.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
#include <string>
#include <vector>

#include "beam.hpp"
#include "gain_fit_mod.hpp"
#include "kept_solver.hpp"
#include "scratch_fixture.hpp"

namespace {
using namespace gain_fit_mod;

struct results {
  chis_saved chis{};
  gains_saved gains{};
  coeffs_saved coeffs{};
  covar_saved covar{};
  std::vector<std::string> lines;
};

results run() {
  results r;
  r.chis(5) = -7;
  r.gains.fill(-7);
  r.coeffs.fill(-7);
  testing::internal::CaptureStdout();
  fit_gains(r.chis, r.gains, r.coeffs, r.covar);
  std::istringstream text{testing::internal::GetCapturedStdout()};
  for (std::string line; std::getline(text, line);) r.lines.push_back(line);
  return r;
}

// Singular matrices leave fort.111 behind.
struct bpm_fit : scratch::fixture {
  void SetUp() override {
    reset();
    mrqmin_mod::reset();
  }
};

// The relation holds to second order in the beam's position: the tolerance is that of the physics,
// some 1e-4 at 5 mm.
TEST_F(bpm_fit, recovers_the_gains_of_a_simulated_pipe) {
  struct {
    const char* what;
    double range, noise, tolerance;
  } const cases[] = {{"3 mm", 3, 0, 3e-4},   {"3 mm, noise", 3, 1e-4, 3e-4},
                     {"5 mm", 5, 0, 3e-4},   {"5 mm, noise", 5, 1e-4, 3e-4},
                     {"10 mm", 10, 0, 1e-3}, {"10 mm, noise", 10, 1e-4, 1e-3}};
  unsigned seed = 1;
  for (const auto& [what, range, noise, tolerance] : cases) {
    SCOPED_TRACE(what);
    beam::fill_store({.half_range_x = range,
                      .half_range_y = range,
                      .noise = noise,
                      .seed = seed++,
                      .true_gain = {{1.04, 0.97, 1.01, 0.93}}});
    const results r = run();
    const auto& truth = orbit_data(1).detector(1).true_gain;
    for (int f = 1; f <= 4; ++f)
      for (int k = 2; k <= 4; ++k)
        EXPECT_NEAR(r.gains(f, 1) / r.gains(f, k), truth(k) / truth(1), tolerance) << f << k;
  }
}

TEST_F(bpm_fit, saves_what_the_session_relies_on) {
  beam::fill_store({.noise = 1e-4, .orbits = 60, .true_gain = {{1.04, 0.97, 1.01, 0.93}}});
  const results r = run();
  for (int k = 1; k <= 4; ++k) {
    EXPECT_EQ(r.chis(k), r.chis(4));
    EXPECT_EQ(r.gains(5, k), 0);
    EXPECT_EQ(r.gains(4, k), gain(k));
    EXPECT_EQ(r.coeffs(4, k), coefficients(k));
    for (int j = 1; j <= 8; ++j) {
      EXPECT_EQ(r.covar(k, k, j), 0);  // fit k holds gain k
      EXPECT_EQ(r.covar(k, j, k), 0);
    }
  }
  EXPECT_EQ(r.chis(5), -7);
  EXPECT_EQ(const_, coefficients(1));
  EXPECT_EQ(ind, 4);
  EXPECT_EQ(nterms, 60);
  EXPECT_EQ(nvar, 8);
}

std::string field(const std::string& line, std::size_t from) { return line.substr(from, 12); }

// The lines of one repetition: start, four of the sweep, a blank one, the full fit's, final.
struct repetition {
  std::vector<std::string> sweep, full;
};

std::vector<repetition> split(const std::vector<std::string>& lines) {
  std::vector<repetition> all;
  bool in_sweep = true;
  for (const std::string& line : lines) {
    if (line.starts_with(" ind = ")) {
      all.emplace_back();
      in_sweep = true;
    } else if (line == "  ") {
      in_sweep = false;
    } else if (line.find(" coef = ") != std::string::npos) {
      (in_sweep ? all.back().sweep : all.back().full).push_back(line);
    }
  }
  return all;
}

constexpr std::size_t gains_at = 27;  // column of gain 1 in a progress line

// Strong gain errors, so that each step shows in four decimals.
TEST_F(bpm_fit, sweep_moves_neighbouring_pairs_and_the_full_fit_holds_one) {
  beam::fill_store({.orbits = 200, .true_gain = {{1.1, 0.9, 1.05, 0.92}}});
  const auto repetitions = split(run().lines);
  ASSERT_EQ(repetitions.size(), 4U);
  for (int held = 1; held <= 4; ++held) {
    SCOPED_TRACE(held);
    const auto& [sweep, full] = repetitions[static_cast<std::size_t>(held - 1)];
    ASSERT_EQ(sweep.size(), 4U);
    // After the first call only the pair (held, held + 1) has left 1.
    for (int k = 1; k <= 4; ++k) {
      const bool moved =
          field(sweep[0], gains_at + 12 * static_cast<std::size_t>(k - 1)) != "      1.0000";
      EXPECT_EQ(moved, k == held || k == held % 4 + 1) << k;
    }
    // The held gain stays where the sweep left it.
    const std::size_t column = gains_at + 12 * static_cast<std::size_t>(held - 1);
    for (const std::string& line : full) EXPECT_EQ(field(line, column), field(sweep[3], column));
    EXPECT_GE(full.size(), 2U);
    EXPECT_LE(full.size(), 102U);
  }
}

// A beam on the axis with equal buttons: chi-square is 0 at once, and damping shows a rejected
// step.
TEST_F(bpm_fit, lines_to_the_character_and_the_earliest_end) {
  bpm = 3;
  norbits = 2;
  for (int orbit = 1; orbit <= 2; ++orbit) orbit_data.edit(orbit, 3).button = {{7, 7, 7, 7}};
  std::vector<std::string> told;
  for (const std::string& line : run().lines)
    if (line != " gaussj: singular matrix (2)") told.push_back(line);
  ASSERT_EQ(told.size(), 4U * 10);
  const std::string ones = "      1.0000      1.0000      1.0000      1.0000";
  const std::string chis = " chis2 =   0.0000D+00 gain " + ones;
  const std::string coef = " coef =       0.1947     10.4048     -0.0580      0.0157 alambda";
  EXPECT_EQ(told[20], " ind =            3");
  EXPECT_EQ(told[21], chis);
  EXPECT_EQ(told[22], chis + coef + "  0.1000D-01");
  EXPECT_EQ(told[25], chis + coef + "  0.1000D+02");
  EXPECT_EQ(told[26], "  ");
  EXPECT_EQ(told[27], chis + coef + "  0.1000D-01");
  EXPECT_EQ(told[28], chis + coef + "  0.0000D+00");  // the finishing call
  EXPECT_EQ(told[29], "   final" + chis + " const =      0.1947");
}

TEST_F(bpm_fit, no_orbits_and_signals_that_cancel_come_to_an_end) {
  bpm = 1;
  norbits = 0;
  results r = run();
  EXPECT_EQ(r.lines[1].substr(0, 21), " chis2 =          NaN");

  norbits = 20;
  for (int orbit = 1; orbit <= 20; ++orbit)
    orbit_data.edit(orbit, 1).button = {{100.0 + orbit, 100, 90, 110}};
  orbit_data.edit(5, 1).button = {{1, -1, 1, -1}};
  r = run();
  EXPECT_EQ(split(r.lines).size(), 4U);
}

}  // namespace
