// table: cross-sections of vacuum chambers, and lookup tables from signals to beam positions.
//
//     const auto table = butngain::table_of(butngain::read_chamber("straight.chamber"));
//     const auto at = butngain::find_position(table, {610, 930, 880, 1420});
//     if (at.fault == butngain::position_fault::none) use(at.x, at.y);
//
// ownership  A chamber or table is a handle on contents that never change; copies share them.
// threads    Everything may be called on several threads at once, also with one chamber or table.
#pragma once
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common.hpp"
#include "error.hpp"

#pragma GCC visibility push(default)
namespace butngain {

struct chamber_contents;
struct table_contents;

/// A cross-section with four buttons.
struct chamber {
  std::string name;
  std::string about;  ///< one line for people
  std::shared_ptr<const chamber_contents> contents;
};

/// Reads a chamber file. Errors file: with file and line.
chamber read_chamber(const std::string& path);

/// The same from a text; `name` is what messages call it.
chamber parse_chamber(std::string_view text, const std::string& name);

/// One of the chambers that come with the library: "bpm_48", "bpm_arc", "bpm_tirsku" (plausible,
/// not measured), and "round", a pipe of 45 mm radius. Errors argument: name.
chamber default_chamber(std::string_view name);

enum class button_shape { strip, disc };

/// A round pipe with buttons on its diagonals, mirror images of each other.
struct round_pipe {
  double radius = 45e-3;  ///< [m]
  button_shape shape = button_shape::strip;
  double angle = 0.7853981633974483;        ///< of a button, from the x axis [rad]
  double half_width = 0.20943951023931953;  ///< half the angle that it covers [rad]
};
/// Errors argument: pipe.
chamber round_chamber(const round_pipe& pipe);

/// A lookup table on an equally spaced grid.
struct table {
  std::string name;
  int nx = 0, ny = 0;              ///< nodes
  double x_first = 0, x_last = 0;  ///< [m]
  double y_first = 0, y_last = 0;  ///< [m]
  std::shared_ptr<const table_contents> contents;
};

/// Reads a table file. Errors file: with file and line.
table read_table(const std::string& path);

/// Makes the table of a chamber.
/// errors   argument: a chamber whose nodes are no table; stopped
/// note     0.2 s for the usual grid
table table_of(const chamber& c, const progress& tell = {});

/// What is known of one BPM beside its table.
struct bpm_properties {
  four multiplier{1, 1, 1, 1};  ///< of the readings [-]
  int bad_button = -1;          ///< 0..3; left out of the fit
};

/// Why there is no position.
enum class position_fault { none, beyond_table, no_convergence, singular, unusable_signals };

struct position {
  double x = 0, y = 0;    ///< [m]
  double scale = 0;       ///< sum of the signals of the same beam on axis [unit of the signals]
  double chi_square = 0;  ///< squared differences, readings scaled to sum 1 [-]
  position_fault fault = position_fault::none;  ///< with a fault, all the above are 0
};

/// The place whose signals come nearest to the reading.
/// errors   argument: table without contents, bad_button
position find_position(const table& t, const signals& reading, const bpm_properties& bpm = {});
std::vector<position> find_positions(const table& t, std::span<const signals> readings,
                                     const bpm_properties& bpm = {});

/// The signals of a beam at this place; those of a centred beam add up to 1.
/// errors   argument: a place outside the table's usable area
signals signals_at(const table& t, double x, double y);

}  // namespace butngain
#pragma GCC visibility pop
