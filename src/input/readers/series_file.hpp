// series_file: one file of a synthetic series, one orbit a line, into one BPM of a store.
//
// A line holds ten values in free format, "x y  b1 b2 b3 b4  g1 g2 g3 g4": position [m], signals
// [whole counts], true gains [-]. A line with a lower-case "x" anywhere is a header or comment. A
// line of fewer than ten values ends the file. A value that cannot be read leaves it, and the rest
// of its line, as the line before had it, also across files: the values in hand are the caller's.
#pragma once
#include <cstdint>
#include <optional>
#include <string>

#include "bounded.hpp"
#include "fault.hpp"
#include "orbit_store.hpp"
#include "text_block.hpp"

namespace input {

inline constexpr int series_width = 300;  ///< characters of a line that count

/// The ten values of a line.
struct series_values {
  double x = 0;                                       ///< horizontal position [m]
  double y = 0;                                       ///< vertical position [m]
  util::bounded<std::int32_t, 1, 4, "but"> button{};  ///< signals [ADC counts]
  util::bounded<double, 1, 4, "gain"> gain{};         ///< true gains [-]
};

/// What of a file could not be used.
struct series_unusable {
  std::optional<util::fault> first;  ///< the first fault, with its place
  int lines = 0;                     ///< lines with a fault
  int last_line = 0;                 ///< the line that ended the reading too early; 0: none did
  int lines_unread = 0;              ///< lines with something in them behind that one
};

/// What one file gave.
struct series_file {
  int orbits = 0;            ///< stored as orbits 1..orbits of the BPM
  util::text_block echo;     ///< the lines taken, each cut or padded to series_width
  series_unusable unusable;  ///< told once the file is read
  util::status fault;        ///< what ended the reading, as below; the rest is what came before it
};

/// Reads a file.
///
/// given    bpm     0..5000
///          values  of the line before; those of the last line on return
/// returns  the file; in `into` signals, positions, true gains and the current 1.0 of its orbits.
///          Other orbits and BPMs stay as they are
/// errors   as fault: the file cannot be opened or read; a 3001st orbit
series_file read_series_file(const std::string& path, int bpm, series_values& values,
                             store::orbit_store& into);

/// The one line that tells what of the file could not be used, without the program's name; empty
/// when there is nothing to tell.
std::string unusable_line(const std::string& path, const series_file& file);

}  // namespace input
