// quick_plot: pages, boxes, margins, axes, symbols and curves on top of PGPLOT.
//
// A page is opened on a device, divided into boxes, given axes, drawn on and closed:
//
//     qp_open_page("PS-L", "RD-001234.ps");
//     qp_set_page_border(0.02, 0.02, 0.04, 0.04, "%PAGE");
//     qp_set_margin(0.02, 0.02, 0.015, 0.015, "%PAGE");
//     qp_set_box(1, 1, 1, 1);
//     qp_calc_and_set_axis("X", 1, 100, 4, 8, "GENERAL");
//     qp_calc_and_set_axis("Y", 0.8, 1.2, 4, 8, "GENERAL");
//     qp_draw_axes("BPM", "gain", "Button gains");
//     qp_set_symbol_attrib("plus", 10, "red");
//     qp_draw_data(x, y, true, 1);
//     qp_close_page();
//
// Lengths are in points (1/72 inch) or parts of the page; the origin of a page is its lower left
// corner. The border is kept free on all sides of the page; the rest is divided into boxes; the
// graph fills its box but for the margins, in which numbers, labels and title stand. A margin too
// narrow for its texts grows until they fit.
//
// Devices: "X" a window on the screen, "PS-L" PostScript, "GIF-L" GIF, the last two a landscape
// letter page (792 x 612 points). Unknown names of devices, units and the like are faults of the
// caller and end the run.
//
// One page is open at a time. All of it lives in one record; nothing outlives qp_close_page but the
// window on the screen, which stays until qp_close_window or the next page on the screen.
#pragma once
#include <span>
#include <string>
#include <string_view>

namespace quick_plot {

/// Opens a page.
///
/// given    device  "X", "PS-L" or "GIF-L"
///          name    title of the window, or path of the file; it also becomes the title inside a
///                  PostScript file
///          xlen, ylen, unit  size of a window, in "POINTS"; without meaning for files
/// returns  why there is no page: "the display cannot be opened"; empty when there is one
std::string qp_open_page(std::string_view device, const std::string& name, double xlen = 0,
                         double ylen = 0, std::string_view unit = "POINTS");

/// Free space at the left, right, bottom and top of the page, in "%PAGE" (parts of the page, 0..1)
/// or "POINTS".
void qp_set_page_border(double x1, double x2, double y1, double y2, std::string_view unit);

/// Least space between the sides of a box and its graph: left, right, bottom and top.
void qp_set_margin(double x1, double x2, double y1, double y2, std::string_view unit);

/// The next drawing goes to box ix, iy of nx by ny, counted from the lower left, from 1.
void qp_set_box(int ix, int iy, int nx, int ny);

/// The axis ("X" or "Y") numbers things, such as BPMs: whole steps only. No two of those that are
/// drawn are less than `apart` from each other.
void qp_set_axis_counts(std::string_view axis, double apart = 1);

/// Bounds and ticks of an axis around a range of data.
/// given    least, most  divisions between the bounds
///          bounds       "GENERAL": whole steps of 1, 2 or 5 times a power of ten (general_scale)
void qp_calc_and_set_axis(std::string_view axis, double data_min, double data_max, int least,
                          int most, std::string_view bounds);

/// Draws grid, frame, ticks, numbers, both labels and the title. A long title shrinks to fit.
void qp_draw_axes(std::string_view x_label, std::string_view y_label, std::string_view title);

/// A dashed line across the graph at this value of the "Y" axis.
void qp_draw_level(double value);

/// A text in the middle of the graph, for a page that has nothing else to show.
void qp_draw_note(std::string_view text);

/// Symbol, its size [points] and the colour of symbols and curves: "plus", 10, "red". Symbols
/// shrink on a counting axis where neighbours would touch.
void qp_set_symbol_attrib(std::string_view symbol, double size, std::string_view colour);

/// Draws points, joined by a line if asked, with a symbol at every symbol_every-th point (0: none).
/// A value beyond the Y axis becomes a wedge on the frame that points to it; a value that is not
/// finite is left out.
/// given    x, y  as many as the shorter has
void qp_draw_data(std::span<const double> x, std::span<const double> y, bool draw_line,
                  int symbol_every);

/// Ends the page: shows the window, or writes the file - whole or not at all.
/// returns  why it could not: "No space left on device"; empty when it could
std::string qp_close_page();

/// Takes the window from the screen, if there is one.
void qp_close_window();

}  // namespace quick_plot
