// chamber: a vacuum chamber with four buttons, and the signal that a beam induces on each.
//
// Buttons 1..4 are BI, BO, TI, TO at (-x,-y), (+x,-y), (-x,+y), (+x,+y); x points outward, y up.
// A unit beam at (x, y) induces on button k the charge phi_k(x, y), a fraction of 1. In a round
// pipe of radius b, with q = r/b and u the angle from the beam to the wall point,
//     density(u) = (1 - q^2) / (1 - 2 q cos u + q^2) / 2 pi        [1/rad]
//     strip from t1 to t2: phi = G(t2 - theta) - G(t1 - theta),
//                          G(u) = u / 2 pi + atan2(q sin u, 1 - q cos u) / pi
//     disc of radius R:    phi = integral of sqrt(1 - (s/R)^2) density(u(s)) ds / b
// A round flat disc is no strip: its chord along the beam shrinks away from its middle, at arc
// length s from it, as the square root says.
#pragma once
#include <memory>
#include <string>

#include "beam.hpp"
#include "bounded.hpp"

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

enum class wall_kind { round };
enum class button_shape { strip, disc };

struct chamber {
  wall_kind wall = wall_kind::round;
  double radius = 45 * mm;  // of the pipe [m]
  button_shape shape = button_shape::strip;
  double angle = 45 * degree;       // of button TO, from the x axis; the others mirror it [rad]
  double half_width = 12 * degree;  // half the angle a button covers, seen from the axis [rad]
};

/// Beams stay within this part of the radius: nearer to the wall no real beam passes.
inline constexpr double usable_part = 0.95;

/// Why this chamber cannot be; empty when it can.
std::string chamber_fault(const chamber& c);

/// A chamber ready to give signals. Made once, then shared and never changed.
struct solved_chamber {
  chamber of;
  double centred = 0;  ///< phi of a centred beam: what signals are counted in [-]
};

/// Works out what a chamber needs to give signals.
std::shared_ptr<const solved_chamber> solve(const chamber& c);

/// Whether a beam may be there.
bool is_inside(const solved_chamber& c, double x, double y);

/// Why this beam's orbit and oscillation do not fit into the chamber; empty when they do.
std::string reach_fault(const solved_chamber& c, const beam& b);

/// The signals of a unit beam at (x, y) [m], inside the chamber.
/// returns  fractions of the beam's charge, 0..1
/// errors   none
/// source   image charge of a line charge in a grounded round pipe
buttons phi(const solved_chamber& c, double x, double y);
buttons phi(const chamber& c, double x, double y);

/// One line about the chamber, for people.
std::string chamber_text(const chamber& c);

}  // namespace sim
