// turn_data: what the readers of turn-by-turn data give back.
//
// One data set is a store of orbits, one a turn, and the list of its BPMs in the order of reading.
// A turn is kept when all four signals have magnitude 100 or more: weaker ones are turns without
// beam or dead buttons. Kept signals are stored as |signal| x 1000 [ADC counts].
#pragma once
#include <string>
#include <vector>

#include "fault.hpp"
#include "left_out.hpp"
#include "orbit_store.hpp"

namespace input {

inline constexpr double weakest_signal = 100;      ///< of a turn that is kept [as in the file]
inline constexpr double counts_per_signal = 1000;  ///< stored signal over signal in the file

/// One BPM of a data set.
struct bpm_turns {
  int bpm = 0;             ///< its index, 0..5000
  std::string name;        ///< as the data set calls it, such as 12W
  store::turn_tally seen;  ///< its turns: looked at, kept, weak in which button
};

/// One data set of turns.
struct turn_data {
  /// Signals, positions, phases and currents. The name is what a bounds error calls it, and that of
  /// the session's store, which takes the columns over.
  store::orbit_store orbits{"orbit_data"};
  int norbits = 0;              ///< orbit of the last turn kept of the last BPM with any
  std::vector<bpm_turns> bpms;  ///< in the order of reading
  util::status fault;           ///< what ended the reading; the rest is what came before it
};

/// The fault of a subscript outside its bounds, in the words of util::subscript_error.
util::fault bounds_fault(std::string_view array, long long subscript, long long lower,
                         long long upper);

}  // namespace input
