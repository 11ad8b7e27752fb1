// get_orbit_data: closed orbits from button files.
//
// The operator names a command file, which lists orbits; the button file of each of them ("butns."
// and its number) becomes one orbit of the store, in the slot of its place in the list. What reads
// the files is in readers/ (command_file, button_file); both are laid out in docs/orbit_data.md.
#pragma once
#include <cstdint>
#include <string>

#include "command_file.hpp"

namespace input {

/// What became of one listed orbit.
struct orbit_found {
  std::string path;
  double current = 1;  ///< as stored [mA]; 1.0 when not taken from the file
  int bpms = 0;        ///< data lines read
};

/// The dialog of answer O: asks for the command file and the BPM, and reads every listed orbit.
///
/// given    orbit store  empty
/// returns  in_file      name of the command file
///          bpm          the BPM picked; -1 (all) when the index picked has none
///          norbits      count of orbits read. Their slots are their places in the list, so a list
///                       with gaps leaves empty orbits up to norbits, and full ones above
///          orbit_data   signals and current of the orbits read
///          and a file <in_file>_out: one line for each orbit read
/// errors   a command file that does not open is told and asked again. A namelist that does not
///          read is told and read once more; the second failure ends the run. So do an index
///          outside 0..100, a button file that does not open, and what read_orbit cannot understand
void get_orbit_data();

/// Orbit numbers from a list file.
///
/// given    path  the list file
/// returns  orbit both numbers of every pair, in order; the other places as they were
/// errors   a line that is no pair, key or comment writes " Error" with file and line, and is left
///          out; so does a file without any pair. More than 500 pairs: subscript_error
void read_the_list(const std::string& path, orbit_list& orbit);

/// Path of an orbit's button file: the archive, a directory per thousand orbits, the file.
std::string orbit_path(int number);

/// Reads one button file into a slot of the store.
///
/// given    number        orbit number; slot 1..3000 of orbit_data
///          read_current  take the beam current from the file: electrons plus positrons [mA];
///                        else the orbit's current becomes 1.0
/// returns  what was found
/// errors   no such file, a line that cannot be understood: a run-time error naming file and line;
///          slot or BPM out of bounds: subscript_error. A wanted current that the file does not
///          give is told in one line and stored as 0.
orbit_found read_orbit(int number, int slot, bool read_current);

}  // namespace input
