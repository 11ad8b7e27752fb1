// Which table of a chamber a BPM's readings are calibrated against.
//
//   raw data              the BPM's own table, which the positions were made with
//   all other data        the chamber or table that --chamber names; without it a round pipe, whose
//                         table is good for any chamber near its axis
#pragma once
#include <string>

#include "fault.hpp"
#include "lookup_table.hpp"

namespace driver {

/// A table that stands for all BPMs that have none of their own.
struct stand_in_table {
  nonlin_bpm_mod::table_struct table;
  std::string name;    ///< of the file, or of the pipe; for people
  bool given = false;  ///< with --chamber: it is the chamber's own
};

/// The table of one BPM; null when there is none.
struct bpm_table {
  const nonlin_bpm_mod::table_struct* table = nullptr;
  bool own = false;  ///< the BPM's own chamber
};

/// Reads a chamber file, and makes its table, or a table file: the first word tells which it is.
/// errors   a file that is neither, and every fault in either
util::outcome<stand_in_table> read_chamber_or_table(const std::string& path);

/// A round pipe of 45 mm with strips of 12 degrees half width on its diagonals.
/// note     made in a quarter of a second
stand_in_table round_pipe_table();

/// The site's table for a BPM, which its positions were made with.
/// given    the site's tables were loaded
/// note     chooses it for nonlin_bpm_mod too: for one thread
bpm_table site_table_of(int bpm);

}  // namespace driver
