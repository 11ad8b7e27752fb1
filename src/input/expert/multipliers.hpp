// Arbitrary multipliers of single buttons, read from a file; for experts.
//
// One line a BPM, free format: its index and four multipliers, in button order. A line with "!"
// among its first five characters is a comment.
#pragma once

namespace expert {

/// Asks whether to read a multiplier file and which, and multiplies the stored signals of the
/// current data set (orbits 1..norbits) by what it says. Fills arb_gain.
/// errors   a file that cannot be opened is told and asked again; a bad line ends the run with file
///          and line; a BPM index outside 0..5000 is a bounds error
void ask_multipliers();

}  // namespace expert
