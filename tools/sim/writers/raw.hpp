// raw: raw data files as the BPM electronics write them, whole runs at a time.
//
// A run is one file, RD-<number>.dat: B bunches of T turns at every instrument. The files are
// written through the tables by which the library reads them (kbpmfio). A run lies where --out
// says, or in a facility tree, where it is also entered in the run index; its truth stands beside
// it as RD-<number>.truth.
//
//     raw reading = pedestal + coefficient * (reading of the simulated electronics - its pedestal)
//
// Pedestals and coefficients are those of the bunch's timing block and stand in the file; block 0
// has the simulated electronics' own pedestals. Coefficients that were loaded since change what the
// file says, not what is read: the true gains, and the truth beside the file, are then what is left.
// The shaker's phase words are the phases that the
// betatron oscillation of the machine has at the first BPM, in 512ths of a cycle.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "coefficients.hpp"
#include "machine.hpp"

namespace sim {

enum class particles { positrons, electrons, dual };

struct raw_setup {
  sim::machine machine{};
  std::string out;   // path of the file; empty: into the tree
  std::string tree;  // root of the facility tree; empty: KOVR_ONLINE
  std::string
      names;  // of the instruments, with commas between; empty: the first `bpms` of the ring
  int bpms = 100;
  int run = 4567;  // number of the first run
  int runs = 1;    // consecutive runs, each with its own motion and noise
  int bunches = 1;
  int bunch_step = 1;  // from one filled bunch to the next
  int block_1 = 0;     // so many of the last bunches are in timing block 1
  int empty = 0;       // so many of the last bunches hold no beam: they read their pedestals
  int turns = 1024;
  double coefficient_spread = 0.02;  // rms of the gain coefficients about 1
  // Those loaded since, of timing block 0: the file names them, the readings keep the drawn ones.
  loaded_coefficients loaded;
  particles species = particles::positrons;
  std::string timing_setup = "14ns_VAR_G";
  std::string when = "2014-03-04 12:00:00";  // of the first run; a run a minute
  int condx = 31415;
  double current = 1.25;  // [mA]
};

/// The set-up before any option: readings of five digits, pedestals that matter.
raw_setup usual_raw_setup();

/// Why these runs cannot be made; empty when they can.
std::string raw_fault(const raw_setup& s);

/// Makes the runs, replacing what is there under their names.
/// returns  the paths of the files
/// errors   a file or directory that cannot be made, a reading that does not fit its column: ends
///          the run
std::vector<std::string> make_raw_files(const raw_setup& s);

/// Names of the instruments that the file will hold.
std::vector<std::string> instrument_names(const raw_setup& s);

/// Names of the ring's BPMs in the order of their numbers, from 1.
std::vector<std::string> ring_names();

/// Path of the truth that stands beside a raw file.
std::string raw_truth_path(const std::string& raw_path);

}  // namespace sim
