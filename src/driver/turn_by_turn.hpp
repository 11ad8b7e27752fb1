// The session's way through turn-by-turn data: several data sets, one behind the other.
#pragma once
#include "session_state.hpp"

namespace driver {

/// Asks for data sets until the operator has no more, and leaves the orbits of all of them in
/// orbit_data: those of the first, then those of the second, and so on.
///
/// returns  in the session's state: rd_files, files_so_far, bpm_count, norbits_save
/// errors   a 21st file, or more than 3000 orbits together: bounds error
/// note     each set adds its norbits orbits for every BPM; where a BPM has fewer turns than that,
///          its remaining orbits are empty
void load_turn_by_turn(session_state& s);

}  // namespace driver
