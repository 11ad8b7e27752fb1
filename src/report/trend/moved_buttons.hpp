// moved_buttons: which button moved, when only the ratios of four are known.
//
// A change of the four gains is known but for a common factor: as d_k = change of ln t_k, mean 0,
// with covariance v (1 - J/4) where v is the variance that one button has by itself. A button that
// moves by a shows as 3/4 a in its own d and as -a/4 in the other three. The simplest explanation is
// taken that the fit allows: one button, then two, then all; a remainder counts beyond the same
// number of its errors as a change does.
#pragma once
#include <cstddef>

#include "run_results.hpp"

namespace report {

/// When a change counts.
struct trend_limits {
  double errors = 5;    ///< in units of its own error
  double floor = 5e-4;  ///< of a gain ratio: some 10 um in a pipe of 45 mm
};

/// A change of the gains of one BPM, explained.
struct moved_gains {
  four change{};           ///< of ln t; 0 for buttons that stood still
  double error = 0;        ///< of one that moved
  std::size_t count = 0;   ///< buttons that moved: 1, 2 or 4; 4 means against their middle
  std::size_t button = 0;  ///< the one that moved most
  bool or_others = false;  ///< two moved alike, or the other two the other way: nobody can tell
};

/// The change of a single button that explains most, in units of its error.
double single_button_errors(const four& change, double variance);

/// Explains a change.
/// given    change    of ln t, mean 0
///          variance  of one button by itself, v
moved_gains explain(const four& change, double variance, const trend_limits& limits);

}  // namespace report
