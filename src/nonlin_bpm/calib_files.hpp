// calib_files: what is known of single BPMs, from three files: `button_coeff.dat`, `bad_button.dat`
// and `offset.bpm`.
//
// The readers take an open file and give back what it says. After a fault the file's line is the
// one that is wrong.
#pragma once
#include <vector>

#include "fault.hpp"
#include "nonlin_bpm_mod.hpp"
#include "text_file.hpp"
#include "word_file.hpp"

namespace nonlin_bpm_mod {

/// Coefficients by BPM: each multiplies the signal of its button [1].
using coefficient_list = util::bounded<util::bounded<double, 1, 4, "coeff">, 1, max_bpm, "coeff">;
/// The bad button by BPM, 1..4; 0: all are good.
using bad_button_list = util::bounded<int, 1, max_bpm, "bad_button">;

/// Reads "nonlin_bpm_coeff 1" and lines "bpm c1 c2 c3 c4". A signal is MULTIPLIED by its
/// coefficient, as by a fitted gain. A BPM that is not listed has 1 1 1 1.
/// errors   BPM outside 1..120 or given twice, coefficient not above 0, bad line: the fault
util::outcome<coefficient_list> read_coefficients(word_file& file);

/// Reads "nonlin_bpm_bad_buttons 1" and lines "bpm button".
/// errors   BPM or button out of range, a second line for a BPM, bad line: the fault
util::outcome<bad_button_list> read_bad_buttons(word_file& file);

/// One record of the offsets file.
struct bpm_offset {
  int bpm = 0;                          ///< as the file gives it, in range or not
  double horizontal = 0, vertical = 0;  ///< [mm]
};

/// The records of an offsets file up to its end or the first bad one.
struct offset_list {
  std::vector<bpm_offset> entry;
  util::status fault;  ///< why there are no more
};

/// Reads records "bpm vertical horizontal".
offset_list read_offsets(util::text_file& file);

}  // namespace nonlin_bpm_mod
