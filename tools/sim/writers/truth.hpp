// truth: the file that says what a simulation was made with, beside its data.
//
// Lines beginning with # describe the simulation ("# name = value"); every other line is one BPM:
// its name, the true gains and the pedestals [ADC counts] of buttons BI BO TI TO, blanks between.
// A series without this file still holds its gains in its lines; both are read here.
#pragma once
#include <string>
#include <vector>

#include "file_units.hpp"
#include "machine.hpp"

namespace sim {

inline constexpr const char* truth_file_name = "truth.dat";

struct bpm_truth {
  std::string name;  // as the analysis names the BPM
  buttons true_gain{};
  buttons pedestal{};  // [ADC counts]
  buttons left{};  // pedestals that stay in after a correction; a comment in the file [ADC counts]
};

/// The truth of one BPM, under its name in the files.
bpm_truth truth_of(const std::string& name, const bpm_electronics& e);

/// Writes the file, replacing an older one. Errors: a failing write ends the run.
/// given    what  begins the file: "truth of ..."
void write_truth(const std::string& path, const std::string& what, const machine& m,
                 const std::vector<bpm_truth>& bpms);

/// Where the truth of single passages is written down, when it is asked for.
struct passage_log {
  util::unit_handle file;  // number 0: nowhere
};

/// Begins the file TRUTH_PATH.passages when the machine says so. Its lines are BPM, bunch and
/// orbit, x y [m], intensity, true gains of BI BO TI TO at that moment.
passage_log open_passage_log(const machine& m, const std::string& truth_path);
void note(const passage_log& log, const std::string& bpm, int bunch, int orbit, const passage& p);

/// The truth of a simulation.
/// given    path  a truth file, the directory that holds one, the directory of a series or the base
///                directory above it
/// errors   none of these, or a line that cannot be read: ends the run, naming file and line
std::vector<bpm_truth> read_truth(const std::string& path);

}  // namespace sim
