// solved_wall: a chamber whose wall has been solved, and the signals anywhere inside it.
//
// Made by make_wall_field and begin_table; a plain record that nothing changes afterwards, so that
// any number of threads may ask it for signals.
#pragma once
#include <vector>

#include "cross_section.hpp"
#include "lookup_table.hpp"

namespace chamber_solver {

using nonlin_bpm_mod::four;
using nonlin_bpm_mod::lanes;

/// Gauss-Legendre nodes in -1..1, ascending, and their weights; exact for polynomials of degree
/// 2 n - 1.
struct gauss_rule {
  std::vector<double> node;
  std::vector<double> weight;
};

/// Nodes of one or more panels, side by side.
struct wall_nodes {
  std::vector<point> z;        ///< [m]
  std::vector<point> dz;       ///< weight times dz by panel coordinate [m]
  std::vector<lanes> density;  ///< of the four buttons
};

/// A solved chamber.
struct solved_wall {
  gauss_rule rule;                   ///< of one panel
  std::vector<double> left, right;   ///< from a panel's nodes to those of its halves
  wall_nodes nodes;                  ///< rule.node.size() for each panel
  std::vector<double> panel_length;  ///< [m]
  std::vector<point> panel_middle;
};

/// Signals of the four buttons and their slopes [1, 1/m].
struct signals {
  four phi{}, dx{}, dy{};
};

/// Signals at z, inside the wall.
/// errors   none; a place on or beyond the wall gives numbers without meaning
signals signals_at(const solved_wall& w, point z);

}  // namespace chamber_solver
