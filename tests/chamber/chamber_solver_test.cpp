// The wall solver against closed forms, and against potentials that are known everywhere.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numbers>

#include "wall_field.hpp"
#include "wall_solver.hpp"

namespace {

using namespace chamber_solver;
constexpr double pi = std::numbers::pi;

chamber make_chamber(const std::string& contour, double bx, double by, double width,
                     const std::string& shape, const std::string& solver = "12 32 3") {
  std::string text = "nonlin_bpm_chamber 1\nname test\nunits mm\ncontour " + contour + "\n";
  const double sx[] = {-1, 1, -1, 1};
  const double sy[] = {-1, -1, 1, 1};
  for (int k = 0; k < 4; ++k) {
    text += fmt::format("button {} {} {} {} {}\n", k + 1, sx[k] * bx, sy[k] * by, width, shape);
  }
  text += "x_grid 5 -10 10\ny_grid 5 -10 10\nmargin 1\nsolver " + solver + "\nend\n";
  auto made = parse_chamber(text, "test chamber");
  EXPECT_TRUE(made) << util::line_of(made.why);
  return *made;
}

// Places from the centre out to 0.9 of the way to the wall, and one much nearer.
std::vector<point> places(const chamber& c) {
  std::vector<point> all;
  for (const double part : {0.0, 0.45, 0.9}) {
    for (int i = 0; i < 5; ++i) {
      all.push_back(part * place_at(c.contour, c.contour.length * (0.04 + 0.2 * i)).z);
    }
  }
  all.push_back(0.997 * place_at(c.contour, 0.3 * c.contour.length).z);
  return all;
}

// Image charge in a round pipe of radius b: wall charge between angles, on the continuous branch.
double round_strip(double b, point z, double t1, double t2) {
  const double r = std::abs(z), theta = std::arg(z);
  const auto g = [&](double t) {
    const double u = t - theta;
    const double turns = std::round(u / (2 * pi));
    return turns + std::atan((b + r) / (b - r) * std::tan((u - 2 * pi * turns) / 2)) / pi;
  };
  return g(t2) - g(t1);
}

double round_disc(double b, point z, double t, double radius) {
  // Midpoint rule in the angle a, s = R sin a: the integrand is periodic and smooth.
  constexpr int n = 4000;
  double sum = 0;
  for (int i = 0; i < n; ++i) {
    const double a = pi * (i + 0.5) / n - pi / 2;
    const point wall = std::polar(b, t + radius / b * std::sin(a));
    sum += std::pow(radius / b * std::cos(a), 2) * b / radius * (b * b - std::norm(z)) /
           (2 * pi * std::norm(wall - z));
  }
  return sum * pi / n;
}

TEST(chamber_solver, round_pipe_equals_the_image_charge) {
  constexpr double b = 0.045;
  for (const char* shape : {"strip", "disc"}) {
    const chamber c = make_chamber("circle 45", 31.8, 31.8, 18, shape);
    const solved_wall w = solve_wall(c, cut_wall(c));
    const double middle[] = {-0.75 * pi, -0.25 * pi, 0.75 * pi, 0.25 * pi};
    for (const point z : places(c)) {
      SCOPED_TRACE(fmt::format("{} at {} {}", shape, z.real(), z.imag()));
      const signals at = signals_at(w, z);
      for (int k = 0; k < 4; ++k) {
        const double t = middle[k];
        const double exact =
            shape[0] == 's' ? round_strip(b, z, t - 0.2, t + 0.2) : round_disc(b, z, t, 0.009);
        EXPECT_NEAR(at.phi[k] / exact, 1, 1e-10) << "button " << k + 1;
      }
    }
  }
}

// What beams take their signals from, against the integral that the tables are made of.
TEST(chamber_solver, field_of_expansions_equals_the_integral_over_the_wall) {
  struct chamber_case {
    const char* contour;
    double bx, by;
  };
  const chamber_case cases[] = {{"box 45 25 25", 12.5, 25}, {"ellipse 46.35 43.65", 32, 31.5}};
  for (const auto& [contour, bx, by] : cases) {
    const chamber c = make_chamber(contour, bx, by, 15, "disc");
    const wall_field f = make_wall_field(c, 0.95);
    int expanded = 0, all = 0;
    for (double x = -0.042; x <= 0.042; x += 0.0037) {
      for (double y = -0.022; y <= 0.022; y += 0.0031) {
        const point z{x, y};
        if (find_nearest(c.contour, z).distance < 0.001) continue;
        const lanes fast = signals_from(f, z);
        const four exact = signals_at(f.wall, z).phi;
        for (int k = 0; k < 4; ++k) EXPECT_NEAR(fast.v[k], exact[k], 1e-10) << contour << z;
        point from_node;
        const wall_expansion* const e = expansion_at(f, z, from_node);
        ASSERT_NE(e, nullptr);
        expanded += e->converges ? 1 : 0;
        ++all;
      }
    }
    EXPECT_GT(expanded, all / 2) << contour;  // else nothing is gained
  }
}

// Wall voltages taken from a harmonic function must give that function, and its slopes, inside.
TEST(chamber_solver, harmonic_voltages_are_reproduced_in_chambers_with_corners) {
  struct corner_case {
    const char* what;
    std::string contour;
    double bx, by;
    const char* solver;
    double limit;
  };
  std::string octagon = "polygon 8\n", circle = "points 64\n";
  for (int i = 0; i < 8; ++i) {
    const point z = std::polar(40.0, (i + 0.5) * pi / 4);
    octagon += fmt::format("{} {} 4\n", z.real(), z.imag());
  }
  for (int i = 0; i < 64; ++i) {
    const point z = std::polar(45.0, i * pi / 32);
    circle += fmt::format("{} {}\n", z.real(), z.imag());
  }
  octagon.pop_back();
  circle.pop_back();
  const corner_case cases[] = {
      {"racetrack", "box 45 25 25", 12.5, 25, "12 32 3", 1e-9},
      {"ellipse", "ellipse 45 25", 25, 20, "12 32 3", 1e-9},
      {"square with sharp corners", "box 30 30 0", 15, 30, "12 32 3", 1e-7},
      {"square with rounded corners", "box 30 30 5", 15, 30, "12 32 3", 1e-7},
      {"octagon", octagon, 26, 26, "12 32 3", 1e-6},
      {"circle through points", circle, 31.8, 31.8, "12 32 3", 1e-6},
  };
  for (const auto& [what, contour, bx, by, solver, limit] : cases) {
    const chamber c = make_chamber(contour, bx, by, 10, "disc", solver);
    if (contour[0] == 'e') {
      const double eccentricity = std::sqrt(1 - 625.0 / 2025);
      EXPECT_NEAR(c.contour.length, 4 * 0.045 * std::comp_ellint_2(eccentricity), 1e-15);
    }
    const point shift{0.05, 0.03};  // the exponential's length and direction
    const auto known = [&](point z) {
      return std::array<point, 2>{z * z * z / 1e-5, std::exp(z / shift)};
    };
    std::vector<wall_node> nodes = cut_wall(c);
    for (wall_node& node : nodes) {
      const auto f = known(node.place.z);
      node.voltage.v = four{f[0].real(), f[1].real(), f[1].imag(), 1};
    }
    const solved_wall w = solve_wall(c, nodes);
    for (const point z : places(c)) {
      SCOPED_TRACE(fmt::format("{}, {} nodes, at {} {}", what, nodes.size(), z.real(), z.imag()));
      const signals at = signals_at(w, z);
      const auto f = known(z);
      EXPECT_NEAR(at.phi[0], f[0].real(), limit * 10);  // z^3 grows to 9 on the wall
      EXPECT_NEAR(at.phi[1], f[1].real(), limit);
      EXPECT_NEAR(at.phi[2], f[1].imag(), limit);
      EXPECT_NEAR(at.phi[3], 1, limit);
      const point slope = f[1] / shift;
      if (std::abs(z) < 0.02) {  // slopes lose accuracy towards the wall, by the distance to it
        EXPECT_NEAR(at.dx[1], slope.real(), 100 * limit);
        EXPECT_NEAR(at.dy[1], -slope.imag(), 100 * limit);
      }
    }
  }
}

}  // namespace
