// table_nodes: what a table file says, node by node, between file and cells.
#pragma once
#include <array>
#include <cstddef>
#include <string>
#include <vector>

namespace nonlin_bpm_mod {

/// Equal steps from first to last, both included.
struct grid_axis {
  int n = 0;         ///< nodes, 5..2000
  double first = 0;  ///< [m]
  double last = 0;   ///< [m]
  double at(int i) const { return i == n ? last : first + (i - 1) * step(); }
  double step() const { return (last - first) / (n - 1); }
};

/// One node; index k - 1 is button k.
struct table_node {
  std::array<double, 4> phi{};      ///< any common scale
  std::array<double, 4> dphi_dx{};  ///< that scale per metre
  std::array<double, 4> dphi_dy{};
  int line = 0;     ///< where the file gives it
  bool out = true;  ///< outside the usable area: no numbers
};

struct table_nodes {
  std::string name;
  grid_axis x, y;
  std::vector<table_node> node;  ///< ix runs fastest
  const table_node& at(int ix, int iy) const {
    return node[static_cast<std::size_t>(iy - 1) * static_cast<std::size_t>(x.n) +
                static_cast<std::size_t>(ix - 1)];
  }
  /// Whether the node is on the grid and has numbers.
  bool usable(int ix, int iy) const {
    return ix >= 1 && ix <= x.n && iy >= 1 && iy <= y.n && !at(ix, iy).out;
  }
};

inline constexpr int min_grid = 5, max_grid = 2000;           // nodes of an axis
inline constexpr double min_extent = 1e-3, max_extent = 1.0;  // [m] catches m/mm mix-ups

}  // namespace nonlin_bpm_mod
