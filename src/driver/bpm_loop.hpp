// The BPM loop: everything that happens to one BPM after another once the data are in the store.
#pragma once
#include "session_state.hpp"

namespace driver {

/// Treats the chosen BPM, or every BPM from 0 up to bpm_count: on util::jobs threads, told and written
/// in their order.
/// errors   bpm_count or norbits_save never given ends the run
void treat_bpms(session_state& s);

/// The table for BPMs that have none of their own, where it is not there yet: the round pipe's is made.
/// note     safe on several threads; the first one makes it
const stand_in_table& stand_in_of(session_state& s);

}  // namespace driver
