#include "beam.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

namespace {

using sim::beam;
using sim::distribution;
using sim::place;
using sim::random_stream;

struct moments {
  double mean_x = 0, mean_y = 0;
  double var_x = 0, var_y = 0, cov = 0;
  double max_x = 0;  // largest distance from 0
};

moments moments_of(const beam& b, int n) {
  random_stream stream = sim::make_stream(11, sim::purpose::motion, 1);
  moments m;
  for (int orbit = 1; orbit <= n; ++orbit) {
    const place p = sim::draw_place(b, 1, orbit, stream);
    m.mean_x += p.x / n;
    m.mean_y += p.y / n;
    m.var_x += p.x * p.x / n;
    m.var_y += p.y * p.y / n;
    m.cov += p.x * p.y / n;
    m.max_x = std::max(m.max_x, std::abs(p.x));
  }
  m.var_x -= m.mean_x * m.mean_x;
  m.var_y -= m.mean_y * m.mean_y;
  m.cov -= m.mean_x * m.mean_y;
  return m;
}

// Calculated by a program of its own from the published definitions of the generators.
TEST(bpmsim_random, streams_repeat_to_the_last_bit) {
  random_stream stream = sim::make_stream(1, sim::purpose::motion, 3);
  for (const double golden : {0.9941889568368307, 0.22206610265465165, 0.8970707633454119}) {
    EXPECT_EQ(sim::uniform(stream), golden);
  }
  // The library's logarithm and cosine may differ in the last bits.
  stream = sim::make_stream(7, sim::purpose::gains, 1);
  EXPECT_NEAR(sim::normal(stream), -0.29125855128714917, 1e-15);
  EXPECT_NEAR(sim::normal(stream), 0.23695179548410042, 1e-15);
}

TEST(bpmsim_beam, random_part_has_mean_and_spread_of_its_shape) {
  const int n = 40000;
  beam b;
  b.x.spread = 3;
  b.x.orbit = 10;
  b.y.shape = distribution::gaussian;
  b.y.spread = 2;
  b.y.orbit = -1;
  const moments m = moments_of(b, n);
  // Four standard errors: of a mean sigma/sqrt(n); of a variance sqrt(0.8/n) uniform, sqrt(2/n)
  // gaussian, relative.
  EXPECT_NEAR(m.mean_x, 10, 4 * std::sqrt(3.0 / n));
  EXPECT_NEAR(m.mean_y, -1, 4 * 2 / std::sqrt(1.0 * n));
  EXPECT_NEAR(m.var_x, 3, 4 * 3 * std::sqrt(0.8 / n));
  EXPECT_NEAR(m.var_y, 4, 4 * 4 * std::sqrt(2.0 / n));
  EXPECT_NEAR(m.cov, 0, 4 * std::sqrt(3.0 * 4.0 / n));
  EXPECT_LE(m.max_x, 13);
  EXPECT_GT(m.max_x, 12.99);
}

TEST(bpmsim_beam, coupling_shows_the_motion_but_not_the_orbit_of_the_other_plane) {
  const int n = 40000;
  beam b;
  b.x.spread = 3;  // variance 3
  b.x.orbit = 10;
  b.y.spread = 0;
  b.coupling = 0.5;
  const moments m = moments_of(b, n);
  EXPECT_NEAR(m.cov, 0.5 * m.var_x, 1e-12);
  EXPECT_NEAR(m.var_y, 0.25 * m.var_x, 1e-12);
  EXPECT_NEAR(m.mean_y, 0, 4 * 0.5 * std::sqrt(3.0 / n));
}

TEST(bpmsim_beam, oscillation_advances_with_orbit_and_bpm) {
  using std::numbers::pi;
  beam b;
  b.x.spread = b.y.spread = 0;
  b.x.amplitude = 4;
  b.x.tune = 0.25;
  b.y.amplitude = 1;
  b.y.tune = 0;
  b.y.phase = pi / 3;
  b.y.advance = pi / 6;
  random_stream stream = sim::make_stream(1, sim::purpose::motion, 1);
  const double expected_x[] = {4, 0, -4, 0, 4};
  for (int orbit = 1; orbit <= 5; ++orbit) {
    const place p = sim::draw_place(b, 1, orbit, stream);
    EXPECT_NEAR(p.x, expected_x[orbit - 1], 1e-14);
    EXPECT_NEAR(p.y, 0.5, 1e-15);
  }
  EXPECT_NEAR(sim::draw_place(b, 2, 1, stream).y, 0, 1e-15);   // cos 90 degrees
  EXPECT_NEAR(sim::draw_place(b, 5, 1, stream).y, -1, 1e-15);  // cos 180 degrees
  b.x.tune = 0.31;
  EXPECT_NEAR(sim::betatron_phase(b.x, 1, 1001), 0, 1e-10);  // 310 full turns
}

TEST(bpmsim_beam, one_plane_does_not_disturb_the_other) {
  beam b;
  random_stream first = sim::make_stream(5, sim::purpose::motion, 1);
  random_stream second = first;
  const double y = sim::draw_place(b, 1, 1, first).y;
  b.x.shape = distribution::gaussian;
  b.x.spread = 0;
  EXPECT_EQ(sim::draw_place(b, 1, 1, second).y, y);
  EXPECT_EQ(first.engine, second.engine);
}

}  // namespace
