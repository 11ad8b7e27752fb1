// Standard output: every line that a run prints passes here, and every write is checked.
//
// A dialog, a fit and a library tell in the same way; who only prints needs none of the terminal.
#pragma once
#include <string_view>

namespace util {

/// Writes a line to standard output.
/// errors   a failing write ends the run: "writing standard output: <reason>"
void print_line(std::string_view text);

/// Writes text to standard output as it stands. Errors as for print_line.
void print_text(std::string_view text);

/// Hands everything printed so far to the system. Errors as for print_line.
void flush_standard_output();

}  // namespace util
