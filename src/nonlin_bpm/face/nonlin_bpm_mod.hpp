// nonlin_bpm_mod: from the four button signals of a BPM to the beam position, by lookup tables.
//
// Difference over sum is exact at the centre of a chamber only: 10 mm off axis it is wrong by up to
// a millimetre. A table therefore holds, on a grid of beam positions, the signal phi of each button
// and its slopes; between the nodes a bicubic polynomial per button and cell,
//     p(t, u) = sum over i, j = 1..4 of c(i, j) t^(i-1) u^(j-1),   t = (x - x_ix)/hx, u likewise,
// carries on value and slopes. The position is the point whose four phi, times one common scale,
// fit the readings best.
//
// Buttons 1..4 are BI, BO, TI, TO at (-x,-y), (+x,-y), (-x,+y), (+x,+y); x points outward, y up.
// Lengths are metres. phi is scaled so that the four signals of a centred beam add up to 1.
//
// | in reading order            | what it holds                                                  |
// |-----------------------------|----------------------------------------------------------------|
// | nonlin_orbit.cpp            | the entry, offsets, table choice, coordinates                  |
// | nonlin_bpm_minimize.cpp     | the position fit                                               |
// | nonlin_bpm_interpolate.cpp  | value and derivatives at one place; cell_kernel.hpp is its core |
// | table_file, table_cells     | one table: from file to nodes, from nodes to cells             |
// | calib_files, word_file      | the two button files; lines of words with comments             |
// | linear_algebra              | the only door to LAPACK                                        |
#pragma once
#include <array>
#include <cstddef>
#include <string_view>
#include <vector>

#include "bounded.hpp"

