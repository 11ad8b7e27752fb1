// orbits: closed orbits as button files, and the command file that lists them.
//
// DIR/<thousands>/butns.<number>, one file per orbit: comments "c", the electron and positron
// currents [mA] from column 11 on, then per BPM its index and four readings [ADC counts]. The
// command file is a namelist; a list file of orbit pairs, as response measurements leave them, is
// written on request. The truth stands in DIR.
//
// A closed orbit is a betatron oscillation frozen in time: it is the same turn after turn, and from
// BPM to BPM its phase gains the lattice's advance. Every orbit has an amplitude of its own, drawn
// uniformly from minus to plus the beam's, and a phase of its own, drawn from the whole circle.
#pragma once
#include <string>

#include "machine.hpp"

namespace sim {

inline constexpr int most_button_bpms = 100;  ///< the session reads no further
inline constexpr int most_orbits_listed = 1000;

struct orbits_setup {
  sim::machine machine{};
  std::string archive;                            // directory of the button files
  std::string command = "bpm_gain_anal_1.input";  // command file
  std::string list;                               // list file; empty: none
  int orbits = 200;
  int first = 12000;  // number of the first orbit
  int bpms = 100;
  double electrons = 6;      // current [mA]
  double positrons = 4;      // current [mA]
  bool no_currents = false;  // write no current lines, and do not ask the session to read them
};

/// A beam whose orbits fill the middle of the chamber.
orbits_setup default_orbits();

/// Why these orbits cannot be made; empty when they can.
std::string orbits_fault(const orbits_setup& s);

/// Writes all files, replacing what is there under these names.
/// errors   a directory or file that cannot be made or written ends the run
void make_orbits(const orbits_setup& s);

}  // namespace sim
