// level_filter: the level of a series of readings on both sides of a moment.
//
// A reading is a level and scatter of a variance of its own; the level may wander, by `wander` a day
// (variance, a random walk). Forward, the level at a reading is known from it and all before it;
// backward from it and all behind it: each is a weighted mean, whose weights fade as the level
// wanders. Their difference at two neighbours is the step between them, and both variances and the
// wandering in between make its error. Without wandering these are the weighted means of both sides.
#pragma once
#include <cstddef>
#include <span>
#include <vector>

#include "run_results.hpp"

namespace report {

/// One reading of four values.
struct reading {
  double day = 0;
  four value{};
  double variance = 1;  ///< of each of the four
};

/// The level at a reading, and that of the days themselves, filtered in the same way: what a
/// straight line would show.
struct known_level {
  four value{};
  double day = 0;
  double variance = 0;
};

/// Levels at every reading, from the readings up to it (`forward`) or from it on.
std::vector<known_level> forward_levels(std::span<const reading> readings, double wander);
std::vector<known_level> backward_levels(std::span<const reading> readings, double wander);

/// What the readings of one stretch say about a straight line, whatever their level.
struct line_sums {
  double days = 0, values = 0;  ///< squares of days and of values, over their variance
  four products{};              ///< of both
};
line_sums sums_of(std::span<const reading> readings, double wander);

/// How much better a level that wanders explains the readings than one that stands: twice the
/// difference of the logarithms of both likelihoods.
/// note     the four values have mean 0: three numbers a reading
double gain_by_wandering(std::span<const reading> readings, double wander);

}  // namespace report
