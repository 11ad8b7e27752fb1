// trouble_test: would one thing more than the model knows explain the readings better?
//
// A trouble is a change g_k of the readings that the model does not make: cross-talk, a button that
// compresses, gains that move in time. To first order it adds the columns (u.g) to the equations of
// a fit that has ended. Whether its size is other than 0 follows from one pass over the orbits, and
// so does what it would do to the gains; nothing is fitted again. The number u alone is asked, so no
// current, however restless, is taken for a trouble.
#pragma once
#include <vector>

#include "calibration.hpp"
#include "one_fit.hpp"

namespace calibration {

/// given    state, result  where the fit with every intensity free has ended
/// returns  one entry for each trouble; empty when there is nothing to test with
std::vector<trouble_size> test_troubles(fit_state& state, const fit_setting& setting,
                                        const fit_result& result);

}  // namespace calibration
