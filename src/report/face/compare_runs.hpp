// compare_runs: gains of two or more runs side by side: what changed, and is it more than an error?
//
// With t the button gains of a BPM in two runs and d_k = ln(t_k of the later / t_k of the earlier),
// the change is the largest change of a ratio of two buttons,
//     max(d) - min(d),
// to which a factor common to the four buttons adds nothing. Its error is hypot(E, E'), the errors
// of such ratios in both runs. A BPM has changed when for some two runs the change is more than
// `errors` times its error, and more than `floor`: both, because gains that are known to 1e-5 may
// move by 1e-4 with the temperature of a room, which no position shows.
//
// E contains what the table of the chamber and the pedestals leave open. That is the same in runs of
// one machine, so changes are seen later rather than seen where there are none.
//
// Gains take part when the run calls them determined or weak. A BPM is the same in two runs when
// index and name are.
#pragma once
#include <optional>
#include <string>
#include <vector>

#include "fault.hpp"
#include "run_results.hpp"

namespace report {

/// When a change counts.
struct change_limits {
  double errors = 4;    ///< in units of the change's error
  double floor = 5e-4;  ///< of a ratio of two buttons: some 10 um in a pipe of 45 mm
};

/// One run, read back.
struct read_run {
  std::string directory;
  std::string started;  ///< from its run.json; empty where there is none
  std::vector<bpm_row> bpm;
};

/// How the gains of one BPM differ between two runs (from 0).
struct gain_change {
  std::size_t from = 0, to = 0;
  double change = 0;       ///< of the ratio of two buttons that changed most, in logarithms [-]
  double error = 0;        ///< hypot of both errors [-]
  std::size_t button = 0;  ///< 0..3, the one furthest from the middle of the four
  double of_button = 0;    ///< its change against the middle of the four, in logarithms [-]
  bool beyond = false;     ///< beyond both limits
};

/// One BPM in all runs.
struct compared_bpm {
  int bpm = 0;
  std::string name;
  std::vector<const bpm_row*> row;    ///< by run; null where the run does not hold it
  std::vector<gain_change> since;     ///< against the first usable run, for each later usable one
  std::vector<gain_change> disagree;  ///< every two runs whose change is beyond the
                                      ///< limits, by the later one
};

struct comparison {
  std::vector<read_run> run;  ///< in the order given; the rows of `bpm` point into it
  change_limits limits;
  std::vector<compared_bpm> bpm;  ///< by index, then name
};

/// Whether gains of this BPM take part: determined or weak, four positive gains and an error.
bool takes_part(const bpm_row* row);

/// Reads a run back.
/// given    path  a run's directory, or a gains.csv
/// errors   what cannot be read, a BPM that stands twice: the fault with file and line
util::outcome<read_run> read_run_directory(const std::string& path);

/// Compares every two of the runs. Errors none.
comparison compare_runs(std::vector<read_run> runs, const change_limits& limits);

/// What came of it, for people: changes first, then disagreeing runs, what could not be compared,
/// and all gains.
std::string comparison_text(const comparison& c);

/// One line for every BPM and run that holds it, for programs (as gains.csv; an empty field where a
/// value is not known).
std::string comparison_csv(const comparison& c);

/// Change of the gains against the run, a small picture for each BPM: the bytes of a PNG file;
/// empty when memory failed.
std::string comparison_png(const comparison& c);

/// butngain compare RUN RUN...
/// given    arguments  the subcommand's name first
/// returns  exit status: 0 nothing changed, 1 something did, 2 a fault, told in one line
int compare_command(int count, const char* const* arguments);

}  // namespace report
