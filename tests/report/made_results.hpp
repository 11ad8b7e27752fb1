// Records of a whole run, made and calibrated in a closed-form round pipe.
#pragma once
#include <string>

#include "run_results.hpp"

namespace made {

/// given    kind  good: all determined; bad: none; mixed: every verdict and reason among good ones;
///                quiet: the beam stands still
report::run_results results(const std::string& kind, int bpms, int orbits);

}  // namespace made
