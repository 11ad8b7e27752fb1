// orbit_block: the orbits of a run in columns, block by block, and what one step of a fit asks of
// them.
//
// At an orbit's place the three columns d b / d(x, y, L) of four numbers each are made orthonormal
// in this order: e1, e2 span what x and y do, v is what the intensity adds, and u is the fourth
// direction, which no place and no intensity can reach:
//     b_x = n1 e1,  b_y = r12 e1 + n2 e2,  b_L = r13 e1 + r23 e2 + n3 v.
// With r = readings - model and G = d b / d(z, p, q), a step d of the gains, pedestals and
// allowances must satisfy, for every orbit,
//     u.r = (u.G) d + noise                                             always,
//     v.r + n3 (L - L_model) = (v.G) d + n3 B dl + noise and jitter     when the intensity is steady,
// B being what the smooth course and the position do to L. The orbit's own unknowns have dropped
// out; they follow afterwards from e1, e2 and v.
#pragma once
#include <array>
#include <cstddef>
#include <vector>

#include "calibration.hpp"

namespace calibration {

using nonlin_bpm_mod::table_struct;

// Small enough for the columns of one block to stay in the first-level cache.
inline constexpr std::size_t block_size = 64;
using column = std::array<double, block_size>;
using button_columns = std::array<column, 4>;

// Unknowns of a fit, in the order of the normal equations. Those up to n_local act through u and v,
// the current's slopes through v alone; the smooth course comes last, a set of its own for each data
// set.
inline constexpr std::size_t n_z = 3, n_p = 4, n_h = n_harmonics, n_l = 2, n_trend = 4;
inline constexpr std::size_t first_p = n_z, first_h = first_p + n_p, n_local = first_h + n_h;
inline constexpr std::size_t first_l = n_local, n_common = first_l + n_l;

/// Values of the unknowns that all orbits share.
struct common_unknowns {
  std::array<double, n_common> value{};            ///< z, p, h, l
  std::vector<std::array<double, n_trend>> trend;  ///< by data set
};

/// ln t of the four buttons from z: columns of equal length, at right angles to (1, 1, 1, 1), so
/// that the product of the four gains is 1.
std::array<double, 4> log_gains(const double* z);

/// A step of the unknowns, as the orbits follow it.
struct common_step {
  common_unknowns by;         ///< what is added
  double place_limit = 0;     ///< longest step of an orbit's place [m]
  double sigma2 = 1;          ///< variance of one reading
  double prior_variance = 0;  ///< of ln intensity about its smooth course
};

/// Up to block_size orbits of one data set. Columns beyond count repeat the last orbit with weight
/// 0: loops need no remainder.
struct orbit_block {
  std::size_t count = 0;
  std::size_t set = 0;    ///< data set
  std::size_t first = 0;  ///< number of its first orbit among the usable ones of the run
  button_columns b{};     ///< readings [median signal]
  std::array<column, n_trend> time{};  ///< smooth functions of time within the data set
  column x{}, y{};                     ///< place [m]
  column L{};                          ///< ln of the intensity
  column keep_u{}, keep_v{};           ///< weights of the two numbers, 0 or 1
  column at_edge{};                    ///< 1: the edge of the table held the last step back
  column ur{};                         ///< u.r of the last evaluation
};

/// What the model makes of a block's orbits where they are: made anew in every step, so that fits
/// one after the other share the room for it.
struct place_columns {
  column n1, n2, n3, r12, r13, r23;
  button_columns e1, e2, v;
  button_columns r;  ///< readings - model
  button_columns m;  ///< model without pedestals
  column intensity;  ///< exp(L)
  column X, Y;       ///< place over R0
  column vr;         ///< v.r + n3 (L - L_model), or a difference of two
  column pair_v;     ///< weight of the v-row: keep_v, of both orbits of a difference
};

struct orbit_kernels;

/// How the model is made.
struct model_setting {
  const orbit_kernels* kernels = nullptr;
  const table_struct* table = nullptr;
  double R0 = 0;             ///< [m]
  bool steady = false;       ///< v-rows are wanted
  bool differences = false;  ///< of neighbouring orbits: the current walks
  std::size_t n_trend = 0;
};

/// Rows of one block for the sums: row[i][j] belongs to unknown i of orbit j, the last is the
/// right-hand side. Orbits that are left out have zeros.
inline constexpr std::size_t n_u_rows = n_local + 1;
inline constexpr std::size_t n_v_rows = n_common + n_trend + 1;
struct block_rows {
  std::array<column, n_u_rows> u;
  std::array<column, n_v_rows> v;
};

/// The orbit before the next block.
struct orbit_before {
  std::array<double, n_v_rows> row{};
  double vr = 0, keep = 0;
  bool any = false;
  std::size_t set = 0;
};

/// Turns the v-rows and v-residuals of a filled block into differences from orbit to orbit, over
/// sqrt(2). What a current has gathered on a random walk cancels in them. Blocks come in order.
void take_differences(const orbit_block& block, place_columns& at, block_rows& rows,
                      orbit_before& before);

}  // namespace calibration
