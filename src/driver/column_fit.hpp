// column_fit: the gains of BPMs of any ring, from readings in columns and the table of their chamber.
//
//     columns of one file or more -> BPMs with their orbits -> four fits, calibration, verdict -> rows
//
// The session's work on records, without the session: nothing is asked, and the fit context stays
// as it is. BPMs are fitted side by side; what comes out does not depend on how many at a time.
#pragma once
#include <string>
#include <vector>

#include "calibration.hpp"
#include "chamber_table.hpp"
#include "columns.hpp"
#include "fault.hpp"
#include "orbit_store.hpp"
#include "run_results.hpp"

namespace driver {

/// The readings of one BPM, of all files.
struct column_readings {
  int bpm = 0;
  std::string name;
  std::vector<store::bpm_struct> orbits;  ///< those with a signal; no positions yet
  std::vector<int> set_start;             ///< first orbit (from 0) of every file that holds some
  int left_out = 0;                       ///< rows without all four signals
  int silent = 0;                         ///< rows whose four signals are 0
};

/// Joins what files hold, each a data set.
/// given    files  what was read of each; their rows are given away
/// returns  the BPMs by index. Index is the number that the name is, when all names are numbers of
///          BPMs, 0..5000; else the BPMs are counted from 1, in the order in which they come.
///          A BPM without a name is called "1"
/// errors   more BPMs than there are indices
util::outcome<std::vector<column_readings>> join_columns(
    std::vector<std::vector<input::column_bpm>> files);

/// What all BPMs share.
struct column_setting {
  const stand_in_table* table = nullptr;
  double sigma_p = calibration::pedestals_left_in;  ///< rms of what the pedestals may still be
                                                    ///< [median signal]
};

/// The outcome for all BPMs.
struct column_results {
  std::vector<report::bpm_row> rows;  ///< in the order of the readings
  std::vector<std::string> verdict;   ///< of each, in one line; empty where it was not fitted
  bool interrupted = false;           ///< BPMs that were not reached are rows "not fitted"
};

/// Fits all BPMs, on all processors, and shows how far it is.
/// given    readings  their orbits get positions, by difference over sum
/// errors   none
/// note     Ctrl-C ends it when the BPMs in work are done, also one that came since the caller began
///          to watch for it; afterwards nobody watches
column_results fit_columns(std::vector<column_readings>& readings, const column_setting& setting);

}  // namespace driver
