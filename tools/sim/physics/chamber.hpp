// chamber: a vacuum chamber with four buttons, and the signal that a beam induces on each.
//
// Buttons 1..4 are BI, BO, TI, TO at (-x,-y), (+x,-y), (-x,+y), (+x,+y); x points outward, y up.
// A unit beam at (x, y) induces on button k the charge phi_k(x, y), a fraction of 1. There is one
// kind of chamber for beams and tables, chamber_solver::chamber: any cross-section that a chamber
// file can describe. In a round pipe of radius b, with q = r/b and u the angle from the beam to the
// wall point, the signals have a closed form:
//     density(u) = (1 - q^2) / (1 - 2 q cos u + q^2) / 2 pi        [1/rad]
//     strip from t1 to t2: phi = G(t2 - theta) - G(t1 - theta),
//                          G(u) = u / 2 pi + atan2(q sin u, 1 - q cos u) / pi
//     disc of radius R:    phi = integral of sqrt(1 - (s/R)^2) density(u(s)) ds / b
// A round flat disc is no strip: its chord along the beam shrinks away from its middle, at arc
// length s from it, as the square root says.
#pragma once
#include <memory>
#include <optional>
#include <string>

#include "beam.hpp"
#include "bounded.hpp"
#include "chamber_file.hpp"
#include "fault.hpp"
#include "wall_field.hpp"

namespace sim {

using buttons = util::bounded<double, 1, 4, "button">;  ///< one number per button, BI BO TI TO

/// Something said about one button of one BPM.
struct button_value {
  int bpm = 0;       // from 1
  int button = 0;    // 1..4
  double value = 1;  // meaning as the list says
};

inline constexpr double mm = 1e-3;                      // [m]
inline constexpr double degree = 0.017453292519943295;  // [rad]

using chamber_solver::button_shape;
using chamber_solver::chamber;

/// What a drawing says of a round pipe with buttons on its diagonals.
struct round_drawing {
  double radius = 45 * mm;  // of the pipe [m]
  button_shape shape = button_shape::strip;
  double angle = 45 * degree;       // of button TO, from the x axis; the others mirror it [rad]
  double half_width = 12 * degree;  // half the angle a button covers, seen from the axis [rad]
};

/// Why there can be no such pipe; empty when there can.
std::string drawing_fault(const round_drawing& d);

/// The chamber of such a drawing; its table spans 0.71 of the radius on either side.
/// note     3 ms: the wall is walked along in 2000 steps
chamber round_chamber(const round_drawing& d = {});

/// The pipe with nothing asked for, walked along once.
const chamber& usual_chamber();

/// Radius of a round pipe, half the height of others [m].
double half_height(const chamber& c);

/// How the chamber that the beam sees differs from the drawing that tables are made of.
struct chamber_change {
  double width = 1;                   // of the buttons, in parts of the drawn one [-]
  double angle = 0;                   // the buttons lie further from the x axis, all four [rad]
  buttons azimuth{};                  // single buttons lie further on, counter-clockwise [m]
  std::optional<button_shape> shape;  // of the buttons
  double ellipse = 0;                 // half width larger, half height smaller by this part [-]
  double radius = 0;                  // both larger by this part [-]
};

/// The chamber with the change made; c itself, to the last bit, when nothing changes.
/// errors   buttons that overlap or have no width, a chamber turned inside out: the fault
util::outcome<chamber> changed(const chamber& c, const chamber_change& change);

/// What changes, for people; empty when nothing does.
std::string change_text(const chamber_change& change);

/// A chamber ready to give signals. Made once, then shared and never changed.
struct solved_chamber {
  chamber of;
  std::optional<chamber_solver::wall_field> field;  // none: a round pipe, which has a closed form
  double centred = 0;  // phi of a centred beam, which signals are relative to
};

/// Works out what a chamber needs to give signals: nothing for a round pipe, 0.2 s for others.
/// errors   a singular system ends the run (chamber_solver::solve_wall); no chamber made here has
///          one
std::shared_ptr<const solved_chamber> solve(const chamber& c);

/// Beams stay within this part of the way to the wall: nearer to it no real beam passes.
inline constexpr double usable_part = 0.95;

/// Whether a beam may be there.
bool is_inside(const chamber& c, double x, double y);
bool is_inside(const solved_chamber& c, double x, double y);  ///< the same, faster

/// Why this beam's orbit and oscillation do not fit into the chamber; empty when they do.
std::string reach_fault(const chamber& c, const beam& b);

/// The signals of a unit beam at (x, y) [m], inside the chamber.
/// returns  fractions of the beam's charge, 0..1
/// errors   none
/// source   round pipes: image charge of a line charge, as above; others: chamber_solver
buttons phi(const solved_chamber& c, double x, double y);

}  // namespace sim
