// table_maker: from a chamber to its lookup table.
#pragma once
#include "chamber_file.hpp"
#include "fault.hpp"
#include "lookup_table.hpp"
#include "solved_wall.hpp"
#include "table_nodes.hpp"

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

/// The whole table at once.
/// note     a chamber is solved in 0.1 s and its 5000 nodes in another
nonlin_bpm_mod::table_nodes nodes_of(const chamber& c);

/// The table as the position conversion holds it after reading.
/// errors   nodes that are no table (nonlin_bpm_mod::build_table): the fault
util::outcome<nonlin_bpm_mod::table_struct> table_of(const chamber& c);

}  // namespace chamber_solver
