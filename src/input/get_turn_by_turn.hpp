// The dialog that loads one turn-by-turn data set: a run by its number, or a file by its name.
//
// | answer                        | what it means                                                |
// |-------------------------------|--------------------------------------------------------------|
// | one character                 | the run before the newest one                                |
// | -n                            | n + 1 runs before the newest one                             |
// | 4, 5 or 6 digits, RD-nnnnnn.dat | that run                                                   |
// | kbpm...                       | a text run of the older electronics, in its archive (type 1) |
// | RDe...                        | accepted, but reads nothing (type 4)                         |
// | any other name                | a plain text run (type 2), from the path as typed            |
//
// A run whose file in the newer text archive opens and does not call itself version 3 is a plain
// text run (type 2); any other run is raw data (type 3): it is loaded together with the run before
// it, which lies over it where both hold the same bunch and BPM.
#pragma once
#include <cstdint>

#include "text.hpp"

namespace input {

/// Asks for one data set and reads it into an empty orbit store.
///
/// given    directory             the run's output directory, for the list of raw data runs
///          max_nonlin_positions  turns to take from raw data, see tbt_mod::turns_taken
/// returns  in gain_fit_mod: orbit_data, norbits (0 when nothing was read), dets, bpm_names,
///          in_file, in_file_0, gain_correct, rd_number
/// errors   an answer that names no run or file is told and asked again; a raw data run that cannot
///          be loaded is told and ends the run with status 1
void get_turn_by_turn(const util::fixed_text<16>& directory, std::int32_t max_nonlin_positions);

}  // namespace input
