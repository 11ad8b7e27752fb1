// trend_data: the gains of many runs, in time order, as little of them as a trend needs.
//
// One run is read after the other, and of each only a point a BPM is kept: a thousand runs of a
// hundred BPMs take some ten megabytes.
#pragma once
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "fault.hpp"
#include "run_results.hpp"

namespace report {

/// A run that takes part.
struct trend_run {
  std::string directory;  ///< as found, below the folder given
  double day = 0;         ///< when it was made, or when its data were taken [days since 1970, UTC]
  std::string version;    ///< of the program
  std::string tables;     ///< digests of the tables of the chambers, one string
};

/// A run that does not, and why, in words.
struct left_out_run {
  std::string directory, why;
};

/// One BPM in one run.
struct trend_point {
  std::uint32_t run = 0;  ///< place in trend_data::run
  report::verdict verdict = report::verdict::not_fitted;
  bool usable = false;     ///< determined or weak, with gains and an error
  four gain{};             ///< ln of the button gains, mean 0 [-]
  double noise = unknown;  ///< of one button's ln gain, its common factor left free [-]
  double error = unknown;  ///< E, of a ratio of two gains [-]
};

/// One BPM in all runs that hold it.
struct bpm_series {
  int bpm = 0;
  std::string name;
  std::vector<trend_point> point;        ///< in time order
  std::map<std::string, int> why_not{};  ///< verdict and reason of what is not usable: how often
};

struct trend_data {
  std::vector<trend_run> run;          ///< in time order
  std::vector<left_out_run> left_out;  ///< in order of their names
  std::vector<bpm_series> bpm;         ///< by index, then name
};

/// What of the runs is asked for.
struct trend_choice {
  std::vector<std::string> folders{};      ///< in which runs are looked for, at any depth
  std::vector<std::string> bpms{};         ///< names or indices; empty: all
  std::optional<double> since{}, until{};  ///< first and last moment [days]
  std::string times{};  ///< file that says when data were taken; empty: as run.json says
};

/// Finds and reads the runs.
/// returns  runs with their points; runs that did not end, hold no gains or cannot be read are in
///          `left_out`
/// errors   a folder that cannot be read; a line of the file of times that is none: the fault
util::outcome<trend_data> read_trend_data(const trend_choice& choice);

}  // namespace report
