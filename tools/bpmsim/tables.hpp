// tables: lookup tables of the position conversion, computed from chamber cross-sections.
//
//     bpmsim tables DIR                       the five files of the conversion, default chambers
//     bpmsim table CHAMBER_FILE TABLE_FILE    one table of a chamber of one's own
//
// docs/nonlinear_positions.md explains the files. A person at a terminal sees on standard error how
// far the work has come.
#pragma once
#include <string>

#include "command_line.hpp"

namespace sim {

/// Makes the directory and in it bpm_48.table, bpm_arc.table and bpm_tirsku.table of the default
/// chambers, and button_coeff.dat and bad_button.dat without entries; replaces what is there.
/// errors   a directory or file that cannot be made or written ends the run
void make_tables(const std::string& directory);

/// Makes one table, and with a picture name also a drawing of it (SVG).
/// errors   a fault in the chamber file ends the run with one line, status 1
void make_table(const std::string& chamber_file, const std::string& table_file,
                const std::string& picture);

/// The subcommands.
cli::command tables_command();
cli::command table_command();

}  // namespace sim
