// The page being drawn, as the sources of this folder share it: its record, the places of values
// on it, and its axes.
#pragma once
#include <string>
#include <string_view>

#include "axis_scale.hpp"
#include "page_file.hpp"

namespace quick_plot {

inline constexpr double gutter = 10;  ///< [points] frame to outermost data: none hides on the frame
inline constexpr double frame_width = 0.9;  ///< [points]

/// Four sides of a page, box or graph [points from the lower left corner of the page].
struct rectangle {
  double left = 0, right = 0, bottom = 0, top = 0;
};

/// Four widths along the sides of a rectangle [points].
struct sides {
  double left = 0, right = 0, bottom = 0, top = 0;
};

struct axis {
  axis_scale scale;
  bool counts = false;  // numbers things: whole steps only
  double apart = 1;     // least distance between two of the things that are drawn
};

enum class device { screen, postscript, gif };

/// Valid from qp_open_page to qp_close_page.
struct page_state {
  device on = device::screen;
  std::string name;  // title of the window, or path of the file
  scratch_folder scratch;
  std::string drawn;  // file in the scratch folder that receives the drawing
  double width = 0;   // [points]
  double height = 0;
  sides border;
  sides margin;
  rectangle box;
  rectangle graph;  // the frame; set by draw_axes
  axis x, y;
  double symbol_size = 10;
};

/// Place of k steps of an axis on the page, between the gutters [points]; k need not be whole.
double x_of(const page_state& p, double k);
double y_of(const page_state& p, double k);

/// A value in steps of its axis.
inline double steps_of(const axis& a, double value) { return value / axis_value(a.scale, 1); }

/// Last tick of an axis.
inline long long last_tick(const axis& a) { return a.scale.first + a.scale.divisions; }

/// Places the graph in its box and draws all of it but the data.
void draw_axes(page_state& p, std::string_view x_label, std::string_view y_label,
               std::string_view title);

}  // namespace quick_plot
