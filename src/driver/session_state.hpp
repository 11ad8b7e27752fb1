// What the session's steps share: one record, filled from top to bottom as the session goes on.
#pragma once
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "bounded.hpp"
#include "calibration.hpp"
#include "chamber_table.hpp"
#include "file_units.hpp"
#include "given.hpp"
#include "orbit_store.hpp"
#include "plot_gains.hpp"
#include "rd_files.hpp"
#include "run_results.hpp"
#include "template_gains.hpp"
#include "text.hpp"

namespace driver {

/// A BPM that was fitted, and how far its gains follow from the data.
struct fitted_bpm {
  int bpm = 0;
  std::string name;
  calibration::verdict_word verdict = calibration::verdict_word::not_determined;
};

/// Where a data set lies in the store, and what is known of it.
struct data_set {
  int first = 0;                            ///< its first orbit, from 0
  bool pedestals_known = false;             ///< they were subtracted
  bool divided = false;                     ///< readings were divided by the coefficients
  std::vector<report::four> coefficient{};  ///< of the electronics, by BPM; nan or absent: not told
};

struct session_state {
  // Run and data sets.
  output::directory_name directory;                                 // the run's output directory
  util::fixed_text<100> out_file = util::fixed_text<100>::zeros();  // never assigned, yet printed
  util::fixed_text<100> file = util::fixed_text<100>::zeros();      // likewise, one line a BPM
  output::rd_files_list rd_files;                                   // names of the data files read
  int files_so_far = 0;                                             // how many of them, 1..20
  std::vector<std::string> data_sets;             // what they are called: "run 4566", "my_run.txt"
  std::int32_t max_nonlin_positions = 0;          // turns to take of each raw data bunch; 0: none
  std::vector<data_set> sets;                     // empty: one set, whose pedestals are known
  std::optional<stand_in_table> stand_in;         // for BPMs without a table of their own
  std::mutex stand_in_mutex;                      // held while it is made
  bool stand_in_told = false;                     // that it was made
  std::string type;                               // which corrections the data carry
  util::given<int, "bpm_count"> bpm_count;        // highest BPM index to visit
  util::given<int, "norbits_save"> norbits_save;  // orbits loaded

  // Template gains, for experts.
  gain_template::file_name fit_gain_file;
  gain_template::comment_list old_comments_list;
  expert::template_gains fit_gain;

  // BPM loop.
  bool just_one = false;          // one BPM was chosen
  util::unit_handle orbit_table;  // orbit.dat
  util::unit_handle file_list;    // file_list.dat

  std::vector<fitted_bpm> fitted;  // in the order of fitting
  report::run_results results;  // a row for each of them; after the loop for every BPM of the data
  bool interrupted = false;     // the loop ended before its last BPM
  bool list_orbits = false;     // orbits.csv was asked for
  bool list_coefficients = false;  // button_coeff.dat likewise
  std::string pdf;                 // paper of gains.pdf, empty: not asked for
  int exit_status = 0;             // 1: a file beside the described ones could not be written

  // What the plot receives: per treated BPM its four normalised inverse gains and its index.
  gains_plotted bpm_gain;
  indices_plotted bpm_mat;
  int plotted = 0;       // BPMs so far
  double bpm_max = 0;    // largest index treated
  double bpm_min = 100;  // smallest index treated
};

}  // namespace driver
