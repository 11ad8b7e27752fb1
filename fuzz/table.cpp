// A lookup table, as a file and through a pipe; the nodes that were read are written and read back
// the same.
#include <fmt/format.h>

#include <string>
#include <string_view>

#include "table_file.hpp"
#include "target.hpp"

namespace {

using namespace nonlin_bpm_mod;

std::string written(const table_nodes& nodes) {
  std::string text = fmt::format(
      "nonlin_bpm_table 1\nname {}\nunits m\nx_grid {} {:.17g} {:.17g}\ny_grid {} {:.17g} {:.17g}\n"
      "columns phi dphi_dx dphi_dy\ndata\n",
      nodes.name, nodes.x.n, nodes.x.first, nodes.x.last, nodes.y.n, nodes.y.first, nodes.y.last);
  for (int iy = 1; iy <= nodes.y.n; ++iy) {
    for (int ix = 1; ix <= nodes.x.n; ++ix) {
      const table_node& node = nodes.at(ix, iy);
      text += fmt::format("{} {}", ix, iy);
      if (node.out) text += " out";
      for (std::size_t k = 0; k < 4 && !node.out; ++k) {
        text +=
            fmt::format(" {:.17g} {:.17g} {:.17g}", node.phi[k], node.dphi_dx[k], node.dphi_dy[k]);
      }
      text += '\n';
    }
  }
  return text + "end\n";
}

bool same_axis(const grid_axis& a, const grid_axis& b) {
  return a.n == b.n && a.first == b.first && a.last == b.last;
}

bool same_nodes(const table_nodes& a, const table_nodes& b) {
  if (a.name != b.name || !same_axis(a.x, b.x) || !same_axis(a.y, b.y)) return false;
  if (a.node.size() != b.node.size()) return false;
  for (std::size_t i = 0; i < a.node.size(); ++i) {
    const table_node &p = a.node[i], &q = b.node[i];
    if (p.out != q.out || p.phi != q.phi || p.dphi_dx != q.dphi_dx || p.dphi_dy != q.dphi_dy) {
      return false;
    }
  }
  return true;
}

}  // namespace

void fuzz::read(std::string_view text) {
  const auto [file, pipe] =
      both_ways(text, [](const std::string& path) { return read_table_file(path, ""); });
  check(file.value.has_value() == pipe.value.has_value());
  if (!file) check(same(file.why, pipe.why));
  const auto nodes = read_table_nodes(held(text, way::file), "");
  // Cells are made of nodes: without these there are none.
  check(nodes || !file);
  if (!nodes) return;
  const auto again = read_table_nodes(held(written(*nodes), way::file), nodes->name);
  check(again && same_nodes(*nodes, *again));
}
