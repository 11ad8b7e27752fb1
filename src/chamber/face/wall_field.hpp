// wall_field: the signals of a solved chamber, fast.
//
// The complex potential of a button is an analytic function of the beam's place, so that around any
// place z0 inside the chamber
//     F(z) = sum over n of a_n (z - z0)^n,   a_n = (1 / 2 pi i) closed integral of
//                                                  mu(s) dzeta / (zeta - z0)^(n + 1),
// converges up to the wall. A square grid of such expansions gives a signal in a few dozen
// multiplications where the integral over the wall takes thousands. Where the wall is nearer than
// four times the half diagonal of a grid cell the series is too slow: there the integral itself is
// taken.
#pragma once
#include <array>
#include <cstddef>
#include <vector>

#include "chamber_file.hpp"
#include "solved_wall.hpp"

namespace chamber_solver {

/// Highest power: the half diagonal over the distance to the wall is 1/4 at most, and 4^-17 of the
/// largest signal, 6e-11, is what the series leaves out.
inline constexpr std::size_t expansion_order = 16;

/// Expansion about one node; powers of (z - z0) / step, so that no coefficient grows.
struct wall_expansion {
  bool converges = false;  ///< everywhere in the node's square
  double clear = -1;       ///< [m] to the boundary of where beams may pass; negative outside
  std::array<lanes, expansion_order + 1> re{}, im{};
};

struct wall_field {
  solved_wall wall;
  point first;      ///< place of node (0, 0) [m]
  double step = 0;  ///< of the grid [m]
  std::size_t nx = 0, ny = 0;
  std::vector<wall_expansion> node;  ///< ix runs fastest
};

/// Solves the chamber and expands its potentials.
/// given    usable  beams pass within this part of the way to the wall, 0..1
/// note     0.2 s for a thousand wall nodes
wall_field make_wall_field(const chamber& c, double usable);

/// The node whose square holds z; null beyond the grid.
const wall_expansion* expansion_at(const wall_field& f, point z, point& from_node);

/// Signals of the four buttons at z, inside the wall; equal to signals_at(f.wall, z) to 1e-10.
lanes signals_from(const wall_field& f, point z);

}  // namespace chamber_solver
