// change_search: steps and a straight drift in a series of gains, or neither.
//
// Three explanations are tried: levels with steps between them; the same on a straight line, begun
// without steps; and begun from the steps of the first. Of each the squares that remain are counted,
// and for every step and for the line as much as a change of just `errors` of its errors would
// better them by: the cheapest explanation is taken. A ramp is thus one line and no staircase, a
// step is no line.
#pragma once
#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "level_filter.hpp"
#include "moved_buttons.hpp"

namespace report {

/// A step between two readings.
struct found_step {
  std::size_t at = 0;                    ///< the first reading behind it
  std::size_t earliest = 0, latest = 0;  ///< where else it may be, as likely but for two errors
  four change{};                         ///< of the level, mean 0
  double variance = 0;                   ///< of one button's change
};

/// A straight drift.
struct found_drift {
  four a_day{};         ///< mean 0
  double variance = 0;  ///< of one button's
};

struct found_changes {
  std::vector<found_step> steps;   ///< by time
  found_drift drift;               ///< the straight line with these steps, whether or not it counts
  bool drifts = false;             ///< whether the line is part of the explanation
  std::vector<known_level> level;  ///< of every reading: what the explanation says its value is,
                                   ///< drift included; variance of that
};

/// Searches a series.
/// given    readings  by time, wild ones left out
///          wander    see level_filter.hpp [1/day]
found_changes search_changes(std::span<const reading> readings, double wander,
                             const trend_limits& limits);

/// Readings that a level on each side needs.
inline constexpr std::size_t least_on_a_side = 2;

}  // namespace report
