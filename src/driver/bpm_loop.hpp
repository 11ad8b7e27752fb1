// The BPM loop: everything that happens to one BPM after another once the data are in the store.
#pragma once
#include "session_state.hpp"

namespace driver {

/// Treats the chosen BPM, or every BPM from 0 up to bpm_count.
/// errors   bpm_count or norbits_save never given ends the run
void treat_bpms(session_state& s);

}  // namespace driver
