#include "table_maker.hpp"

#include <cstddef>
#include <string>

#include "table_cells.hpp"
#include "wall_solver.hpp"

namespace chamber_solver {
namespace {

using nonlin_bpm_mod::table_node;
using nonlin_bpm_mod::table_nodes;

}  // namespace

table_work begin_table(const chamber& c) {
  // The wall is solved once, here; the rows that follow only evaluate it.
  table_work work{c, solve_wall(c, cut_wall(c)), {}};
  work.nodes.name = c.name;
  work.nodes.x = c.x;
  work.nodes.y = c.y;
  work.nodes.node.resize(static_cast<std::size_t>(c.x.n) * static_cast<std::size_t>(c.y.n));
  return work;
}

void fill_row(table_work& work, int iy) {
  table_nodes& nodes = work.nodes;
  for (int ix = 1; ix <= nodes.x.n; ++ix) {
    // The axis' own places, of which the last is exact: the reader works them out in the same way.
    const point z{nodes.x.at(ix), nodes.y.at(iy)};
    // Near the wall a signal changes within less than the grid's pitch: no polynomial of a cell
    // follows.
    if (find_nearest(work.c.contour, z).distance < work.c.margin) continue;
    const signals at = signals_at(work.solved, z);
    table_node& node =
        nodes.node[static_cast<std::size_t>(iy - 1) * static_cast<std::size_t>(nodes.x.n) +
                   static_cast<std::size_t>(ix - 1)];
    node.out = false;
    for (std::size_t k = 0; k < 4; ++k) {
      node.phi[k] = at.phi[k];
      node.dphi_dx[k] = at.dx[k];
      node.dphi_dy[k] = at.dy[k];
      // A node with a signal of 0 would be refused by the reader; a place without signal is no
      // place.
      node.out = node.out || !(node.phi[k] > 0);
    }
  }
}

table_nodes nodes_of(const chamber& c) {
  // Without the progress that the command shows: for callers that have no terminal.
  table_work work = begin_table(c);
  for (int iy = 1; iy <= c.y.n; ++iy) fill_row(work, iy);
  return work.nodes;
}

util::outcome<nonlin_bpm_mod::table_struct> table_of(const chamber& c) {
  nonlin_bpm_mod::table_struct table;
  // As numbers, without a file between: the checks are the reader's all the same.
  const std::string wrong = nonlin_bpm_mod::build_table(nodes_of(c), table);
  if (!wrong.empty()) return util::fault{wrong, "table of chamber " + c.name, ""};
  return table;
}

}  // namespace chamber_solver
