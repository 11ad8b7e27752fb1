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
// closed curve; both run counter-clockwise. A button moves to the wall point nearest to its place.
// Comments, blank lines and words are those of the table files.
#pragma once
#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "cross_section.hpp"
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
};

/// How finely the wall is cut.
struct solver_setting {
  int nodes = 12;   ///< Gauss nodes of a panel, 4..32
  int panels = 32;  ///< no panel is longer than the wall divided by this, 4..400
  int levels = 3;   ///< how often panels are halved towards a jump of curvature, 0..30
};

struct chamber {
  std::string name;
  wall contour;
  std::array<button_on_wall, 4> button;  ///< index k - 1 is button k: BI, BO, TI, TO
  nonlin_bpm_mod::grid_axis x, y;
  double margin = 0;  ///< [m]
  solver_setting solver;
};

/// Reads a chamber file.
/// errors   one line "bpmsim: <fault> in line <n> of <name>" on standard error; exit status 1
chamber read_chamber(const std::string& name);

/// One of the chambers that come with the simulator: plausible, not measured.
struct default_chamber {
  std::string_view name;
  std::string_view text;  ///< a chamber file
};
extern const std::array<default_chamber, 3> default_chambers;

/// The same from a text; `name` is what messages call it.
chamber parse_chamber(std::string_view text, const std::string& name);

}  // namespace chamber_solver
