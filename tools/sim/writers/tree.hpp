// tree: a small facility tree in which whole sessions can be run.
//
//     DIR/online/                       what KOVR_ONLINE names
//       kbpmII/raw/04/RD-004565.dat ..  raw data of the three newest runs, truth beside each
//       archive/tsharc/raw/04/          the newest raw run again, and a plain text run
//       archive/sharc/raw/04/           a run of the older electronics
//       machine_data/meas/run_index/    the run index: raw runs only
//       machine_data/meas/orbit/        BPM offsets, and the tables of the position conversion
//     DIR/offline/kbpmII/raw/04/        raw data of the run before those
//
// With --chamber own every BPM has the chamber of its table, with another chamber all tables are
// made of that one; otherwise the beam passes the round pipe of the options and the tables are the
// default chambers'. All runs show the same BPMs with the same true gains. Raw runs hold two
// bunches, the operators' bunches 1 with beam and 2 without: its readings are the pedestals.
#pragma once
#include <string>
#include <vector>

#include "fault.hpp"
#include "raw.hpp"
#include "tables.hpp"

namespace sim {

inline constexpr int older_runs = 3;  ///< raw runs besides the newest

struct tree_setup {
  std::string directory;
  raw_setup raw = usual_raw_setup();  // of the newest run; bunches and names are the tree's own
  double offset_spread = 0.3e-3;      // rms of the BPM offsets [m]
  bool replace_tables = false;        // position tables that stand there
};

/// Why this tree cannot be made; empty when it can.
std::string tree_fault(const tree_setup& s);

/// Makes the tree, replacing files of the same names, but for position tables and calibration
/// lists: a site's own may stand there.
/// returns  what became of these
/// errors   a chamber of which no table can be made: the fault; a file or directory that cannot be
///          made ends the run
util::outcome<std::vector<table_report>> make_tree(const tree_setup& s);

}  // namespace sim
