#include "bpm_result.hpp"

#include <algorithm>
#include <vector>

namespace gain_fit_mod {

bpm_motion motion_of(std::span<const store::bpm_struct> orbits) {
  bpm_motion motion;
  auto& [h_min, h_max, v_min, v_max] = motion.extremes;
  double sum_x = 0;
  double sum_y = 0;
  for (const store::bpm_struct& reading : orbits) {
    // The old value first: a position that is no number then loses the comparison and changes
    // nothing.
    h_max = std::max(h_max, reading.x);
    h_min = std::min(h_min, reading.x);
    v_max = std::max(v_max, reading.y);
    v_min = std::min(v_min, reading.y);
    sum_x += reading.x;
    sum_y += reading.y;
  }
  // No orbits: 0/0, a nan that the files show; a 0 would look like a beam on the axis.
  const auto n = static_cast<double>(orbits.size());
  motion.mean_x = sum_x / n;
  motion.mean_y = sum_y / n;
  return motion;
}

button_totals totals_of(std::span<const store::bpm_struct> orbits) {
  button_totals totals;
  for (const store::bpm_struct& reading : orbits) {
    const auto& [b1, b2, b3, b4] = reading.button.item;
    // Plain sums of the readings, without gains: they tell the current's course and come before a
    // fit.
    const double total = b1 + b2 + b3 + b4;
    totals.sum += total;
    totals.squares += total * total;
  }
  return totals;
}

bpm_result result_of(const bpm_data& data) {
  std::vector<signals> readings;
  // A copy of the signals alone, close together: the fit reads them hundreds of times, and the
  // store's orbits carry positions beside them.
  readings.reserve(data.orbits.size());
  for (const store::bpm_struct& orbit : data.orbits) readings.push_back({orbit.button.item});
  bpm_result result;
  result.data = data;
  result.motion = motion_of(data.orbits);
  result.totals = totals_of(data.orbits);
  result.fits = fit_readings(readings);
  result.combined = combine_fits(result.fits);
  // Last, and on the fits themselves: the combination has lost what the four disagree in.
  result.quality = judge_gains(readings, result.fits);
  return result;
}

}  // namespace gain_fit_mod
