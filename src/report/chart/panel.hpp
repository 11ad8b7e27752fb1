// panel: a box with two scales, into which data are drawn.
#pragma once
#include <string>
#include <vector>

#include "axis_scale.hpp"
#include "canvas.hpp"

namespace chart {

/// The data's range along one side of the box.
struct span_of_axis {
  double low = 0, high = 1;
};

struct panel {
  double left = 0, top = 0, width = 100, height = 100;  ///< of the box [points]
  span_of_axis x, y;
};

/// Where a value stands on the canvas; not clipped.
double across(const panel& p, double x);
double down(const panel& p, double y);
inline point place(const panel& p, double x, double y) { return {across(p, x), down(p, y)}; }
bool inside(const panel& p, double x, double y);

/// Bounds on whole ticks around the data.
span_of_axis bounds_of(const quick_plot::axis_scale& scale);

/// Grid lines and numbers of one side. Numbers stand left of the box and below it.
/// given    title  of the axis, above its upper end (y) or below its right end (x); may be empty
void draw_y_axis(canvas& c, const panel& p, const quick_plot::axis_scale& scale,
                 std::string_view title);
void draw_x_axis(canvas& c, const panel& p, const quick_plot::axis_scale& scale,
                 std::string_view title);
void draw_frame(canvas& c, const panel& p);

/// Size of the small texts of all charts [points].
inline constexpr double small_text = 10;

/// A range that holds nearly all of the values with some room, whatever a few of them do: those
/// beyond it are to be told in words. Values that are not finite do not count.
/// returns  the whole range unless a few values stretch it beyond three times what holds eight in ten,
///          which leaves a normal spread whole (3.8 sigma)
span_of_axis robust_range(std::vector<double> values);

}  // namespace chart
