#include "page_pen.hpp"

#include <cpgplot.h>
extern "C" {
#include <giza.h>  // its declarations carry no language
}

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>

namespace quick_plot {
namespace {

// Width of line weight 1 [points]: a quarter of a millimetre, at 96 pixels an inch on bit maps.
constexpr double weight_on_paper = 0.25 / 25.4 * 72;
constexpr double weight_on_bit_map = 0.25 / 25.4 * 96;
constexpr double unit_height = 0.027;  // font size of character height 1, in page heights: measured

struct pen_state {
  page_medium medium = page_medium::postscript;
  double height = 0;  // of the page [points]
};
pen_state pen;  // valid from open_pen to close_pen

float single(double value) { return static_cast<float>(value); }

// Centre of the pixel, on bit maps.
float snapped(double value) {
  return single(pen.medium == page_medium::bit_map ? std::floor(value) + 0.5 : value);
}

void set_colour(ink colour, double red, double green, double blue) {
  cpgscr(static_cast<int>(colour), single(red), single(green), single(blue));
}

// The text as the library must be given it: underscores, carets and backslashes would otherwise
// begin subscripts, superscripts and symbols, and data files are called run_12.dat.
std::string literal(std::string_view text) {
  std::string out;
  for (const char c : text) {
    if (c == '_' || c == '^' || c == '\\') out.push_back('\\');
    out.push_back(c);
  }
  return out;
}

void set_font_size(double size) { cpgsch(single(size / (unit_height * pen.height))); }

}  // namespace

bool open_pen(page_medium medium, const std::string& path, double width, double height) {
  // A font that came with the drawing library; the user's own choice wins.
  setenv("GIZA_FONT", "DejaVu Sans", 0);  // NOLINT(concurrency-mt-unsafe): there is one thread
  const bool paper = medium == page_medium::postscript;
  const std::string device = path + (paper ? "/ps" : "/png");
  if (giza_open_device_size(device.c_str(), "butngain", width, height, GIZA_UNITS_DEVICE) <= 0) {
    return false;
  }
  cpgask(0);  // otherwise turning a page would take a byte of standard input
  pen = {medium, height};
  cpgsvp(0, 1, 0, 1);
  cpgswin(0, single(width), 0, single(height));
  // Chosen by eye: the curve pale enough for its symbols to stand out, the grid just visible.
  set_colour(ink::black, 0, 0, 0);
  set_colour(ink::grey, 0.45, 0.45, 0.45);
  set_colour(ink::light_grey, 0.89, 0.89, 0.89);
  set_colour(ink::red, 0.80, 0.07, 0.09);
  set_colour(ink::pale_red, 0.89, 0.50, 0.51);
  return true;
}

void close_pen() { cpgclos(); }

void set_pen(ink colour, double width) {
  cpgsci(static_cast<int>(colour));
  if (pen.medium == page_medium::postscript) {
    giza_set_line_width(width / weight_on_paper);
  } else {
    giza_set_line_width(std::max(width, 1.0) / weight_on_bit_map);
  }
}

void draw_line(double x1, double y1, double x2, double y2) {
  cpgmove(snapped(x1), snapped(y1));
  cpgdraw(snapped(x2), snapped(y2));
}

void draw_dashed_line(double x1, double y1, double x2, double y2) {
  constexpr int dashed = 2;  // line styles of the interface
  constexpr int full = 1;
  cpgsls(dashed);
  draw_line(x1, y1, x2, y2);
  cpgsls(full);
}

void draw_plus(double x, double y, double size) {
  const bool paper = pen.medium == page_medium::postscript;
  const float middle = snapped(x);
  const float height = snapped(y);
  // Whole pixels beside the middle one, itself half a pixel to each side.
  const float arm = single(paper ? size / 2 : std::round(size / 2) + 0.5);
  cpgmove(middle - arm, height);
  cpgdraw(middle + arm, height);
  cpgmove(middle, height - arm);
  cpgdraw(middle, height + arm);
}

void draw_wedge(double x, double y, double size, bool up) {
  const double base = up ? y - size : y + size;
  const std::array<float, 3> xs{single(x), single(x - (size / 2)), single(x + (size / 2))};
  const std::array<float, 3> ys{single(y), single(base), single(base)};
  cpgpoly(static_cast<int>(xs.size()), xs.data(), ys.data());
}

void draw_text(std::string_view text, double size, double x, double y, double at, double angle) {
  set_font_size(size);
  cpgptxt(single(x), single(y), single(angle), single(at), literal(text).c_str());
}

double text_width(std::string_view text, double size) {
  set_font_size(size);
  std::array<float, 4> xs{};
  std::array<float, 4> ys{};
  cpgqtxt(0, 0, 0, 0, literal(text).c_str(), xs.data(), ys.data());
  return xs[2] - xs[0];
}

}  // namespace quick_plot
