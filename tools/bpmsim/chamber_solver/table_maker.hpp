// table_maker: from a chamber to its lookup table.
#pragma once
#include <string>

#include "table_nodes.hpp"
#include "wall_solver.hpp"

namespace chamber_solver {

/// A table under construction, row by row, so that the caller can show where it is.
struct table_work {
  chamber c;
  solved_wall solved;
  nonlin_bpm_mod::table_nodes nodes;
};

/// Solves the chamber and prepares the grid; all nodes are `out` until their row is filled.
table_work begin_table(const chamber& c);

/// Fills row iy, 1..c.y.n. Nodes outside the wall or nearer to it than the margin stay `out`, and
/// so does a node where a signal is lost in rounding (no longer above 0).
void fill_row(table_work& work, int iy);

/// Writes a table file: lengths in metres, 13 digits.
/// errors   a file that cannot be written ends the run
void write_table(const nonlin_bpm_mod::table_nodes& nodes, const std::string& path);

}  // namespace chamber_solver
