#include "chamber.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numbers>

namespace {

using sim::button_shape;
using sim::buttons;
using sim::mm;
using sim::round_drawing;
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
double integrated_signal(const round_drawing& c, const place& at, double middle) {
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

sim::solved_chamber solved(const round_drawing& d) { return *sim::solve(sim::round_chamber(d)); }

TEST(bpmsim_chamber, signals_equal_the_integral_of_the_image_charge) {
  for (const button_shape shape : {button_shape::strip, button_shape::disc}) {
    round_drawing c;
    c.shape = shape;
    c.angle = 40 * sim::degree;
    const sim::solved_chamber pipe = solved(c);
    for (const place& at : places) {
      SCOPED_TRACE(at.what);
      const buttons signal = sim::phi(pipe, at.x, at.y);
      EXPECT_NEAR(signal(1), integrated_signal(c, at, c.angle + pi), 1e-12);
      EXPECT_NEAR(signal(2), integrated_signal(c, at, -c.angle), 1e-12);
      EXPECT_NEAR(signal(3), integrated_signal(c, at, pi - c.angle), 1e-12);
      EXPECT_NEAR(signal(4), integrated_signal(c, at, c.angle), 1e-12);
    }
  }
}

TEST(bpmsim_chamber, strips_without_gaps_take_the_whole_charge) {
  round_drawing c;
  c.half_width = 45 * sim::degree;
  const sim::solved_chamber pipe = solved(c);
  for (const place& at : places) {
    SCOPED_TRACE(at.what);
    const buttons s = sim::phi(pipe, at.x, at.y);
    EXPECT_NEAR(s(1) + s(2) + s(3) + s(4), 1, 1e-14);
  }
}

TEST(bpmsim_chamber, mirrored_beams_exchange_the_buttons) {
  round_drawing c;
  c.shape = button_shape::disc;
  const sim::solved_chamber pipe = solved(c);
  for (const place& at : places) {
    SCOPED_TRACE(at.what);
    const buttons s = sim::phi(pipe, at.x, at.y);
    const buttons left = sim::phi(pipe, -at.x, at.y);
    const buttons down = sim::phi(pipe, at.x, -at.y);
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
    round_drawing c;
    c.shape = shape;
    const sim::solved_chamber pipe = solved(c);
    buttons mean{};
    for (int i = 0; i < 64; ++i) {
      const auto around = std::polar(12 * mm, 2 * pi * i / 64);
      const buttons s = sim::phi(pipe, (8 * mm) + around.real(), (-5 * mm) + around.imag());
      for (int k = 1; k <= 4; ++k) mean(k) += s(k) / 64;
    }
    const buttons middle = sim::phi(pipe, 8 * mm, -5 * mm);
    for (int k = 1; k <= 4; ++k) EXPECT_NEAR(mean(k), middle(k), 1e-13);
  }
}

// How far x = kx (b2 + b4 - b1 - b3) / sum is off for 18 mm discs in a 45 mm pipe, kx = 31.98 mm:
// figures of an independent solution of the same chamber, rounded to 0.01 mm.
TEST(bpmsim_chamber, linear_position_is_off_by_the_known_amounts) {
  round_drawing c;
  c.shape = button_shape::disc;
  c.half_width = 9.0 / 45.0;
  const sim::solved_chamber pipe = solved(c);
  struct error {
    double x, y, off;  // [mm]
  };
  const error errors[] = {
      {5, 0, -0.06}, {10, 0, -0.45}, {5, 5, 0.12}, {10, 10, 0.85}, {20, 0, -3.17}};
  for (const auto& [x, y, off] : errors) {
    const buttons s = sim::phi(pipe, x * mm, y * mm);
    const double linear = 31.98 * (s(2) + s(4) - s(1) - s(3)) / (s(1) + s(2) + s(3) + s(4));
    EXPECT_NEAR(linear - x, off, 0.008) << x << " " << y;
  }
}

TEST(bpmsim_chamber, impossible_chambers_are_named) {
  round_drawing c;
  EXPECT_EQ(sim::drawing_fault(c), "");
  c.radius = 0;
  EXPECT_EQ(sim::drawing_fault(c), "pipe radius must be above 0 mm, not 0");
  c = {};
  c.angle = 30 * sim::degree;
  c.half_width = 31 * sim::degree;  // TO and BO would overlap
  EXPECT_EQ(sim::drawing_fault(c),
            "half width of the buttons must lie between 0 and 30 degrees, not 31");
}

sim::chamber default_chamber(const char* name) {
  for (const auto& known : chamber_solver::default_chambers) {
    if (known.name == name) return *chamber_solver::parse_chamber(known.text, name);
  }
  ADD_FAILURE() << name;
  return {};
}

void expect_same_signals(const sim::chamber& a, const sim::chamber& b, double limit) {
  const auto one = sim::solve(a);
  const auto other = sim::solve(b);
  for (const auto& [x, y] : {std::pair{0.0, 0.0}, {5e-3, 2e-3}, {-11e-3, 8e-3}, {2e-3, -17e-3}}) {
    const buttons p = sim::phi(*one, x, y);
    const buttons q = sim::phi(*other, x, y);
    for (int k = 1; k <= 4; ++k) EXPECT_NEAR(p(k), q(k), limit) << x << " " << y;
  }
}

// A circle gives the same signals as the pipe by numbers, and as a wall like any other.
TEST(bpmsim_chamber, one_type_whatever_it_was_made_from) {
  round_drawing d;
  d.shape = button_shape::disc;
  d.half_width = 9.0 / 45.0;
  const sim::chamber file = default_chamber("bpm_48");
  expect_same_signals(sim::round_chamber(d), file, 1e-14);
  sim::chamber wall = file;
  wall.round.reset();
  expect_same_signals(file, wall, 1e-10);
  const auto arc = sim::solve(default_chamber("bpm_arc"));
  EXPECT_TRUE(sim::is_inside(*arc, 40 * mm, 0));
  EXPECT_FALSE(sim::is_inside(*arc, 0, 24 * mm));
  EXPECT_FALSE(sim::is_inside(*arc, 40 * mm, 15 * mm));  // in the box, beyond the round end
}

TEST(bpmsim_chamber, a_changed_chamber_is_the_one_drawn_that_way) {
  const round_drawing d;
  sim::chamber_change change;
  EXPECT_EQ(sim::change_text(change), "");
  change.width = 1.1;
  change.angle = 1.5 * sim::degree;
  change.radius = 0.01;
  change.shape = button_shape::disc;
  round_drawing drawn;
  drawn.radius = 1.01 * d.radius;
  drawn.angle = 46.5 * sim::degree;
  drawn.half_width = d.half_width * 1.1 / 1.01;  // a button keeps its width in a wider pipe
  drawn.shape = button_shape::disc;
  expect_same_signals(*sim::changed(sim::round_chamber(d), change), sim::round_chamber(drawn),
                      1e-14);

  change = {};
  change.ellipse = 0.1;
  const auto ellipse = sim::changed(default_chamber("bpm_48"), change);
  const auto file = chamber_solver::parse_chamber(
      "nonlin_bpm_chamber 1\nname e\nunits mm\ncontour ellipse 49.5 40.5\n"
      "button 1 -35.00178568 -28.63782464 18 disc\nbutton 2 35.00178568 -28.63782464 18 "
      "disc\nbutton 3 -35.00178568 28.63782464 18 disc\n"
      "button 4 35.00178568 28.63782464 18 disc\nx_grid 9 -9 9\ny_grid 9 -9 9\nmargin 1\nend\n",
      "e");
  ASSERT_TRUE(file);
  expect_same_signals(*ellipse, *file, 1e-9);

  // One button moved by 1 mm in a pipe is one turned by 1/45 rad; the others stay.
  change = {};
  change.azimuth(4) = 1 * mm;
  const auto moved = sim::solve(*sim::changed(sim::round_chamber(d), change));
  const auto pipe = sim::solve(sim::round_chamber(d));
  const double turn = 1.0 / 45.0;
  const std::complex<double> z{7 * mm, 4 * mm};
  const auto back = z * std::polar(1.0, -turn);
  EXPECT_NEAR(sim::phi(*moved, z.real(), z.imag())(4), sim::phi(*pipe, back.real(), back.imag())(4),
              1e-15);
  EXPECT_EQ(sim::phi(*moved, z.real(), z.imag())(1), sim::phi(*pipe, z.real(), z.imag())(1));
  EXPECT_EQ(sim::change_text(change), "button 4 1 mm further along the wall");

  change.width = 4;
  const auto overlapping = sim::changed(sim::round_chamber(d), change);
  ASSERT_FALSE(overlapping);
  EXPECT_EQ(util::line_of(overlapping.why), "chamber round: buttons 1 and 2 overlap");
}

}  // namespace
