#include "input_check.hpp"

#include <algorithm>
#include <cmath>

namespace calibration {
namespace {

constexpr double dead_part = 0.05;       // a button's usual reading over the median of the four
constexpr double saturated_part = 0.01;  // readings at the maximum
constexpr std::size_t least_saturated = 5;
constexpr double distinct_part = 0.2;  // coarse readings meet their maximum without an end of scale
constexpr std::size_t least_repeats = 20;
constexpr double repeated_part = 0.02;

// The middle reading: a wild one moves a mean anywhere.
double median_of(std::span<const double> column) {
  std::vector<double> finite;
  for (const double b : column) {
    // An ordering with nan in it is none, and nth_element would be free to do anything.
    if (std::isfinite(b)) finite.push_back(b);
  }
  if (finite.empty()) return 0;
  const auto middle = finite.begin() + static_cast<std::ptrdiff_t>(finite.size() / 2);
  std::nth_element(finite.begin(), middle, finite.end());
  return *middle;
}

std::size_t count_distinct(std::span<const double> column) {
  std::vector<double> sorted(column.begin(), column.end());
  std::sort(sorted.begin(), sorted.end());
  return static_cast<std::size_t>(std::unique(sorted.begin(), sorted.end()) - sorted.begin());
}

bool is_constant(std::span<const double> column) {
  // Exact on purpose: any noise at all moves a live channel by a count now and then.
  return std::all_of(column.begin(), column.end(), [&](double b) { return b == column.front(); });
}

// Readings that are exactly the one before while all other buttons go on.
bool repeats_alone(const bpm_run& run, std::size_t button) {
  const std::size_t n = run.signal[button].size();
  std::size_t alone = 0;
  for (std::size_t j = 1; j < n; ++j) {
    bool others_move = true;
    for (std::size_t k = 0; k < 4; ++k) {
      // A still beam or an orbit written twice repeats all four: that is no fault of one button.
      if (k != button) others_move = others_move && run.signal[k][j] != run.signal[k][j - 1];
    }
    if (others_move && run.signal[button][j] == run.signal[button][j - 1]) ++alone;
  }
  return alone >= least_repeats &&
         static_cast<double>(alone) > repeated_part * static_cast<double>(n);
}

bool is_saturated(std::span<const double> column) {
  const double most = *std::max_element(column.begin(), column.end());
  // Exactly equal: a converter at the end of its scale says the same number each time.
  const auto at_most = static_cast<std::size_t>(std::count(column.begin(), column.end(), most));
  const auto n = static_cast<double>(column.size());
  // A healthy column has a maximum too. It takes a share and a number of readings there, and a
  // column fine enough that so many would not meet by rounding.
  return at_most >= least_saturated && static_cast<double>(at_most) >= saturated_part * n &&
         static_cast<double>(count_distinct(column)) > distinct_part * n;
}

}  // namespace

judgement check_readings(const bpm_run& run) {
  std::array<double, 4> usual{};
  for (std::size_t k = 0; k < 4; ++k) usual[k] = median_of(run.signal[k]);
  std::array<double, 4> sorted = usual;
  std::sort(sorted.begin(), sorted.end());
  // Of four, the mean of the middle two: one dead and one wild button leave it where it was.
  const double median = (sorted[1] + sorted[2]) / 2;
  const auto suspect = [](verdict_reason reason, std::size_t k) {
    // Buttons are told as 1..4, as everywhere outside this file's loops.
    return judgement{verdict_word::suspect, reason, static_cast<int>(k) + 1, 0};
  };
  for (std::size_t k = 0; k < 4; ++k) {
    if (usual[k] < dead_part * median) return suspect(verdict_reason::dead_button, k);
  }
  for (std::size_t k = 0; k < 4; ++k) {
    if (is_constant(run.signal[k])) return suspect(verdict_reason::stuck_button, k);
  }
  for (std::size_t k = 0; k < 4; ++k) {
    if (is_saturated(run.signal[k])) return suspect(verdict_reason::saturated_button, k);
  }
  // Coarse readings repeat by chance: distinct ones decide.
  for (std::size_t k = 0; k < 4; ++k) {
    if (repeats_alone(run, k) && static_cast<double>(count_distinct(run.signal[k])) >
                                     distinct_part * static_cast<double>(run.signal[k].size())) {
      return suspect(verdict_reason::stuck_button, k);
    }
  }
  return {verdict_word::determined, verdict_reason::none, 0, 0};
}

}  // namespace calibration
