#include "gain_batch.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <numbers>
#include <random>
#include <thread>
#include <vector>

#include "beam.hpp"
#include "fit_gains.hpp"
#include "gain_fit_mod.hpp"
#include "sine_pair.hpp"

namespace {
using namespace gain_fit_mod;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

struct batch : testing::Test {
  void SetUp() override { reset(); }
};

// --- sines --------------------------------------------------------------------------------------

angle_functions<1> functions_at(double a) {
  const lanes<1>::real angle{a};
  return functions_of(std::abs(a) < near_limit ? near_reduction<1>(angle) : far_reduction(a));
}

// Distance in units of the last place of the true value.
double ulps(double value, long double truth) {
  const auto rounded = static_cast<double>(std::abs(truth));
  const double unit = std::nextafter(rounded, 1e300) - rounded;
  return static_cast<double>(std::abs(value - truth) / unit);
}

// Against the C library's long double sine, whose own error does not show here.
TEST(sine_pair, is_right_to_the_last_bits_at_any_size) {
  struct {
    const char* what;
    double smallest, largest, sin1, sin2;
  } const ranges[] = {{"no quadrant exchanged", 1e-6, 0.785, 0.8, 2.1},
                      {"the usual beams", 0.1, 25, 1.4, 2.6},
                      {"wild steps", 25, 0x1p20, 2.3, 4},
                      {"beyond the three parts of pi/2", 0x1p20, 0x1p60, 2.3, 4},
                      {"any number", 0x1p60, 1e308, 2.3, 4}};
  std::mt19937_64 random{1};
  for (const auto& [what, smallest, largest, bound1, bound2] : ranges) {
    SCOPED_TRACE(what);
    double worst1 = 0;
    double worst2 = 0;
    for (int i = 0; i < 40000; ++i) {
      const double at = static_cast<double>(random()) * 0x1p-64;
      const double a = smallest * std::pow(largest / smallest, at) * (i % 2 == 0 ? 1 : -1);
      const auto f = functions_at(a);
      worst1 = std::max(worst1, ulps(f.sin1[0], std::sin(static_cast<long double>(a))));
      worst2 = std::max(worst2, ulps(f.sin2[0], std::sin(2 * static_cast<long double>(a))));
      ASSERT_NEAR(f.cos1[0], std::cos(a), 4e-16) << a;
      ASSERT_NEAR(f.cos2[0], static_cast<double>(std::cos(2 * static_cast<long double>(a))), 8e-16)
          << a;
    }
    EXPECT_LT(worst1, bound1);
    EXPECT_LT(worst2, bound2);
  }
}

// The doubles next to multiples of pi/2, where most digits cancel; 6381956970095103 x 2^797 is the
// one that comes closest to a multiple of all.
TEST(sine_pair, keeps_its_digits_next_to_multiples_of_half_pi) {
  std::vector<double> angles{std::ldexp(6381956970095103.0, 797)};
  for (const double n : {1.0, 2.0, 3.0, 4.0, 7.0, 355.0, 1e4, 1e6, 1e9, 1e15})
    angles.push_back(n * std::numbers::pi / 2);
  for (const double a : angles) {
    const auto f = functions_at(a);
    EXPECT_LT(ulps(f.sin1[0], std::sin(static_cast<long double>(a))), 3) << a;
    EXPECT_LT(ulps(f.cos1[0], std::cos(static_cast<long double>(a))), 3) << a;
  }
  EXPECT_EQ(functions_at(0).sin1[0], 0);
  for (const double a : {nan, double{INFINITY}, -double{INFINITY}})
    EXPECT_TRUE(std::isnan(functions_at(a).sin1[0])) << a;
}

// --- sums at a point ----------------------------------------------------------------------------

struct sums {
  double chisq = 0;
  covariance_matrix alpha{};
  std::array<double, 8> beta{};
};

sums batch_at(const parameters& p, const std::array<bool, 8>& free) {
  sums s;
  const signal_batch loaded = make_batch(current_readings());
  trial_values found;
  s.chisq = chi_square(loaded, p.item, found);
  product_sums products;
  product_sums_at(loaded, p.item, free, found, products);
  const auto n_free = static_cast<int>(std::count(free.begin(), free.end(), true));
  for (int j = 0; j < n_free; ++j) {
    for (int k = 0; k < n_free; ++k)
      s.alpha(j + 1, k + 1) = products.of[std::max(j, k)][std::min(j, k)];
    s.beta[static_cast<std::size_t>(j)] = products.of[residual_column][j];
  }
  return s;
}

sums literal_at(const parameters& p, const std::array<bool, 8>& free) {
  sums s;
  for (int orbit = 1; orbit <= norbits; ++orbit) {
    const signals but{orbit_data(orbit).detector(bpm).button.item};
    const derivatives dyda = chi1_derivatives(p, but);
    const double r = chi1(p, but);
    s.chisq += r * r;
    int j = 0;
    for (int l = 1; l <= 8; ++l) {
      if (!free[static_cast<std::size_t>(l - 1)]) continue;
      int k = 0;
      ++j;
      for (int m = 1; m <= 8; ++m)
        if (free[static_cast<std::size_t>(m - 1)]) s.alpha(j, ++k) += dyda(l) * dyda(m);
      s.beta[static_cast<std::size_t>(j - 1)] -= r * dyda(l);
    }
  }
  return s;
}

constexpr std::array<bool, 8> all_but_1{false, true, true, true, true, true, true, true};
constexpr std::array<bool, 8> pair_41{true, false, false, true, false, false, false, false};
const parameters curve{{1.03, 0.98, 1.01, 1.00, 0.19, 10.4, -0.058, 0.016}};

void expect_like_literal(const parameters& p, const std::array<bool, 8>& free, double tolerance) {
  const sums ours = batch_at(p, free);
  const sums literal = literal_at(p, free);
  EXPECT_NEAR(ours.chisq / literal.chisq, 1, tolerance);
  for (int j = 1; j <= 8; ++j) {
    for (int k = 1; k <= 8; ++k) {
      const double scale = std::sqrt(literal.alpha(j, j) * literal.alpha(k, k));
      EXPECT_NEAR(ours.alpha(j, k), literal.alpha(j, k), tolerance * scale) << j << k;
    }
    const auto at = static_cast<std::size_t>(j - 1);
    const double scale = std::sqrt(literal.alpha(j, j) * literal.chisq);
    EXPECT_NEAR(ours.beta[at], literal.beta[at], tolerance * scale) << j;
  }
}

// Rounding leaves 1e-12 of the literal derivatives. Far angles magnify it: 1e7 rad are known to
// 1e-9, and a step of such a curve's scale is steep.
TEST_F(batch, sums_are_those_of_the_literal_form) {
  beam::fill_store({.half_range_x = 9,
                    .half_range_y = 9,
                    .noise = 1e-4,
                    .true_gain = {{1.04, 0.97, 1.01, 0.93}}});
  parameters steep = curve;
  steep(6) = 300;  // angles of a gain's step grow to 0.03
  parameters wild = curve;
  wild(6) = 2e8;
  struct {
    const char* what;
    parameters at;
    int orbits;
    double tolerance;
  } const cases[] = {{"whole blocks and a rest", curve, 1000, 1e-11},
                     {"one block", curve, 128, 1e-11},
                     {"one orbit more", curve, 129, 1e-11},
                     {"less than the lanes", curve, 3, 1e-10},
                     {"a step too steep for the closed form", steep, 300, 1e-10},
                     {"angles far off", wild, 150, 1e-5}};
  for (const auto& [what, at, orbits, tolerance] : cases) {
    SCOPED_TRACE(what);
    norbits = orbits;
    expect_like_literal(at, all_but_1, tolerance);
    expect_like_literal(at, pair_41, tolerance);
  }
}

// One orbit whose total nearly cancels must not spoil the 99 others, nor be spoilt.
TEST_F(batch, an_orbit_whose_total_nearly_cancels_is_taken_literally) {
  beam::fill_store({.half_range_x = 9, .half_range_y = 9, .orbits = 100});
  orbit_data.edit(70, 1).button = {{1000, -999, 500, -500.5}};
  expect_like_literal(curve, all_but_1, 1e-9);
}

TEST_F(batch, no_orbits_and_a_bpm_without_data) {
  bpm = 3;
  norbits = 0;
  EXPECT_EQ(batch_at(curve, all_but_1).chisq, 0);
  norbits = 5;
  EXPECT_TRUE(std::isnan(batch_at(curve, all_but_1).chisq));
}

// --- whole fits ---------------------------------------------------------------------------------

struct beam_case {
  const char* what;
  beam::setting beam;
};

const beam_case beams[] = {
    {"3 mm", {.half_range_x = 3, .half_range_y = 3}},
    {"3 mm, noise", {.half_range_x = 3, .half_range_y = 3, .noise = 1e-4}},
    {"6 mm", {.half_range_x = 6, .half_range_y = 6}},
    {"9 mm, noise", {.half_range_x = 9, .half_range_y = 9, .noise = 1e-4}},
    {"14 mm", {.half_range_x = 14, .half_range_y = 14}},
    {"14 mm, much noise", {.half_range_x = 14, .half_range_y = 14, .noise = 1e-3}},
    {"off the axis", {.half_range_x = 8, .half_range_y = 6, .orbit_x = 3, .orbit_y = -2}},
    {"one weak button",
     {.half_range_x = 9, .half_range_y = 9, .noise = 1e-4, .true_gain = {{1, 0.7, 1, 1}}}},
    {"one strong button",
     {.half_range_x = 6, .half_range_y = 6, .noise = 1e-4, .true_gain = {{1, 1, 1.5, 1}}}}};

// Weights act through their sum only: how the fit shares it out is rounding.
TEST_F(batch, fits_end_where_the_literal_form_ends) {
  unsigned seed = 1;
  for (const auto& [what, setting] : beams) {
    SCOPED_TRACE(what);
    beam::setting s = setting;
    s.orbits = 400;
    s.seed = seed++;
    for (int i = 1; i <= 4; ++i) s.true_gain(i) *= 1 + (0.02 * i);
    beam::fill_store(s);
    const auto readings = current_readings();
    const four_fits all_literal = fit_readings(readings, {.literal = true});
    const four_fits all_ours = fit_readings(readings);
    for (std::size_t f = 0; f < 4; ++f) {
      SCOPED_TRACE(f);
      const one_fit& literal = all_literal.fit[f];
      const one_fit& ours = all_ours.fit[f];
      for (int i = 1; i <= 4; ++i) EXPECT_NEAR(ours.gain(i) / literal.gain(i), 1, 1e-9) << i;
      for (int i = 1; i <= 2; ++i)
        EXPECT_NEAR(ours.coefficients(i) / literal.coefficients(i), 1, 1e-6) << i;
      EXPECT_NEAR(ours.coefficients(3) + ours.coefficients(4),
                  literal.coefficients(3) + literal.coefficients(4), 1e-6);
      EXPECT_NEAR(ours.chisq / literal.chisq, 1, 1e-5);
    }
  }
}

template <class array>
bool same_bits(const array& a, const array& b) {
  return std::memcmp(a.item.data(), b.item.data(), sizeof a.item) == 0;
}

void expect_same_bits(const four_fits& one, const four_fits& other) {
  for (std::size_t f = 0; f < 4; ++f) {
    const one_fit& a = one.fit[f];
    const one_fit& b = other.fit[f];
    EXPECT_TRUE(same_bits(a.gain, b.gain)) << f;
    EXPECT_TRUE(same_bits(a.coefficients, b.coefficients)) << f;
    EXPECT_EQ(std::memcmp(&a.chisq, &b.chisq, sizeof a.chisq), 0) << f;
    EXPECT_TRUE(same_bits(a.covariance, b.covariance)) << f;
  }
  EXPECT_EQ(one.events.size(), other.events.size());
}

TEST_F(batch, every_instruction_set_gives_the_same_bits) {
  std::vector<beam_case> cases(std::begin(beams), std::end(beams));
  cases.push_back({"standing still", {.half_range_x = 0, .half_range_y = 0, .orbits = 17}});
  for (const auto& [what, setting] : cases) {
    SCOPED_TRACE(what);
    beam::fill_store(setting);
    orbit_data.edit(11, 1).button = {{1000, -999, 500, -500.5}};  // not small, taken literally
    const auto readings = current_readings();
    const four_fits generic = fit_readings(readings, {.instruction_set = "generic"});
    for (const auto set : instruction_sets()) {
      SCOPED_TRACE(set);
      expect_same_bits(fit_readings(readings, {.instruction_set = set}), generic);
    }
  }
}

// Nothing is shared between fits: a hundred of them on four threads end at the bits of one after
// the other.
TEST_F(batch, fits_on_several_threads_give_the_bits_of_the_serial_run) {
  constexpr std::size_t bpms = 100;
  constexpr std::size_t threads = 4;
  std::vector<std::vector<signals>> readings;
  std::vector<four_fits> serial;
  for (unsigned n = 0; n < bpms; ++n) {
    const double range = 3 + (n % 11);
    beam::fill_store({.half_range_x = range,
                      .half_range_y = range,
                      .noise = 1e-4,
                      .orbits = 20 + static_cast<int>(n),
                      .seed = n + 1,
                      .true_gain = {{1.04, 0.97, 1.01, 0.93}}});
    readings.push_back(current_readings());
    serial.push_back(fit_readings(readings.back()));
  }
  std::vector<four_fits> parallel(bpms);
  std::vector<std::thread> workers;
  for (std::size_t t = 0; t < threads; ++t)
    workers.emplace_back([&, t] {
      for (std::size_t n = t; n < bpms; n += threads) parallel[n] = fit_readings(readings[n]);
    });
  for (std::thread& worker : workers) worker.join();
  for (std::size_t n = 0; n < bpms; ++n) {
    SCOPED_TRACE(n);
    expect_same_bits(parallel[n], serial[n]);
  }
}

}  // namespace
