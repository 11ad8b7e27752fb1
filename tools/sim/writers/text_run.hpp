// text_run: turn-by-turn runs of the times before the raw data files, as text.
//
// Three forms, described line by line in docs/turn_by_turn_text.md:
//     plain   RD-004567.dat    one section a BPM, turn lines b1 b2 b3 b4 phase_h phase_v x y
//     swapped RDe-004567.dat   the same with turn lines x y b1 b2 b3 b4 phase_h phase_v
//     older   kbpm-04567.dat   the older electronics' form, turn lines as in the plain form
// Signals are thousands of ADC counts, pedestals already taken away. BPMs are numbered from the
// west end: 1W .. 49W, then 49E .. 1E (indices 50 .. 98).
#pragma once
#include <string>

#include "machine.hpp"

namespace sim {

enum class text_form { plain, swapped, older };

inline constexpr int last_text_bpm = 98;
inline constexpr int last_text_run = 99999;  ///< the older form's names hold five digits

struct text_run_setup {
  sim::machine machine{};
  std::string directory = ".";
  text_form form = text_form::plain;
  int run = 4567;
  int bpms = 12;     // indices 1..bpms
  int turns = 1000;  // of each BPM
};

/// Why this run cannot be made; empty when it can.
std::string text_run_fault(const text_run_setup& s);

/// Writes the run and, beside it, its truth (file name + ".truth"), replacing older ones. The
/// directory is made when it is not there.
/// errors   a file that cannot be written ends the run
/// returns  path of the run
std::string make_text_run(const text_run_setup& s);

/// Name of a run's file.
std::string text_run_name(text_form form, int run);
/// Location of a BPM index 1..98: 12W, 49E.
std::string text_location(int bpm);

/// The shaker's phase in a turn, as the files count it: 0..511 of a cycle.
int shaker_phase(const plane& p, int turn);

}  // namespace sim
