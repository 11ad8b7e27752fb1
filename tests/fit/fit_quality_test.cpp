#include "fit_quality.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "beam.hpp"

namespace {
using namespace gain_fit_mod;

using readings = std::vector<signals>;

constexpr coefficient_set curve{{0.2, 10, 0.03, 0.07}};

// Signals for unit gains that stand at X and Y, and Q away from the curve.
signals at(double X, double Y, double off = 0) {
  const double u = X * Y;
  const double Q = 0.2 * (std::sin(10 * u) + 0.1 * std::sin(20 * u)) + off;
  return {
      {1e6 * (1 + X + Y + Q), 1e6 * (1 - X + Y - Q), 1e6 * (1 + X - Y - Q), 1e6 * (1 - X - Y + Q)}};
}

// A grid over +-0.3 in X and +-0.2 in Y, never the same reading twice.
readings well_moved(int n) {
  readings r;
  for (int i = 0; i < n; ++i)
    r.push_back(at(0.006 * (i * 37 % 101 - 50), 0.004 * (i * 59 % 97 - 48)));
  return r;
}

// Four fits that agree on unit gains, up to a common factor each, and left this rms residual.
four_fits agreeing(std::size_t orbits, double rms_residual) {
  four_fits fits;
  for (std::size_t f = 0; f < 4; ++f) {
    fits.fit[f].gain.fill(0.9 + 0.1 * static_cast<double>(f));
    fits.fit[f].coefficients = curve;
    fits.fit[f].chisq = rms_residual * rms_residual * static_cast<double>(orbits - 7);
  }
  return fits;
}

gain_quality judged(const readings& r, double rms_residual) {
  return judge_gains(r, agreeing(r.size(), rms_residual));
}

bool says(const gain_quality& q, const std::string& text) {
  return q.reason.find(text) != std::string::npos;
}

// --- figures --------------------------------------------------------------------------------------

// Central differences of chi1 and Gauss-Jordan elimination, h2 standing for both weights.
double uncertainty_by_differences(const readings& r, int held, double rms_residual) {
  std::vector<int> moved;
  for (int i = 1; i <= 7; ++i)
    if (i != held) moved.push_back(i);
  const parameters p{{1, 1, 1, 1, curve(1), curve(2), curve(3), curve(4)}};
  std::array<std::array<double, 12>, 6> A{};
  for (std::size_t i = 0; i < 6; ++i) A[i][6 + i] = 1;
  for (const signals& but : r) {
    std::array<double, 6> slope{};
    for (std::size_t i = 0; i < 6; ++i) {
      parameters up = p, down = p;
      up(moved[i]) += 1e-5;
      down(moved[i]) -= 1e-5;
      slope[i] = (chi1(up, but) - chi1(down, but)) / 2e-5;
    }
    for (std::size_t i = 0; i < 6; ++i)
      for (std::size_t j = 0; j < 6; ++j) A[i][j] += slope[i] * slope[j];
  }
  for (std::size_t i = 0; i < 6; ++i) {
    const double pivot = A[i][i];
    for (double& a : A[i]) a /= pivot;
    for (std::size_t k = 0; k < 6; ++k) {
      const double f = A[k][i];
      for (std::size_t j = 0; j < 12 && k != i; ++j) A[k][j] -= f * A[i][j];
    }
  }
  double largest = 0;
  for (std::size_t i = 0; i < 3; ++i) largest = std::max(largest, std::sqrt(A[i][6 + i]));
  return largest * rms_residual;
}

TEST(fit_quality, uncertainty_counts_the_two_weights_as_one) {
  for (const int orbits : {12, 40, 400}) {
    SCOPED_TRACE(orbits);
    const readings r = well_moved(orbits);
    double expected = 0;
    for (int held = 1; held <= 4; ++held)
      expected = std::max(expected, uncertainty_by_differences(r, held, 1e-4));
    EXPECT_NEAR(judged(r, 1e-4).uncertainty, expected, 1e-5 * expected);
    // No read-out is better than 1e-6, whatever the residual says.
    EXPECT_NEAR(judged(r, 0).uncertainty, expected / 100, 1e-7 * expected);
  }
}

// X stands at +-0.3 and Y at +-0.1, so their standard deviations are 0.3 and 0.1.
TEST(fit_quality, a_beam_that_moves_less_than_ten_residuals_in_one_plane_says_nothing) {
  readings r;
  for (int i = 0; i < 40; ++i) r.push_back(at(i % 2 == 0 ? 0.3 : -0.3, i % 4 < 2 ? 0.1 : -0.1));
  EXPECT_NEAR(judged(r, 1e-3).excitation, 100, 1e-9);
  EXPECT_NEAR(judged(r, 0).excitation, 1e5, 1e-6);
  EXPECT_FALSE(says(judged(r, 0.0099), "hardly moved"));
  const gain_quality quiet = judged(r, 0.0101);
  EXPECT_EQ(quiet.verdict, gain_verdict::not_determined);
  EXPECT_TRUE(
      says(quiet,
           "WARNING: gains NOT determined by these data: the beam hardly moved in Y: sd X 0.3, "
           "sd Y 0.1, expected at least 10 times the rms residual of 0.0101"))
      << quiet.reason;
}

TEST(fit_quality, limits_on_how_far_the_repetitions_lie_apart) {
  const readings r = well_moved(200);
  const struct {
    double apart;
    gain_verdict verdict;
    const char* says;
  } cases[] = {{0.00119, gain_verdict::determined, "gains determined: largest uncertainty "},
               {0.00121, gain_verdict::doubtful, "WARNING: gains doubtful: largest uncertainty "},
               {0.0199, gain_verdict::doubtful, " %, repetitions within 1.99 %"},
               {0.0201, gain_verdict::not_determined, "within 2.01 %; did the beam move enough?"}};
  for (const auto& [apart, verdict, text] : cases) {
    four_fits fits = agreeing(r.size(), 0);
    fits.fit[1].gain(3) /= 1 + apart;
    const gain_quality q = judge_gains(r, fits);
    EXPECT_NEAR(q.spread, apart, 1e-12);
    EXPECT_EQ(q.verdict, verdict) << apart;
    EXPECT_TRUE(says(q, text)) << q.reason;
  }
}

// --- what needs no figure -------------------------------------------------------------------------

TEST(fit_quality, numbers_that_cannot_be_gains_are_told_with_their_reason) {
  const readings good = well_moved(100);
  ASSERT_EQ(judged(good, 1e-4).verdict, gain_verdict::determined) << judged(good, 1e-4).reason;
  const double nan = std::nan("");
  struct odd_case {
    const char* says;
    readings r;
    four_fits fits;
  };
  std::vector<odd_case> cases;
  const auto add = [&](const char* text) -> odd_case& {
    return cases.emplace_back(odd_case{text, good, agreeing(good.size(), 1e-4)});
  };
  odd_case& few = add("data: 7 orbits for 7 free parameters");
  few.r.resize(7);
  few.fits.fit[3].chisq = 0;
  add("data: 0 orbits for 7 free parameters").r.clear();
  odd_case& cancelling =
      add("data: orbit 5 makes the chi-square no number: its signals are 1 -1 "
          "0.1235 -0.1235");
  cancelling.r[4] = {{1, -1, 0.12345, -0.12345}};
  cancelling.fits.fit[3].chisq = nan;
  add("data: the chi-square is not a number").fits.fit[3].chisq = nan;
  add("data: fit 3 ended at a singular matrix; did").fits.fit[2].singular = true;
  add("data: fit 2 ended at a gain that is no number: 1 1 nan 1").fits.fit[1].gain(3) = nan;
  add("data: fit 2 ended at a gain that is no number: 1 1 1 inf").fits.fit[1].gain(4) = INFINITY;
  add("data: fit 2 ended at a gain below a fifth of the largest: 1 0.1999 1 1")
      .fits.fit[1]
      .gain(2) = 0.1999;
  add("data: fit 2 ended at a gain below a fifth of the largest: 1 0 1 1").fits.fit[1].gain(2) = 0;
  add("data: fit 2 ended at a gain below a fifth of the largest: -1 -1 -1 -1").fits.fit[1].gain = {
      {-1, -1, -1, -1}};
  for (const auto& [text, r, fits] : cases) {
    SCOPED_TRACE(text);
    const gain_quality q = judge_gains(r, fits);
    EXPECT_EQ(q.verdict, gain_verdict::not_determined);
    EXPECT_TRUE(says(q, text)) << q.reason;
  }
}

// Button 3 stops at its n-th largest reading.
readings saturated(int orbits, int at_maximum) {
  readings r = well_moved(orbits);
  std::vector<double> b;
  for (const signals& but : r) b.push_back(but(3));
  std::sort(b.rbegin(), b.rend());
  const double top = b[static_cast<std::size_t>(at_maximum) - 1];
  for (signals& but : r) but(3) = std::min(but(3), top);
  return r;
}

TEST(fit_quality, a_button_that_stands_at_its_maximum_is_told_as_saturated) {
  const struct {
    int orbits, at_maximum;
    gain_verdict verdict;
  } cases[] = {{400, 4, gain_verdict::determined},  {400, 5, gain_verdict::doubtful},
               {1000, 9, gain_verdict::determined}, {1000, 10, gain_verdict::doubtful},
               {1000, 40, gain_verdict::doubtful},  {1000, 41, gain_verdict::not_determined}};
  for (const auto& [orbits, at_maximum, verdict] : cases) {
    SCOPED_TRACE(testing::Message() << at_maximum << " of " << orbits);
    const gain_quality q = judged(saturated(orbits, at_maximum), 1e-4);
    EXPECT_EQ(q.verdict, verdict) << q.reason;
    const std::string told = "button TI is saturated, " + std::to_string(at_maximum) + " of " +
                             std::to_string(orbits) + " readings are ";
    EXPECT_EQ(says(q, told), verdict != gain_verdict::determined) << q.reason;
  }
  // An oscillation with a period: every reading comes back ten times, the largest one too.
  readings periodic = well_moved(40);
  for (int round = 1; round < 10; ++round) {
    for (std::size_t i = 0; i < 40; ++i) periodic.push_back(periodic[i]);
  }
  EXPECT_EQ(judged(periodic, 1e-4).verdict, gain_verdict::determined);
}

// --- whole fits -----------------------------------------------------------------------------------

struct motion {
  double half_range_x, half_range_y, noise;
  double orbit_x = 0, orbit_y = 0;  // [mm]
};

readings of_beam(const motion& m, int orbits, unsigned seed) {
  std::mt19937 engine{seed};
  std::uniform_real_distribution<double> uniform(-1, 1);
  std::normal_distribution<double> gaussian;
  const double true_gain[] = {1.04, 0.97, 1.01, 0.93};
  readings r;
  for (int i = 0; i < orbits; ++i) {
    const double x = m.orbit_x + m.half_range_x * uniform(engine);
    signals but = beam::signals_at(x, m.orbit_y + m.half_range_y * uniform(engine));
    for (int k = 1; k <= 4; ++k) but(k) *= true_gain[k - 1] * (1 + m.noise * gaussian(engine));
    r.push_back(but);
  }
  return r;
}

// On a centred reading the fit of a beam that stands still ends at four numbers near 1 that agree
// to ten digits. 600 BPMs were tried; a sample of them here.
TEST(fit_quality, nothing_is_determined_by_a_beam_that_nobody_moved) {
  const std::pair<const char*, motion> cases[] = {{"noise 1e-5", {0, 0, 1e-5}},
                                                  {"noise 1e-4", {0, 0, 1e-4}},
                                                  {"noise 1e-3", {0, 0, 1e-3}},
                                                  {"no noise", {0, 0, 0}},
                                                  {"off the axis", {0, 0, 1e-4, 5, 3}},
                                                  {"off the axis, no noise", {0, 0, 0, 1, 2}},
                                                  {"0.1 mm off the axis", {0.1, 0.1, 1e-4, 5, 3}},
                                                  {"one plane", {5, 0, 1e-4}},
                                                  {"one plane, no noise", {5, 0, 0}}};
  for (const auto& [what, beam] : cases) {
    for (unsigned seed = 1; seed <= 3; ++seed) {
      const readings r = of_beam(beam, 100, seed);
      const gain_quality q = judge_gains(r, fit_readings(r));
      EXPECT_EQ(q.verdict, gain_verdict::not_determined) << what << ": " << q.reason;
    }
  }
}

TEST(fit_quality, a_beam_that_moved_determines_gains_even_in_thirty_orbits) {
  for (unsigned seed = 1; seed <= 3; ++seed) {
    for (const int orbits : {30, 200}) {
      const readings r = of_beam({5, 5, 1e-4}, orbits, seed);
      const gain_quality q = judge_gains(r, fit_readings(r));
      EXPECT_EQ(q.verdict, gain_verdict::determined) << orbits << ": " << q.reason;
    }
  }
}

}  // namespace
