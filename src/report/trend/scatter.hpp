// scatter: how much gains scatter from run to run, and whether they wander (bpm_trend.hpp).
#pragma once
#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "level_filter.hpp"
#include "trend_data.hpp"

namespace report {

/// A usable point: its gains and its two stated errors.
struct stated {
  double day = 0;
  four gain{};
  double noise = 0, error = 0;
};

/// c^2 of one BPM by itself.
/// returns  unknown for fewer than four points
double scale_of_scatter(std::span<const stated> points);

/// Draws the c^2 of each BPM towards the median of all, and that towards 1.
/// given    counts  points of each
std::vector<double> shared_scales(const std::vector<double>& own,
                                  const std::vector<std::size_t>& counts);

/// scatter^2 of a point.
double variance_of(const stated& point, double scale);

/// Variance a day by which the level of these readings wanders; 0 unless it is clear.
double wander_of(std::span<const reading> readings);

/// Neighbours up to here may scatter alike: half a dozen runs, more where there are many. Further
/// ones say nothing but chance.
std::size_t reach_of_memory(std::size_t readings);

/// How much larger than that of independent readings the variance of a mean of many is: neighbours
/// that scatter alike, as runs on similar orbits do.
/// given    residuals  over their scatter, in order; an empty entry where a step or a wild reading
///                     divides them
/// returns  at least 1; unknown for too few
double memory_of(const std::vector<std::optional<four>>& residuals);

/// Draws the memory of each BPM up to the median of all: what makes runs alike is mostly the beam.
std::vector<double> shared_memories(const std::vector<double>& own,
                                    const std::vector<std::size_t>& counts);

/// Slope that most of the readings share, by the median of slopes: steps and wild readings do not
/// move it much.
four robust_slope(std::span<const reading> readings);

}  // namespace report
