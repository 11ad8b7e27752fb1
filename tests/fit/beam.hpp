// A beam in a round pipe with four buttons, for tests: signals that the fit has not been made from.
#pragma once
#include <cmath>
#include <numbers>
#include <random>

#include "gain_fit_mod.hpp"

namespace beam {

/// How the beam moves and what is measured.
struct setting {
  double half_range_x = 3;  ///< uniform within +- this [mm]
  double half_range_y = 3;
  double orbit_x = 0;  ///< centre of the motion [mm]
  double orbit_y = 0;
  double noise = 0;  ///< relative, of each button
  int orbits = 1000;
  unsigned seed = 1;
  util::bounded<double, 1, 4, "true_gain"> true_gain{{1, 1, 1, 1}};
};

/// Share of the wall current of a beam at (r, theta) that a strip around `centre` picks up: the
/// integral of the wall charge density of a line charge in a round pipe. Lengths in mm, radians.
inline double strip_share(double r, double theta, double centre) {
  constexpr double pi = std::numbers::pi;
  constexpr double radius = 45;
  constexpr double half_width = 12 * pi / 180;
  const auto integral = [&](double t) {
    // On the branch that runs on continuously when t - theta passes half a turn.
    const double turns = std::round((t - theta) / (2 * pi));
    const double within = (t - theta) - (2 * pi * turns);
    return std::atan((radius + r) / (radius - r) * std::tan(within / 2)) / pi + turns;
  };
  return integral(centre + half_width) - integral(centre - half_width);
}

/// Signals BI, BO, TI, TO [counts] of a beam at x, y [mm].
inline gain_fit_mod::signals signals_at(double x, double y) {
  constexpr double eighth = std::numbers::pi / 4;
  constexpr double counts = 1e6;
  const double r = std::hypot(x, y);
  const double theta = std::atan2(y, x);
  const double centres[] = {5 * eighth, 7 * eighth, 3 * eighth, eighth};
  gain_fit_mod::signals but{};
  for (int i = 1; i <= 4; ++i) but(i) = counts * strip_share(r, theta, centres[i - 1]);
  return but;
}

/// Puts the beam's orbits into BPM 1 of the store, current 1, and makes it the BPM under treatment.
inline void fill_store(const setting& s) {
  std::mt19937 engine{s.seed};
  const auto random = [&] { return (static_cast<double>(engine()) + 0.5) / 4294967296.0; };
  const auto uniform = [&] { return (2 * random()) - 1; };
  const auto gaussian = [&] {
    const double size = std::sqrt(-2 * std::log(random()));
    return size * std::cos(2 * std::numbers::pi * random());
  };
  gain_fit_mod::bpm = 1;
  gain_fit_mod::norbits = s.orbits;
  for (int orbit = 1; orbit <= s.orbits; ++orbit) {
    const double x = s.orbit_x + s.half_range_x * uniform();
    const double y = s.orbit_y + s.half_range_y * uniform();
    const gain_fit_mod::signals but = signals_at(x, y);
    auto& reading = gain_fit_mod::orbit_data.edit(orbit, 1);
    reading.x = x * 1e-3;
    reading.y = y * 1e-3;
    reading.true_gain = s.true_gain;
    for (int i = 1; i <= 4; ++i) {
      const double noise = s.noise == 0 ? 0 : s.noise * gaussian();
      reading.button(i) = but(i) * s.true_gain(i) * (1 + noise);
    }
    gain_fit_mod::orbit_data.edit_current(orbit) = 1;
  }
}

}  // namespace beam
