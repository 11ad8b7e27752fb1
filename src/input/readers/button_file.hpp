// button_file: the button file of one closed orbit, into one orbit of a store.
//
// Comment lines begin with "c"; "E T1" and "P T1" lines carry the beam currents [mA] from column 11
// on; every other line is a BPM index and its four signals. Reading stops behind BPM 100. The file
// is laid out in docs/orbit_data.md.
#pragma once
#include <optional>
#include <string>

#include "fault.hpp"
#include "orbit_store.hpp"

namespace input {

inline constexpr int last_button_bpm = 100;  ///< a button file is read up to this BPM

/// What one button file gave.
struct button_file {
  std::optional<double> current;  ///< electrons plus positrons [mA]; nothing when it names neither
  int bpms = 0;                   ///< data lines read
  bool opened = false;            ///< whether there was a file to read
  util::status fault;             ///< what ended the reading; the lines before it are in the store
};

/// Reads a file.
/// given    orbit  1..3000: where in `into` the signals go; the orbit's current is left to the caller
/// errors   as fault: the file cannot be opened or read, a line that cannot be understood, a BPM
///          index outside 0..5000
button_file read_button_file(const std::string& path, int orbit, store::orbit_store& into);

}  // namespace input
