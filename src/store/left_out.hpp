// left_out: BPMs that a data set holds and that brought no orbit into the store, each with its
// reason. Only the reader knows it: what it does not keep leaves no trace in the store.
//
// Readers count the turns of a BPM in a tally while they decide which to keep, and put a remark on
// the list when none was. The session shows the list at its end.
#pragma once
#include <string>
#include <vector>

#include "bounded.hpp"
#include "orbit_store.hpp"

namespace store {

/// One BPM of one data set, and why none of its readings is in the store.
struct bpm_remark {
  int bpm = 0;         ///< index, 0..5000
  std::string name;    ///< as the operator calls it
  std::string reason;  ///< "button BO is below 100 in all of 1000 turns"
  int turns = 0;       ///< that the reader looked at
};

/// Every remark of the session, in the order of reading. A BPM may have one in each data set.
inline std::vector<bpm_remark> left_out;

/// What a reader saw of the turns of one BPM.
struct turn_tally {
  int turns = 0;                               ///< looked at
  int kept = 0;                                ///< with four signals that are strong enough
  util::bounded<int, 1, 4, "weak"> weak_in{};  ///< turns in which this button was not
};

/// Counts one turn.
/// given    weakest  magnitude that a signal needs [as button]
/// returns  whether all four signals have it; not for a signal that is no number
/// errors   none
bool count_turn(turn_tally& tally, const util::bounded<double, 1, 4, "button">& button,
                double weakest);

/// Why no turn was kept, buttons called BI, BO, TI, TO: those that are weak in every turn, or, when
/// each of the four was strong at times, in how many turns each was weak.
std::string reason_of(const turn_tally& tally, double weakest);

/// Puts the BPM on the list when the tally has no turn that was kept.
void remark_unless_kept(int bpm, std::string_view name, const turn_tally& tally, double weakest);

}  // namespace store
