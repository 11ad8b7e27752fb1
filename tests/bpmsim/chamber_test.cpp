#include "chamber.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numbers>

namespace {

using sim::button_shape;
using sim::buttons;
using sim::chamber;
using sim::mm;
using std::numbers::pi;

struct place {
  const char* what;
  double x, y;  // [m]
};
const place places[] = {
    {"on the axis", 0, 0},        {"5 mm out", 5 * mm, 0},
    {"oblique", -7 * mm, 3 * mm}, {"across the branch of the angle", -20 * mm, -1e-9},
    {"far up", 1 * mm, 35 * mm},  {"close to button TO", 30 * mm, 30 * mm}};

// The image charge of a line charge at z in a grounded pipe, (b^2 - |z|^2) / (2 pi b |w - z|^2) at
// the wall point w, integrated over the button with Simpson's rule in s = R sin(angle).
double integrated_signal(const chamber& c, const place& at, double middle) {
  const std::complex<double> z{at.x, at.y};
  const double b = c.radius;
  const int n = 4000;
  double sum = 0;
  for (int i = 0; i <= n; ++i) {
    const double angle = (-pi / 2) + (pi * i / n);
    const double chord = c.shape == button_shape::strip ? 1 : std::cos(angle);
    const auto w = std::polar(b, middle + (c.half_width * std::sin(angle)));
    const double density = ((b * b) - std::norm(z)) / (2 * pi * b * std::norm(w - z));
    const int weight = i == 0 || i == n ? 1 : (i % 2 == 1 ? 4 : 2);
    sum += weight * chord * density * b * c.half_width * std::cos(angle);
  }
  return sum * pi / n / 3;
}

TEST(bpmsim_chamber, signals_equal_the_integral_of_the_image_charge) {
  for (const button_shape shape : {button_shape::strip, button_shape::disc}) {
    chamber c;
    c.shape = shape;
    c.angle = 40 * sim::degree;
    for (const place& at : places) {
      SCOPED_TRACE(at.what);
      const buttons signal = sim::phi(c, at.x, at.y);
      EXPECT_NEAR(signal(1), integrated_signal(c, at, c.angle + pi), 1e-12);
      EXPECT_NEAR(signal(2), integrated_signal(c, at, -c.angle), 1e-12);
      EXPECT_NEAR(signal(3), integrated_signal(c, at, pi - c.angle), 1e-12);
      EXPECT_NEAR(signal(4), integrated_signal(c, at, c.angle), 1e-12);
    }
  }
}

TEST(bpmsim_chamber, strips_without_gaps_take_the_whole_charge) {
  chamber c;
  c.half_width = 45 * sim::degree;
  for (const place& at : places) {
    SCOPED_TRACE(at.what);
    const buttons s = sim::phi(c, at.x, at.y);
    EXPECT_NEAR(s(1) + s(2) + s(3) + s(4), 1, 1e-14);
  }
}

TEST(bpmsim_chamber, mirrored_beams_exchange_the_buttons) {
  chamber c;
  c.shape = button_shape::disc;
  for (const place& at : places) {
    SCOPED_TRACE(at.what);
    const buttons s = sim::phi(c, at.x, at.y);
    const buttons left = sim::phi(c, -at.x, at.y);
    const buttons down = sim::phi(c, at.x, -at.y);
    const int swapped_x[] = {2, 1, 4, 3};
    const int swapped_y[] = {3, 4, 1, 2};
    for (int k = 1; k <= 4; ++k) {
      EXPECT_NEAR(left(swapped_x[k - 1]), s(k), 1e-14);
      EXPECT_NEAR(down(swapped_y[k - 1]), s(k), 1e-14);
    }
  }
}

// The induced charge is a potential of the beam's place: harmonic, so its mean over a circle is its
// value in the middle.
TEST(bpmsim_chamber, signals_are_harmonic_in_the_position) {
  for (const button_shape shape : {button_shape::strip, button_shape::disc}) {
    chamber c;
    c.shape = shape;
    buttons mean{};
    for (int i = 0; i < 64; ++i) {
      const auto around = std::polar(12 * mm, 2 * pi * i / 64);
      const buttons s = sim::phi(c, (8 * mm) + around.real(), (-5 * mm) + around.imag());
      for (int k = 1; k <= 4; ++k) mean(k) += s(k) / 64;
    }
    const buttons middle = sim::phi(c, 8 * mm, -5 * mm);
    for (int k = 1; k <= 4; ++k) EXPECT_NEAR(mean(k), middle(k), 1e-13);
  }
}

// How far x = kx (b2 + b4 - b1 - b3) / sum is off for 18 mm discs in a 45 mm pipe, kx = 31.98 mm:
// figures of an independent solution of the same chamber, rounded to 0.01 mm.
TEST(bpmsim_chamber, linear_position_is_off_by_the_known_amounts) {
  chamber c;
  c.shape = button_shape::disc;
  c.half_width = 9.0 / 45.0;
  struct error {
    double x, y, off;  // [mm]
  };
  const error errors[] = {
      {5, 0, -0.06}, {10, 0, -0.45}, {5, 5, 0.12}, {10, 10, 0.85}, {20, 0, -3.17}};
  for (const auto& [x, y, off] : errors) {
    const buttons s = sim::phi(c, x * mm, y * mm);
    const double linear = 31.98 * (s(2) + s(4) - s(1) - s(3)) / (s(1) + s(2) + s(3) + s(4));
    EXPECT_NEAR(linear - x, off, 0.008) << x << " " << y;
  }
}

TEST(bpmsim_chamber, impossible_chambers_are_named) {
  chamber c;
  EXPECT_EQ(sim::chamber_fault(c), "");
  c.radius = 0;
  EXPECT_EQ(sim::chamber_fault(c), "pipe radius must be above 0 mm, not 0");
  c = {};
  c.angle = 30 * sim::degree;
  c.half_width = 31 * sim::degree;  // TO and BO would overlap
  EXPECT_EQ(sim::chamber_fault(c),
            "half width of the buttons must lie between 0 and 30 degrees, not 31");
}

}  // namespace
