// bpm_pictures: what a person looks at to believe, or not to believe, one BPM.
#pragma once
#include <cstddef>
#include <string>

#include "run_results.hpp"

namespace report {

/// The pictures of a BPM as elements of a page, each in a <figure> with its caption: residuals
/// against the orbit and against u, places before and after correction, signals over time, gains
/// and pedestals. Those whose data the record does not hold are left out.
/// given    most_points  of a point cloud; more are thinned, outliers last
std::string bpm_pictures(const bpm_row& row, std::size_t most_points);

}  // namespace report
