#include "orbit_block.hpp"

#include <cmath>

namespace calibration {
namespace {

// Columns of the gain unknowns: left against right, bottom against top, one diagonal against the
// other. The fourth, all alike, is the intensity's.
constexpr std::array<std::array<double, 4>, n_z> gain_direction{
    {{0.5, -0.5, 0.5, -0.5}, {0.5, 0.5, -0.5, -0.5}, {0.5, -0.5, -0.5, 0.5}}};

}  // namespace

std::array<double, 4> log_gains(const double* z) {
  std::array<double, 4> log_t{};
  for (std::size_t i = 0; i < n_z; ++i) {
    for (std::size_t k = 0; k < 4; ++k) log_t[k] += z[i] * gain_direction[i][k];
  }
  return log_t;
}

void take_differences(const orbit_block& block, place_columns& at, block_rows& rows,
                      orbit_before& before) {
  // A difference of two independent values over sqrt(2) has the variance of one: the weights of the
  // v-rows need not know which of the two they weigh.
  const double half = std::sqrt(0.5);
  if (before.set != block.set) before = {};
  before.set = block.set;
  for (std::size_t j = 0; j < block.count; ++j) {
    const double keep = block.keep_v[j];
    // The rows of an orbit that is left out are zeros, but a difference with it would be its
    // neighbour.
    const double both = keep * before.keep * half;
    for (std::size_t i = 0; i < n_v_rows; ++i) {
      const double now = rows.v[i][j];
      rows.v[i][j] = both * (now - before.row[i]);
      before.row[i] = now;
    }
    const double now = at.vr[j];
    at.vr[j] = before.any ? half * (now - before.vr) : 0;
    before.vr = now;
    before.keep = keep;
    before.any = true;
    at.pair_v[j] = both > 0 ? 1 : 0;
  }
  // The padding would otherwise pair the last orbit with its own copies.
  for (std::size_t j = block.count; j < block_size; ++j) {
    at.pair_v[j] = 0;
    for (column& row : rows.v) row[j] = 0;
  }
}

}  // namespace calibration
