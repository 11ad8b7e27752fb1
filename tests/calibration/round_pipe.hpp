// A BPM in a round pipe, worked out in closed form: its table, and runs of it with known truth. For
// the tests of the calibration; independent of the simulator and of the table maker.
#pragma once
#include <array>
#include <cmath>
#include <numbers>
#include <random>
#include <vector>

#include "calibration.hpp"
#include "table_cells.hpp"

namespace round_pipe {

inline constexpr double radius = 45e-3;                            // [m]
inline constexpr double half_width = 12 * std::numbers::pi / 180;  // of a button [rad]

/// Image charge on a strip over half_width around 45, 135 ... degrees, mean 1 on axis.
inline std::array<double, 4> signals(double x, double y) {
  const double q = std::hypot(x, y) / radius, theta = std::atan2(y, x);
  const auto to = [&](double t) {
    const double u = t - theta;
    return u / 2 + std::atan2(q * std::sin(u), 1 - q * std::cos(u));
  };
  std::array<double, 4> phi{};
  const std::array<double, 4> quarter{-3, -1, 3, 1};
  for (std::size_t k = 0; k < 4; ++k) {
    const double middle = quarter[k] * std::numbers::pi / 4;
    phi[k] = (to(middle + half_width) - to(middle - half_width)) / half_width;
  }
  return phi;
}

/// Table over +-24 mm; slopes from differences over 2 um, good to 1e-10.
inline nonlin_bpm_mod::table_struct make_table() {
  nonlin_bpm_mod::table_nodes nodes;
  nodes.x = nodes.y = {61, -24e-3, 24e-3};
  constexpr double step = 1e-6;
  for (int iy = 1; iy <= nodes.y.n; ++iy) {
    for (int ix = 1; ix <= nodes.x.n; ++ix) {
      const double x = nodes.x.at(ix), y = nodes.y.at(iy);
      const auto right = signals(x + step, y), left = signals(x - step, y);
      const auto over = signals(x, y + step), under = signals(x, y - step);
      nonlin_bpm_mod::table_node node;
      node.phi = signals(x, y);
      for (std::size_t k = 0; k < 4; ++k) {
        node.dphi_dx[k] = (right[k] - left[k]) / (2 * step);
        node.dphi_dy[k] = (over[k] - under[k]) / (2 * step);
      }
      node.out = false;
      nodes.node.push_back(node);
    }
  }
  nonlin_bpm_mod::table_struct table;
  nonlin_bpm_mod::build_table(nodes, table);
  return table;
}

inline const nonlin_bpm_mod::table_struct& table() {
  static const nonlin_bpm_mod::table_struct made = make_table();
  return made;
}

/// What a run is made of. Parts are those of a centred button's signal.
struct plan {
  int orbits = 400;
  double x = 0, y = 0;            // mean position [m]
  double spread = 5e-3;           // half width of the positions [m]
  double spread_y = -1;           // the same in y; -1: as in x
  double noise = 1e-4;            // [part]
  double pedestal = 0;            // rms from button to button [part]
  double current_slope = 0;       // relative current per metre of x
  double walk = 0;                // rms step of the current from orbit to orbit
  double gain_step = 0;           // of button 2 in the middle of the run
  double second_set_current = 1;  // from the middle of the run on
  double full_scale = 1e9;        // of button 3 [part]
  double cross_talk = 0;          // part of its two neighbours' signals that a button sees
  double compression = 0;         // of button 2
  double set_pedestal = 0;        // of button 2, from the middle of the run on [part]
  double other_current = 1;       // of every third orbit, which lies 4 mm further out
  int stuck_from = 1 << 30;       // orbit from which button 4 repeats itself
  int wild_every = 1 << 30;       // one wild reading in so many orbits
};

struct made_run {
  std::array<std::vector<double>, 4> signal;
  std::array<double, 4> t{};  // truth, product 1
};

inline made_run make(const plan& p, unsigned seed) {
  std::mt19937 engine{seed};
  std::normal_distribution<double> normal;
  std::uniform_real_distribution<double> uniform{-1, 1};
  made_run made;
  double product = 1;
  for (double& t : made.t) product *= t = 1 + 0.05 * normal(engine);
  for (double& t : made.t) t /= std::pow(product, 0.25);
  std::array<double, 4> pedestal{};
  for (double& value : pedestal) value = p.pedestal * normal(engine);
  double current = 1;
  for (int j = 0; j < p.orbits; ++j) {
    const bool other = p.other_current != 1 && j % 3 == 2;
    const double x = p.x + (other ? 4e-3 : 0) + p.spread * uniform(engine),
                 y = p.y + (p.spread_y < 0 ? p.spread : p.spread_y) * uniform(engine);
    current *= 1 + p.walk * normal(engine);
    const bool late = 2 * j >= p.orbits;
    const double intensity = current * (1 + p.current_slope * (x - p.x)) *
                             (late ? p.second_set_current : 1) * (other ? p.other_current : 1);
    const auto phi = signals(x, y);
    for (std::size_t k = 0; k < 4; ++k) {
      const auto beam = [&](std::size_t i) { return made.t[i] * intensity * phi[i]; };
      const bool inner = k == 0 || k == 3;
      double b = beam(k) + p.cross_talk * (beam(inner ? 1 : 0) + beam(inner ? 2 : 3));
      if (k == 1) b *= 1 - p.compression * (b / made.t[k] - 1);
      b += pedestal[k] + (k == 1 && late ? p.set_pedestal : 0) + p.noise * normal(engine);
      if (k == 1 && late) b *= 1 + p.gain_step;
      if (k == 2) b = std::min(b, p.full_scale);
      if (k == 0 && j % p.wild_every == p.wild_every - 1) b *= 1.3;
      if (k == 3 && j >= p.stuck_from) b = made.signal[k].back();
      made.signal[k].push_back(b);
    }
  }
  return made;
}

/// The run as the calibration takes it; `made` must live as long.
inline calibration::bpm_run as_run(const made_run& made,
                                   double sigma_p = calibration::pedestals_subtracted) {
  calibration::bpm_run run;
  for (std::size_t k = 0; k < 4; ++k) run.signal[k] = made.signal[k];
  run.table = &table();
  run.sigma_p = sigma_p;
  return run;
}

/// Largest error of ln(t_k/t_1).
inline double error_of(const calibration::buttons& t, const made_run& made) {
  double most = 0;
  for (int k = 2; k <= 4; ++k) {
    const double truth = std::log(made.t[static_cast<std::size_t>(k - 1)] / made.t[0]);
    most = std::max(most, std::abs(std::log(t(k) / t(1)) - truth));
  }
  return most;
}

}  // namespace round_pipe
