// The two data files of each BPM: NAME.dat, the readings as they were, and NAME.dat_fit, the same
// readings under the fitted gains beside the fitted curve.
//
// Both are tables of exponent-form numbers, one orbit a line; docs/data_files.md explains them line
// by line. Q, X, Y below are the combinations of gain_fit_mod.
#pragma once
#include <cstddef>
#include <string_view>

#include "bpm_result.hpp"
#include "fields.hpp"
#include "rd_files.hpp"
#include "text_block.hpp"

namespace output {

// --- the texts, made on records: safe on several threads -------------------------------------------

inline constexpr std::size_t raw_data_columns = 11;  ///< numbers of one orbit in NAME.dat
/// Characters of such a line, its end included. The last four numbers are the signals.
inline constexpr std::size_t raw_data_line = raw_data_columns * util::real_width + 1;

/// The text of NAME.dat: the header, then a line for each orbit added so far.
struct raw_data_text {
  util::text_block text;
  std::size_t const_at = 0;   ///< where its header shows the amplitude of the BPM before
  std::size_t orbits_at = 0;  ///< where the first orbit's line begins
};

/// The header.
/// errors   more than 20 data files end the run
raw_data_text begin_raw_data(const run_record& run, const gain_fit_mod::bpm_data& bpm);

/// Adds the line of the next orbit: x, y, Q, X, Y, X Y / current, current, four signals.
/// given    orbit_num  1..orbits of the BPM, one after the other from 1
void add_raw_data(raw_data_text& raw, const gain_fit_mod::bpm_data& bpm, int orbit_num);

/// Puts another amplitude into the header: BPMs that are fitted side by side do not know that of the
/// BPM before when their text is made.
void set_const_before(raw_data_text& raw, double amplitude);

/// The text of NAME.dat_fit.
/// given    raw  that of NAME.dat with all orbits, whose positions are taken over; null: they are
///               made here
util::text_block fitted_data_text(const run_record& run, const gain_fit_mod::bpm_result& result,
                                  const raw_data_text* raw = nullptr);

/// Writes a text to "<directory>/<name><suffix>": replaced when this run opens it first, appended to
/// when it comes back to it.
/// errors   a file that cannot be opened or written ends the run
void write_bpm_file(const run_record& run, std::string_view name, std::string_view suffix,
                    const util::text_block& text);

// --- the described faces: text and file in one ----------------------------------------------------

/// Writes one orbit of a BPM to NAME.dat: x, y, Q, X, Y, X Y / current, current, four signals, all
/// gains taken as 1. When the BPM differs from the call before, the previous file is closed and a
/// new one is begun with its header.
///
/// given    orbit_num  1..orbits of the BPM
/// errors   a file that cannot be opened or written, an orbit that the BPM has not, an index beyond
///          the store's: ends the run
/// note     four signals that sum to 0 give combinations that are not numbers
/// note     a file is replaced when this run opens it first, appended to when it comes back to the
///          BPM
void write_bpm_raw_data(const run_record& run, const gain_fit_mod::bpm_data& bpm, int orbit_num);

/// Writes NAME.dat_fit of a BPM: header, the four fits, then a line per orbit with x, y, Q, X, Y,
/// X Y / current, current, u = X Y, the curve at u, and the residual (curve minus Q), all at the
/// mean gains and coefficients. The current is that of the last orbit throughout. Every other line
/// begins with "#".
/// errors   as above
void write_bpm_fitted_data(const run_record& run, const gain_fit_mod::bpm_result& result);

/// Closes the raw-data file that is still open, at the end of a session; the next
/// write_bpm_raw_data begins a file.
void close_bpm_raw_data();

}  // namespace output
