// gain_template: the file of nominal button gains, and the BPM numbers and names it speaks of.
//
// The front end of every button has eleven gain ranges (0..10) in each of two timing blocks, and so
// a gain in each. A template file holds them BPM by BPM, relative to a nominal front end of gain 1:
// block 0 goes into table 0, block 1 into table 1. Buttons are numbered as the front-end cards are,
//     card        0    1    2    3
//     button      TI   BI   BO   TO
//     store       3    1    2    4       (orbit store, fit)
// The file also says which BPM number each name stands for; sections go by name.
// Format: docs/gain_template.md.
#pragma once
#include <string_view>

#include "bounded.hpp"
#include "orbit_store.hpp"
#include "text.hpp"

namespace gain_template {

inline constexpr int max_range = 10;      ///< gain ranges 0..max_range
inline constexpr int max_comments = 100;  ///< comment lines kept

using bpm_label = util::fixed_text<9>;    ///< name of a BPM, such as 12W
using file_name = util::fixed_text<100>;  ///< name of a template file
using bpm_label_list = util::bounded<bpm_label, 0, store::max_bpm, "bpm_label">;
using comment_list = util::bounded<util::fixed_text<120>, 1, max_comments, "old_comments_list">;

/// Gains of one button's front end.
struct range_struct {
  util::bounded<double, 0, max_range, "range"> range{};  ///< by gain range [-]; 0 when not in file
};

/// Gains of one BPM in one timing block.
struct button_gain_struct {
  bpm_label label;                                     ///< blank when the file has no such BPM
  util::bounded<range_struct, 0, 3, "button"> button;  ///< TI, BI, BO, TO
};

// Gains by BPM number. Nearly 2 MB each: allocate them, and only when they are wanted.
using gain_table0 = util::bounded<button_gain_struct, 0, store::max_bpm, "table0_bpm_data">;
using gain_table1 = util::bounded<button_gain_struct, 0, store::max_bpm, "table1_bpm_data">;

/// Names by BPM number, as the last template read gave them; blank where it gave none.
inline bpm_label_list bpm_names;

/// The number that a name stands for in bpm_names; -1 when none does.
int bpm_number(std::string_view name);

/// Reads a template file.
///
/// given    fit_gain_file      its name, which may begin with $KOVR_ONLINE; blank: it is asked for
///          old_comments_list, table0_bpm_data, table1_bpm_data  anything: all are cleared first
/// returns  fit_gain_file      the name that opened
///          old_comments_list  the comment lines before the first section, without their "#"
///          table0_bpm_data    gains of timing block 0 by BPM number; zeros, and a blank label,
///                             for a BPM that the file does not hold
///          table1_bpm_data    the same of timing block 1
/// errors   a name that does not open is told and asked again; end of input there ends the run.
///          A line that is not understood, a row or name given twice, an incomplete section: a
///          run-time error naming file, line and what was expected. More than 100 comment lines
///          before the first section: subscript_error
void read_kbpmii_button_gain(file_name& fit_gain_file, comment_list& old_comments_list,
                             gain_table0& table0_bpm_data, gain_table1& table1_bpm_data);

}  // namespace gain_template
