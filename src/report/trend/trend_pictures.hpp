// trend_pictures: gains against time, as they stand in page and PNG.
#pragma once
#include <cstddef>
#include <string>

#include "axis_scale.hpp"
#include "canvas.hpp"
#include "trend_report.hpp"

namespace report {

/// The scale of one BPM's changes [%], the same for its four buttons.
quick_plot::axis_scale scale_of_trend(const bpm_trend& b);

/// One BPM: four strips below each other, one a button, with the same scales; error bars, the level
/// between steps, steps as upright lines, wild runs hollow or at the frame.
/// given    corner       upper left
///          most_points  marks a button; more runs are drawn as means of neighbours
void draw_bpm_trend(chart::canvas& c, const trend_result& r, const bpm_trend& b,
                    chart::point corner, double width, std::size_t most_points);
inline constexpr double bpm_trend_height = 330;  ///< [points]

/// The same as an element of a page.
std::string bpm_trend_svg(const trend_result& r, const bpm_trend& b, double width,
                          std::size_t most_points);

/// When what changed: a line a BPM that changed, a mark a step; as an element of a page, empty when
/// nothing changed.
std::string time_line_svg(const trend_result& r, double width);

}  // namespace report
