// chamber_file: a cross-section with four buttons, the grid of its table, and how finely to solve.
//
//     nonlin_bpm_chamber 1
//     name bpm_arc
//     units mm                            # m or mm; before any length
//     contour box 45 25 25                # or: circle r | ellipse a b | polygon n | points n
//     button 1 -12.5 -25 15 disc          # number, place, width along the wall, disc or strip
//     x_grid 81 -30 30
//     y_grid 61 -20 20
//     margin 4                            # nodes nearer to the wall than this are `out`
//     solver 12 32 3                      # optional: nodes per panel, panels per turn, levels
//     end
//
// `polygon n` is followed by n lines "x y corner_radius", `points n` by n lines "x y" of a smooth
// closed curve; both run counter-clockwise. A button moves to the wall point nearest to its place,
// by 1 mm at most. Comments, blank lines and words are those of the table files.
#pragma once
#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cross_section.hpp"
#include "fault.hpp"
#include "table_nodes.hpp"

namespace chamber_solver {

/// What a button does to the potential of the wall, over arc length s from its middle.
enum class button_shape {
  strip,  ///< 1 all over its width
  disc    ///< sqrt(1 - (s/R)^2): the chord of a round disc along the beam
};

struct button_on_wall {
  double s = 0;     ///< arc length of the middle [m]
  double half = 0;  ///< half the width along the wall [m]
  button_shape shape = button_shape::disc;
  double moved = 0;  ///< from the place that the file gives to the wall [m]
};

/// A button given further from the wall than this is a slip of the pen, not a rounded number [m].
inline constexpr double most_moved = 1e-3;

/// How finely the wall is cut.
struct solver_setting {
  int nodes = 12;   ///< Gauss nodes of a panel, 4..32
  int panels = 32;  ///< no panel is longer than the wall divided by this, 4..400
  int levels = 3;   ///< how often panels are halved towards a jump of curvature, 0..30
};

/// Of a circle about the origin: what its closed form needs. The angles are kept as they were
/// given: arc length over radius would lose their last bit, and a seed's readings must not change.
struct round_pipe {
  double radius = 0;                       ///< [m]
  std::array<double, 4> middle{}, half{};  ///< of the buttons, seen from the axis [rad]
};

/// A vacuum chamber with its four buttons, and the grid of its table: the one kind of chamber for
/// beams, tables and pictures.
struct chamber {
  std::string name;
  std::string about;  ///< one line for people
  wall contour;
  std::optional<round_pipe> round;       ///< a circle about the origin
  std::array<button_on_wall, 4> button;  ///< index k - 1 is button k: BI, BO, TI, TO
  nonlin_bpm_mod::grid_axis x, y;
  double margin = 0;  ///< [m]
  solver_setting solver;
};

/// Reads a chamber file.
/// errors   a file that cannot be opened, and every fault in it; `where` is "<name>:<line>"
util::outcome<chamber> read_chamber(const std::string& name);

/// Which buttons of a chamber overlap, in words; empty when none do.
std::string overlap_of(const chamber& c);

/// One of the chambers that come with the simulator: plausible, not measured.
struct default_chamber {
  std::string_view name;
  std::string_view text;  ///< a chamber file
};
extern const std::array<default_chamber, 3> default_chambers;

/// The same from a text; `name` is what messages call it.
util::outcome<chamber> parse_chamber(std::string_view text, const std::string& name);

/// One of the default chambers, by its place in the list. Errors none: their files are tested.
chamber default_chamber_at(std::size_t ix);

/// The place in that list of the chamber that a BPM of the ring has: the one whose table the
/// position conversion takes for this number.
std::size_t default_chamber_of(int ring_bpm);

}  // namespace chamber_solver
