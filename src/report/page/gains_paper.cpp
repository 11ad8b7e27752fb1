// The report on paper: sentence, BPMs that need a look, the picture, page by page.
#include <fmt/format.h>

#include <algorithm>

#include "gains_csv.hpp"
#include "overview.hpp"
#include "report_page.hpp"
#include "whole_file.hpp"

namespace report {
namespace {

using chart::ink;

constexpr double reduced = 0.72;         // so that a hundred BPMs take two pages
constexpr double margin = 42 / reduced;  // 15 mm: what printers leave free [points]

// The sheet being filled from above.
struct sheet {
  chart::canvas c;
  double y = margin;  // lower end of what stands there
  // How many there will be is known when the last is full, so pages are numbered without "of".
  int page = 1;
  std::string footer;
};

void end_page(sheet& s) {
  draw_text(s.c, s.footer, {margin, s.c.height - margin / 2}, {.size = 10, .ink = ink::quiet});
  draw_text(s.c, fmt::format("page {}", s.page), {s.c.width - margin, s.c.height - margin / 2},
            {.size = 10, .at = 1, .ink = ink::quiet});
}

// Room for something of this height: on this page, or on the next.
void make_room(sheet& s, double height) {
  // On an empty page nothing is put off: what is higher than a page would leave one blank, and not
  // fit the next either.
  if (s.y + height <= s.c.height - margin || s.y <= margin) return;
  end_page(s);
  next_page(s.c);
  ++s.page;
  s.y = margin;
}

void write_line(sheet& s, std::string_view text, const chart::text_style& style) {
  make_room(s, 1.4 * style.size);
  s.y += 1.4 * style.size;
  draw_text(s.c, text, {margin, s.y}, style);
}

// Words broken into lines; a word wider than a line is shortened.
void write_paragraph(sheet& s, std::string_view text, const chart::text_style& style) {
  const double room = s.c.width - 2 * margin;
  std::string line;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(' '), text.size());
    const std::string longer = line.empty() ? std::string{text.substr(0, end)}
                                            : fmt::format("{} {}", line, text.substr(0, end));
    if (!line.empty() && text_width(s.c, longer, style.size, style.bold) > room) {
      write_line(s, line, style);
      line = text.substr(0, end);
    } else {
      line = longer;
    }
    line = shortened(s.c, line, style.size, room);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  if (!line.empty()) write_line(s, line, style);
}

void write_head(sheet& s, const run_results& run) {
  write_paragraph(s, fmt::format("Button gains, {}", run.info.title), {.size = 18, .bold = true});
  s.y += 4;
  write_paragraph(s, first_sentence(run), {.size = 15, .bold = true});
  if (const std::string ended = how_it_ended(run.info); !ended.empty()) {
    write_paragraph(s, ended, {.size = 12, .ink = ink::alarm});
  }
  s.y += 4;
  // Before the picture: who reads no further knows which BPMs not to load.
  for (const look_group& g : bpms_to_look_at(run)) {
    std::string names;
    for (const bpm_row* row : g.bpm) names += (names.empty() ? "" : ", ") + name_of(*row);
    write_paragraph(s,
                    fmt::format("{}: {}{}{}", names, text_of(g.verdict),
                                g.reason.empty() ? "" : ": ", g.reason),
                    {.size = 11});
  }
  s.y += 8;
}

}  // namespace

std::string gains_pdf(const run_results& run, paper size) {
  const bool a4 = size == paper::a4;
  // Sides of the sheets in points of 1/72 inch: 210 x 297 mm, and 8.5 x 11 inches.
  sheet s{chart::open_canvas(chart::medium::pdf, (a4 ? 595.276 : 612) / reduced,
                             (a4 ? 841.89 : 792) / reduced, reduced),
          margin, 1, run.info.title};
  write_head(s, run);
  const overview o = lay_out(run, s.c.width - 2 * margin);
  // The legend never alone at the foot of a page.
  make_room(s, legend_height(o) + row_height(o));
  draw_legend(s.c, o, {margin, s.y});
  s.y += legend_height(o);
  for (std::size_t row = 0; row < o.rows; ++row) {
    make_room(s, row_height(o));
    draw_row(s.c, o, row, {margin, s.y});
    s.y += row_height(o);
  }
  end_page(s);
  return finish(s.c);
}

util::status write_gains_pdf(const std::string& path, const run_results& run, paper size) {
  const std::string bytes = gains_pdf(run, size);
  if (bytes.empty()) return util::fault{"the page could not be drawn", path, {}};
  return util::write_whole_file(path, bytes);
}

}  // namespace report
