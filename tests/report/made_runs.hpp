// Folders of runs, as a year of sessions would leave them, with changes of the gains planted.
#pragma once
#include <string>
#include <vector>

namespace made {

/// What was planted in a BPM (by index).
struct planted {
  int bpm = 0;
  int button = 0;    ///< 0..3
  double step = 0;   ///< of ln t
  int at_run = 0;    ///< the first run behind the step
  double drift = 0;  ///< of ln t, a month
};

struct many_runs {
  int bpms = 100, runs = 200;
  unsigned seed = 1;
  double days_apart = 7;
  std::vector<planted> changes{};
};

/// Writes run_0001/20.../run.json and gains.csv, and so on, below the directory.
///
/// What makes gains differ from run to run is that of simulated sessions (noise 1e-4, orbits that
/// differ by 1 mm, pedestals): noise of 7e-5 as stated, something that follows the orbit of the run
/// and remembers the run before, pedestals; E is 7e-4, most of it the same in all runs. Besides:
/// BPMs that one run in thirty calls weak, with five times the scatter; one in sixty not determined;
/// one BPM in a hundred runs wild; one run in which all are; a shutdown of ten weeks; the last BPM
/// is never determined.
void write_runs(const std::string& directory, const many_runs& made);

}  // namespace made
