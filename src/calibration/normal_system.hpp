// normal_system: the normal equations of a fit, and their solution.
//
// Every data set has a smooth course of its own, so the matrix is an arrow: one small square for
// each set, coupled to the unknowns that all share. The squares are eliminated one by one; what
// remains has at most 19 unknowns and is brought to unit diagonal before it is factorised.
#pragma once
#include <array>
#include <cstddef>
#include <vector>

#include "orbit_block.hpp"

namespace calibration {

/// Sums over orbits of products of two rows, lower triangle; the last row and column are the
/// right-hand side.
struct u_sums {
  std::array<std::array<double, n_u_rows>, n_u_rows> of{};
};
struct v_sums {
  std::array<std::array<double, n_v_rows>, n_v_rows> of{};
};

using common_matrix = std::array<std::array<double, n_common>, n_common>;

/// What goes into the equations.
struct equations {
  u_sums u;
  std::vector<v_sums> v;  ///< by data set; empty: the intensity is free
  double u_weight = 1;    ///< 1 / variance of a u-residual
  double v_weight = 1;    ///< 1 / variance of a v-residual
  std::size_t n_trend = 0;
  std::array<double, n_common> prior{};  ///< 1 / prior variance
  double damping = 0;  ///< holds the step of the harmonics back, in parts of their prior
};

/// What comes out.
struct solution {
  common_unknowns step;
  common_matrix covariance{};           ///< of the common unknowns, all that is undecided included
  common_matrix information{};          ///< what the data alone say of them
  double u_squares = 0, v_squares = 0;  ///< sums of squared residuals that the step leaves
  /// Unknowns that the u-rows and the v-rows have paid for: what their residuals lack in freedom.
  double u_spent = 0, v_spent = 0;
  bool good = false;
};

/// note     damping shortens the step and leaves the point where it ends; covariance and squares
///          belong to the damped equations then
/// Solves for the step from `at`, towards which the priors' pull to 0 is counted.
solution solve(const equations& e, const common_unknowns& at);

}  // namespace calibration
