// canvas: one drawing, whatever it ends in: SVG for a page, PNG for a mail, PDF for paper.
//
// Lengths are in points from the upper left corner, y downwards. PNG and PDF are drawn by cairo. Of an
// SVG it only measures texts: the shapes of a page with hundreds of pictures are written here
// (svg_path.hpp) in a tenth of the time, and the texts are kept and become <text> elements in the end,
// which one can search and copy.
//
// Colours are names (ink). In an SVG they become variables of the page's style sheet, var(--ink) and
// so on, so that one picture serves light and dark.
#pragma once
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

extern "C" {
struct _cairo;  // the drawing library's own names; who includes this need not see it
struct _cairo_surface;
}

namespace chart {

enum class medium { svg, png, pdf };

/// What a stroke or an area is for. Buttons have a symbol as well (symbols.hpp): colours alone do
/// not reach everybody, nor every printer.
enum class ink { text, quiet, grid, band, paper, button_1, button_2, button_3, button_4, alarm };

struct point {
  double x = 0, y = 0;
};

/// How a text stands at its place.
struct text_style {
  double size = 10;  ///< [points]
  double at = 0;     ///< 0, 0.5 or 1: its start, middle or end is at the place
  chart::ink ink = ink::text;
  bool bold = false;
  bool upright = false;  ///< runs upwards
};

/// A text of an SVG, kept until the end.
struct placed_text {
  std::string text;
  point place;
  text_style style;
};

struct canvas {
  struct closer {
    void operator()(_cairo* held) const;
    void operator()(_cairo_surface* held) const;
  };
  chart::medium medium = medium::svg;
  double width = 0, height = 0;        ///< [points]
  double growth = 1;                   ///< of an SVG: how much larger it may be shown
  std::unique_ptr<std::string> bytes;  ///< what the sheet has written; it keeps the address
  std::unique_ptr<_cairo_surface, closer> sheet;
  std::unique_ptr<_cairo, closer> pen;
  std::string shapes;        ///< of an SVG: written as they are drawn
  bool round_joins = false;  ///< of an SVG: of all lines to come
  std::vector<placed_text> texts;
};

/// An empty drawing.
/// given    scale  pixels a point of a PNG; of a PDF, how much smaller or larger all is printed
/// note     a picture too large for memory gives a canvas that draws nothing; `finish` tells
canvas open_canvas(medium kind, double width, double height, double scale = 1);

/// Ends a page; the next begins. For PDF.
void next_page(canvas& c);

/// Ends the drawing.
/// given    title  of an SVG: what the picture shows, for those who do not see it
/// returns  the file; for an SVG the element as it stands in a page. Empty when memory or the
///          drawing library failed
std::string finish(canvas& c, std::string_view title = {});

void draw_line(canvas& c, point from, point to, ink colour, double width);
void draw_dashed_line(canvas& c, point from, point to, ink colour, double width);
void draw_lines(canvas& c, std::span<const point> corners, ink colour, double width);
/// Pairs of points, a stroke each.
void draw_strokes(canvas& c, std::span<const point> ends, ink colour, double width);
/// Round dots. Those on the same half point are drawn once.
void draw_dots(canvas& c, std::span<const point> at, ink colour, double diameter,
               double opacity = 1);
void fill_area(canvas& c, std::span<const point> corners, ink colour, double opacity = 1);
void fill_box(canvas& c, point corner, double width, double height, ink colour, double opacity = 1);

/// A text from its baseline at `place`. Characters that would not show stand as escapes.
void draw_text(canvas& c, std::string_view text, point place, const text_style& style = {});
double text_width(canvas& c, std::string_view text, double size, bool bold = false);
/// The text, or its beginning and an ellipsis where it would be wider than this.
std::string shortened(canvas& c, std::string_view text, double size, double width);

/// The text with what HTML reads as markup escaped, and control characters shown as \x1b.
std::string html(std::string_view text);

}  // namespace chart
