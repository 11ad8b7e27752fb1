// Axis scaling: readable numbers around a range of data.
//
// A scale counts in steps of 1, 2 or 5 times a power of ten and begins and ends on a whole number
// of steps. Every tick value is made as (digit k) 10^power from whole numbers, never by adding
// steps up, so the tick at gain 1 is 1 and not 0.9999999.
#pragma once
#include <string>

namespace quick_plot {

/// Bounds and ticks of one axis: ticks at k steps, k = first .. first + divisions.
struct axis_scale {
  int digit = 1;        ///< 1, 2 or 5
  int power = 0;        ///< one step is digit * 10^power
  long long first = 0;  ///< lower bound [steps]
  int divisions = 4;    ///< steps between the bounds
  int minor = 1;        ///< small intervals in one step; 1 means no small ticks
};

/// The value at k steps; k need not be whole.
double axis_value(const axis_scale& scale, double k);

/// The number written at tick k: "0.8", "120"; as many decimals as the step needs.
std::string axis_number(const axis_scale& scale, long long k);

/// The "GENERAL" scale of a range: bounds on whole steps that enclose the data, with `least` to
/// `most` divisions. Of all such scales the one with the least empty room wins, then the one
/// nearest to the middle of least and most, then the larger step. A range too narrow for `least`
/// divisions is widened on both sides.
///
/// given    low, high  the data; reversed bounds are exchanged, a bound that is not finite counts
///                     as 0
///          counts     the axis numbers things (BPM indices): steps are whole, and a range without
///                     negative numbers does not begin below 0
/// errors   none
axis_scale general_scale(double low, double high, int least, int most, bool counts);

}  // namespace quick_plot