namespace nonlin_bpm_mod {

inline constexpr int max_bpm = 120;

using button_signals = util::bounded<double, 1, 4, "but">;  ///< one reading [any unit]
using position = util::bounded<double, 1, 3, "x">;  ///< x [m], y [m], scale [unit of the signals]
/// (button)(order of d/dx, order of d/dy); orders 0..2, of which totals up to 2 are in use.
using derivatives = util::bounded<util::bounded2<double, 0, 2, 0, 2, "d">, 1, 4, "d">;

// --- tables -----------------------------------------------------------------------------------

/// Four doubles, one per button, that one instruction handles together.
using four [[gnu::vector_size(32)]] = double;
struct lanes {
  four v{};  ///< buttons 1..4 at [0]..[3]
};

/// What a table knows of one button at one node, and in the cell whose lower left corner it is.
struct button_struct {
  double phi = 0;                               ///< signal [1]; 0 at a node outside the usable area
  util::bounded2<double, 1, 4, 1, 4, "c"> c{};  ///< bicubic coefficients, first index in x
  double dphi_dx = 0;                           ///< [1/m]
  double dphi_dy = 0;                           ///< [1/m]
};

/// The four button_struct of a node, kept side by side so that the interpolation reads the same
/// coefficient of all buttons at once.
struct button_lanes {
  std::array<lanes, 16> c{};  ///< c(i, j) at 4 (i - 1) + j - 1; all zero in a cell without data
  lanes phi, dphi_dx, dphi_dy;
  button_struct operator()(int button) const;
  void set(int button, const button_struct& value);
};

struct grid_struct {
  button_lanes b;
  /// Linear answer at the node: response_mat times (outer - inner, top - bottom, sum) of the
  /// readings gives (scale dx, scale dy, scale). Zero where the node is not usable.
  util::bounded2<double, 1, 3, 1, 3, "response_mat"> response_mat{};
  int ix_max_phi = 0;   ///< button with the largest phi, 1..4; 0 where the node is not usable
  int ix_max2_phi = 0;  ///< button with the second largest phi; the lower number wins a tie
};

/// Array with bounds 1..size, known only when the table is read.
template <class T, util::label name>
struct counted {
  std::vector<T> item;
  int size() const { return static_cast<int>(item.size()); }
  T& operator()(int i) { return item[offset(i)]; }
  const T& operator()(int i) const { return item[offset(i)]; }
  std::size_t offset(int i) const {
    if (i < 1 || i > size()) util::subscript_error(name.view(), i, 1, size());
    return static_cast<std::size_t>(i) - 1;
  }
};

/// nx by ny nodes; ix runs fastest in memory.
struct node_grid {
  int nx = 0;
  int ny = 0;
  std::vector<grid_struct> item;
  grid_struct& operator()(int ix, int iy) { return item[offset(ix, iy)]; }
  const grid_struct& operator()(int ix, int iy) const { return item[offset(ix, iy)]; }
  std::size_t offset(int ix, int iy) const {
    if (ix < 1 || ix > nx) util::subscript_error("grid", ix, 1, nx, 1);
    if (iy < 1 || iy > ny) util::subscript_error("grid", iy, 1, ny, 2);
    return (static_cast<std::size_t>(iy) - 1) * static_cast<std::size_t>(nx) +
           static_cast<std::size_t>(ix) - 1;
  }
};

/// Direction cosines of phi at eight start nodes, by button: [k][i / 4][i % 4]. Single precision is
/// plenty to choose a start; four of them are what every processor compares at once.
using four_floats [[gnu::vector_size(16)]] = float;
struct start_group {
  static constexpr std::size_t size = 8;
  struct button_cosines {
    four_floats low{}, high{};
  };
  std::array<button_cosines, 4> f{};
};

struct table_struct {
  counted<double, "table x"> x;  ///< grid positions [m], ascending in equal steps
  counted<double, "table y"> y;
  node_grid grid;         ///< node (ix, iy) serves the cell up to (ix+1, iy+1)
  double x_per_step = 0;  ///< nodes per metre: where a search in x begins
  double y_per_step = 0;
  std::vector<std::array<int, 2>> start;  ///< nodes (ix, iy) from which a fit may start
  /// Of the start nodes, in their order; [b] leaves button b out, [0] none. Copies of the last node
  /// fill the last group.
  std::array<std::vector<start_group>, 5> cosines;
};

/// What is known of one BPM.
struct calib_struct {
  util::bounded<double, 1, 2, "offset"> offset{};            ///< horizontal, vertical [m]
  util::bounded<double, 1, 4, "coeff"> coeff{{1, 1, 1, 1}};  ///< multiplies the signals [1]
  int ix_bad_button = 0;                                     ///< 1..4; 0: all are good
};

// --- state: loaded at the first call of nonlin_orbit or nonlin_bpm_set_pointers, kept for the run

inline bool nonlin_bpm_first_call = true;  // tables not yet loaded
inline bool nonlin_bpm_use_offsets = true;
inline bool nonlin_bpm_use_rotation = true;
inline int bpm_index_com = 0;                   // BPM of the table selection in force
inline const table_struct* func_bpm = nullptr;  // one of the three below; null before a selection
inline table_struct bpm_48, bpm_arc, bpm_tirsku;
inline util::bounded<calib_struct, 1, max_bpm, "bpm_calib"> bpm_calib{};

// --- procedures -------------------------------------------------------------------------------

/// The entry: four signals of one BPM to its beam position. Loads the tables at the first call.
///
/// given    bpm_index  BPM number; or -1 offsets off, -2 offsets read again and on
///          but        signals BI, BO, TI, TO
/// returns  x          position without the BPM's offsets [m], and the scale of the fit
///          chisq      as nonlin_bpm_minimize; negative marks a failed position
/// errors   a signal below 1e-10: x is 0, chisq as it was. 121 and more, -3, -4: one line, outputs
///          as they were. Any other number outside 1..120 ends the run (bounds of bpm_calib).
/// note     a failed fit gives zeros before the offsets are taken away: look at chisq, not at x
void nonlin_orbit(int bpm_index, const button_signals& but, position& x, double& chisq);

/// Reads all files below $KOVR_ONLINE/machine_data/meas/orbit/: three tables, coefficients, bad
/// buttons (folder nonlin_bpm), and the offsets.
/// errors   every fault in a file: one line with file and line, then err_exit
void nonlin_bpm_init();

/// Reads the offsets file offset.bpm: BPM, vertical, horizontal offset [mm] in each record.
/// errors   missing file and BPM outside 1..120: run-time error; bad record: one line, err_exit
void nonlin_bpm_init_offsets();

/// Selects the lookup table of a BPM: 48..51 bpm_48, 1..7 and 93..110 bpm_tirsku, others bpm_arc.
void nonlin_bpm_set_pointers(int bpm_index);

/// Turns x 1..2 into axes rotated by the angle [degrees].
/// note     pi is the single-precision number 3.14159
void nonlin_bpm_rotate_coord(position& x, double angle);

/// Does nothing: BPM coordinates are the ring's. The place where a tilted BPM would be treated.
void nonlin_bpm_real_coords(int bpm_index, position& x);

/// Signals of the four buttons for a beam at x, and their derivatives, from the selected table.
///
/// given    x  place [m] and overall scale x(3)
/// returns  d  the six entries of total order up to 2; the others are only multiplied by x(3)
/// errors   no table selected: two lines, d as it was. Outside the table, on its last line, or in
///          a cell without data: zeros
/// note     the bad button of the selected BPM gives zeros
void nonlin_bpm_interpolate(const position& x, derivatives& d);

/// Why a position fit failed; chi2_out is then the negative of it.
enum class fit_failure { beyond_table = 1, no_convergence = 2, singular = 3, unusable_signals = 4 };

/// Position fit: the place and scale whose signals come nearest to the readings.
///
/// given    i_bpm     BPM number 1..120 (else the run ends: bounds of bpm_calib)
///          but_in    signals BI, BO, TI, TO, before calibration
/// returns  x         place [m] and scale: the sum of the signals of the same beam on axis
///          chi2_out  sum of squared differences, readings scaled to sum 1 [1]
/// errors   x is 0 and chi2_out = -1 beam beyond the table, -2 no convergence, -3 singular step,
///          -4 unusable signals. Nothing is printed.
/// note     with a bad button three readings give three unknowns: chi2 then says nothing
void nonlin_bpm_minimize(int i_bpm, const button_signals& but_in, position& x, double& chi2_out);

/// Bisection: j with table(j) <= value < table(j+1); 0 below the first entry and for a NaN, the
/// number of entries from the last one on.
int locate(const std::vector<double>& table, double value);

/// Puts the whole state back to its first values. For tests: a session never starts twice.
void reset();

}  // namespace nonlin_bpm_mod
