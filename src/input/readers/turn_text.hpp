// What the two text forms of turn-by-turn runs have in common: opening, BPM locations, turn lines.
#pragma once
#include <array>
#include <string>
#include <string_view>

#include "bounded.hpp"
#include "left_out.hpp"

namespace input {

inline constexpr int turn_text_unit = 1;             ///< the unit that text runs are read from
inline constexpr std::size_t turn_text_width = 140;  ///< characters of a line that count
inline constexpr int most_turn_lines = 10000;        ///< of one BPM
inline constexpr double weakest_signal = 100;        ///< of a turn that is kept [as in the file]
inline constexpr double counts_per_signal = 1000;    ///< stored signal over signal in the file

/// A text run while it is read.
struct turn_text {
  std::string path;        ///< as opened
  std::string line;        ///< the current line, cut to its width
  int number = 0;          ///< its number, from 1
  int m = 0;               ///< BPM sections so far
  int i = 0;               ///< turn lines of the current BPM so far
  store::turn_tally seen;  ///< the same lines, counted by what they hold
};

/// Opens in_file on unit 1; failing that, the path without its first "/archive". Sets norbits to 0.
/// returns  false when neither opens: told in one line naming both
bool open_turn_text(turn_text& run);

/// The next line; false at the end of the file.
bool next_line(turn_text& run);

/// Closes the run with its last section. One without any BPM is told: it is some other kind of text.
void end_turn_text(const turn_text& run, std::string_view header);

/// Ends the run: the current line is not what was expected.
[[noreturn]] void turn_text_error(const turn_text& run, std::string_view expected);

/// Ends the section of the current BPM, if there is one: remarks it when no turn of it was kept.
void end_bpm(const turn_text& run);

/// Begins the section of a BPM whose location stands in the current line, from two characters after
/// the first colon on: a number, then E or W. BPMs of the E side count from the other end, 99 minus
/// the number. Sets bpm, dets and bpm_names.
void begin_bpm(turn_text& run);

/// Where the values stand in a turn line.
enum class turn_order { signals_first, positions_first };

/// Takes the current line as the next turn of the current BPM; keeps it when it is strong enough.
/// returns  false when it is one too many: told in one line
bool take_turn(turn_text& run, turn_order order);

}  // namespace input
