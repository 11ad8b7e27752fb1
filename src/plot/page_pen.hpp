// The pen: lines, wedges and texts on one page, in points from its lower left corner.
//
// All drawing goes through the PGPLOT C interface, onto a PostScript page or a bit map (PNG, one
// pixel a point). Lines on a bit map are moved to the centres of pixels: they stay sharp and the
// picture halves in size.
#pragma once
#include <string>
#include <string_view>

namespace quick_plot {

enum class page_medium { postscript, bit_map };

/// Colours of a page.
enum class ink { black = 1, grey = 16, light_grey = 17, red = 18, pale_red = 19 };

/// Opens a page of this size [points] that is drawn into the file.
/// returns  false when the file cannot be made
bool open_pen(page_medium medium, const std::string& path, double width, double height);

/// Ends the page; the file is complete then.
void close_pen();

/// Colour and line width [points] of what follows. Lines on a bit map are at least a pixel wide:
/// a fraction would make them paler, and darker again where two of them lie on each other.
void set_pen(ink colour, double width);

void draw_line(double x1, double y1, double x2, double y2);
void draw_dashed_line(double x1, double y1, double x2, double y2);

/// Two crossed strokes of this size [points]; on a bit map equally long on all sides.
void draw_plus(double x, double y, double size);

/// A filled triangle of this size [points], its tip at x, y, pointing up or down.
void draw_wedge(double x, double y, double size, bool up);

/// A text of this font size [points] from its baseline at x, y; `at` 0, 0.5 or 1 puts its start,
/// middle or end there. Turned by `angle` [degrees]. Drawn as it stands: no character is special.
void draw_text(std::string_view text, double size, double x, double y, double at, double angle = 0);

/// Width of a text [points].
double text_width(std::string_view text, double size);

}  // namespace quick_plot
