// tables: lookup tables of the position conversion, computed from chamber cross-sections.
//
//     bpmsim tables DIR                      the five files of the conversion, default chambers
//     bpmsim table CHAMBER_FILE TABLE_FILE   one table of a chamber of one's own
//
// docs/nonlinear_positions.md explains the files. A table that the conversion would refuse, or from
// which it would not find positions again, is refused here. A person at a terminal sees on standard
// error how far the work has come.
#pragma once
#include <array>
#include <optional>
#include <string>
#include <vector>

#include "chamber_file.hpp"
#include "fault.hpp"

namespace sim {

/// What there is to say of a table that was made.
struct table_report {
  std::string path;
  bool left = false;      // an older file stood there and stands there still; no more is known
  int nodes = 0;          // with data
  double kx = 0, ky = 0;  // position per difference over sum, at the centre [m]
  std::array<double, 4> moved{};  // buttons, from the place given to the wall [m]
  int places = 0, not_found = 0;  // exact signals turned back into positions
  double largest = 0, rms = 0;    // error of those found [m]
};

/// One line of it, for people.
std::string line_of(const table_report& r);

/// Makes one table, and with a picture name also a drawing of it (SVG).
/// errors   a table that is none: the fault, and no file; a failing write ends the run
/// note     resets the state of the position conversion, with which the table is tried
util::outcome<table_report> make_table(const chamber_solver::chamber& c,
                                       const std::string& table_file,
                                       const std::string& picture = {});

/// How make_tables treats a folder.
struct tables_setup {
  std::string directory;
  bool replace = false;  // files that stand there; else they are left as they are
  std::optional<chamber_solver::chamber> chamber;  // of all three tables, instead of the defaults
};

/// Makes the directory and in it bpm_48.table, bpm_arc.table and bpm_tirsku.table, and
/// button_coeff.dat and bad_button.dat without entries.
/// returns  a report for each of the five files
/// errors   as make_table; a directory or file that cannot be made or written ends the run
util::outcome<std::vector<table_report>> make_tables(const tables_setup& s);

/// Draws a table that stands in a file.
/// errors   a file that is no table: the fault
util::status draw_table(const std::string& table_file, const std::string& picture);

}  // namespace sim
