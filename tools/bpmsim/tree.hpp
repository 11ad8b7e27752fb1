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
// All runs show the same BPMs with the same true gains. Raw runs hold two bunches, the operators'
// bunches 1 with beam and 2 without: its readings are the pedestals.
#pragma once
#include <string>

#include "command_line.hpp"
#include "raw.hpp"

namespace sim {

struct tree_setup {
  std::string directory;
  raw_setup raw = usual_raw_setup();  // of the newest run; bunches and names are the tree's own
  double offset_spread = 0.3e-3;      // rms of the BPM offsets [m]
};

/// Why this tree cannot be made; empty when it can.
std::string tree_fault(const tree_setup& s);

/// Makes the tree, replacing files of the same names.
/// errors   a file or directory that cannot be made ends the run
void make_tree(const tree_setup& s);

/// The subcommand.
cli::command tree_command();

}  // namespace sim
