// General fitters on the calibration's own problem, as far as they were found.
//
// Each gets one fit with every intensity free: the orbits that ours kept, the noise that ours found
// as weight, the same priors and start. What it minimises is then what ours ends at the least of.
#pragma once
#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include "lookup_table.hpp"

namespace calibration_peers {

// Unknowns that all orbits share: gains, pedestals, allowances for the chamber.
inline constexpr std::size_t n_z = 3, n_p = 4, n_h = 10, n_shared = n_z + n_p + n_h;
using shared_values = std::array<double, n_shared>;

/// Columns of the gain unknowns: ln t = sum over i of z_i direction_i.
inline constexpr std::array<std::array<double, 4>, n_z> gain_direction{
    {{0.5, -0.5, 0.5, -0.5}, {0.5, 0.5, -0.5, -0.5}, {0.5, -0.5, -0.5, 0.5}}};

/// How a harmonic acts on the four buttons.
inline constexpr std::array<std::array<double, 4>, 4> sign{
    {{1, 1, 1, 1}, {-1, 1, -1, 1}, {-1, -1, 1, 1}, {1, -1, -1, 1}}};
inline constexpr std::array<std::size_t, n_h> sign_of{1, 2, 0, 3, 1, 2, 0, 3, 1, 2};

struct orbit {
  std::array<double, 4> b{};             ///< readings [median signal]
  std::array<double, 3> start{}, end{};  ///< x, y [m], ln intensity: to begin with, and ours
};

struct task {
  const nonlin_bpm_mod::table_struct* table = nullptr;
  double R0 = 0;          ///< [m]
  double weight = 1;      ///< 1 / noise of one reading
  shared_values prior{};  ///< 1 / prior rms
  shared_values ours{};   ///< where our fit ended
  std::vector<orbit> orbits;
};

struct answer {
  std::array<double, 4> log_t{};
  double cost = 0;       ///< half the sum of squares, priors included
  double cost_ours = 0;  ///< the same where our fit ended
  double seconds = 0;    ///< of the processor, the problem's making not counted
  int steps = 0;
};

struct peer {
  std::string name;
  answer (*run)(const task&);
};
/// Filled before main by the files that were built.
inline std::vector<peer>& all() {
  static std::vector<peer> list;
  return list;
}
inline bool enter(const char* name, answer (*run)(const task&)) {
  all().push_back({name, run});
  return true;
}

}  // namespace calibration_peers
