#include "table_writer.hpp"

#include <fmt/format.h>

#include <cstddef>
#include <iterator>
#include <string_view>

#include "file_units.hpp"

namespace sim {
namespace {

using nonlin_bpm_mod::grid_axis;
using nonlin_bpm_mod::table_node;
using nonlin_bpm_mod::table_nodes;

std::string axis_line(std::string_view key, const grid_axis& axis) {
  // Fifteen digits: a length given in decimals is printed as it was given.
  return fmt::format("{}   {} {:.15g} {:.15g}", key, axis.n, axis.first, axis.last);
}

}  // namespace

void write_table(const table_nodes& nodes, const std::string& path) {
  const util::unit_handle unit{util::lunget()};
  const int file = unit.number();
  util::open_whole_output(file, path);
  util::write_line(file, "nonlin_bpm_table 1");
  util::write_line(file, "name     " + nodes.name);
  util::write_line(file, "origin   computed");
  util::write_line(file, "units    m");
  util::write_line(file, axis_line("x_grid", nodes.x));
  util::write_line(file, axis_line("y_grid", nodes.y));
  // Slopes stand in the file: the cells between the nodes are bent by them.
  util::write_line(file, "columns  phi dphi_dx dphi_dy");
  util::write_line(file, "data");
  std::string line;
  for (int iy = 1; iy <= nodes.y.n; ++iy) {
    for (int ix = 1; ix <= nodes.x.n; ++ix) {
      const table_node& node = nodes.at(ix, iy);
      line = fmt::format("{} {}", ix, iy);
      // A node that is out stands there too: the reader expects every one, and finds a lost line.
      if (node.out) line += " out";
      for (std::size_t k = 0; k < 4 && !node.out; ++k) {
        // 13 digits: what a file loses stays far below what the interpolation between nodes does.
        fmt::format_to(std::back_inserter(line), " {:.12e} {:.12e} {:.12e}", node.phi[k],
                       node.dphi_dx[k], node.dphi_dy[k]);
      }
      util::write_line(file, line);
    }
  }
  // Last: a file cut short by a full disk lacks it, and the reader refuses it.
  util::write_line(file, "end");
}

}  // namespace sim
