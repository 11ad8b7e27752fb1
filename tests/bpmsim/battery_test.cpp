// The battery, and the figures that the calibration is compared with.
#include "battery.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "accuracy.hpp"

namespace {

using sim::battery_kind;
using sim::battery_kinds;
using sim::kind_result;

kind_result run_named(const std::string& name, int bpms) {
  const std::vector<battery_kind> all = battery_kinds();
  const auto at = std::find_if(all.begin(), all.end(),
                               [&](const battery_kind& kind) { return kind.name == name; });
  if (at == all.end()) throw std::invalid_argument("no kind " + name);
  sim::battery_setup setup;
  setup.bpms = bpms;
  return run_kind(*at, static_cast<std::size_t>(at - all.begin()) + 1, setup);
}

TEST(battery, has_kinds_enough_and_no_two_of_a_name) {
  std::set<std::string> names;
  std::size_t sound = 0;
  for (const battery_kind& kind : battery_kinds()) {
    EXPECT_TRUE(names.insert(kind.name).second) << kind.name;
    sound += kind.sound ? 1 : 0;
  }
  EXPECT_GE(names.size(), 84U);
  EXPECT_GE(sound, 35U);
}

TEST(battery, words_of_single_kinds) {
  const kind_result sound = run_named("orbit (5, 3) mm, +-5 mm", 3);
  EXPECT_EQ(sound.words[0], 3) << sound.usual_reason;
  EXPECT_EQ(sound.wrong, 0);
  EXPECT_EQ(sound.fits_words[0], 0) << "the four fits are off by 5e-3 there";
  EXPECT_LT(sound.worst, 1e-3);
  EXPECT_EQ(sound.pulls, 9);
  EXPECT_EQ(run_named("a dead button", 2).words[3], 2);
  EXPECT_EQ(run_named("beam at rest at (5, 3) mm", 1).words[2], 1);
  EXPECT_EQ(run_named("a gain steps by 0.01 after 0.5 of the run", 1).words[3], 1);
}

// Two data sets with pedestals of their own reach the calibration as two.
TEST(battery, stretches_make_data_sets) {
  EXPECT_EQ(run_named("mixed: two data sets, pedestals of 0.002 each", 1).words[0], 0);
  EXPECT_EQ(run_named("mixed: two data sets, currents 1 and 0.7", 1).words[0], 1);
}

TEST(battery, random_kinds_depend_on_the_seed_alone) {
  const auto some = sim::random_kinds(8, 3), more = sim::random_kinds(12, 3);
  for (std::size_t i = 0; i < some.size(); ++i) EXPECT_EQ(some[i].name, more[i].name);
  EXPECT_NE(sim::random_kinds(8, 4)[0].name, some[0].name);
}

// The limit comes from the chamber's slopes at the true places, the error from fits of readings.
TEST(battery, free_intensities_reach_the_limit_of_the_noise) {
  sim::accuracy_setup s;
  s.bpms = 16;
  s.orbits = 200;
  s.machine.electronics.noise = 1e-4;
  s.machine.beam.x.orbit = 5 * sim::mm;
  s.sigma_p = 0;
  s.exact_table = true;
  const sim::accuracy_result r = sim::measure_accuracy(s);
  EXPECT_NEAR(r.free.rms / r.limit, 1, 0.35);  // 48 ratios: three standard deviations
  EXPECT_EQ(r.free_pulls.size(), 48U);
}

}  // namespace
