#include "table_maker.hpp"

#include <fmt/format.h>

#include <cstddef>
#include <iterator>

#include "file_units.hpp"

namespace chamber_solver {
namespace {

using nonlin_bpm_mod::grid_axis;
using nonlin_bpm_mod::table_node;
using nonlin_bpm_mod::table_nodes;

std::string axis_line(std::string_view key, const grid_axis& axis) {
  return fmt::format("{}   {} {:.15g} {:.15g}", key, axis.n, axis.first, axis.last);
}

}  // namespace

table_work begin_table(const chamber& c) {
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
    const point z{nodes.x.at(ix), nodes.y.at(iy)};
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
      node.out = node.out || !(node.phi[k] > 0);
    }
  }
}

void write_table(const table_nodes& nodes, const std::string& path) {
  const util::unit_handle unit{util::lunget()};
  const int file = unit.number();
  util::open_output(file, path);
  util::write_line(file, "nonlin_bpm_table 1");
  util::write_line(file, "name     " + nodes.name);
  util::write_line(file, "origin   computed");
  util::write_line(file, "units    m");
  util::write_line(file, axis_line("x_grid", nodes.x));
  util::write_line(file, axis_line("y_grid", nodes.y));
  util::write_line(file, "columns  phi dphi_dx dphi_dy");
  util::write_line(file, "data");
  std::string line;
  for (int iy = 1; iy <= nodes.y.n; ++iy) {
    for (int ix = 1; ix <= nodes.x.n; ++ix) {
      const table_node& node = nodes.at(ix, iy);
      line = fmt::format("{} {}", ix, iy);
      if (node.out) line += " out";
      for (std::size_t k = 0; k < 4 && !node.out; ++k) {
        fmt::format_to(std::back_inserter(line), " {:.12e} {:.12e} {:.12e}", node.phi[k],
                       node.dphi_dx[k], node.dphi_dy[k]);
      }
      util::write_line(file, line);
    }
  }
  util::write_line(file, "end");
}

}  // namespace chamber_solver
