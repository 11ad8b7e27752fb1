#include "canvas.hpp"

#include <cairo-pdf.h>
#include <cairo-svg.h>
#include <cairo.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

#include "inks.hpp"
#include "svg_path.hpp"
#include "svg_text.hpp"
#include "text.hpp"

namespace chart {
namespace {

// The page's style sheet names the same font first: the widths measured here, by which texts are
// shortened and names turned, then hold for the texts of an SVG, which the reader's browser draws.
constexpr const char* font = "DejaVu Sans";

cairo_status_t take_bytes(void* into, const unsigned char* data, unsigned int length) {
  static_cast<std::string*>(into)->append(data, data + length);
  return CAIRO_STATUS_SUCCESS;
}

void set_ink(canvas& c, ink colour, double opacity = 1) {
  const ink_colour& shade = colour_of(colour);
  cairo_set_source_rgba(c.pen.get(), shade.red / 255.0, shade.green / 255.0, shade.blue / 255.0,
                        opacity);
}

// Straight lines on a bit map are moved to the middle of pixels, where they stay sharp.
double snapped(const canvas& c, double at, double width) {
  if (c.medium != medium::png) return at;
  double scale_x = 1, scale_y = 1;
  cairo_surface_get_device_scale(c.sheet.get(), &scale_x, &scale_y);
  const bool odd = std::lround(std::max(1.0, width * scale_x)) % 2 == 1;
  return (std::floor(at * scale_x) + (odd ? 0.5 : 0.0)) / scale_x;
}

// What the shapes of an SVG know of their line.
svg_stroke stroke_of(const canvas& c, ink colour, double width, double opacity = 1) {
  return {.ink = colour, .width = width, .opacity = opacity, .round_joins = c.round_joins};
}

void draw_strokes_of_svg(canvas& c, std::span<const point> ends, const svg_stroke& how) {
  svg_path path;
  for (std::size_t i = 0; i + 1 < ends.size(); i += 2) {
    move_to(path, ends[i]);
    line_to(path, ends[i + 1]);
  }
  append_stroked(c.shapes, path, how);
}

void fill_svg(canvas& c, std::span<const point> corners, ink colour, double opacity) {
  svg_path path;
  for (const point& p : corners) line_to(path, p);
  close(path);
  append_filled(c.shapes, path, colour, opacity);
}

void straight(canvas& c, point from, point to, double width) {
  // Slanted lines are smoothed wherever they lie; only level and upright ones can be sharp, or
  // smeared over two pixels.
  const bool level = from.y == to.y, upright = from.x == to.x;
  if (level) from.y = to.y = snapped(c, from.y, width);
  if (upright) from.x = to.x = snapped(c, from.x, width);
  cairo_move_to(c.pen.get(), from.x, from.y);
  cairo_line_to(c.pen.get(), to.x, to.y);
}

void stroke(canvas& c, ink colour, double width, double opacity = 1) {
  set_ink(c, colour, opacity);
  cairo_set_line_width(c.pen.get(), width);
  cairo_stroke(c.pen.get());
}

void set_font(canvas& c, double size, bool bold) {
  cairo_select_font_face(c.pen.get(), font, CAIRO_FONT_SLANT_NORMAL,
                         bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
  cairo_set_font_size(c.pen.get(), size);
}

void show_text(canvas& c, const std::string& text, point place, const text_style& style) {
  cairo_text_extents_t extents;
  set_font(c, style.size, style.bold);
  // Placed by the advance, not by the inked width: "1" and "0" then take the same room, and numbers
  // below each other keep their columns.
  cairo_text_extents(c.pen.get(), text.c_str(), &extents);
  cairo_save(c.pen.get());
  cairo_translate(c.pen.get(), place.x, place.y);
  if (style.upright) cairo_rotate(c.pen.get(), -std::numbers::pi / 2);
  cairo_move_to(c.pen.get(), -style.at * extents.x_advance, 0);
  set_ink(c, style.ink);
  cairo_show_text(c.pen.get(), text.c_str());
  cairo_restore(c.pen.get());
}

}  // namespace

void canvas::closer::operator()(_cairo* held) const { cairo_destroy(held); }
void canvas::closer::operator()(_cairo_surface* held) const { cairo_surface_destroy(held); }

canvas open_canvas(medium kind, double width, double height, double scale) {
  canvas c;
  c.medium = kind;
  c.width = width;
  c.height = height;
  c.bytes = std::make_unique<std::string>();
  if (kind == medium::svg) {
    c.sheet.reset(cairo_svg_surface_create_for_stream(take_bytes, c.bytes.get(), width, height));
  } else if (kind == medium::pdf) {
    c.sheet.reset(cairo_pdf_surface_create_for_stream(take_bytes, c.bytes.get(), width * scale,
                                                      height * scale));
    // The same drawing gives the same bytes: not the time of day.
    cairo_pdf_surface_set_metadata(c.sheet.get(), CAIRO_PDF_METADATA_CREATE_DATE,
                                   "2000-01-01T00:00:00Z");
  } else {
    c.sheet.reset(cairo_image_surface_create(CAIRO_FORMAT_RGB24,
                                             static_cast<int>(std::ceil(width * scale)),
                                             static_cast<int>(std::ceil(height * scale))));
    // The bit map knows its scale, so lengths stay in points and `snapped` can ask for it.
    cairo_surface_set_device_scale(c.sheet.get(), scale, scale);
  }
  c.pen.reset(cairo_create(c.sheet.get()));
  // Paper has no pixels: here the pen is scaled, which holds for all pages that follow.
  if (kind == medium::pdf) cairo_scale(c.pen.get(), scale, scale);
  // A new bit map is black. Pages of the other two are white by themselves, or take the colour of
  // what they stand on.
  if (kind == medium::png) {
    set_ink(c, ink::paper);
    cairo_paint(c.pen.get());
  }
  return c;
}

void next_page(canvas& c) { cairo_show_page(c.pen.get()); }

std::string finish(canvas& c, std::string_view title) {
  // The pen's fault is asked for before the pen is given back: the sheet does not know of it.
  const bool drawn = cairo_status(c.pen.get()) == CAIRO_STATUS_SUCCESS;
  c.pen.reset();
  if (c.medium == medium::svg) {
    c.sheet.reset();
    return drawn ? svg_element(c, title) : std::string{};
  }
  cairo_status_t status = cairo_surface_status(c.sheet.get());
  if (c.medium == medium::png && status == CAIRO_STATUS_SUCCESS) {
    status = cairo_surface_write_to_png_stream(c.sheet.get(), take_bytes, c.bytes.get());
  } else {
    cairo_surface_finish(c.sheet.get());  // the sheet writes its last bytes now
    status = cairo_surface_status(c.sheet.get());
  }
  c.sheet.reset();
  if (!drawn || status != CAIRO_STATUS_SUCCESS) return {};
  return std::move(*c.bytes);
}

void draw_line(canvas& c, point from, point to, ink colour, double width) {
  if (c.medium == medium::svg) {
    return draw_strokes_of_svg(c, std::array{from, to}, stroke_of(c, colour, width));
  }
  straight(c, from, to, width);
  stroke(c, colour, width);
}

void draw_dashed_line(canvas& c, point from, point to, ink colour, double width) {
  if (c.medium == medium::svg) {
    svg_stroke how = stroke_of(c, colour, width);
    how.dashed = true;
    return draw_strokes_of_svg(c, std::array{from, to}, how);
  }
  constexpr std::array dash{4.0, 3.0};  // [points]
  cairo_set_dash(c.pen.get(), dash.data(), static_cast<int>(dash.size()), 0);
  draw_line(c, from, to, colour, width);
  // The pen keeps its dashes: without this every later line would have them.
  cairo_set_dash(c.pen.get(), nullptr, 0, 0);
}

void draw_lines(canvas& c, std::span<const point> corners, ink colour, double width) {
  if (c.medium == medium::svg) {
    c.round_joins = true;
    svg_path path;
    for (const point& p : corners) line_to(path, p);
    return append_stroked(c.shapes, path, stroke_of(c, colour, width));
  }
  cairo_set_line_join(c.pen.get(), CAIRO_LINE_JOIN_ROUND);
  cairo_new_path(c.pen.get());  // a text leaves its end behind, from which a line would go on
  for (const point& p : corners) cairo_line_to(c.pen.get(), p.x, p.y);
  stroke(c, colour, width);
}

// All strokes in one path: a picture of many needs one colour and one width in its file.
void draw_strokes(canvas& c, std::span<const point> ends, ink colour, double width) {
  if (ends.size() < 2) return;
  if (c.medium == medium::svg) return draw_strokes_of_svg(c, ends, stroke_of(c, colour, width));
  for (std::size_t i = 0; i + 1 < ends.size(); i += 2) straight(c, ends[i], ends[i + 1], width);
  stroke(c, colour, width);
}

void draw_dots(canvas& c, std::span<const point> at, ink colour, double diameter, double opacity) {
  if (at.empty()) return;
  std::vector<std::pair<long, long>> halves;  // of points: finer steps nobody sees in a cloud
  halves.reserve(at.size());
  for (const point& p : at) halves.emplace_back(std::lround(2 * p.x), std::lround(2 * p.y));
  std::sort(halves.begin(), halves.end());
  halves.erase(std::unique(halves.begin(), halves.end()), halves.end());
  if (c.medium == medium::svg) {
    svg_stroke how = stroke_of(c, colour, diameter, opacity);
    how.round_ends = true;
    return append_dots(c.shapes, halves, how);
  }
  cairo_set_line_cap(c.pen.get(), CAIRO_LINE_CAP_ROUND);
  for (const auto& [x, y] : halves) {
    // A stroke of no length between round caps is a dot, and the shortest way to write one.
    cairo_move_to(c.pen.get(), 0.5 * static_cast<double>(x), 0.5 * static_cast<double>(y));
    cairo_line_to(c.pen.get(), 0.5 * static_cast<double>(x), 0.5 * static_cast<double>(y));
  }
  stroke(c, colour, diameter, opacity);
  cairo_set_line_cap(c.pen.get(), CAIRO_LINE_CAP_BUTT);
}

void fill_area(canvas& c, std::span<const point> corners, ink colour, double opacity) {
  if (corners.empty()) return;
  if (c.medium == medium::svg) return fill_svg(c, corners, colour, opacity);
  cairo_new_path(c.pen.get());
  for (const point& p : corners) cairo_line_to(c.pen.get(), p.x, p.y);
  cairo_close_path(c.pen.get());
  set_ink(c, colour, opacity);
  cairo_fill(c.pen.get());
}

void fill_box(canvas& c, point corner, double width, double height, ink colour, double opacity) {
  if (c.medium == medium::svg) {
    // Lengths are rounded as corners are, so that boxes of one size keep it wherever they stand.
    const double right = in_steps(corner.x) + in_steps(width);
    const double bottom = in_steps(corner.y) + in_steps(height);
    return fill_svg(
        c,
        std::array{corner, point{right, corner.y}, point{right, bottom}, point{corner.x, bottom}},
        colour, opacity);
  }
  cairo_new_path(c.pen.get());
  cairo_rectangle(c.pen.get(), corner.x, corner.y, width, height);
  set_ink(c, colour, opacity);
  cairo_fill(c.pen.get());
}

void draw_text(canvas& c, std::string_view text, point place, const text_style& style) {
  // The library gives up a whole drawing for one byte that is no UTF-8.
  const std::string clean = util::shown(text);
  if (c.medium == medium::svg) {
    c.texts.push_back({clean, place, style});
  } else {
    show_text(c, clean, place, style);
  }
}

double text_width(canvas& c, std::string_view text, double size, bool bold) {
  cairo_text_extents_t extents;
  set_font(c, size, bold);
  cairo_text_extents(c.pen.get(), util::shown(text).c_str(), &extents);
  return extents.x_advance;
}

std::string shortened(canvas& c, std::string_view text, double size, double width) {
  std::string kept = util::shown(text);
  if (text_width(c, kept, size) <= width) return kept;
  const auto inside_character = [](char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
  };
  // Whole characters of UTF-8 go: half of one would be no text any more (and would show as \xNN).
  while (!kept.empty()) {
    while (!kept.empty() && inside_character(kept.back())) kept.pop_back();
    if (!kept.empty()) kept.pop_back();
    if (text_width(c, kept + "…", size) <= width) break;
  }
  return kept + "…";
}

}  // namespace chart
