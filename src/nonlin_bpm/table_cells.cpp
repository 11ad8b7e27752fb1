#include "table_cells.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "cell_kernel.hpp"
#include "linear_algebra.hpp"
#include "start_map.hpp"

namespace nonlin_bpm_mod {
namespace {

// Nodes between places from which a fit may start: some 300 in a table of 81 x 61, near enough that
// three steps end a fit, and few enough to look at all of them for each reading.
constexpr int start_spacing = 4;

using matrix4 = std::array<std::array<double, 4>, 4>;

// A difference quotient of `slope` along one direction: central where both neighbours are usable.
struct quotient {
  double value = 0;
  int neighbours = 0;  // 0: none is usable, the value is 0
};

// One-sided at the rim: there the node itself stands in for the neighbour that is missing.
quotient difference(const table_nodes& nodes, int ix, int iy, int dx, int dy, double step,
                    const std::array<double, 4> table_node::*slope, std::size_t k) {
  const bool after = nodes.usable(ix + dx, iy + dy);
  const bool before = nodes.usable(ix - dx, iy - dy);
  const int neighbours = static_cast<int>(after) + static_cast<int>(before);
  if (neighbours == 0) return {};
  const table_node& last = after ? nodes.at(ix + dx, iy + dy) : nodes.at(ix, iy);
  const table_node& first = before ? nodes.at(ix - dx, iy - dy) : nodes.at(ix, iy);
  return {((last.*slope)[k] - (first.*slope)[k]) / (neighbours * step), neighbours};
}

// Weighted so that the leading errors of the two quotients cancel (table_cells.hpp). At a rim the
// direction with more neighbours alone decides: a one-sided quotient is an order worse.
double cross_slope(const table_nodes& nodes, int ix, int iy, std::size_t k) {
  const double hx = nodes.x.step();
  const double hy = nodes.y.step();
  const quotient a = difference(nodes, ix, iy, 1, 0, hx, &table_node::dphi_dy, k);
  const quotient b = difference(nodes, ix, iy, 0, 1, hy, &table_node::dphi_dx, k);
  if (a.neighbours > b.neighbours) return a.value;
  if (b.neighbours > a.neighbours) return b.value;
  return (hy * hy * a.value + hx * hx * b.value) / (hx * hx + hy * hy);
}

// Written out: for four by four the way into the library and out would cost more than the product.
matrix4 product(const matrix4& a, const matrix4& b) {
  matrix4 c{};
  for (std::size_t i = 0; i < 4; ++i) {
    for (std::size_t j = 0; j < 4; ++j) {
      for (std::size_t k = 0; k < 4; ++k) c[i][j] += a[i][k] * b[k][j];
    }
  }
  return c;
}

/// What the four corners of a cell say of one button; [m][n] is the corner (ix + m, iy + n).
struct corner_values {
  std::array<std::array<double, 2>, 2> phi{}, x{}, y{}, xy{};
};

// Coefficients c = P F P^T. P turns the two end values and two end slopes of a line into its cubic.
matrix4 cell_coefficients(const corner_values& corner, double hx, double hy) {
  constexpr matrix4 p{{{1, 0, 0, 0}, {0, 0, 1, 0}, {-3, 3, -2, -1}, {2, -2, 1, 1}}};
  constexpr matrix4 p_transposed{{{1, 0, -3, 2}, {0, 0, 3, -2}, {0, 1, -2, 1}, {0, 0, -1, 1}}};
  matrix4 f{};
  for (std::size_t m = 0; m < 2; ++m) {
    for (std::size_t n = 0; n < 2; ++n) {
      f[m][n] = corner.phi[m][n];
      f[m][n + 2] = hy * corner.y[m][n];
      f[m + 2][n] = hx * corner.x[m][n];
      f[m + 2][n + 2] = hx * hy * corner.xy[m][n];
    }
  }
  return product(product(p, f), p_transposed);
}

// A cell with any corner outside keeps coefficients of zero, which read as no signals.
bool usable_cell(const table_nodes& nodes, int ix, int iy) {
  return nodes.usable(ix, iy) && nodes.usable(ix + 1, iy) && nodes.usable(ix, iy + 1) &&
         nodes.usable(ix + 1, iy + 1);
}

// Coefficients of one button in a usable cell; cross[] is that button's cross slope at every node.
matrix4 button_cell(const table_nodes& nodes, const std::vector<double>& cross, int ix, int iy,
                    std::size_t k) {
  corner_values corner;
  for (int m = 0; m < 2; ++m) {
    for (int n = 0; n < 2; ++n) {
      const auto um = static_cast<std::size_t>(m);
      const auto un = static_cast<std::size_t>(n);
      const table_node& node = nodes.at(ix + m, iy + n);
      corner.phi[um][un] = node.phi[k];
      corner.x[um][un] = node.dphi_dx[k];
      corner.y[um][un] = node.dphi_dy[k];
      corner.xy[um][un] = cross[static_cast<std::size_t>(&node - nodes.node.data())];
    }
  }
  return cell_coefficients(corner, nodes.x.step(), nodes.y.step());
}

// Each position from its own index: sums of steps would not end on the last one.
void fill_axis(const grid_axis& axis, std::vector<double>& positions, double& per_step) {
  for (int i = 1; i <= axis.n; ++i) positions.push_back(axis.at(i));
  per_step = 1 / axis.step();
}

// Cells of the nodes as they stand, not yet scaled.
void fill_cells(const table_nodes& nodes, table_struct& table) {
  // Cross slopes first, at all nodes: each serves four cells.
  std::vector<double> cross(nodes.node.size());
  for (int k = 1; k <= 4; ++k) {
    const auto uk = static_cast<std::size_t>(k - 1);
    for (int iy = 1; iy <= nodes.y.n; ++iy) {
      for (int ix = 1; ix <= nodes.x.n; ++ix) {
        if (!nodes.usable(ix, iy)) continue;
        cross[table.grid.offset(ix, iy)] = cross_slope(nodes, ix, iy, uk);
      }
    }
    for (int iy = 1; iy <= nodes.y.n; ++iy) {
      for (int ix = 1; ix <= nodes.x.n; ++ix) {
        const table_node& node = nodes.at(ix, iy);
        button_struct button;
        button.phi = node.phi[uk];
        button.dphi_dx = node.dphi_dx[uk];
        button.dphi_dy = node.dphi_dy[uk];
        if (usable_cell(nodes, ix, iy)) {
          const matrix4 c = button_cell(nodes, cross, ix, iy, uk);
          for (std::size_t i = 0; i < 16; ++i) button.c.item[i] = c[i / 4][i % 4];
        }
        table.grid(ix, iy).b.set(k, button);
      }
    }
  }
}

// Everything in a cell is linear in the signals, so scaling it scales what it will give.
void scale_signals(table_struct& table, double factor) {
  for (grid_struct& node : table.grid.item) {
    for (lanes& c : node.b.c) c.v *= factor;
    node.b.phi.v *= factor;
    node.b.dphi_dx.v *= factor;
    node.b.dphi_dy.v *= factor;
  }
}

// Linear answer and loudest buttons of a usable node.
void fill_response(grid_struct& node) {
  const four& phi = node.b.phi.v;
  const std::array<const lanes*, 3> column{&node.b.dphi_dx, &node.b.dphi_dy, &node.b.phi};
  auto& response = node.response_mat.item;
  for (std::size_t j = 0; j < 3; ++j) {
    const four& b = column[j]->v;
    response[j] = b[1] + b[3] - b[0] - b[2];
    response[3 + j] = b[2] + b[3] - b[0] - b[1];
    response[6 + j] = b[0] + b[1] + b[2] + b[3];
  }
  // Singular where the signals do not change with the place: zeros then, as at an unusable node.
  if (!linear_algebra::invert_matrix(response, 3)) response.fill(0);

  // Stable: of two buttons as loud the lower number comes first.
  std::array<int, 4> order{1, 2, 3, 4};
  std::stable_sort(order.begin(), order.end(),
                   [&phi](int k, int l) { return phi[k - 1] > phi[l - 1]; });
  node.ix_max_phi = order[0];
  node.ix_max2_phi = order[1];
}

int nearest_to_zero(const grid_axis& axis) {
  return std::clamp(1 + static_cast<int>(std::lround(-axis.first / axis.step())), 1, axis.n);
}

// Every fourth node counted from the one nearest the centre, none that touches the border or a node
// outside: a fit that starts on the rim leaves the table too easily.
std::vector<std::array<int, 2>> start_nodes(const table_nodes& nodes) {
  const auto surrounded = [&nodes](int ix, int iy) {
    for (int dy = -1; dy <= 1; ++dy) {
      for (int dx = -1; dx <= 1; ++dx) {
        if (!nodes.usable(ix + dx, iy + dy)) return false;
      }
    }
    return true;
  };
  std::vector<std::array<int, 2>> start;
  const int ix_first = (nearest_to_zero(nodes.x) - 1) % start_spacing + 1;
  const int iy_first = (nearest_to_zero(nodes.y) - 1) % start_spacing + 1;
  for (int iy = iy_first; iy <= nodes.y.n; iy += start_spacing) {
    for (int ix = ix_first; ix <= nodes.x.n; ix += start_spacing) {
      if (surrounded(ix, iy)) start.push_back({ix, iy});
    }
  }
  return start;
}

// Direction cosines of the signals at the start nodes, with all buttons and with one left out: what
// is left is then scaled to unit length. The copies that fill the last groups can only tie with
// their node, and the first of equals is taken.
void fill_cosines(table_struct& table) {
  constexpr std::size_t size = start_group::size;
  const std::size_t n = table.start.size();
  for (std::size_t bad = 0; bad < table.cosines.size(); ++bad) {
    auto& groups = table.cosines[bad];
    constexpr std::size_t nodes = size * start_group::abreast;
    groups.resize((n + nodes - 1) / nodes * start_group::abreast);
    for (std::size_t i = 0; i < groups.size() * size; ++i) {
      const auto [ix, iy] = table.start[std::min(i, n - 1)];
      four phi = table.grid(ix, iy).b.phi.v;
      if (bad != 0) phi[bad - 1] = 0;
      double size2 = 0;
      for (int k = 0; k < 4; ++k) size2 += phi[k] * phi[k];
      for (std::size_t k = 0; k < 4; ++k) {
        groups[i / size].f[k].v[i % size] = static_cast<float>(phi[k] / std::sqrt(size2));
      }
    }
  }
}

// What is wrong with the signals of a centred beam; empty when all is well.
std::string wrong_centre(const cell_values& centre) {
  if (!(centre.phi[0] > 0)) return "(0, 0) IS NOT IN A USABLE CELL";
  constexpr four right{-1, 1, -1, 1};
  constexpr four up{-1, -1, 1, 1};
  for (int k = 0; k < 4; ++k) {
    if (!(right[k] * centre.dx[k] > 0 && up[k] * centre.dy[k] > 0)) {
      return fmt::format("BUTTON {} DOES NOT GROW TOWARDS ITS OWN QUADRANT AT (0, 0)", k + 1);
    }
  }
  return {};
}

}  // namespace

button_struct button_lanes::operator()(int button) const {
  const auto k = util::bounded<int, 1, 4, "b">::offset(button);
  button_struct value;
  value.phi = phi.v[k];
  value.dphi_dx = dphi_dx.v[k];
  value.dphi_dy = dphi_dy.v[k];
  for (std::size_t i = 0; i < c.size(); ++i) value.c.item[i] = c[i].v[k];
  return value;
}

void button_lanes::set(int button, const button_struct& value) {
  const auto k = util::bounded<int, 1, 4, "b">::offset(button);
  phi.v[k] = value.phi;
  dphi_dx.v[k] = value.dphi_dx;
  dphi_dy.v[k] = value.dphi_dy;
  for (std::size_t i = 0; i < c.size(); ++i) c[i].v[k] = value.c.item[i];
}

std::string build_table(const table_nodes& nodes, table_struct& table) {
  table = table_struct{};
  const bool none = std::all_of(nodes.node.begin(), nodes.node.end(),
                                [](const table_node& node) { return node.out; });
  // Asked first: the checks below would blame the centre alone.
  if (none) return "NO USABLE NODE";
  fill_axis(nodes.x, table.x.item, table.x_per_step);
  fill_axis(nodes.y, table.y.item, table.y_per_step);
  table.grid.nx = nodes.x.n;
  table.grid.ny = nodes.y.n;
  table.grid.item.resize(nodes.node.size());
  fill_cells(nodes, table);

  cell_values centre{};
  // Through the kernel that positions will use: what it gives at the centre is scaled to sum 1.
  evaluate_cell<false>(table, 0, 0, centre);
  std::string fault = wrong_centre(centre);
  if (!fault.empty()) return fault;
  scale_signals(table, 1 / (centre.phi[0] + centre.phi[1] + centre.phi[2] + centre.phi[3]));
  for (int iy = 1; iy <= nodes.y.n; ++iy) {
    for (int ix = 1; ix <= nodes.x.n; ++ix) {
      if (nodes.usable(ix, iy)) fill_response(table.grid(ix, iy));
    }
  }
  table.start = start_nodes(nodes);
  if (table.start.empty()) return "NO USABLE NODE TO START FROM";
  // Behind the check: without a start node there is none to fill the last group with.
  fill_cosines(table);
  fill_start_map(table);
  return {};
}

}  // namespace nonlin_bpm_mod
