// columns: the four signals of any ring's BPMs, from a text file of columns.
//
//     # one orbit a line                      bpm,BI,BO,TI,TO,current
//     1510234 1498765 1502311 1489922         12W,1510234,1498765,1502311,1489922,4.1
//
// Columns are separated by commas where the first line has one, else by semicolons, else by blanks
// and tabs. Lines that begin with # and lines without a field are passed over. A first line with a
// field that is no number is a header: its names say which columns are the signals, and which tells
// the BPM; all others are passed over. So does a comment above the first row that has as many names,
// with all four signals among them. Names, in any case of letters:
//     signals  BI BO TI TO, or b1 .. b4, with "button", "signal" or "but" for the b and "_" before
//              the digit if you like
//     BPM      bpm, name, location or device; where there is none, all rows are one BPM's
// Without a header there are four columns, BI BO TI TO, or five with the BPM before them.
// Who knows better says which columns they are, by name or by number from 1; every file of columns
// can be read so, whatever its header calls them.
// A row with an empty signal, nan or inf is left out and counted: an archive writes these for a
// reading that is missing.
#pragma once
#include <array>
#include <string>
#include <vector>

#include "fault.hpp"
#include "text_file.hpp"

namespace input {

/// The rows of one BPM, in the order of the file.
struct column_bpm {
  std::string name;                            ///< as in its column; empty where there is none
  std::vector<std::array<double, 4>> signals;  ///< BI, BO, TI, TO [unit of the file]
  int left_out = 0;                            ///< rows without all four signals
};

/// Which columns to take: a name of the header, in any case of letters, or a number from 1.
struct column_choice {
  std::vector<std::string> signals;  ///< of BI, BO, TI, TO; empty: the names above say it
  std::string bpm;                   ///< empty: the names above say it, or there is none
};

/// Reads the rows.
/// given    file    just opened
///          choice  its signals are four columns, or none
/// returns  the BPMs in the order in which they first come
/// errors   with file and line: a header without the four signals or with one of them twice; a
///          column that is chosen and not there, or chosen twice; a row with more or fewer fields
///          than the first; a signal that is no number; no rows at all; trouble with reading
util::outcome<std::vector<column_bpm>> read_columns(util::text_file& file,
                                                    const column_choice& choice = {});

}  // namespace input
