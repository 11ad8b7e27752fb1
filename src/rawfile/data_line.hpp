// Data lines: six columns, "%d       %07x  %7d  %7d  %7d  %7d\n", read without the C library.
//
// Three ways, the same result wherever several apply, and the result of sscanf with that format for
// every text: a test for the columns exactly as a writer prints them (most lines of most files), a
// reader for six plain numbers however they are spaced, and a full scan by the library's rules for
// all others. Widths are in force: a number of more than seven characters is split between two
// columns, a sign or "0x" counts.
#pragma once
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace rawfile {

/// Timing block, phase word, readings of cards 0..3 (TI, BI, BO, TO).
using data_columns = std::array<std::int32_t, 6>;

/// Length of a line printed with the data format when every number fits its column.
inline constexpr std::size_t printed_line = 52;

/// Characters that must be at hand from a line's start on for it to be taken as a plain one.
inline constexpr std::size_t plain_window = 192;

/// Scans one line without ":" by the full rules.
/// returns  the columns converted; what did not convert, and all behind it, stays as it was
int scan_data_line(std::string_view line, data_columns& columns);

/// Where the columns of successive lines go: as many places each as lines are wanted.
struct column_places {
  std::int32_t* phase;
  std::array<std::int32_t*, 4> reading;  ///< cards 0..3
};

/// Takes lines printed in the usual columns, as long as they come one after the other.
/// given    text    from a line's start on
///          block   timing block, 0 or 1: lines of another end the run of lines
///          most    lines wanted
/// returns  the lines taken (printed_line characters each); the first that does not fit the test -
///          a plus, upper-case hexadecimal, a comment, anything else - is left to the full scan
std::size_t take_printed_lines(std::string_view text, std::int32_t block, std::size_t most,
                               const column_places& to);

/// Lines taken, and their characters.
struct plain_lines {
  std::size_t lines = 0;
  std::size_t characters = 0;
};

/// Takes lines of six plain numbers with blanks, tabs or CR around them, as long as they come one
/// after the other. Given as above.
/// returns  what was taken; the first line that is not plain - a number wider than its column,
///          "0x", a text, a key, more than 128 characters - and lines in the last plain_window
///          characters of the text are left to the full scan
plain_lines take_plain_lines(std::string_view text, std::int32_t block, std::size_t most,
                             const column_places& to);

}  // namespace rawfile
