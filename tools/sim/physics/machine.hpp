// machine: chamber, beam and electronics together, and the BPMs that read them.
//
// Everything that bpmsim writes comes from here: make a monitor for each BPM (and bunch), then take
// its passages one after the other.
#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "beam.hpp"
#include "beam_run.hpp"
#include "chamber.hpp"
#include "electronics.hpp"

namespace sim {

/// A chamber as it is drawn, which tables and scale factors are made of, and as it is, which the
/// beam passes.
struct solved_pair {
  std::shared_ptr<const solved_chamber> drawn, real;
};

/// Where the BPMs' chambers come from.
enum class chamber_source {
  drawing,  ///< `chamber`, a round pipe given by a few numbers
  file,     ///< `chamber`, from a chamber file
  own       ///< each BPM has the default chamber of its table
};

/// The physical model, the same for every BPM.
struct machine {
  sim::chamber chamber = usual_chamber();  // of every BPM, unless each has its own
  chamber_source source = chamber_source::drawing;
  chamber_change change{};  // how the chambers differ from their drawings
  sim::beam beam{};
  electronics_setup electronics{};
  std::uint64_t seed = 1;
  bool every_passage = false;       // writers leave the truth of every passage beside their files
  std::vector<solved_pair> solved;  // by `prepare`; in the order of the default chambers
};

/// Which BPM, and for how long.
struct seat {
  int bpm = 1;     // from 1; chooses gains and random numbers
  int bunch = 0;   // chooses random numbers
  int orbits = 0;  // of the run, for what changes in its course; 0: nothing does
  int ring = 0;    // the BPM's number in the ring, which chooses its own chamber; 0: that is `bpm`
};

/// Why this machine cannot be for BPMs 1..nbpms; empty when it can.
std::string machine_fault(const machine& m, int nbpms);

/// Solves the machine's chambers, once for all monitors to come. Without it each monitor solves its
/// own, which costs nothing for round pipes only.
/// errors   chambers that cannot be (machine_fault) end the run
void prepare(machine& m);

/// The chambers of a BPM with this number in the ring.
solved_pair chambers_of(const machine& m, int ring);

/// A BPM before its first passage. The electronics are the BPM's own, the same for all its bunches.
monitor make_monitor(const machine& m, const seat& s);
monitor make_monitor(const machine& m, int bpm, int bunch = 0);

/// The next passage, as take_passage gives it.
/// errors   no place inside the chamber in 1000 draws: ends the run
passage next_passage(const machine& m, monitor& at);

/// A reading as the ADC gives it: rounded to the nearest integer, half away from zero.
/// errors   a reading that does not fit 32 bits ends the run, naming BPM and orbit
util::bounded<std::int32_t, 1, 4, "count"> counts(const passage& p, const monitor& at);

/// What a machine is set to, as lines "name = value" for truth files; the gains are not in it.
std::vector<std::string> machine_lines(const machine& m);

}  // namespace sim
