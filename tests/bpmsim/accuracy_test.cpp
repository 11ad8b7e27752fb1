#include "accuracy.hpp"

#include <gtest/gtest.h>

namespace {

using sim::accuracy_result;
using sim::mm;

// An oscillation with two tunes visits all quadrants evenly: what the fit's relation leaves out
// cancels, and the gains come out to the rounding of the readings (1/1.5e6, over 200 orbits).
sim::accuracy_setup oscillating() {
  sim::accuracy_setup s;
  s.bpms = 2;
  s.orbits = 200;
  for (sim::plane* p : {&s.machine.beam.x, &s.machine.beam.y}) {
    p->spread = 0;
    p->amplitude = 5 * mm;
  }
  s.machine.beam.x.tune = 0.31;
  s.machine.beam.y.tune = 0.22;
  return s;
}

TEST(bpmsim_accuracy, gains_of_a_centred_oscillation_come_back_and_the_fit_keeps_silent) {
  testing::internal::CaptureStdout();
  const accuracy_result result = sim::measure_accuracy(oscillating());
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_LT(result.worst, 2e-5);
  EXPECT_LE(result.rms, result.worst);
  EXPECT_GT(result.worst, 0);
}

TEST(bpmsim_accuracy, an_orbit_off_the_axis_and_a_dead_button_spoil_the_gains) {
  sim::accuracy_setup s = oscillating();
  s.bpms = 1;
  s.machine.beam.x.orbit = 5 * mm;
  s.machine.beam.y.orbit = 3 * mm;
  EXPECT_GT(sim::measure_accuracy(s).worst, 1e-3);
  s = oscillating();
  s.bpms = 1;
  s.machine.electronics.dead = {{1, 3}};
  EXPECT_GT(sim::measure_accuracy(s).worst, 0.1);
}

}  // namespace
