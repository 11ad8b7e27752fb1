// beam_run: what one BPM reads in one run, from a description alone.
//
//     sim::beam_run run;                           // 1000 orbits in the round pipe, +-5 mm, seed 1
//     run.beam.x.orbit = 5e-3;                     // closed orbit 5 mm outward
//     run.electronics.true_gain = {{1, 1.02, 0.97, 1}};
//     run.electronics.noise = 1e-4;                // in parts of a centred signal
//     run.beam.current.drift = 0.01;               // the current grows by 1 % over the run
//     const auto made = sim::simulate(run);        // made->signal[orbit], made->intensity[orbit] ..
//
// No files, no process state: safe on several threads at once, and the same description gives the
// same bits. The chamber is solved once (`solve`) and shared by all runs that point to it. Sessions
// and the session's files are made of the same passages, one BPM and bunch after the other.
#pragma once
#include <cstdint>
#include <memory>
#include <vector>

#include "beam.hpp"
#include "chamber.hpp"
#include "electronics.hpp"
#include "fault.hpp"
#include "random.hpp"

namespace sim {

/// One BPM's run, described.
struct beam_run {
  std::shared_ptr<const solved_chamber>
      chamber;  // where the beam passes; null: the usual round pipe
  sim::beam beam{};
  bpm_electronics electronics{};  // by hand, or from make_electronics with spreads and a seed
  int orbits = 1000;              // of the run; 0 in a monitor of unknown length: time stands still
  std::uint64_t seed = 1;
  int bpm = 1;    // with the seed it chooses the random numbers
  int bunch = 0;  // likewise
};

/// What came of it; one entry an orbit.
struct run_signals {
  std::vector<buttons> signal;    // readings BI, BO, TI, TO [ADC counts], pedestals included
  std::vector<place> at;          // the beam's true position [m]
  std::vector<double> intensity;  // true, relative to a centred beam of `signal` counts [-]
  buttons true_gain{};            // at the beginning of the run [-]
  buttons mean_gain{};            // over the run: differs when gains step or drift [-]
  buttons pedestal{};  // of the readings, with what a correction would leave in [ADC counts]
};

/// Simulates a whole run.
/// errors   a beam that does not fit into the chamber, an impossible description: the fault
/// note     readings are not rounded unless electronics.adc_step says so
util::outcome<run_signals> simulate(const beam_run& run);

/// Why this run cannot be; nothing when it can.
util::status run_fault(const beam_run& run);

// --- passage by passage, for those who write files ----------------------------------------------

/// One passage of the beam at one BPM.
struct passage {
  place at{};
  buttons reading{};     // [ADC counts], not rounded
  buttons gain{};        // true gains at that moment [-]
  double intensity = 1;  // [-]
};

/// One BPM at work; its random streams move on with every passage.
struct monitor {
  int bpm = 0;     // from 1
  int orbit = 0;   // passages taken so far
  int orbits = 0;  // of the whole run; 0: unknown
  int ring = 0;    // the BPM's number in the ring, which says what chamber it has
  bpm_electronics electronics{};
  std::shared_ptr<const solved_chamber> chamber;
  random_stream motion{};
  random_stream readout{};
  random_stream whole_beam{};       // the same for all BPMs of a bunch
  beam_state state{};               // of the whole beam, in the last orbit taken
  std::vector<outlier> outliers{};  // of the run, in order
  passage last{};                   // for orbits that are recorded twice
};

/// The monitor before its first passage. Errors none: ask run_fault before.
monitor start_run(const beam_run& run);

/// The next passage. A random part that would take the beam out of the chamber is drawn again.
/// errors   no place inside the chamber in 1000 draws: the fault; p is as it was
util::status take_passage(const beam& b, monitor& at, passage& p);

}  // namespace sim
