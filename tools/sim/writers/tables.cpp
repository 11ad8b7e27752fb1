#include "tables.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <filesystem>

#include "directories.hpp"
#include "file_units.hpp"
#include "long_step.hpp"
#include "nonlin_bpm_mod.hpp"
#include "random.hpp"
#include "run_time.hpp"
#include "table_cells.hpp"
#include "table_file.hpp"
#include "table_maker.hpp"
#include "table_picture.hpp"
#include "table_writer.hpp"
#include "whole_file.hpp"

namespace sim {
namespace {

namespace fs = std::filesystem;
using chamber_solver::chamber;
using chamber_solver::point;
using chamber_solver::table_work;
using nonlin_bpm_mod::table_nodes;

// Enough for a part in a hundred to be ten places.
constexpr int tried_places = 1000;
// A grid is too coarse when more than one place in so many is not found again; the default grids
// lose none, twice their pitch none, four times their pitch one in fifty.
constexpr int most_lost = 100;
constexpr int arc_bpm = 20;  // a BPM whose table is bpm_arc

table_work work_out(const chamber& c) {
  // The wall costs about as much as the rows together.
  util::long_step step("table " + c.name, 2LL * c.y.n, util::output_during::silence);
  auto work = chamber_solver::begin_table(c);
  for (int iy = 1; iy <= c.y.n; ++iy) {
    step.at(c.y.n + iy - 1);
    chamber_solver::fill_row(work, iy);
  }
  return work;
}

// The reader shouts.
std::string in_small_letters(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

// The reader's own checks of the numbers, before anything is written.
std::string wrong_nodes(const table_nodes& nodes) {
  nonlin_bpm_mod::table_struct table;
  const std::string wrong = build_table(nodes, table);
  if (!wrong.empty()) return in_small_letters(wrong);
  int line = 0;
  return nonlin_bpm_mod::wrong_slopes(nodes, line).empty()
             ? ""
             : "the grid is too coarse: between its nodes the signals bend more than their slopes "
               "say";
}

bool in_usable_cell(const table_nodes& nodes, point z) {
  const int ix = 1 + static_cast<int>((z.real() - nodes.x.first) / nodes.x.step());
  const int iy = 1 + static_cast<int>((z.imag() - nodes.y.first) / nodes.y.step());
  return nodes.usable(ix, iy) && nodes.usable(ix + 1, iy) && nodes.usable(ix, iy + 1) &&
         nodes.usable(ix + 1, iy + 1);
}

// Turns exact signals back into positions, as the conversion will: through the table that stands in
// the conversion's state.
void try_places(const table_work& work, table_report& r) {
  const auto& nodes = work.nodes;
  // The same places for every table: two makers of one chamber print the same line.
  random_stream stream = make_stream(1, purpose::motion, 0);
  double squares = 0;
  while (r.places < tried_places) {
    const point z{nodes.x.first + (nodes.x.last - nodes.x.first) * uniform(stream),
                  nodes.y.first + (nodes.y.last - nodes.y.first) * uniform(stream)};
    // Beams between table and wall are not to be found; that is not the grid's fault.
    if (!in_usable_cell(nodes, z)) continue;
    ++r.places;
    const auto exact = signals_at(work.solved, z).phi;
    nonlin_bpm_mod::position found{};
    double chi2 = 0;
    nonlin_bpm_mod::nonlin_bpm_minimize(arc_bpm, {{exact[0], exact[1], exact[2], exact[3]}}, found,
                                        chi2);
    if (chi2 < 0) {
      ++r.not_found;
      continue;
    }
    const double off = std::hypot(found(1) - z.real(), found(2) - z.imag());
    r.largest = std::max(r.largest, off);
    squares += off * off;
  }
  r.rms = std::sqrt(squares / std::max(1, r.places - r.not_found));
}

// Reads what was written, with all checks of the reader, and tries it.
util::status try_table(const table_work& work, const std::string& path, table_report& r) {
  auto table = nonlin_bpm_mod::read_table_file(path, work.c.name);
  if (!table) return table.why;
  // The conversion holds one set of tables for the process: whatever stood there is gone.
  nonlin_bpm_mod::reset();
  nonlin_bpm_mod::bpm_arc = std::move(*table);
  nonlin_bpm_mod::nonlin_bpm_first_call = false;  // nothing else is to be loaded
  try_places(work, r);
  nonlin_bpm_mod::reset();
  return {};
}

void describe(const table_work& work, table_report& r) {
  const auto centre = signals_at(work.solved, 0);
  const auto &b = centre.phi, &x = centre.dx, &y = centre.dy;
  const double sum = b[0] + b[1] + b[2] + b[3];
  // At the centre of a symmetric chamber the difference is 0, so the slope of the sum has no part.
  r.kx = sum / (x[1] + x[3] - x[0] - x[2]);
  r.ky = sum / (y[2] + y[3] - y[0] - y[1]);
  for (std::size_t k = 0; k < 4; ++k) r.moved[k] = work.c.button[k].moved;
  r.nodes = static_cast<int>(
      std::count_if(work.nodes.node.begin(), work.nodes.node.end(),
                    [](const nonlin_bpm_mod::table_node& node) { return !node.out; }));
}

bool stays(const tables_setup& s, const std::string& path) {
  return !s.replace && fs::exists(path);
}

table_report left_report(const std::string& path) {
  table_report r;
  r.path = path;
  r.left = true;
  return r;
}

// A file of button properties, in its format and with nothing in it yet.
table_report make_list(const tables_setup& s, const std::string& name, const std::string& kind,
                       const std::string& comment) {
  const std::string path = fmt::format("{}/{}", s.directory, name);
  if (stays(s, path)) return left_report(path);
  const util::unit_handle unit{util::lunget()};
  util::open_whole_output(unit.number(), path);
  util::write_line(unit.number(), kind);
  util::write_line(unit.number(), "# " + comment);
  table_report r;
  r.path = path;
  return r;
}

}  // namespace

std::string line_of(const table_report& r) {
  if (r.left) return fmt::format("{}: left as it is; --replace makes it anew", r.path);
  // The lists have no nodes to report.
  if (r.nodes == 0) return fmt::format("{}: no entries", r.path);
  return fmt::format(
      "{}: {} nodes, kx {:.2f} ky {:.2f} mm, buttons moved {:.3f} {:.3f} {:.3f} {:.3f} mm, "
      "positions found again to {:.1e} m, rms {:.1e} m ({} of {} not found)",
      r.path, r.nodes, 1e3 * r.kx, 1e3 * r.ky, 1e3 * r.moved[0], 1e3 * r.moved[1], 1e3 * r.moved[2],
      1e3 * r.moved[3], r.largest, r.rms, r.not_found, r.places);
}

util::outcome<table_report> make_table(const chamber& c, const std::string& table_file,
                                       const std::string& picture) {
  const std::string where = "table of chamber " + c.name;
  const table_work work = work_out(c);
  if (const std::string wrong = wrong_nodes(work.nodes); !wrong.empty()) {
    return util::fault{wrong, where, ""};
  }
  table_report r;
  r.path = table_file;
  describe(work, r);
  // Tried under another name: a table that is refused must not replace one that works.
  const auto part = util::make_scratch(table_file);
  if (!part) return part.why;
  write_table(work.nodes, *part);
  // A reader that refuses what was just written is a fault of ours, told as any other.
  util::status wrong = try_table(work, *part, r);
  if (!wrong && r.not_found * most_lost > r.places) {
    wrong = util::fault{fmt::format("the grid is too coarse: {} of {} places are not found again",
                                    r.not_found, r.places),
                        where, ""};
  }
  if (wrong) {
    util::give_up_scratch(*part, table_file);
    return *wrong;
  }
  if (const int reason = util::put_in_place(*part, table_file); reason != 0) {
    return util::fault{util::system_text(reason), table_file, ""};
  }
  // Last: there is no picture of a table that was refused.
  if (!picture.empty()) write_picture({work.nodes, c}, picture);
  return r;
}

util::outcome<std::vector<table_report>> make_tables(const tables_setup& s) {
  make_directory(s.directory);
  std::vector<table_report> all;
  for (std::size_t i = 0; i < chamber_solver::default_chambers.size(); ++i) {
    const std::string name{chamber_solver::default_chambers.at(i).name};
    const std::string path = fmt::format("{}/{}.table", s.directory, name);
    if (stays(s, path)) {
      all.push_back(left_report(path));
      continue;
    }
    chamber c = s.chamber ? *s.chamber : chamber_solver::default_chamber_at(i);
    // A site may give one chamber for all three tables, whatever it is called.
    c.name = name;  // the name that the conversion expects in this file
    auto made = make_table(c, path);
    if (!made) return made.why;
    all.push_back(*made);
  }
  all.push_back(make_list(s, "button_coeff.dat", "nonlin_bpm_coeff 1",
                          "bpm c1 c2 c3 c4: each signal is multiplied by its coefficient"));
  all.push_back(make_list(s, "bad_button.dat", "nonlin_bpm_bad_buttons 1", "bpm button"));
  return all;
}

util::status draw_table(const std::string& table_file, const std::string& picture) {
  auto nodes = nonlin_bpm_mod::read_table_nodes(table_file, "");
  if (!nodes) return nodes.why;
  write_picture({std::move(*nodes), {}}, picture);
  return {};
}

}  // namespace sim
