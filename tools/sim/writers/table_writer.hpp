// table_writer: a lookup table into its file (docs/nonlinear_positions.md describes it).
#pragma once
#include <string>

#include "table_nodes.hpp"

namespace sim {

/// Writes a table file: lengths in metres, 13 digits.
/// errors   a file that cannot be written ends the run
void write_table(const nonlin_bpm_mod::table_nodes& nodes, const std::string& path);

}  // namespace sim
