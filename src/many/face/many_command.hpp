// butngain many: the runs of a list, each made by a session of its own, on whatever engine there is.
//
//   run,positions,pedestal-bunch        runs.csv: a line a run, a column an option of the session
//   4566,100000,2
//   4567,100000,2
//
//   butngain many runs.csv --output found                    on this machine's cores
//   butngain many runs.csv --output found --engine slurm     on the lab's batch system
//
// Every run is built out of sight and gets its folder's name when it is whole, so what stands in
// found/4566 is a whole run whatever happened meanwhile, and a call that is repeated makes what is
// missing. The bytes of a run do not depend on the engine (docs/many_runs.md says which lines hold
// the time and the machine).
#pragma once
#include <string>
#include <vector>

#include "fault.hpp"

namespace many {

/// A column that a list may have: an option of the session.
struct column_word {
  std::string name;      ///< "run", without dashes
  bool flag = false;     ///< it takes no value: the field says yes or no
  bool several = false;  ///< the column may stand several times, once for each data set
};

/// What this room must know of sessions, which it only starts.
struct session_words {
  std::vector<column_word> columns;
  std::vector<std::string> start;  ///< what every run is started with
  /// Why a session with these words would not begin; nothing when it would.
  util::status (*fault_of_run)(const std::vector<std::string>& words) = nullptr;
};

/// butngain many LIST --output DIR [--engine local|parallel|slurm]
/// given    arguments  the subcommand's name first
/// returns  exit status: 0 all runs of the list are done, 1 some are not, 2 a fault of call or list,
///          told in one line before anything runs
/// note     an interrupt (INT, TERM, HUP) ends what it started, and then the process
int many_command(int count, const char* const* arguments, const session_words& session);

}  // namespace many
