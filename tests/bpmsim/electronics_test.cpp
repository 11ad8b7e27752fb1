#include "electronics.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <vector>

namespace {

using sim::bpm_electronics;
using sim::buttons;
using sim::electronics_setup;

// A set-up without any random part: one BPM, four gains by hand.
electronics_setup quiet() {
  electronics_setup e;
  e.signal = 1000;
  e.gain_spread = 0;
  e.gains = {{1, 1, 0.9}, {1, 2, 1.1}, {1, 3, 1.2}, {2, 4, 7.0}};
  return e;
}

buttons first_reading(const electronics_setup& e, const buttons& relative) {
  sim::random_stream stream = sim::make_stream(3, sim::purpose::readout, 1);
  return sim::read_out(sim::make_electronics(e, 3, 1), relative, stream).reading;
}

const buttons passing{{0.5, 1.0, 1.5, 2.0}};

// Readings grow with the true gain; what multiplies them back is its inverse.
TEST(bpmsim_electronics, each_effect_acts_as_its_formula_says) {
  struct effect {
    const char* what;
    void (*set)(electronics_setup& e);
    buttons reading;
  };
  const effect effects[] = {
      {"gains only", [](electronics_setup&) {}, {{450, 1100, 1800, 2000}}},
      {"pedestal", [](electronics_setup& e) { e.pedestal = 7; }, {{457, 1107, 1807, 2007}}},
      {"dead",
       [](electronics_setup& e) {
         e.dead = {{1, 2}, {2, 1}};
       },
       {{450, 0, 1800, 2000}}},
      {"dead with pedestal",
       [](electronics_setup& e) {
         e.pedestal = 7;
         e.dead = {{1, 2}};
       },
       {{457, 7, 1807, 2007}}},
      {"full scale", [](electronics_setup& e) { e.full_scale = 1500; }, {{450, 1100, 1500, 1500}}},
      {"saturated at 0.8 of 1200",
       [](electronics_setup& e) {
         e.saturated = {{1, 3, 0.8}};
       },
       {{450, 1100, 960, 2000}}},
      {"stuck at half of its own 1100",
       [](electronics_setup& e) {
         e.pedestal = 7;
         e.stuck = {{1, 2, 0.5}};
       },
       {{457, 557, 1807, 2007}}},
      {"cables of 1 and 4 swapped: gains stay with the channels",
       [](electronics_setup& e) {
         e.swapped = {{1, 1, 4}};
       },
       {{1800, 1100, 1800, 500}}},
      {"1 % of both neighbours: 1100 + 1800, 450 + 2000",
       [](electronics_setup& e) { e.cross_talk = 0.01; },
       {{479, 1124.5, 1824.5, 2029}}},
      // Channel 3 has 1.5 times its centred signal: 1800 (1 - 0.05 0.5); channel 2 just that
      // signal.
      {"compression",
       [](electronics_setup& e) { e.compression = 0.05; },
       {{461.25, 1100, 1755, 1900}}},
      {"compression of one button",
       [](electronics_setup& e) {
         e.compressed = {{1, 3, 0.05}};
       },
       {{450, 1100, 1755, 2000}}},
      {"4 bits over twice the signal: steps of 125",
       [](electronics_setup& e) { e.adc_bits = 4; },
       {{500, 1125, 1750, 2000}}}};
  for (const auto& [what, set, expected] : effects) {
    SCOPED_TRACE(what);
    electronics_setup e = quiet();
    set(e);
    const buttons reading = first_reading(e, passing);
    for (int k = 1; k <= 4; ++k) EXPECT_NEAR(reading(k), expected(k), 1e-9);
  }
}

// Readings of many passages, less the quiet one.
std::vector<buttons> deviations(const electronics_setup& e, int n) {
  const bpm_electronics made = sim::make_electronics(e, 3, 1);
  sim::random_stream stream = sim::make_stream(3, sim::purpose::readout, 1);
  const buttons still = first_reading(quiet(), passing);
  std::vector<buttons> all;
  for (int i = 0; i < n; ++i) {
    buttons d = sim::read_out(made, passing, stream).reading;
    for (int k = 1; k <= 4; ++k) d(k) -= still(k);
    all.push_back(d);
  }
  return all;
}

double mean_product(const std::vector<buttons>& d, int i, int k) {
  double sum = 0;
  for (const buttons& one : d) sum += one(i) * one(k);
  return sum / static_cast<double>(d.size());
}

TEST(bpmsim_electronics, noises_are_independent_common_or_proportional) {
  const int n = 20000;
  const double four_sigma = 4 * std::sqrt(2.0 / n);  // of a relative variance
  electronics_setup e = quiet();
  e.noise = 0.01;  // 10 counts
  auto d = deviations(e, n);
  EXPECT_NEAR(mean_product(d, 1, 1), 100, 100 * four_sigma);
  EXPECT_NEAR(mean_product(d, 4, 4), 100, 100 * four_sigma);
  EXPECT_NEAR(mean_product(d, 1, 4), 0, 100 * four_sigma);

  e = quiet();
  e.common_noise = 0.01;
  d = deviations(e, n);
  EXPECT_NEAR(mean_product(d, 2, 2), 100, 100 * four_sigma);
  EXPECT_NEAR(mean_product(d, 2, 3), mean_product(d, 2, 2), 1e-6);

  e = quiet();
  e.intensity_spread = 0.01;  // of readings 450 and 2000
  d = deviations(e, n);
  EXPECT_NEAR(mean_product(d, 1, 1), 4.5 * 4.5, 4.5 * 4.5 * four_sigma);
  EXPECT_NEAR(mean_product(d, 1, 4), 4.5 * 20, 4.5 * 20 * four_sigma);
}

TEST(bpmsim_electronics, wild_readings_come_as_often_as_asked_and_touch_one_button) {
  electronics_setup e = quiet();
  e.wild = 0.1;
  int wild = 0;
  for (const buttons& d : deviations(e, 10000)) {
    int touched = 0;
    for (int k = 1; k <= 4; ++k) touched += std::abs(d(k)) > 1e-9 ? 1 : 0;
    EXPECT_LE(touched, 1);
    wild += touched;
  }
  EXPECT_NEAR(wild, 1000, 4 * 30);
}

TEST(bpmsim_electronics, gains_and_pedestals_spread_as_asked_and_hold_from_bunch_to_bunch) {
  electronics_setup e;
  e.pedestal = 100;
  e.pedestal_spread = 10;
  double gains = 0, gain_squares = 0, pedestals = 0;
  const int n = 4000;
  for (int bpm = 1; bpm <= n / 4; ++bpm) {
    const bpm_electronics made = sim::make_electronics(e, 9, bpm);
    for (int k = 1; k <= 4; ++k) {
      gains += made.true_gain(k) / n;
      gain_squares += (made.true_gain(k) - 1) * (made.true_gain(k) - 1) / n;
      pedestals += made.pedestal(k) / n;
    }
  }
  EXPECT_NEAR(gains, 1, 4 * 0.05 / std::sqrt(n));
  EXPECT_NEAR(std::sqrt(gain_squares), 0.05, 0.05 * 4 / std::sqrt(2.0 * n));
  EXPECT_NEAR(pedestals, 100, 4 * 10 / std::sqrt(n));

  // Neither a wider spread elsewhere nor pedestals move the gains.
  e.pedestal_spread = 0;
  EXPECT_EQ(sim::make_electronics(e, 9, 5).true_gain.item,
            sim::make_electronics({}, 9, 5).true_gain.item);
}

TEST(bpmsim_electronics, impossible_setups_are_named) {
  struct fault {
    void (*set)(electronics_setup& e);
    const char* text;
  };
  const fault faults[] = {
      {[](electronics_setup& e) { e.noise = -1; }, "noise must not be negative"},
      {[](electronics_setup& e) { e.wild = 1.5; },
       "probability of wild readings must not be above 1"},
      {[](electronics_setup& e) { e.signal = 0; },
       "signal of a centred beam must be above 0 counts"},
      {[](electronics_setup& e) {
         e.dead = {{13, 1}};
       },
       "dead button: BPM 13 is outside 1..12"},
      {[](electronics_setup& e) {
         e.saturated = {{2, 5}};
       },
       "saturated button: button 5 of BPM 2 is outside 1..4"},
      {[](electronics_setup& e) {
         e.gains = {{2, 1, 0}};
       },
       "true gain: value 0 of BPM 2 must be above 0"},
      {[](electronics_setup& e) {
         e.gain_steps = {{2, 1, -1}};
       },
       "gain step: value -1 of BPM 2 must be above -1"},
      {[](electronics_setup& e) {
         e.swapped = {{2, 3, 3}};
       },
       "swapped button: 3 is no other button than 3 of BPM 2"},
      {[](electronics_setup& e) { e.outliers = -1; }, "number of outliers must not be negative"}};
  for (const auto& [set, text] : faults) {
    electronics_setup e;
    set(e);
    EXPECT_EQ(sim::electronics_fault(e, 12), text);
  }
}

}  // namespace
