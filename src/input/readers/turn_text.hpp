// turn_text: turn-by-turn runs kept as text, line by line into orbits.
//
// Two forms, which share BPM locations and turn lines:
//     plain   "Location : 12W" begins a BPM, "--- Bunch 1 ---" its turns
//     older   "KOVR BPM Raw" heads the file, "KOVR BPM : 12W" begins a BPM and its turns
// A location is a number and a side; the E side counts from the other end, so 12E is BPM 99 - 12.
// Turn line n of a BPM becomes orbit n: one that is not kept leaves an empty orbit, and orbit
// numbers stay comparable between BPMs. Every line is described in docs/turn_by_turn_text.md.
#pragma once
#include <optional>
#include <vector>

#include "text_file.hpp"
#include "turn_data.hpp"

namespace input {

inline constexpr std::size_t turn_text_width = 140;  ///< characters of a line that count
inline constexpr int most_turn_lines = 10000;        ///< of one BPM
inline constexpr int bpm_on_show = 50;               ///< the BPM whose first turn is shown

/// What a text run gave.
struct text_run {
  turn_data data;
  bool too_long = false;      ///< turn line 10001 of a BPM was met and ended the reading
  std::optional<int> active;  ///< the older form's NUM ACTIVE: how many BPMs the file should hold
  /// Turn 1 of BPM 50 as stored, when it is kept: once for each section that the file has of it.
  std::vector<store::bpm_struct> on_show;
};

/// Reads a plain run; in files whose path holds "RDe" a turn line begins with the position.
///
/// given    file  just opened
/// returns  the run. Every turn line sets its orbit's current to 1.0
/// errors   as data.fault: a line that cannot be read, with its place and what was expected; a turn
///          kept beyond orbit 3000, a location beyond BPM 5000; trouble with reading
text_run read_plain_run(util::text_file& file);

/// Reads a run of the older electronics. As above.
text_run read_older_run(util::text_file& file);

}  // namespace input
