#include <fmt/format.h>

#include "canvas.hpp"
#include "gains_picture.hpp"
#include "page_parts.hpp"
#include "page_style.hpp"
#include "report_page.hpp"
#include "whole_file.hpp"

namespace report {
namespace {

// The picture for windows of three widths: the style sheet shows one of them.
std::string picture_section(const run_results& run) {
  // Texts of an SVG do not wrap, and shrink with it: one picture for all windows would be
  // unreadable in a telephone. In windows below 1100 and 700 pixels the style sheet takes the next
  // one.
  constexpr double wide = 1160, middle = 700, narrow = 356;
  if (run.bpm.empty()) return {};
  return fmt::format(
      "<section><h2>All gains</h2>\n<div class=\"picture wide\">{}</div>\n"
      "<div class=\"picture middle\">{}</div>\n<div class=\"picture narrow\">{}</div></section>\n",
      overview_svg(run, wide), overview_svg(run, middle), overview_svg(run, narrow));
}

}  // namespace

std::string report_html(const run_results& run, unsigned threads) {
  // Style, script and pictures inside: a page that is mailed or moved is whole.
  std::string out = fmt::format(
      "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">\n"
      "<meta name=\"viewport\" content=\"width=device-width,initial-scale=1\">\n"
      "<title>Button gains: {}</title>\n<style>{}</style></head>\n<body><main>\n",
      chart::html(run.info.title), page_style());
  out += head_of(run) + look_list(run) + picture_section(run) + table_of(run);
  // In place: with a hundred BPMs they are six megabytes.
  append_fold_outs(out, run, threads);
  out += how_made(run);
  out += fmt::format("<footer>butngain {}</footer></main>\n<script>{}</script></body></html>\n",
                     chart::html(run.info.version), page_script());
  return out;
}

util::status write_report_html(const std::string& path, const run_results& run, unsigned threads) {
  return util::write_whole_file(path, report_html(run, threads));
}

}  // namespace report
