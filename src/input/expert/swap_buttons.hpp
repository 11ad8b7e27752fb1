// Two buttons of a BPM that were cabled the wrong way round; for experts.
#pragma once
#include <span>

#include "orbit_store.hpp"

namespace expert {

/// Asks whether to swap two buttons of a BPM and which, and exchanges their signals.
///
/// given    readings  of the BPM, every orbit of it
/// errors   anything but two numbers is told and asked again; a button outside 1..4 is a bounds
///          error; end of input ends the run
void ask_swap(std::span<store::bpm_struct> readings);

}  // namespace expert
