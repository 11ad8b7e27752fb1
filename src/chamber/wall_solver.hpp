// wall_solver: the potential of four buttons inside a grounded chamber, by boundary elements.
//
// The charge that a beam at z induces on a button is, up to sign, the potential at z of that button
// at 1 V with the rest of the wall grounded. That potential is the real part of
//     F(z) = (1 / 2 pi i) closed integral of mu(s) dzeta / (zeta - z)
// with a real density mu on the wall that solves
//     mu_i / 2 + sum over j of (1 / 2 pi) Im(dzeta_j / (zeta_j - zeta_i)) mu_j = f_i,
// f the voltage of the wall; the term j = i is curvature_i ds_i / 4 pi. The slopes come from F'.
//
// The wall is cut into panels of Gauss nodes: at button edges and at the joints of its pieces;
// towards jumps of direction or curvature panels are halved again and again. On a disc the nodes
// are those of the angle a, s = R sin(a), in which the voltage is the smooth cos(a).
//
// Seen from across a jump the kernel of a panel is no polynomial: close to the joint it changes
// over the distance to the joint. Such a panel enters the system through its halves, quarters and
// so on, with the density interpolated from its nodes; without that the racetrack's error is 100
// times larger.
#pragma once
#include <vector>

#include "chamber_file.hpp"
#include "solved_wall.hpp"

namespace chamber_solver {

/// Voltage of the wall at one of its nodes, for four problems at once (tests solve other voltages).
struct wall_node {
  wall_place place;
  double ds = 0;  ///< [m]
  lanes voltage;  ///< of the chamber's buttons
  int run = 0;    ///< number of the stretch between jumps of direction or curvature
};

/// Cuts the wall into panels.
/// note     a thousand nodes are usual; the cost of solving grows with the third power
std::vector<wall_node> cut_wall(const chamber& c);

/// Solves for the density of the nodes' voltages.
/// errors   a singular system ends the run
solved_wall solve_wall(const chamber& c, const std::vector<wall_node>& nodes);

}  // namespace chamber_solver
