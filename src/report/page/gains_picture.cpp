#include "gains_picture.hpp"

#include <fmt/format.h>

#include <algorithm>

#include "overview.hpp"
#include "report_page.hpp"
#include "whole_file.hpp"

namespace report {
namespace {

using chart::ink;
using chart::point;

double height_of(const overview& o) {
  return legend_height(o) + static_cast<double>(o.rows) * row_height(o);
}

void draw_overview(chart::canvas& c, const overview& o, point corner) {
  draw_legend(c, o, corner);
  corner.y += legend_height(o);
  for (std::size_t row = 0; row < o.rows; ++row) {
    draw_row(c, o, row, corner);
    corner.y += row_height(o);
  }
}

}  // namespace

std::string overview_svg(const run_results& run, double width) {
  const overview o = lay_out(run, width);
  chart::canvas c = chart::open_canvas(chart::medium::svg, o.width, height_of(o));
  // 1160 points, the widest, grow to the 1450 that the style sheet's widest page has room for.
  c.growth = 1.25;
  draw_overview(c, o, {0, 0});
  return finish(c, overview_in_words(run));
}

std::string gains_png(const run_results& run) {
  // Some 1500 pixels: a screen's width, and fit for a mail.
  constexpr double width = 1000, margin = 16, head = 52, pixels_a_point = 1.5;
  const overview o = lay_out(run, width);
  // With few BPMs the picture is narrow; the first sentence must be readable all the same.
  const double text_width = std::max(o.width, 700.0);
  chart::canvas c = chart::open_canvas(chart::medium::png, text_width + 2 * margin,
                                       height_of(o) + head + margin, pixels_a_point);
  // `shortened` measures plain letters, and bold ones are wider: hence less room than there is.
  draw_text(c, shortened(c, fmt::format("Button gains, {}", run.info.title), 15, text_width * 0.95),
            {margin, 28}, {.size = 15, .bold = true});
  draw_text(c, shortened(c, first_sentence(run), 11, text_width), {margin, 48},
            {.size = 11, .ink = ink::quiet});
  draw_overview(c, o, {margin, head});
  return finish(c);
}

util::status write_gains_png(const std::string& path, const run_results& run) {
  const std::string bytes = gains_png(run);
  // The pen says no more than that: no memory, or more pixels than a bit map may have.
  if (bytes.empty()) return util::fault{"the picture could not be drawn", path, {}};
  return util::write_whole_file(path, bytes);
}

}  // namespace report
