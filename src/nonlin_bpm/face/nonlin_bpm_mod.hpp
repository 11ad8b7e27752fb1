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
// | lookup_table.hpp            | one table in memory                                            |
// | nonlin_orbit.cpp            | the entry, table choice, coordinates                           |
// | nonlin_bpm_init.cpp         | the files of a facility into the state below                   |
// | position_fit.cpp            | the position fit; nonlin_bpm_minimize.cpp is its face          |
// | nonlin_bpm_interpolate.cpp  | value and derivatives at one place; cell_kernel.hpp is its core |
// | table_file, table_cells     | one table: from file to nodes, from nodes to cells             |
// | calib_files, word_file      | the files of single BPMs; lines of words with comments         |
// | linear_algebra              | the only door to LAPACK                                        |
#pragma once
#include <span>
#include <vector>

#include "bounded.hpp"
#include "lookup_table.hpp"

namespace nonlin_bpm_mod {

inline constexpr int max_bpm = 120;

using button_signals = util::bounded<double, 1, 4, "but">;  ///< one reading [any unit]
using position = util::bounded<double, 1, 3, "x">;  ///< x [m], y [m], scale [unit of the signals]
/// (button)(order of d/dx, order of d/dy); orders 0..2, of which totals up to 2 are in use.
using derivatives = util::bounded<util::bounded2<double, 0, 2, 0, 2, "d">, 1, 4, "d">;

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

/// The same for many readings of one BPM, without their chisq; faster together.
/// given    but, x  of one length
/// note     what nonlin_orbit prints or does for each reading is printed or done for each
void nonlin_orbits(int bpm_index, std::span<const button_signals> but, std::span<position> x);

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

/// The same for any table and BPM, without the state above.
/// given    calib  coefficients and bad button; offsets play no part
/// errors   as nonlin_bpm_minimize
/// note     safe on several threads
void fit_position(const table_struct& table, const calib_struct& calib,
                  const button_signals& but_in, position& x, double& chi2_out);

/// The same for many readings of one BPM, each as if it were alone; twice as fast together.
/// given    but_in, x, chi2_out  of one length
void fit_positions(const table_struct& table, const calib_struct& calib,
                   std::span<const button_signals> but_in, std::span<position> x,
                   std::span<double> chi2_out);

/// Bisection: j with table(j) <= value < table(j+1); 0 below the first entry and for a NaN, the
/// number of entries from the last one on.
int locate(const std::vector<double>& table, double value);

/// Puts the whole state back to its first values. For tests: a session never starts twice.
void reset();

}  // namespace nonlin_bpm_mod
