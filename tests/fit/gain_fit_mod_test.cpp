#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "model_faces.hpp"

namespace {
using namespace gain_fit_mod;

struct orbit_case {
  const char* what;
  signals but;
};
const orbit_case orbits[] = {{"centred beam", {{1000, 1000, 1000, 1000}}},
                             {"outward and up", {{610, 930, 880, 1420}}},
                             {"one weak button", {{1000, 1000, 3, 1000}}},
                             {"one negative signal", {{1217.25, -13.5, 777.125, 901}}}};
const parameters curve{{1.03, 0.98, 1.01, 1.00, 0.19, 10.4, -0.058, 0.016}};

// The residual written out step by step, nothing shared: what all shortcuts must equal to the bit.
double written_out(const parameters& param, const signals& but) {
  combination Bpmmp;
  combination Bpmpm;
  combination Bppmm;
  bvecs(but, Bpmmp, Bpmpm, Bppmm);
  for (combination* b : {&Bpmmp, &Bpmpm, &Bppmm}) {
    double S = 0;
    for (int i = 1; i <= 4; ++i) S += but(i) * param(i);
    for (int i = 1; i <= 4; ++i) (*b)(i) /= S;
  }
  double X = 0;
  double Y = 0;
  for (int i = 1; i <= 4; ++i) X += param(i) * Bpmpm(i);
  for (int i = 1; i <= 4; ++i) Y += param(i) * Bppmm(i);
  const double arg = X * Y;
  const double s1 = std::sin(param(6) * arg);
  const double s2 = std::sin((2 * param(6)) * arg);
  const double s3 = std::sin((2 * param(6)) * arg);
  double Q = 0;
  for (int i = 1; i <= 4; ++i) Q += param(i) * Bpmmp(i);
  return param(5) * ((s1 + param(7) * s2) + param(8) * s3) - Q;
}

struct gain_model : testing::Test {
  void SetUp() override { reset(); }
};

// What the model leaves undetermined: a fit that forgets either one wanders.
TEST_F(gain_model, common_gain_factor_and_harmonic_exchange_change_nothing) {
  for (const auto& [what, but] : orbits) {
    SCOPED_TRACE(what);
    parameters scaled = curve;
    for (int i = 1; i <= 4; ++i) scaled(i) *= 1.7;
    EXPECT_NEAR(chi1(scaled, but), chi1(curve, but), 1e-15);  // a few roundings of values near 0.1
    parameters exchanged = curve;
    exchanged(7) += 0.25;
    exchanged(8) -= 0.25;
    EXPECT_NEAR(chi1(exchanged, but), chi1(curve, but), 1e-15);
  }
}

TEST_F(gain_model, residual_by_hand) {
  // Unit gains: S = 10, X = 0.2, Y = 0.4, Q = 0.4, so u = 0.08; then Am = 2, k = 1/2, h2 = h3 = 1.
  const double residual = chi1({{1, 1, 1, 1, 2, 0.5, 1, 1}}, {{5, 2, 1, 2}});
  EXPECT_DOUBLE_EQ(residual, 2 * (std::sin(0.04) + 2 * std::sin(0.08)) - 0.4);
  EXPECT_EQ(chi1({{1, 1, 1, 1, 2, 0.5, 1, 1}}, {{7, 7, 7, 7}}), 0);
}

TEST_F(gain_model, shortcuts_keep_every_bit) {
  norbits = 1;
  constexpr double dx = 9.999999747378752e-05;
  for (const auto& [what, but] : orbits) {
    SCOPED_TRACE(what);
    EXPECT_EQ(chi1(curve, but), written_out(curve, but));
    derivatives dyda{};
    derivative1(curve, but, dyda, 1);
    for (int i = 1; i <= 8; ++i) {
      parameters plus = curve;
      plus(i) += dx;
      parameters minus = curve;
      minus(i) -= dx;
      EXPECT_EQ(dyda(i), ((written_out(plus, but) - written_out(minus, but)) * 0.5) / dx) << i;
    }
  }
}

TEST_F(gain_model, derivatives_agree_with_calculus) {
  norbits = 1;
  const signals but{{610, 930, 880, 1420}};
  derivatives dyda{};
  derivative1(curve, but, dyda, 1);
  double S = 0;
  double X = 0;
  double Y = 0;
  double Q = 0;
  for (int i = 1; i <= 4; ++i) S += curve(i) * but(i);
  for (int i = 1; i <= 4; ++i) {
    X += curve(i) * but(i) * spmpm(i) / S;
    Y += curve(i) * but(i) * sppmm(i) / S;
    Q += curve(i) * but(i) * spmmp(i) / S;
  }
  const double Am = curve(5);
  const double k = curve(6);
  const double h = curve(7) + curve(8);
  const double u = X * Y;
  const double by_u = Am * k * (std::cos(k * u) + 2 * h * std::cos(2 * k * u));
  // The central difference is off by step^2 / 6 times the third derivative, here below 1e-8.
  for (int i = 1; i <= 4; ++i) {
    const double share = but(i) / S;
    const double analytic =
        by_u * share * ((spmpm(i) - X) * Y + X * (sppmm(i) - Y)) - share * (spmmp(i) - Q);
    EXPECT_NEAR(dyda(i), analytic, 1e-7) << i;
  }
  EXPECT_NEAR(dyda(5), std::sin(k * u) + h * std::sin(2 * k * u), 1e-9);
  EXPECT_NEAR(dyda(6), Am * u * (std::cos(k * u) + 2 * h * std::cos(2 * k * u)), 1e-9);
  EXPECT_NEAR(dyda(7), Am * std::sin(2 * k * u), 1e-9);
  EXPECT_EQ(dyda(7), dyda(8));
}

TEST_F(gain_model, mean_square_runs_over_the_orbits_of_the_current_bpm) {
  bpm = 7;
  norbits = 2;
  orbit_data.edit(1, 7).button = {{5, 2, 1, 2}};  // Q = 0.4
  orbit_data.edit(2, 7).button = {{2, 4, 1, 3}};  // Q = 0
  orbit_data.edit(1, 8).button = {{9, 1, 1, 1}};
  gain.fill(1);
  coefficients.fill(0);  // a flat curve: the residual is -Q
  double chis = 0;
  chi1_square(chis);
  EXPECT_DOUBLE_EQ(chis, 0.16 / 2);
  norbits = 0;
  chi1_square(chis);
  EXPECT_TRUE(std::isnan(chis));
  norbits = 1;
  bpm = 9;  // never written: signals are 0, their total is no divisor
  chi1_square(chis);
  EXPECT_TRUE(std::isnan(chis));
}

TEST_F(gain_model, points_beyond_the_orbits_repeat_the_one_before) {
  bpm = 1;
  norbits = 1;
  nterms = 2;
  nvar = 8;
  orbit_data.edit(1, 1).button = {{5, 2, 1, 2}};
  std::vector<double> yfit(2);
  mrqmin_mod::matrix dyda{"dyda", 2, 8};
  mrqmin_funcs1({}, curve.item, yfit, dyda);
  EXPECT_EQ(yfit[0], chi1(curve, {{5, 2, 1, 2}}));
  EXPECT_EQ(yfit[1], yfit[0]);
  for (int j = 1; j <= 8; ++j) EXPECT_EQ(dyda(2, j), dyda(1, j));

  derivatives untouched;
  untouched.fill(42);
  derivative1(curve, {{5, 2, 1, 2}}, untouched, 2);
  for (const double d : untouched.item) EXPECT_EQ(d, 42);
}

TEST_F(gain_model, unnormalised_residual_by_hand) {
  // Gains 1, 2, 1, 1: P = 5-4-1+2 = 2, R = 5-4+1-2 = 0, with b4 = 1 instead P = 1, R = 1, T = 7.
  EXPECT_DOUBLE_EQ(chi({{1, 2, 1, 1}}, 3, {{5, 2, 1, 2}}, 10), 2);
  EXPECT_DOUBLE_EQ(chi({{1, 2, 1, 1}}, 3, {{5, 2, 1, 1}}, 10), 1 - 0.3 * 7);
  weight = 0.5;  // G = 1 + 4 + 1 + 1
  EXPECT_DOUBLE_EQ(chi({{1, 2, 1, 1}}, 3, {{5, 2, 1, 1}}, 10), 1 - 0.3 * 7 + 0.5 * 6);
}

}  // namespace
