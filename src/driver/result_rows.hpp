// From what the session found out about a BPM to its row in the results, which files, report and
// comparison are made of.
#pragma once
#include <cstddef>
#include <vector>

#include "bpm_result.hpp"
#include "bpm_verdict.hpp"
#include "left_out.hpp"
#include "run_results.hpp"
#include "session_state.hpp"

namespace driver {

/// The coefficients by which the electronics divide readings, while those of one BPM were taken.
struct bpm_coefficients {
  report::four value = report::unknown_four;  ///< nan: the data do not tell
  bool divided = false;                       ///< the readings were divided by them
  bool agree = true;                          ///< in all data sets of the BPM
};

/// Those that the data sets name which gave the BPM an orbit.
/// given    used  their places among the sets
bpm_coefficients coefficients_of(const std::vector<data_set>& sets,
                                 const std::vector<std::size_t>& used, int bpm);

/// The row of a BPM that was fitted, its orbits included.
/// note     without a calibration only the numbers of the four fits are known
report::bpm_row row_of_fitted(const gain_fit_mod::bpm_result& result, const bpm_verdict& verdict,
                              const bpm_coefficients& coefficients);

/// The row of one that was not.
/// given    orbits  how many have a signal
report::bpm_row row_of_left_out(const store::bpm_remark& remark, int orbits,
                                const bpm_coefficients& coefficients);

}  // namespace driver
