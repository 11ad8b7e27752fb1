// table_cells: from the nodes of a table to bicubic cells, linear answers and start places.
//
// Cross slopes come from the tabulated slopes alone. With steps hx, hy,
//     A = (phi_y(i+1, j) - phi_y(i-1, j)) / 2 hx,   B = (phi_x(i, j+1) - phi_x(i, j-1)) / 2 hy,
//     phi_xy = (hy^2 A + hx^2 B) / (hx^2 + hy^2).
// phi is harmonic (a field without charge inside the chamber), so the leading errors of A and B
// have opposite signs, and these weights cancel them: fourth order.
#pragma once
#include <string>

#include "lookup_table.hpp"
#include "table_nodes.hpp"

namespace nonlin_bpm_mod {

/// Builds the table; the signals are scaled so that they add up to 1 at (0, 0).
/// returns  what keeps the nodes from becoming a table, empty when all is well: no usable cell
///          around (0, 0), a button that does not grow towards its own quadrant there, no node to
///          start a fit from
std::string build_table(const table_nodes& nodes, table_struct& table);

}  // namespace nonlin_bpm_mod
