// gains_load: what a control system takes over from a run.
//
//     gains.load        coefficients of the electronics, by which they divide readings
//     button_coeff.dat  factors of the position tables' list, by which they multiply signals
//
// Both do the same to a position: load one or the other, never both. With c the coefficients of the
// electronics while the readings were taken, and t the button gains of the fit, product 1:
//
//     readings divided by c (correction 3)      new = c t
//     readings as they come (corrections 1, 2)  new = |c| t, |c| the geometric mean of the four:
//                                               what is fitted holds c already
//
// so that either way the product of the four stays, and with it the size of the sum signal. What
// button_coeff.dat multiplies are the readings that the electronics divided by c: its factors are
// c / new. Those of the present list are not in it, for no fit ever sees them.
#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "fault.hpp"
#include "run_results.hpp"

namespace report {

/// The coefficients to load.
/// given    old      [-]; 0 stands for 1, as in a file that was never calibrated
///          gain     button gains t of the fit, product 1 [-]
///          divided  whether the readings of the fit were divided by the old ones
/// errors   none: what is not known stays so
four new_coefficients(const four& old, const four& gain, bool divided);

/// Whether the BPM's coefficients are to be loaded.
bool is_loaded(const bpm_row& row);

/// In words: "gains of 8 BPMs to load, largest change +7.9 % (X5C TI)", or "nothing to load".
std::string what_to_load(const std::vector<bpm_row>& rows);

/// gains.load as text: a line for each button, those of BPMs whose old value stays too.
/// given    about  what the readings were, for its first lines
std::string gains_load_text(const std::vector<bpm_row>& rows, const std::string& about);

/// One BPM of the list that the position tables have now.
struct listed_multiplier {
  int bpm = 0;
  four factor{1, 1, 1, 1};
};

/// button_coeff.dat as text, which can be put in the place of the present one as it is: new factors
/// for the BPMs that are loaded, for all others those listed now.
/// note     a BPM outside 1..120 has no place in the list, and stands in a comment
std::string button_coeff_text(const std::vector<bpm_row>& rows,
                              const std::vector<listed_multiplier>& listed,
                              const std::string& about);

}  // namespace report
