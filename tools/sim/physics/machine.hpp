// machine: chamber, beam and electronics together, and the BPMs that read them.
//
// Everything that bpmsim writes comes from here: make a monitor for each BPM (and bunch), then take
// its passages one after the other.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "beam.hpp"
#include "beam_run.hpp"
#include "chamber.hpp"
#include "electronics.hpp"

namespace sim {

/// The physical model, the same for every BPM.
struct machine {
  sim::chamber chamber{};
  sim::beam beam{};
  electronics_setup electronics{};
  std::uint64_t seed = 1;
};

/// Why this machine cannot be for BPMs 1..nbpms; empty when it can.
std::string machine_fault(const machine& m, int nbpms);

/// A BPM before its first passage. The electronics are the BPM's own, the same for all its bunches.
/// given    orbits  of the run, for what changes in its course; 0: nothing does
monitor make_monitor(const machine& m, int bpm, int bunch = 0, int orbits = 0);

/// The next passage, as take_passage gives it.
/// errors   no place inside the chamber in 1000 draws: ends the run
passage next_passage(const machine& m, monitor& at);

/// A reading as the ADC gives it: rounded to the nearest integer, half away from zero.
/// errors   a reading that does not fit 32 bits ends the run, naming BPM and orbit
util::bounded<std::int32_t, 1, 4, "count"> counts(const passage& p, const monitor& at);

/// What a machine is set to, as lines "name = value" for truth files; the gains are not in it.
std::vector<std::string> machine_lines(const machine& m);

}  // namespace sim
