// The readers of turn-by-turn data, as the session calls them: each takes one data set into
// gain_fit_mod (orbit_data, norbits, dets, bpm_names, bpm), one orbit a turn, and shows what belongs
// into the transcript. What reads and keeps is in readers/ and knows nothing of the session.
//
// | reader                  | reads                                      | orbit of a kept turn   |
// |-------------------------|--------------------------------------------|------------------------|
// | read_turn_by_turn       | plain text runs                            | its number in the file |
// | read_turn_by_turn_kbpm1 | text runs of the older electronics         | its number in the file |
// | read_turn_by_turn_3     | a data set that tbt_mod loaded from raw data | the next one         |
#pragma once
#include "bounded.hpp"
#include "fault.hpp"
#include "tbt_mod.hpp"

namespace input {

/// Orbits that the last read_turn_by_turn_3 stored, by BPM. norbits is that of the last BPM with any.
inline util::bounded<int, 0, 5000, "norbits_save"> norbits_save{};

/// Reads the plain text run in_file.
///
/// returns  nothing when it was read; the fault when it opens neither as it is named nor without the
///          first "/archive" in its path. norbits is the last turn kept of the last BPM with any
/// errors   a line that cannot be read ends the run with file, line and what was expected; a turn
///          kept beyond 3000 is a bounds error; turn line 10001 of a BPM ends the reading
/// note     a turn that is not kept leaves an empty orbit: orbit numbers are turn numbers. Every
///          turn line sets its orbit's current to 1.0. A file without any BPM is told
[[nodiscard]] util::status read_turn_by_turn();

/// Reads the older electronics' run in_file. Returns and errors as read_turn_by_turn; a count of
/// BPMs that the file does not hold is told in one line.
[[nodiscard]] util::status read_turn_by_turn_kbpm1();

/// Takes over one bunch of a loaded data set.
///
/// given    tbt          the data set
///          nbunch       position of the bunch in it, from 1
///          empty_bunch  position of the bunch without beam whose signals are taken away turn by
///                       turn; 0 for none
/// returns  besides the above: bpm_names 0..120, norbits_save, the orbits' current
/// errors   more than 3000 turns kept: bounds error; a signal that does not fit a 64-bit integer
///          ends the run, naming BPM and turn. A BPM whose wanted turns outnumber those of the
///          empty bunch: one line with both counts and what to answer, then the bounds error of the
///          first turn that is not there
/// note     asks how many turns to look at; an empty answer or 0 looks at all
void read_turn_by_turn_3(const tbt_mod::tbt_all_data_struct& tbt, int nbunch, int empty_bunch);

}  // namespace input
