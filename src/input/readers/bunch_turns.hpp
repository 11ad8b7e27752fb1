// bunch_turns: one bunch of a loaded data set of raw data, turn by turn into orbits.
//
// Kept turns of a BPM become orbits 1, 2, 3 ... without gaps, other than in text runs: orbit
// numbers of raw data are not turn numbers.
#pragma once
#include <cstdint>
#include <optional>

#include "tbt_mod.hpp"
#include "turn_data.hpp"

namespace input {

inline constexpr int last_bpm_read = 120;  ///< of the 150 of a data set: kept for compatibility

/// What to take from a data set.
struct bunch_selection {
  const tbt_mod::tbt_all_data_struct& tbt;
  const tbt_mod::tbt_bunch_struct& bunch;
  const tbt_mod::tbt_bunch_struct*
      empty;               ///< a bunch without beam, taken away turn by turn; or none
  std::int32_t max_turns;  ///< turns to look at; 0: all
};

/// A BPM of which the empty bunch has fewer turns than are wanted.
struct missing_pedestal {
  int bpm = 0;
  std::size_t wanted = 0;  ///< turns to correct
  std::size_t held = 0;    ///< turns of the empty bunch; 0 when it does not have the BPM
};

/// What a bunch gave.
struct bunch_turns {
  turn_data data;
  std::optional<missing_pedestal> gap;  ///< then data.fault names the first turn that is not there
};

/// The longest record of any BPM in the bunch [turns].
std::size_t turns_collected(const tbt_mod::tbt_bunch_struct& bunch);

/// Takes BPMs 0..120 of the bunch.
///
/// returns  the orbits, all with the data set's current; turns beyond the shaker's record have no
///          phases. Signals are rounded to whole counts
/// errors   as data.fault: a turn without its pedestal; more than 3000 turns kept; a signal that
///          does not fit a 64-bit integer, with BPM and turn
bunch_turns take_bunch(const bunch_selection& from);

}  // namespace input
